#include "rsapi-cpp/delta-file-reader.h"

#include <algorithm>
#include <cstdio>
#include <limits>
#include <new>
#include <vector>

#include "rsapi-cpp/delta-source.h"
#include "rsapi-cpp/handler-output.h"
#include "rsapi-cpp/reverse-delta.h"

namespace tolven {

class DeltaFileReaderImpl {
 public:
  explicit DeltaFileReaderImpl(DeltaFileReader& reader) : reader_(reader) {}

  int run();

  ustring basis_file, patch_file, rpatch_file;
  std::uint64_t max_size = std::numeric_limits<std::uint64_t>::max();

 private:
  int validateInput(fd_t& basis);
  int doPatch();
  int doPatchCommand(const PatchCommand& command);
  int checkLength(const PatchCommand& command) const;
  int readRange(bool is_literal, std::uint8_t* to, std::size_t size);
  int seekBasis(std::uint64_t offset);
  int flush();

  DeltaFileReader& reader_;
  fd_t basis_fd_;
  std::uint64_t basis_size_ = 0, basis_offset_ = 0;
  DeltaSource patch_;
  ReverseDelta reverse_;
  // What commands have made and the handlers have not had yet: short commands go on together.
  std::vector<std::uint8_t> output_;
  std::size_t filled_ = 0;
  std::uint64_t made_ = 0;  // length of the new file so far
};

int DeltaFileReaderImpl::run() {
  fd_t basis;
  int result = validateInput(basis);
  const platform::ScopedFile closes(basis.handle);
  if (result == 0) {
    basis_fd_ = basis;
    output_.resize(FileReader::kPieceSize);
    result = doPatch();
  }
  if (result == 0) result = flush();
  if (result == 0 && !rpatch_file.empty() &&
      reverse_.write(rpatch_file, basis_fd_, basis_size_) < 0) {
    result = FileReader::ERROR_SYSTEM_CALL;
  }
  return result;
}

int DeltaFileReaderImpl::validateInput(fd_t& basis) {
  if (fd_open_read(basis_file, basis) < 0 || fd_stat(basis, basis_size_) < 0) {
    api_fail(__LINE__, "open basis");
    return FileReader::ERROR_SYSTEM_CALL;
  }
  return patch_.open(patch_file);
}

int DeltaFileReaderImpl::doPatch() {
  for (;;) {
    if (reader_.aborted()) return FileReader::ERROR_ABORT;
    PatchCommand command;
    int result = patch_.readPatchCommand(command);
    if (result <= 0) return result;
    result = checkLength(command);
    if (result == 0 && command.length > 0) result = doPatchCommand(command);
    if (result < 0) return result;
  }
}

int DeltaFileReaderImpl::checkLength(const PatchCommand& command) const {
  if (command.length > max_size - made_) {
    std::fprintf(stderr, "api (%d): delta makes more than %llu bytes\n", __LINE__,
                 static_cast<unsigned long long>(max_size));
    return FileReader::ERROR_FILE_FORMAT;
  }
  if (!command.is_literal &&
      (command.start > basis_size_ || command.length > basis_size_ - command.start)) {
    std::fprintf(stderr, "api (%d): delta copies from behind the end of its basis\n", __LINE__);
    return FileReader::ERROR_SYSTEM_CALL;
  }
  return 0;
}

int DeltaFileReaderImpl::doPatchCommand(const PatchCommand& command) {
  if (!command.is_literal) {
    if (seekBasis(command.start) < 0) return FileReader::ERROR_SYSTEM_CALL;
    if (!rpatch_file.empty()) reverse_.insertSameBlock(command.start, command.length, made_);
  }
  std::uint64_t left = command.length;
  while (left > 0) {
    if (reader_.aborted()) return FileReader::ERROR_ABORT;
    const auto count =
        static_cast<std::size_t>(std::min<std::uint64_t>(left, output_.size() - filled_));
    int result = readRange(command.is_literal, output_.data() + filled_, count);
    filled_ += count;
    left -= count;
    if (result == 0 && filled_ == output_.size()) result = flush();
    if (result < 0) return result;
  }
  made_ += command.length;
  return 0;
}

int DeltaFileReaderImpl::seekBasis(std::uint64_t offset) {
  if (offset == basis_offset_) return 0;
  if (fd_seek(basis_fd_, offset) < 0) return api_fail(__LINE__, "fd_seek");
  basis_offset_ = offset;
  return 0;
}

int DeltaFileReaderImpl::readRange(bool is_literal, std::uint8_t* to, std::size_t size) {
  if (is_literal) return patch_.readLiteral(to, size);
  while (size > 0) {
    const fd_ssize_t got = fd_read(basis_fd_, to, size);
    if (got <= 0) {
      api_fail(__LINE__, "fd_read");
      return FileReader::ERROR_SYSTEM_CALL;
    }
    to += got;
    size -= static_cast<std::size_t>(got);
    basis_offset_ += static_cast<std::uint64_t>(got);
  }
  return 0;
}

int DeltaFileReaderImpl::flush() {
  const int result = filled_ == 0 ? 0 : reader_.feed(output_.data(), filled_);
  filled_ = 0;
  return result;
}

DeltaFileReader::DeltaFileReader() : impl_(std::make_unique<DeltaFileReaderImpl>(*this)) {}
DeltaFileReader::~DeltaFileReader() = default;

void DeltaFileReader::setFile(const ustring& basis, const ustring& patch) {
  impl_->basis_file = basis;
  impl_->patch_file = patch;
}

void DeltaFileReader::setReverseDeltaFile(const ustring& path) { impl_->rpatch_file = path; }

void DeltaFileReader::setMaxSize(std::uint64_t size) { impl_->max_size = size; }

int DeltaFileReader::readFile() {
  if (impl_->basis_file.empty() || impl_->patch_file.empty()) {
    std::fprintf(stderr, "api (%d): invalid arguments (basis_file = '%s', patch_file = '%s'\n",
                 __LINE__, impl_->basis_file.c_str_utf8(), impl_->patch_file.c_str_utf8());
    return ERROR_ARGUMENT;
  }
  if (begin() < 0) return ERROR_HANDLER_CALL;
  int result = ERROR_SYSTEM_CALL;
  try {
    result = impl_->run();
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "api (%d): out of memory\n", __LINE__);
  }
  const int ended = end();
  return result < 0 ? result : ended;
}

}  // namespace tolven
