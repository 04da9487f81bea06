// A channel whose bytes come from and go to memory, for fuzzers and benchmarks.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

#include "lib/channel.h"

namespace tolven::test {

class MemoryChannel : public Channel {
 public:
  explicit MemoryChannel(std::string_view input = {}) : input_(input) {}

  int Read(char* data, std::size_t size) override {
    if (size > input_.size()) return -2;
    std::copy_n(input_.data(), size, data);
    input_.remove_prefix(size);
    return 0;
  }
  int Read(char* data, std::size_t size, std::size_t& got) override {
    const int result = Read(data, size);
    got = result == 0 ? size : 0;
    return result;
  }
  int Write(const char* data, std::size_t size) override {
    output_.append(data, size);
    return 0;
  }
  int FlushWrite(int) override { return 0; }

  const std::string& output() const { return output_; }

 private:
  std::string_view input_;
  std::string output_;
};

}  // namespace tolven::test
