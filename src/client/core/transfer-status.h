// How far a worker's transfer has come, at one moment.
#pragma once

#include <cstdint>

namespace tolven {

class TransferStatus {
 public:
  enum Status { STATUS_NONE = 0, STATUS_TRANSFER = 1 };

  Status GetStatus() const { return status; }
  void SetStatus(Status value) { status = value; }
  // Bytes.
  std::uint64_t GetSentSize() const { return sent_size; }
  void SetSentSize(std::uint64_t value) { sent_size = value; }
  std::uint64_t GetTotalSize() const { return total_size; }
  void SetTotalSize(std::uint64_t value) { total_size = value; }

 private:
  std::uint64_t sent_size = 0, total_size = 0;
  Status status = STATUS_NONE;
};

}  // namespace tolven
