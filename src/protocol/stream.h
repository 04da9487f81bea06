// The byte form of a PObject tree on a Channel. One Send writes one tree and one Recv reads one;
// nothing else frames a message. File contents travel inside the tree: the sender streams the slice
// that a binary node names straight from disk, the receiver streams it straight into a file, so a
// file of any size never sits in memory.
//
// Wire form, all integers big-endian:
//   null     00 00
//   integer  01, a length byte (1, 2, 4 or 8), that many bytes
//   string   10, a 16-bit length, that many bytes of UTF-8
//   binary   30, a 64-bit length, that many bytes of the file
//   array    41, the elements, 40
//   map      42, for each member a string and a value, 40
// The map {"a": 300, "b": "x"} is 42 10 00 01 61 01 02 01 2C 10 00 01 62 10 00 01 78 40.
//
// Trees are walked with explicit stacks: nesting is limited by the count of nodes alone.
#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>
#include <vector>

#include "lib/channel.h"
#include "platform/mutex.h"
#include "protocol/object.h"
#include "ustring/ustring.h"

namespace tolven {

// Used by one thread for Send and Recv; any thread may call GetStatus and UpdateStatus. After a
// failure the channel's place in the stream is unknown and the connection must be dropped.
class PStream {
 public:
  enum : int {
    ERR_OK = 0,
    ERR_SYS = -1,       // a local failure: a file cannot be opened, no temporary name
    ERR_IO = -2,        // the channel failed, for whatever reason
    ERR_TIMEOUT = -3,   // for the layers above
    ERR_DISKFULL = -4,  // while storing a binary
    ERR_STREAM = -5,    // what came is no tree, or one beyond the limits
    ERR_INPUT = -6,     // the tree to send holds a string above 65,535 bytes
    ERR_FBIG = -7,      // for the layers above
  };

  // What a received tree may be at most; beyond it Recv ends with ERR_STREAM.
  struct Limits {
    std::uint64_t nodes = 10'000'000;  // every value counts one
    std::uint64_t bytes = UINT64_MAX;  // of the tree on the wire, contents of binaries left out
    bool allow_binary = true;
  };

  class SendFileWriteProgressReporter;

  // Is told of the binaries that go into files of their own, while they arrive.
  class ReceiveObserver {
   public:
    virtual ~ReceiveObserver() = default;
    // Whether the observer keeps a binary of this size itself: then no file is made for it, its
    // path stays empty, and the calls below are without one.
    virtual bool Keeps(std::uint64_t /*size*/) { return false; }
    // `size` bytes are announced for the file at `path`.
    virtual void Begin(const ustring& path, std::uint64_t size) = 0;
    // The next `size` bytes are in the file.
    virtual void Stored(platform::NativeFile file, const char* data, std::size_t size) = 0;
    // All bytes are; not called after a failure.
    virtual void End() = 0;
  };

  PStream() = default;
  PStream(const PStream&) = delete;
  PStream& operator=(const PStream&) = delete;

  // Writes the tree and flushes the channel. A map key that begins with "_" goes out without that
  // character.
  int Send(Channel& channel, const PObject& object);

  // Reads one tree into `object`. Maps are filled in place: a member that is there already keeps
  // its payload when the type agrees, and stays when the stream does not hold it. So a caller
  // chooses where a file is stored by putting a binary member with path, offset and length under
  // its key before the call; offset 0 replaces the file, offset equal to length appends to it,
  // anything else cuts it at offset first. Afterwards offset and length both tell how much of the
  // file is good, also after a failure.
  int Recv(Channel& channel, PObject& object);

  // Folder for received binaries whose place was not set; with neither they are refused.
  void SetDefaultRecvLocation(const ustring& path) { recv_path_ = path; }
  void SetLimits(const Limits& limits) { limits_ = limits; }
  // Null, or an object that outlives the receptions.
  void SetReceiveObserver(ReceiveObserver* observer) { observer_ = observer; }
  // Files that the last Recv made in that folder. The tree need not name them all: a member that
  // comes twice overwrites the first.
  const std::vector<ustring>& GetNewFiles() const { return new_files_; }

  // The keys on the way to the value in progress, joined by ".", and the bytes of it moved so far.
  void GetStatus(ustring& item, std::uint64_t& sent, std::uint64_t& size);
  // For code that moves a file outside the stream.
  void UpdateStatus(std::uint64_t sent, std::uint64_t size);
  void GetVersion(unsigned& major, unsigned& minor, unsigned& mini) const;

 private:
  struct SendFrame;
  struct RecvFrame;

  void Trace(const xchar* format);
  template <class Value>
  void TraceValue(const xchar* format, const Value& value);
  static int CheckStrings(const PObject& root);

  int SendObject(Channel& channel, const PObject& root);
  int SendValue(Channel& channel, const PObject& value, std::vector<SendFrame>& stack);
  int SendNull(Channel& channel);
  int SendInteger(Channel& channel, std::uint64_t value);
  int SendString(Channel& channel, std::string_view text);
  int SendBinary(Channel& channel, const PObject::binary_type& binary);
  int SendTag(Channel& channel, std::uint8_t tag);

  int RecvObject(Channel& channel, PObject& root);
  int RecvNext(Channel& channel, std::vector<RecvFrame>& stack);
  int RecvDispatch(Channel& channel, std::uint8_t tag, PObject& object,
                   std::vector<RecvFrame>& stack);
  int RecvTag(Channel& channel, std::uint8_t& tag);
  int RecvNull(Channel& channel, PObject& object);
  int RecvInteger(Channel& channel, PObject& object);
  int RecvString(Channel& channel, ustring& text);
  int RecvBinary(Channel& channel, PObject::binary_type& binary);
  int RecvKept(Channel& channel, PObject::binary_type& binary, std::uint64_t size);
  int OpenTarget(PObject::binary_type& binary, platform::ScopedFile& file);
  int StoreBinary(Channel& channel, platform::NativeFile file, const ustring& path,
                  std::uint64_t size, ReceiveObserver* observer, std::uint64_t& stored);
  int CountBytes(std::uint64_t count);
  int Skip(Channel& channel, std::uint8_t tag);

  void EnterMember(bool& in_member, std::string_view key);
  void LeaveMember(bool& in_member);
  void ZeroCounters();
  void ClearHistory();
  void DumpHistory();
  ustring GetHistory() const REQUIRES(status_lock_);
  const wchar_t* Indent() const;

  Mutex status_lock_;
  // Keys of the tree in progress, which does not change while they stand here.
  std::vector<std::string_view> history_ GUARDED_BY(status_lock_);
  // Bytes of the item in progress and of them moved so far. Written under status_lock_, so that
  // both always belong together.
  std::atomic<std::uint64_t> total_size_{0}, total_sent_{0};
  std::size_t indent_ = 0;  // nesting depth, for the indentation of debug lines alone
  bool trace_ = false;      // debug lines are on for this tree
  ustring recv_path_;
  ReceiveObserver* observer_ = nullptr;
  std::vector<ustring> new_files_;
  Limits limits_;
  std::uint64_t nodes_ = 0, bytes_ = 0;  // of the tree being received
  std::vector<char> buffer_;             // for strings and contents, kept between trees
};

// Feeds a transfer's progress into the counters of its stream.
class PStream::SendFileWriteProgressReporter : public Channel::WriterProgressReporter {
 public:
  SendFileWriteProgressReporter(PStream& stream, const ustring& path, std::uint64_t total)
      : stream_(stream), path_(path), total_(total) {}
  // `count` bytes more have gone out.
  void Report(std::uint64_t count) override;

 private:
  PStream& stream_;
  const ustring path_;
  const std::uint64_t total_;
};

}  // namespace tolven
