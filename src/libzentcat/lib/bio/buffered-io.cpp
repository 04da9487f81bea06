#include "libzentcat/lib/bio/buffered-io.h"

#include <algorithm>

#include "libzentcat/lib/io/socket.h"
#include "platform/sockets.h"

namespace tolven::TolvenApplication {

namespace {

// At most so much goes to the kernel at once, so that an abort and the progress are looked at.
constexpr std::uint64_t kSendfileBlock = 524288;

platform::Status sys_sendfile(const Socket& socket, const File& file, std::uint64_t offset,
                              std::size_t size, std::size_t& sent) {
  sent = 0;
  return platform::sockets().SendFile(socket.fd(), file.fd(), offset, size, sent);
}

}  // namespace

int BufferedIO::load(IOBase& io) {
  if (BufferedIOBase::load(io) < 0) return -1;
  m_rbuf = std::make_unique<LineBuffer<char>>(kBufferSize);
  return 0;
}

void BufferedIO::unload() {
  BufferedIOBase::unload();
  m_rbuf.reset();
}

std::int64_t BufferedIO::read(void* data, std::size_t size) {
  if (!loaded() || !isGoodToRead()) return -1;
  auto* const out = static_cast<char*>(data);
  const std::size_t had = m_rbuf->read(out, size);
  const std::size_t rest = size - had;
  if (rest == 0) return static_cast<std::int64_t>(size);
  if (rest >= m_rbuf->capacity()) {
    return static_cast<std::int64_t>(had) + wait_and_read(out + had, rest, rest);
  }
  const std::size_t room = m_rbuf->room();
  const std::int64_t got = wait_and_read(m_rbuf->tail(room), room, rest);
  m_rbuf->grow(static_cast<std::size_t>(got));
  return static_cast<std::int64_t>(had + m_rbuf->read(out + had, rest));
}

std::int64_t BufferedIO::wait_and_read(void* data, std::size_t size, std::size_t at_least) {
  auto* const out = static_cast<char*>(data);
  Silence silence;
  std::size_t done = 0;
  while (done < at_least && !stopped()) {
    const std::int64_t got = m_io->read(out + done, size - done);
    if (got == IOBase::kWouldBlock) {
      if (waitForIO(IOBase::MODE_READ, silence) < 0) break;
    } else if (got < 0) {
      setError(error_syscall);
      break;
    } else if (got == 0) {
      setNoRead();
      break;
    } else {
      silence.moved();
      done += static_cast<std::size_t>(got);
      reportRead(static_cast<std::size_t>(got));
      // A short read has emptied the socket: asking again at once would only be refused.
      if (done < at_least && waitForIO(IOBase::MODE_READ, silence) < 0) break;
    }
  }
  return static_cast<std::int64_t>(done);
}

std::int64_t BufferedIO::wait_and_write(const void* data, std::size_t size) {
  const auto* const bytes = static_cast<const char*>(data);
  Silence silence;
  std::size_t done = 0;
  while (done < size && !stopped()) {
    const std::int64_t sent = m_io->write(bytes + done, size - done);
    if (sent == IOBase::kWouldBlock) {
      if (waitForIO(IOBase::MODE_WRITE, silence) < 0) break;
    } else if (sent < 0) {
      setNoWrite();
      setError(error_syscall);
      break;
    } else {
      silence.moved();
      done += static_cast<std::size_t>(sent);
    }
  }
  return static_cast<std::int64_t>(done);
}

std::int64_t BufferedIO::sendfile(File& file, std::uint64_t offset, std::uint64_t length) {
  auto* const socket = dynamic_cast<Socket*>(m_io.get());
  if (socket == nullptr) return BufferedIOBase::sendfile(file, offset, length);
  if (!isGoodToWrite() || flush() < 0) return -1;
  Silence silence;
  for (std::uint64_t done = 0; done < length;) {
    if (stopped()) return -1;
    const auto block = static_cast<std::size_t>(std::min(length - done, kSendfileBlock));
    std::size_t sent = 0;
    const platform::Status status = sys_sendfile(*socket, file, offset + done, block, sent);
    if (status.is(platform::ErrorKind::kWouldBlock)) {
      if (waitForIO(IOBase::MODE_WRITE, silence) < 0) return -1;
    } else if (done == 0 && (status.is(platform::ErrorKind::kInvalid) ||
                             status.is(platform::ErrorKind::kNotSupported))) {
      // Some file systems cannot feed the kernel's way.
      return BufferedIOBase::sendfile(file, offset, length);
    } else if (!status.ok()) {
      setNoWrite();
      return fail(error_syscall);
    } else if (sent == 0) {
      return fail(error_invalid);  // the file is shorter than announced
    } else {
      silence.moved();
      done += sent;
      reportWrite(sent);
    }
  }
  return static_cast<std::int64_t>(length);
}

}  // namespace tolven::TolvenApplication
