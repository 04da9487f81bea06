// Buffered layers over a raw I/O object. A layer works on a copy of the object it was loaded with,
// and handoverTo moves the live connection to another layer: that is how a plain connection becomes
// a TLS connection in place, and back.
//
// Every wait is cut into short slices, so that an abort is noticed within 100 ms and a time-out
// soon after it is due. The time-out is one of silence: it starts anew whenever a byte has moved,
// so a large file on a slow line passes and a stalled one does not.
//
// Failures end in error() and in -1 or a short count. A layer that had one stays in it until
// clear() or the next load(): what the peer has of an interrupted write is unknown. A layer belongs
// to one thread at a time; only the controller may be driven from others.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "libzentcat/lib/io/file.h"
#include "libzentcat/lib/io/io-base.h"
#include "libzentcat/lib/utils/line-buffer.h"

namespace tolven::TolvenApplication {

// Looks over a layer's shoulder: ends its I/O and counts its bytes.
class BufferedIOController {
 public:
  virtual ~BufferedIOController() = default;
  virtual bool abort() = 0;  // true ends the current and every later I/O
  virtual void updateRead(std::size_t bytes) = 0;
  // Bytes that the layer took over; those of small writes before they are flushed.
  virtual void updateWrite(std::size_t bytes) = 0;
};

class BufferedIOBase {
 public:
  enum Error {
    error_none = 0,
    error_syscall = -1,
    error_abort = -2,
    error_timeout = -3,
    error_invalid = -4,  // not loaded, or a file shorter than announced
  };

  BufferedIOBase();
  virtual ~BufferedIOBase();
  BufferedIOBase(const BufferedIOBase&) = delete;
  BufferedIOBase& operator=(const BufferedIOBase&) = delete;

  // Gives the connection to `target`, with time-out and controller. What was written goes out
  // first; what was read ahead is dropped. 0, or -1 with this layer still loaded: target.error()
  // then tells the reason.
  virtual int handoverTo(BufferedIOBase& target);
  // Takes a copy of `io`; a socket is made non-blocking. 0 or -1.
  virtual int load(IOBase& io);
  // Lets the connection go, open as it is; nothing is flushed.
  virtual void unload();

  // Waits for exactly `size` bytes. Fewer come back after the end or a failure, -1 from a layer
  // that cannot be read any more.
  virtual std::int64_t read(void* data, std::size_t size) = 0;
  // Small writes gather until there is a buffer full of them or a flush; large ones pass by.
  virtual std::int64_t write(const void* data, std::size_t size);
  // Sends part of a file: `length`, or -1.
  virtual std::int64_t sendfile(File& file, std::uint64_t offset, std::uint64_t length);
  virtual int flush();  // 0 or -1

  void setController(BufferedIOController* controller) { m_controller = controller; }
  void setTimeout(unsigned seconds) { m_timeout = seconds; }  // 0: none
  bool isGoodToRead() const { return m_error == error_none && (m_flag & kNoRead) == 0; }
  bool isGoodToWrite() const { return m_error == error_none && (m_flag & kNoWrite) == 0; }
  int error() const { return m_error; }
  void clear();
  void setNoRead() { m_flag |= kNoRead; }
  void setNoWrite() { m_flag |= kNoWrite; }
  void setError(int error) { m_error = error; }

 protected:
  static constexpr std::size_t kBufferSize = 8192;

  // The silence on a connection, measured from the first wait after the last byte.
  class Silence {
   public:
    void moved() { m_start = kNone; }
    std::int64_t start();  // milliseconds of the monotonic clock

   private:
    static constexpr std::int64_t kNone = -1;
    std::int64_t m_start = kNone;
  };

  bool functionTimeout(std::int64_t start) const;
  bool functionAbort() const { return m_controller != nullptr && m_controller->abort(); }
  // True, with the error set, when the controller wants an end.
  bool stopped();
  // Waits until the I/O object can go on: 1, or -1 with the error set.
  int waitForIO(IOBase::Mode mode, Silence& silence);

  // Sends without gathering; the bytes that went out, fewer after a failure.
  virtual std::int64_t wait_and_write(const void* data, std::size_t size) = 0;
  void reportRead(std::size_t bytes);
  void reportWrite(std::size_t bytes);
  int fail(int error);  // sets it; -1
  // Whether the layer is loaded; sets error_invalid otherwise.
  bool loaded();

  std::unique_ptr<IOBase> m_io;

 private:
  static constexpr unsigned kNoRead = 1;
  static constexpr unsigned kNoWrite = 2;

  BufferedIOController* m_controller = nullptr;  // not owned
  unsigned m_timeout = 0;
  unsigned m_flag = 0;
  int m_error = error_none;
  std::unique_ptr<LineBuffer<char>> m_wbuf;
};

}  // namespace tolven::TolvenApplication
