// Files in section form, for peers of older builds.
#include <algorithm>
#include <cstdint>

#include "lib/error-table.h"
#include "lib/log.h"
#include "lib/proto-common.h"
#include "lib/proto-log.h"
#include "lib/proto-section.h"
#include "platform/clock.h"
#include "platform/files.h"

namespace tolven {

namespace {

constexpr std::size_t kBlockSize = 8192;
constexpr std::uint64_t kBlocksPerReport = 1280;
constexpr char kCategory[] = "proto_common_debug";

int SystemFailed(const platform::Status& status) {
  Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] proto-common(%d): file: %s\n", __LINE__,
                 platform::StatusText(status));
  return ErrorCodes::ERR_SYS;
}

// How fast a file goes out, told now and then.
class Report {
 public:
  explicit Report(std::uint64_t total) : total_(total) {}

  void Sent(std::uint64_t block, std::uint64_t bytes) {
    if (block < next_) return;
    next_ = block + kBlocksPerReport + 1;
    const std::int64_t now = platform::clock().MonotonicMilliseconds();
    if (now - start_ < 1000) return;
    Logger::LogMsg(
        Logger::L_INFO, kCategory,
        L"[INFO] proto-common(%d): FileTransfer: %llu/%llu KB, speed: %lf Kb/s\n", __LINE__,
        bytes / 1024, total_ / 1024,
        static_cast<double>(bytes) * 8 / 1024 / (static_cast<double>(now - start_) / 1000));
  }

 private:
  const std::uint64_t total_;
  const std::int64_t start_ = platform::clock().MonotonicMilliseconds();
  std::uint64_t next_ = kBlocksPerReport;
};

int WriteBlocks(Channel& ch, platform::NativeFile file, std::uint64_t left) {
  Report report(left);
  char buffer[kBlockSize];
  std::uint64_t sent = 0;
  for (std::uint32_t block = 0; left > 0; ++block) {
    std::size_t got = 0;
    const platform::Status status =
        platform::files().Read(file, buffer, std::min<std::uint64_t>(left, kBlockSize), got);
    if (!status.ok()) return SystemFailed(status);
    if (got == 0) return 0;
    int code = ProtoWriteSection(ch, SPROTO_ID_DELTAID, block);
    if (code >= 0) code = ProtoWriteSection(ch, SPROTO_ID_DELTADATA, buffer, got);
    if (code >= 0) code = ch.FlushWrite(0);
    if (code < 0) return code;
    left -= got;
    sent += got;
    report.Sent(block + 1, sent);
  }
  return 0;
}

int ReadBlocks(Channel& ch, platform::NativeFile file, std::uint64_t left) {
  char buffer[kBlockSize];
  while (left > 0) {
    std::uint32_t block = 0;
    int code = ProtoReadSection(ch, SPROTO_ID_DELTAID, block);
    if (code < 0) return code;
    code = ProtoReadSection(ch, SPROTO_ID_DELTADATA, buffer, kBlockSize);
    if (code < 0) return code;
    const auto size = static_cast<std::size_t>(code - 3);
    if (size == 0 || size > left) return PROTO_COMMON_FAIL("ReadFile", ErrorCodes::ERR_PROTO);
    std::size_t written = 0;
    const platform::Status status = platform::files().Write(file, buffer, size, written);
    if (!status.ok()) return SystemFailed(status);
    left -= size;
  }
  return 0;
}

// What is stored has to hold `offset` bytes.
int OpenForReading(const ustring& path, std::uint64_t offset, platform::ScopedFile& file) {
  platform::Files& files = platform::files();
  const auto mode = offset == 0 ? platform::OpenMode::kTruncate : platform::OpenMode::kAppend;
  platform::Status status = files.Open(path, mode, *file.receive());
  if (!status.ok()) return SystemFailed(status);
  platform::NodeInfo info;
  status = files.StatFile(file.get(), info);
  if (!status.ok()) return SystemFailed(status);
  if (info.size == offset) return 0;
  Logger::LogMsg(Logger::L_ERR, kCategory,
                 L"[ERROR] proto-common(%d): ReadFile: open: %s offset is %llu but size is %llu\n",
                 __LINE__, path, offset, info.size);
  return ErrorCodes::ERR_SYS;
}

}  // namespace

int ProtoWriteFile(Channel& ch, bool is_delta, platform::NativeFile file) {
  return ProtoWriteFile2(ch, is_delta, file, 0);
}

int ProtoWriteFile2(Channel& ch, bool is_delta, platform::NativeFile file, std::uint64_t offset) {
  platform::Files& files = platform::files();
  platform::NodeInfo info;
  platform::Status status = files.StatFile(file, info);
  if (!status.ok()) return SystemFailed(status);
  if (offset > info.size) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] proto-common(%d): WriteFile: offset %llu is larger than size %llu \n",
                   __LINE__, offset, info.size);
    return ErrorCodes::ERR_SYS;
  }
  const std::uint64_t size = info.size - offset;
  int code = ProtoWriteSection(ch, SPROTO_ID_DELTATYPE, static_cast<std::uint8_t>(is_delta));
  if (code >= 0) code = ProtoWriteSection(ch, SPROTO_ID_DELTALEN, size);
  if (code < 0) return code;
  if (size == 0) return ch.FlushWrite(0);
  status = files.Seek(file, offset);
  if (!status.ok()) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] proto-common(%d): WriteFile: fail to seek to offset %llu, %s\n",
                   __LINE__, offset, platform::StatusText(status));
    return ErrorCodes::ERR_SYS;
  }
  return WriteBlocks(ch, file, size);
}

int ProtoWriteFile(Channel& ch, bool is_delta, const ustring& path) {
  return ProtoWriteFile2(ch, is_delta, path, 0);
}

int ProtoWriteFile2(Channel& ch, bool is_delta, const ustring& path, std::uint64_t offset) {
  platform::ScopedFile file;
  const platform::Status status =
      platform::files().Open(path, platform::OpenMode::kRead, *file.receive());
  return status.ok() ? ProtoWriteFile2(ch, is_delta, file.get(), offset) : SystemFailed(status);
}

int ProtoReadFile(Channel& ch, bool& is_delta, const ustring& path) {
  return ProtoReadFile2(ch, is_delta, path, 0);
}

int ProtoReadFile2(Channel& ch, bool& is_delta, const ustring& path, std::uint64_t offset) {
  platform::ScopedFile file;
  if (const int code = OpenForReading(path, offset, file); code < 0) return code;
  std::uint8_t type = 0;
  std::uint64_t size = 0;
  int code = ProtoReadSection(ch, SPROTO_ID_DELTATYPE, type);
  if (code >= 0) code = ProtoReadSection(ch, SPROTO_ID_DELTALEN, size);
  if (code < 0) return code;
  is_delta = type != 0;
  code = ReadBlocks(ch, file.get(), size);
  if (code < 0) return code;
  const platform::Status status = platform::files().Close(file.Release());
  return status.ok() ? 0 : SystemFailed(status);
}

}  // namespace tolven
