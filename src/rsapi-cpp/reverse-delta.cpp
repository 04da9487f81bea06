#include "rsapi-cpp/reverse-delta.h"

#include <algorithm>

#include "rsapi-cpp/delta-command.h"
#include "rsapi-cpp/file-reader.h"
#include "rsapi-cpp/handler-output.h"

namespace tolven {

namespace {

int WriteBytes(fd_bio_t& out, const std::vector<std::uint8_t>& bytes) {
  return fd_bio_write(out, bytes.data(), bytes.size());
}

}  // namespace

void ReverseDelta::insertSameBlock(std::uint64_t start, std::uint64_t length,
                                   std::uint64_t new_start) {
  if (!blocks_.empty()) {
    Block& last = blocks_.back();
    if (last.start + last.length == start && last.new_start + last.length == new_start) {
      last.length += length;
      return;
    }
  }
  blocks_.push_back({start, length, new_start});
}

void ReverseDelta::resolveOverlaps() {
  std::sort(blocks_.begin(), blocks_.end(), [](const Block& left, const Block& right) {
    return left.start != right.start ? left.start < right.start : left.length > right.length;
  });
  std::uint64_t covered = 0;  // the end of the blocks so far
  std::size_t kept = 0;
  for (Block block : blocks_) {
    const std::uint64_t end = block.start + block.length;
    if (end <= covered) continue;
    if (block.start < covered) {
      const std::uint64_t cut = covered - block.start;
      block = {covered, block.length - cut, block.new_start + cut};
    }
    covered = end;
    blocks_[kept++] = block;
  }
  blocks_.resize(kept);
}

int ReverseDelta::write(const ustring& path, const fd_t& basis, std::uint64_t basis_size) {
  resolveOverlaps();
  fd_t fd;
  fd_bio_t out;
  if (fd_open_write(path, fd) < 0) return api_fail(__LINE__, "fd_open_write");
  int result = fd_bio_load(out, fd, FileReader::kPieceSize);
  if (result == 0) result = writeCommands(basis, basis_size, out);
  if (result == 0) result = fd_bio_flush(out);
  if (fd_close(fd) < 0) result = -1;
  return result < 0 ? api_fail(__LINE__, "write reverse delta") : 0;
}

int ReverseDelta::writeCommands(const fd_t& basis, std::uint64_t basis_size, fd_bio_t& out) {
  std::vector<std::uint8_t> command;
  appendDeltaMagic(command);
  if (WriteBytes(out, command) < 0) return -1;
  std::uint64_t written = 0;  // of the basis
  for (const Block& block : blocks_) {
    if (writeLiteralCommand(basis, written, block.start - written, out) < 0) return -1;
    command.clear();
    appendCopyCommand(command, block.new_start, block.length);
    if (WriteBytes(out, command) < 0) return -1;
    written = block.start + block.length;
  }
  if (writeLiteralCommand(basis, written, basis_size - written, out) < 0) return -1;
  command.clear();
  appendEndCommand(command);
  return WriteBytes(out, command);
}

int ReverseDelta::writeLiteralCommand(const fd_t& basis, std::uint64_t start, std::uint64_t length,
                                      fd_bio_t& out) {
  if (length == 0) return 0;
  std::vector<std::uint8_t> bytes;
  appendLiteralCommand(bytes, length);
  if (WriteBytes(out, bytes) < 0 || fd_seek(basis, start) < 0) return -1;
  bytes.resize(static_cast<std::size_t>(std::min<std::uint64_t>(length, FileReader::kPieceSize)));
  while (length > 0) {
    const std::uint64_t want = std::min<std::uint64_t>(length, bytes.size());
    const fd_ssize_t got = fd_read(basis, bytes.data(), static_cast<std::size_t>(want));
    if (got <= 0) return -1;
    if (fd_bio_write(out, bytes.data(), static_cast<std::size_t>(got)) < 0) return -1;
    length -= static_cast<std::uint64_t>(got);
  }
  return 0;
}

}  // namespace tolven
