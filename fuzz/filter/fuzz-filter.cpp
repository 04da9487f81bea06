// Any bytes as a filter file, the first line being the path that is tested: what is refused leaves
// nothing behind, what is accepted reads the same after it was written.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "filter/filter.h"

namespace {

std::string Printed(const tolven::Filter& filter) {
  char* text = nullptr;
  std::size_t size = 0;
  std::FILE* const stream = open_memstream(&text, &size);
  tolven::_filter_print(&filter, stream);
  std::fclose(stream);
  const std::string copy(text, size);
  std::free(text);
  return copy;
}

bool IsVerdict(int code, bool is_dir) {
  const int section = -code & ~0xFF, rule = -code & 0xFF;
  if (code == 0 || (code == -1 && !is_dir)) return true;
  return (section == 0x100 && rule >= 2 && rule <= 9 && rule != 6 && rule != 7) ||
         (section == 0x200 && rule >= 2 && rule <= 7 && !is_dir) ||
         (section == 0x300 && rule >= 2 && rule <= 5);
}

}  // namespace

// The messages of the parser go nowhere; those of the fuzzer and the sanitizers stay.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  stderr = stdout = std::fopen("/dev/null", "w");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::size_t end = std::min(input.find('\n'), size);
  const std::string path(input.substr(0, end));
  tolven::Filter filter, again;
  if (tolven::_filter_parse(&filter, input.substr(end)) != 0) {
    if (Printed(filter) != Printed(tolven::Filter())) std::abort();
    return 0;
  }
  for (const bool is_dir : {false, true}) {
    if (!IsVerdict(_filter_test_path(&filter, is_dir, path.c_str()), is_dir)) std::abort();
  }
  const std::string text = Printed(filter);
  // Escapes can make a text of control characters too long for a line.
  if (tolven::_filter_parse(&again, text) != 0) {
    if (size < 2500) std::abort();
    return 0;
  }
  if (filter.File.max_size <= INT64_MAX && filter.Common.max_length <= INT64_MAX &&
      filter.Common.max_path <= INT64_MAX && Printed(again) != text) {
    std::abort();
  }
  return 0;
}
