// Writes the bytes of a pass to a file.
#pragma once

#include "rsapi-cpp/handler-output.h"
#include "rsapi-cpp/handler.h"

namespace tolven {

class CopyHandler : public Handler {
 public:
  explicit CopyHandler(const ustring& file) : file_(file) {}

  int begin() override { return output_.open(file_); }
  int update(const void* data, std::size_t size) override { return output_.start(data, size); }
  int wait() override { return output_.wait(); }
  int end() override { return output_.close(); }

 private:
  const ustring file_;
  HandlerOutput output_;
};

}  // namespace tolven
