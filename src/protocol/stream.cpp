#include "protocol/stream.h"

#include <algorithm>
#include <array>
#include <utility>

#include "lib/log.h"
#include "lib/tmp-name-gen.h"
#include "platform/paths.h"

namespace tolven {
namespace {

using platform::ErrorKind;
using platform::NativeFile;
using platform::ScopedFile;
using platform::Status;

enum Tag : std::uint8_t {
  kTagNull = 0x00,
  kTagInteger = 0x01,
  kTagString = 0x10,
  kTagBinary = 0x30,
  kTagEnd = 0x40,
  kTagArray = 0x41,
  kTagMap = 0x42,
};

constexpr std::size_t kBlockSize = 0x14000;
constexpr std::size_t kMaxString = 0xFFFF;
constexpr std::size_t kStringHead = 3;  // the tag and the length
constexpr std::uint64_t kProgressStep = 104857600;
constexpr int kMaxTempNames = 100;
constexpr const char* kCategory = "stream";

std::size_t IntegerWidth(std::uint64_t value) {
  if (value < 0x100) return 1;
  if (value < 0x10000) return 2;
  return value < 0x100000000 ? 4 : 8;
}

// The key as it goes on the wire.
std::string_view WireKey(const ustring& key) {
  std::string_view text = key.view();
  if (!text.empty() && text.front() == '_') text.remove_prefix(1);
  return text;
}

// Every failed channel call is an I/O failure to the callers, whatever the channel's code was.
int ChannelFailure(int code) {
  Logger::LogMsg(Logger::L_WARNING, kCategory, L"[WARNING] stream(%d): Channel: %d\n", __LINE__,
                 code);
  return PStream::ERR_IO;
}

int StoreFailure(const Status& status) {
  return status.is(ErrorKind::kNoSpace) ? PStream::ERR_DISKFULL : PStream::ERR_SYS;
}

bool AtProgressStep(std::uint64_t count) { return count > 0 && count % kProgressStep == 0; }

}  // namespace

// One container on the way to the value in progress. The positions point into the caller's tree,
// which nobody changes during the call.
struct PStream::SendFrame {
  const PObject::map_type* map = nullptr;
  PObject::map_type::const_iterator member{};
  const PObject::array_type* array = nullptr;
  std::size_t element = 0;
  bool in_member = false;  // a key of this map is on the history
};

// Elements are filled completely before their container grows again, so the pointers stay good.
struct PStream::RecvFrame {
  PObject::map_type* map = nullptr;
  PObject::array_type* array = nullptr;
  bool in_member = false;
};

void PStream::Trace(const xchar* format) {
  if (trace_) Logger::LogMsg(Logger::L_DEBUG, kCategory, format, Indent());
}

template <class Value>
void PStream::TraceValue(const xchar* format, const Value& value) {
  if (trace_) Logger::LogMsg(Logger::L_DEBUG, kCategory, format, Indent(), value);
}

// ---- Send -------------------------------------------------------------------------------------

int PStream::CheckStrings(const PObject& root) {
  std::vector<const PObject*> pending{&root};
  while (!pending.empty()) {
    const PObject& value = *pending.back();
    pending.pop_back();
    if (value.isString()) {
      if (value.asStringView().size() > kMaxString) return ERR_INPUT;
    } else if (value.isMap()) {
      for (const auto& [key, member] : value.asMap()) {
        if (WireKey(key).size() > kMaxString) return ERR_INPUT;
        if (member.isContainer() || member.isString()) pending.push_back(&member);
      }
    } else if (value.isArray()) {
      for (const PObject& element : value.asArray()) {
        if (element.isContainer() || element.isString()) pending.push_back(&element);
      }
    }
  }
  return ERR_OK;
}

int PStream::Send(Channel& channel, const PObject& object) {
  trace_ = Logger::IsEnabled(Logger::L_DEBUG, kCategory);
  int result = CheckStrings(object);
  if (result == ERR_OK) result = SendObject(channel, object);
  if (result == ERR_OK) {
    const int flushed = channel.FlushWrite(0);
    if (flushed < 0) result = ChannelFailure(flushed);
  }
  if (result < 0) DumpHistory();
  ClearHistory();
  return result;
}

int PStream::SendObject(Channel& channel, const PObject& root) {
  std::vector<SendFrame> stack;
  int result = SendValue(channel, root, stack);
  while (result == ERR_OK && !stack.empty()) {
    SendFrame& frame = stack.back();
    const PObject* next = nullptr;
    if (frame.map != nullptr && frame.member != frame.map->end()) {
      const std::string_view key = WireKey(frame.member->first);
      result = SendString(channel, key);
      if (result != ERR_OK) break;
      EnterMember(frame.in_member, key);
      next = &frame.member->second;
      ++frame.member;
    } else if (frame.array != nullptr && frame.element < frame.array->size()) {
      next = &(*frame.array)[frame.element++];
    }
    if (next != nullptr) {
      result = SendValue(channel, *next, stack);  // may move the frames
      continue;
    }
    LeaveMember(frame.in_member);
    const bool is_map = frame.map != nullptr;
    stack.pop_back();
    --indent_;
    Trace(is_map ? L"%s}\n" : L"%s]\n");
    result = SendTag(channel, kTagEnd);
  }
  return result;
}

// Sends a primitive whole, or opens a container and leaves its content to the caller's loop.
int PStream::SendValue(Channel& channel, const PObject& value, std::vector<SendFrame>& stack) {
  if (value.isNull()) return SendNull(channel);
  if (value.isInteger()) {
    ZeroCounters();
    return SendInteger(channel, value.asUInt64());
  }
  if (value.isString()) {
    ZeroCounters();
    return SendString(channel, value.asStringView());
  }
  if (value.isMap() || value.isArray()) {
    const bool is_map = value.isMap();
    Trace(is_map ? L"%s{\n" : L"%s[\n");
    ++indent_;
    SendFrame frame;
    if (is_map) {
      frame.map = &value.asMap();
      frame.member = frame.map->begin();
    } else {
      frame.array = &value.asArray();
    }
    stack.push_back(frame);
    return SendTag(channel, is_map ? kTagMap : kTagArray);
  }
  if (value.isBinary()) {
    ZeroCounters();
    return SendBinary(channel, value.asBinary());
  }
  return ERR_SYS;
}

int PStream::SendTag(Channel& channel, std::uint8_t tag) {
  const int result = channel.WriteByte(tag);
  return result < 0 ? ChannelFailure(result) : ERR_OK;
}

int PStream::SendNull(Channel& channel) {
  ZeroCounters();
  const char bytes[2] = {kTagNull, 0};
  const int result = channel.Write(bytes, sizeof bytes);
  return result < 0 ? ChannelFailure(result) : ERR_OK;
}

int PStream::SendInteger(Channel& channel, std::uint64_t value) {
  TraceValue(L"%s%llu\n", value);
  const std::size_t width = IntegerWidth(value);
  std::array<char, 10> bytes{};
  bytes[0] = kTagInteger;
  bytes[1] = static_cast<char>(width);
  for (std::size_t i = 0; i < width; ++i) {
    bytes[1 + width - i] = static_cast<char>(value >> (8 * i));
  }
  const int result = channel.Write(bytes.data(), width + 2);
  return result < 0 ? ChannelFailure(result) : ERR_OK;
}

int PStream::SendString(Channel& channel, std::string_view text) {
  TraceValue(L"%s\"%s\"\n", text);
  // Short texts, nearly all, go out with their head in one piece.
  std::array<char, 128> piece;
  piece[0] = kTagString;
  piece[1] = static_cast<char>(text.size() >> 8);
  piece[2] = static_cast<char>(text.size());
  const std::size_t taken = text.size() <= piece.size() - kStringHead ? text.size() : 0;
  std::copy_n(text.data(), taken, piece.data() + kStringHead);
  int result = channel.Write(piece.data(), kStringHead + taken);
  if (result >= 0 && taken < text.size()) result = channel.Write(text.data(), text.size());
  return result < 0 ? ChannelFailure(result) : ERR_OK;
}

// Where the slice begins in the local file is not sent. Once the head is out, a file that cannot be
// opened leaves the connection useless, which the error tells.
int PStream::SendBinary(Channel& channel, const PObject::binary_type& binary) {
  SendFileWriteProgressReporter reporter(*this, binary.path, binary.length);
  int result = SendTag(channel, kTagBinary);
  if (result != ERR_OK) return result;
  result = channel.WriteInt64(binary.length);
  if (result < 0) return ChannelFailure(result);

  ScopedFile file;
  const Status opened =
      platform::files().Open(binary.path, platform::OpenMode::kRead, *file.receive());
  if (!opened.ok()) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] stream(%d): CreateFile(\"%s\"): Error code %d\n", __LINE__,
                   binary.path, opened.code);
    Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] stream(%d): open(%s) error\n", __LINE__,
                   binary.path);
    return ERR_SYS;
  }
  result = channel.Sendfile(file.get(), binary.offset, binary.length, &reporter);
  return result < 0 ? ChannelFailure(result) : ERR_OK;
}

void PStream::SendFileWriteProgressReporter::Report(std::uint64_t count) {
  bytes += count;
  stream_.UpdateStatus(bytes, total_);
  if (AtProgressStep(bytes)) {
    Logger::LogMsg(Logger::L_INFO, kCategory, L"[INFO] stream(%d): sending %s ... (%llu / %llu)\n",
                   __LINE__, path_, bytes, total_);
  }
}

// ---- Recv -------------------------------------------------------------------------------------

int PStream::Recv(Channel& channel, PObject& object) {
  trace_ = Logger::IsEnabled(Logger::L_DEBUG, kCategory);
  nodes_ = 0;
  bytes_ = 0;
  new_files_.clear();
  const int result = RecvObject(channel, object);
  if (result < 0) DumpHistory();
  ClearHistory();
  return result;
}

int PStream::RecvObject(Channel& channel, PObject& root) {
  std::vector<RecvFrame> stack;
  std::uint8_t tag = 0;
  int result = RecvTag(channel, tag);
  if (result == ERR_OK) result = RecvDispatch(channel, tag, root, stack);
  while (result == ERR_OK && !stack.empty()) result = RecvNext(channel, stack);
  return result;
}

// One step of the innermost container: its end, its next element or its next member.
int PStream::RecvNext(Channel& channel, std::vector<RecvFrame>& stack) {
  RecvFrame& frame = stack.back();
  std::uint8_t tag = 0;
  int result = RecvTag(channel, tag);
  if (result != ERR_OK || tag == kTagEnd) LeaveMember(frame.in_member);
  if (result != ERR_OK) return result;
  if (tag == kTagEnd) {
    const bool is_map = frame.map != nullptr;
    stack.pop_back();
    --indent_;
    Trace(is_map ? L"%s}\n" : L"%s]\n");
    return ERR_OK;
  }
  if (frame.array != nullptr) {
    frame.array->emplace_back();
    return RecvDispatch(channel, tag, frame.array->back(), stack);
  }

  if (tag != kTagString) {
    LeaveMember(frame.in_member);
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] stream(%d): PStream: expect string, but get tag %u\n", __LINE__,
                   static_cast<unsigned>(tag));
    return ERR_STREAM;
  }
  ustring key;
  result = RecvString(channel, key);
  if (result != ERR_OK) {
    LeaveMember(frame.in_member);
    return result;
  }
  const auto place = frame.map->try_emplace(std::move(key)).first;
  EnterMember(frame.in_member, place->first.view());
  PObject& member = place->second;
  result = RecvTag(channel, tag);
  return result == ERR_OK ? RecvDispatch(channel, tag, member, stack) : result;
}

int PStream::RecvDispatch(Channel& channel, std::uint8_t tag, PObject& object,
                          std::vector<RecvFrame>& stack) {
  if (++nodes_ > limits_.nodes) return ERR_STREAM;
  RecvFrame frame;
  switch (tag) {
    case kTagNull:
      return RecvNull(channel, object);
    case kTagInteger:
      return RecvInteger(channel, object);
    case kTagString: {
      ZeroCounters();
      ustring text;
      const int result = RecvString(channel, text);
      if (result == ERR_OK) object = std::move(text);
      return result;
    }
    case kTagBinary:
      return limits_.allow_binary ? RecvBinary(channel, object.asBinary()) : ERR_STREAM;
    case kTagArray:
      frame.array = &object.asArray();
      break;
    case kTagMap:
      frame.map = &object.asMap();
      break;
    default:
      return Skip(channel, tag);
  }
  Trace(tag == kTagMap ? L"%s{\n" : L"%s[\n");
  ++indent_;
  stack.push_back(frame);
  return ERR_OK;
}

int PStream::Skip(Channel&, std::uint8_t) { return ERR_STREAM; }

int PStream::CountBytes(std::uint64_t count) {
  bytes_ += count;
  return bytes_ > limits_.bytes ? ERR_STREAM : ERR_OK;
}

int PStream::RecvTag(Channel& channel, std::uint8_t& tag) {
  if (CountBytes(1) != ERR_OK) return ERR_STREAM;
  char byte = 0;
  const int result = channel.Read(&byte, 1);
  tag = static_cast<std::uint8_t>(byte);
  return result < 0 ? ChannelFailure(result) : ERR_OK;
}

int PStream::RecvNull(Channel& channel, PObject& object) {
  std::uint8_t length = 0;
  const int result = RecvTag(channel, length);
  if (result != ERR_OK) return result;
  if (length != 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] stream(%d): expect length 0, but we've got %u\n", __LINE__,
                   static_cast<unsigned>(length));
    return ERR_STREAM;
  }
  object.clear();
  return ERR_OK;
}

int PStream::RecvInteger(Channel& channel, PObject& object) {
  ZeroCounters();
  std::uint8_t width = 0;
  int result = RecvTag(channel, width);
  if (result != ERR_OK) return result;
  if (width > sizeof(std::uint64_t) || CountBytes(width) != ERR_OK) return ERR_STREAM;
  std::array<char, sizeof(std::uint64_t)> bytes{};
  result = channel.Read(bytes.data(), width);
  if (result < 0) return ChannelFailure(result);
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < width; ++i) {
    value = value << 8 | static_cast<unsigned char>(bytes[i]);
  }
  TraceValue(L"%s%llu\n", value);
  object = value;
  return ERR_OK;
}

int PStream::RecvString(Channel& channel, ustring& text) {
  if (CountBytes(2) != ERR_OK) return ERR_STREAM;
  std::array<char, 2> bytes{};
  int result = channel.Read(bytes.data(), bytes.size());
  if (result < 0) return ChannelFailure(result);
  const auto length = static_cast<std::size_t>(static_cast<unsigned char>(bytes[0]) << 8 |
                                               static_cast<unsigned char>(bytes[1]));
  if (CountBytes(length) != ERR_OK) return ERR_STREAM;
  if (buffer_.size() < length) buffer_.resize(std::max<std::size_t>(length, 256));
  result = channel.Read(buffer_.data(), length);
  if (result < 0) return ChannelFailure(result);
  text = ustring(std::string_view(buffer_.data(), length));
  TraceValue(L"%s\"%s\"\n", text);
  return ERR_OK;
}

int PStream::RecvBinary(Channel& channel, PObject::binary_type& binary) {
  std::uint64_t size = 0;
  int result = channel.ReadInt64(size);
  if (result < 0) return ChannelFailure(result);
  if (observer_ != nullptr && binary.path.empty() && observer_->Keeps(size)) {
    return RecvKept(channel, binary, size);
  }

  ScopedFile file;
  result = OpenTarget(binary, file);
  if (result != ERR_OK) {
    binary.length = binary.offset;  // the file may have been cut there already
    return result;
  }
  UpdateStatus(0, size);
  std::uint64_t stored = 0;
  ReceiveObserver* const observer = binary.offset == 0 ? observer_ : nullptr;
  if (observer != nullptr) observer->Begin(binary.path, size);
  result = StoreBinary(channel, file.get(), binary.path, size, observer, stored);
  // Some file systems report a full disk only now.
  const Status closed = platform::files().Close(file.Release());
  if (result == ERR_OK && !closed.ok()) result = StoreFailure(closed);
  if (observer != nullptr && result == ERR_OK) observer->End();
  binary.offset += stored;
  binary.length = binary.offset;
  Logger::LogMsg(Logger::L_DEBUG, kCategory, L"%sbinary has been stored at '%s' with length %llu\n",
                 Indent(), binary.path, binary.length);
  return result;
}

int PStream::RecvKept(Channel& channel, PObject::binary_type& binary, std::uint64_t size) {
  if (buffer_.size() < kBlockSize) buffer_.resize(kBlockSize);
  UpdateStatus(0, size);
  observer_->Begin({}, size);
  std::uint64_t stored = 0;
  while (stored < size) {
    const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(kBlockSize, size - stored));
    const int result = channel.Read(buffer_.data(), count);
    if (result < 0) return ChannelFailure(result);
    observer_->Stored(platform::kInvalidFile, buffer_.data(), count);
    stored += count;
    UpdateStatus(stored, size);
  }
  observer_->End();
  binary.offset = binary.length = stored;
  return ERR_OK;
}

// Opens the file that a received binary goes to, at the place that `binary` asks for; without a
// place, a fresh file in the receive folder.
int PStream::OpenTarget(PObject::binary_type& binary, ScopedFile& file) {
  platform::Files& files = platform::files();
  if (binary.path.empty()) {
    // Without a folder it would land at the root of the file system.
    if (platform::PathRootLength(recv_path_) == recv_path_.size()) return ERR_SYS;
    Status opened{ErrorKind::kExists, 0};
    for (int i = 0; i < kMaxTempNames && opened.is(ErrorKind::kExists); ++i) {
      binary.path = TmpNameGen::getInstance().getTmpPath(recv_path_);
      if (binary.path.empty()) return ERR_SYS;
      opened = files.Open(binary.path, platform::OpenMode::kCreateExclusive, *file.receive());
    }
    binary.offset = 0;
    binary.length = 0;
    if (opened.ok()) {
      new_files_.push_back(binary.path);
      return ERR_OK;
    }
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] stream(%d): CreateFile(\"%s\"): Error code %d\n", __LINE__,
                   binary.path, opened.code);
    return ERR_SYS;
  }

  Logger::LogMsg(Logger::L_DEBUG, kCategory,
                 L"[DEBUG] stream(%d): store binary to %s, offset %llu\n", __LINE__, binary.path,
                 binary.offset);
  if (binary.offset != 0 && binary.offset != binary.length) {
    Status cut = files.Open(binary.path, platform::OpenMode::kModify, *file.receive());
    if (!cut.ok()) {
      Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] stream(%d): CreateFile: Error code %d\n",
                     __LINE__, cut.code);
      return ERR_SYS;
    }
    cut = files.Seek(file.get(), binary.offset);
    if (!cut.ok()) {
      Logger::LogMsg(Logger::L_ERR, kCategory,
                     L"[ERROR] stream(%d): SetFilePointerEx: Error code %d\n", __LINE__, cut.code);
      return ERR_SYS;
    }
    cut = files.Truncate(file.get(), binary.offset);
    if (!cut.ok()) {
      Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] stream(%d): SetEndOfFile: Error code %d\n",
                     __LINE__, cut.code);
      return ERR_SYS;
    }
    file.Reset();
  }
  const auto mode =
      binary.offset == 0 ? platform::OpenMode::kTruncate : platform::OpenMode::kAppend;
  const Status opened = files.Open(binary.path, mode, *file.receive());
  if (opened.ok()) return ERR_OK;
  Logger::LogMsg(Logger::L_ERR, kCategory,
                 L"[ERROR] stream(%d): CreateFile(\"%s\"): Error code %d\n", __LINE__, binary.path,
                 opened.code);
  return ERR_SYS;
}

int PStream::StoreBinary(Channel& channel, NativeFile file, const ustring& path, std::uint64_t size,
                         ReceiveObserver* observer, std::uint64_t& stored) {
  if (buffer_.size() < kBlockSize) buffer_.resize(kBlockSize);
  while (stored < size) {
    const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(kBlockSize, size - stored));
    const int result = channel.Read(buffer_.data(), count);
    if (result < 0) return ChannelFailure(result);
    std::size_t written = 0;
    const Status status = platform::files().Write(file, buffer_.data(), count, written);
    stored += written;
    UpdateStatus(stored, size);
    if (!status.ok()) return StoreFailure(status);
    if (observer != nullptr) observer->Stored(file, buffer_.data(), count);
    if (AtProgressStep(stored)) {
      Logger::LogMsg(Logger::L_INFO, kCategory,
                     L"[INFO] stream(%d): receiving %s ... (%llu / %llu)\n", __LINE__, path, stored,
                     size);
    }
  }
  return ERR_OK;
}

// ---- Progress ---------------------------------------------------------------------------------

void PStream::GetStatus(ustring& item, std::uint64_t& sent, std::uint64_t& size) {
  MutexLock lock(status_lock_);
  item = GetHistory();
  sent = total_sent_;
  size = total_size_;
}

void PStream::UpdateStatus(std::uint64_t sent, std::uint64_t size) {
  MutexLock lock(status_lock_);
  total_sent_ = sent;
  total_size_ = size;
}

void PStream::GetVersion(unsigned& major, unsigned& minor, unsigned& mini) const {
  major = 1;
  minor = 0;
  mini = 0;
}

// From one member of a map to the next in one step: the lock is what a member costs most.
void PStream::EnterMember(bool& in_member, std::string_view key) {
  MutexLock lock(status_lock_);
  if (in_member) {
    history_.back() = key;
  } else {
    history_.push_back(key);
  }
  in_member = true;
}

void PStream::LeaveMember(bool& in_member) {
  if (!in_member) return;
  MutexLock lock(status_lock_);
  history_.pop_back();
  in_member = false;
}

void PStream::ZeroCounters() {
  if (total_size_.load(std::memory_order_relaxed) != 0 ||
      total_sent_.load(std::memory_order_relaxed) != 0) {
    UpdateStatus(0, 0);
  }
}

void PStream::ClearHistory() {
  MutexLock lock(status_lock_);
  history_.clear();
  total_size_ = 0;
  total_sent_ = 0;
  indent_ = 0;
}

void PStream::DumpHistory() {
  MutexLock lock(status_lock_);
  Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] stream(%d): Error stack: %s\n", __LINE__,
                 GetHistory());
}

ustring PStream::GetHistory() const {
  std::string joined;
  for (const std::string_view key : history_) {
    if (!joined.empty()) joined += '.';
    joined += key;
  }
  return ustring(joined);
}

const wchar_t* PStream::Indent() const {
  static constexpr std::array<const wchar_t*, 12> kIndents = {L"",
                                                              L"  ",
                                                              L"    ",
                                                              L"      ",
                                                              L"        ",
                                                              L"          ",
                                                              L"            ",
                                                              L"              ",
                                                              L"                ",
                                                              L"                  ",
                                                              L"                    ",
                                                              L"                      "};
  return kIndents[std::min(indent_, kIndents.size() - 1)];
}

}  // namespace tolven
