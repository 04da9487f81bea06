#include "rsapi-cpp/delta-source.h"

#include <cstdio>

#include "rsapi-cpp/big-endian.h"
#include "rsapi-cpp/file-reader.h"
#include "rsapi-cpp/handler-output.h"
#include "rsapi-cpp/rs-constant.h"

namespace tolven {

int DeltaSource::open(const ustring& path) {
  if (fd_open_read(path, fd_) < 0 || fd_stat(fd_, size_) < 0 ||
      fd_bio_load(bio_, fd_, FileReader::kPieceSize) < 0) {
    api_fail(__LINE__, "open delta");
    return FileReader::ERROR_SYSTEM_CALL;
  }
  std::uint8_t magic[4];
  const int result = read(magic, sizeof magic);
  if (result < 0) return result;
  if (LoadBig32(magic) == RSConstant::MAGIC_DELTA) return 0;
  std::fprintf(stderr, "api (%d): invalid delta magic\n", __LINE__);
  return FileReader::ERROR_FILE_FORMAT;
}

int DeltaSource::readPatchCommand(PatchCommand& command) {
  std::uint8_t op = 0, parameters[16];
  int result = read(&op, 1);
  if (result < 0) return result;
  const RSConstant::CmdInfo& info = RSConstant::getInfo(op);
  if (info.type == RSConstant::kEnd) return 0;
  if (info.type == RSConstant::kReserved) {
    std::fprintf(stderr, "api (%d): reserved delta command %u\n", __LINE__, op);
    return FileReader::ERROR_FILE_FORMAT;
  }
  result = read(parameters, std::size_t{info.len_1} + info.len_2);
  if (result < 0) return result;
  const std::uint64_t first = LoadBig(parameters, info.len_1);
  if (info.type == RSConstant::kCopy) {
    command = {first, LoadBig(parameters + info.len_1, info.len_2), false};
    return 1;
  }
  command = {offset_, info.len_1 == 0 ? info.immediate : first, true};
  if (command.length <= size_ - offset_) return 1;
  std::fprintf(stderr, "api (%d): delta ends within a literal\n", __LINE__);
  return FileReader::ERROR_FILE_FORMAT;
}

int DeltaSource::readLiteral(void* data, std::size_t size) { return read(data, size); }

int DeltaSource::read(void* data, std::size_t size) {
  if (size > size_ - offset_) {
    std::fprintf(stderr, "api (%d): delta ends too early\n", __LINE__);
    return FileReader::ERROR_FILE_FORMAT;
  }
  if (fd_bio_read(bio_, data, size) < 0) {
    api_fail(__LINE__, "fd_bio_read");
    return FileReader::ERROR_SYSTEM_CALL;
  }
  offset_ += size;
  return 0;
}

}  // namespace tolven
