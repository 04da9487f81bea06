#include "platform/file-transfer-windows.h"

#include <algorithm>
#include <utility>

namespace tolven::platform {

namespace {

constexpr std::size_t kLargestPart = 64 * 1024;

Status LastSocketError() { return StatusFromError(static_cast<DWORD>(::WSAGetLastError())); }

// How much of `size` bytes from `offset` on the file has.
Status ClampToFile(HANDLE file, std::uint64_t offset, std::size_t& size) {
  LARGE_INTEGER length{};
  if (::GetFileSizeEx(file, &length) == FALSE) return LastError();
  const auto end = static_cast<std::uint64_t>(length.QuadPart);
  const std::uint64_t left = end > offset ? end - offset : 0;
  size = static_cast<std::size_t>(std::min<std::uint64_t>({size, left, kLargestPart}));
  return {};
}

}  // namespace

Status FileTransfers::Send(SOCKET socket, HANDLE file, std::uint64_t offset, std::size_t size,
                           std::size_t& sent) {
  sent = 0;
  std::unique_ptr<Part> part = Take(socket);
  if (part == nullptr) {
    Status status = ClampToFile(file, offset, size);
    // A size of 0 would mean the whole file.
    if (!status.ok() || size == 0) return status;
    part = std::make_unique<Part>();
    part->file = file;
    part->offset = offset;
    status = Start(socket, *part, size);
    if (!status.ok()) return status;
  } else if (part->file != file || part->offset != offset) {
    Keep(socket, std::move(part));
    return StatusFromError(WSAEINVAL);
  }
  if (::WaitForSingleObject(part->event.get(), 0) == WAIT_TIMEOUT) {
    Keep(socket, std::move(part));
    return StatusFromError(WSAEWOULDBLOCK);
  }
  DWORD count = 0, flags = 0;
  if (::WSAGetOverlappedResult(socket, &part->request, &count, TRUE, &flags) == FALSE) {
    return LastSocketError();
  }
  sent = count;
  return {};
}

Status FileTransfers::Start(SOCKET socket, Part& part, std::size_t size) {
  part.event.Reset(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
  if (!part.event.valid()) return LastError();
  part.request.Offset = static_cast<DWORD>(part.offset);
  part.request.OffsetHigh = static_cast<DWORD>(part.offset >> 32);
  part.request.hEvent = part.event.get();
  if (::TransmitFile(socket, part.file, static_cast<DWORD>(size), 0, &part.request, nullptr,
                     TF_WRITE_BEHIND) != FALSE) {
    return {};
  }
  const Status status = LastSocketError();
  return status.code == ERROR_IO_PENDING ? Status{} : status;
}

HANDLE FileTransfers::Waitable(SOCKET socket) {
  const MutexLock lock(mutex_);
  const auto found = parts_.find(socket);
  return found == parts_.end() ? nullptr : found->second->event.get();
}

void FileTransfers::Forget(SOCKET socket) {
  const std::unique_ptr<Part> part = Take(socket);
  if (part == nullptr) return;
  ::CancelIoEx(reinterpret_cast<HANDLE>(socket), &part->request);
  DWORD count = 0, flags = 0;
  (void)::WSAGetOverlappedResult(socket, &part->request, &count, TRUE, &flags);
}

std::unique_ptr<FileTransfers::Part> FileTransfers::Take(SOCKET socket) {
  const MutexLock lock(mutex_);
  const auto found = parts_.find(socket);
  if (found == parts_.end()) return nullptr;
  std::unique_ptr<Part> part = std::move(found->second);
  parts_.erase(found);
  return part;
}

void FileTransfers::Keep(SOCKET socket, std::unique_ptr<Part> part) {
  const MutexLock lock(mutex_);
  parts_[socket] = std::move(part);
}

}  // namespace tolven::platform
