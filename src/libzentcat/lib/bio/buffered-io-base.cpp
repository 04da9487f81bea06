#include "libzentcat/lib/bio/buffered-io-base.h"

#include <algorithm>

#include "libzentcat/lib/io/socket.h"
#include "platform/clock.h"

namespace tolven::TolvenApplication {

namespace {

// The longest single wait: how late an abort may be noticed.
constexpr int kSliceMs = 100;

// One read of a file that has to pass through memory; five full TLS records.
constexpr std::size_t kFileBlock = 81920;

std::int64_t Now() { return platform::clock().MonotonicMilliseconds(); }

}  // namespace

std::int64_t BufferedIOBase::Silence::start() {
  if (m_start == kNone) m_start = Now();
  return m_start;
}

BufferedIOBase::BufferedIOBase() = default;
BufferedIOBase::~BufferedIOBase() = default;

int BufferedIOBase::handoverTo(BufferedIOBase& target) {
  target.m_timeout = m_timeout;
  target.m_controller = m_controller;
  if (!loaded() || flush() < 0) return -1;
  const int result = target.load(*m_io);
  if (result < 0) return -1;
  unload();
  return result;
}

int BufferedIOBase::load(IOBase& io) {
  auto copy = io.clone();  // before unload: `io` may be our own
  unload();
  clear();
  if (auto* socket = dynamic_cast<Socket*>(copy.get())) {
    // A blocking socket would hold a large write, or a TLS record, without looking at the abort.
    if (socket->setBlocking(false) < 0) return fail(error_syscall);
  }
  m_io = std::move(copy);
  m_wbuf = std::make_unique<LineBuffer<char>>(kBufferSize);
  return 0;
}

void BufferedIOBase::unload() {
  m_io.reset();
  m_wbuf.reset();
}

std::int64_t BufferedIOBase::write(const void* data, std::size_t size) {
  if (!loaded() || !isGoodToWrite()) return -1;
  const auto* bytes = static_cast<const char*>(data);
  std::int64_t taken = static_cast<std::int64_t>(size);
  if (!m_wbuf->write(bytes, size)) {
    if (flush() < 0) return -1;
    if (!m_wbuf->write(bytes, size)) taken = wait_and_write(data, size);
  }
  reportWrite(static_cast<std::size_t>(taken));
  return taken;
}

int BufferedIOBase::flush() {
  if (m_wbuf == nullptr || m_wbuf->empty()) return 0;
  if (!isGoodToWrite()) return -1;
  const std::size_t size = m_wbuf->size();
  const auto sent = static_cast<std::size_t>(wait_and_write(m_wbuf->head(), size));
  m_wbuf->consume(sent);
  return sent == size ? 0 : -1;
}

std::int64_t BufferedIOBase::sendfile(File& file, std::uint64_t offset, std::uint64_t length) {
  if (!loaded() || !isGoodToWrite()) return -1;
  if (length == 0) return 0;
  if (file.seek(offset) < 0) return fail(error_syscall);
  const auto buffer = std::make_unique_for_overwrite<char[]>(kFileBlock);
  for (std::uint64_t left = length; left > 0;) {
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(left, kFileBlock));
    const std::int64_t got = file.read(buffer.get(), wanted);
    if (got < 0) return fail(error_syscall);
    if (got == 0) return fail(error_invalid);  // the peer waits for bytes that are not there
    if (write(buffer.get(), static_cast<std::size_t>(got)) != got) return -1;
    left -= static_cast<std::uint64_t>(got);
  }
  return static_cast<std::int64_t>(length);
}

void BufferedIOBase::clear() {
  m_error = error_none;
  m_flag = 0;
}

bool BufferedIOBase::functionTimeout(std::int64_t start) const {
  return m_timeout != 0 && Now() - start > std::int64_t{m_timeout} * 1000;
}

bool BufferedIOBase::stopped() {
  if (!functionAbort()) return false;
  setError(error_abort);
  return true;
}

int BufferedIOBase::waitForIO(IOBase::Mode mode, Silence& silence) {
  const std::int64_t start = silence.start();
  while (!stopped()) {
    const int ready = m_io->selectFor(mode, kSliceMs);
    if (ready > 0) return 1;
    if (ready < 0) return fail(error_syscall);
    if (functionTimeout(start)) return fail(error_timeout);
  }
  return -1;
}

void BufferedIOBase::reportRead(std::size_t bytes) {
  if (m_controller != nullptr) m_controller->updateRead(bytes);
}

void BufferedIOBase::reportWrite(std::size_t bytes) {
  if (m_controller != nullptr) m_controller->updateWrite(bytes);
}

int BufferedIOBase::fail(int error) {
  setError(error);
  return -1;
}

bool BufferedIOBase::loaded() {
  if (m_io != nullptr) return true;
  setError(error_invalid);
  return false;
}

}  // namespace tolven::TolvenApplication
