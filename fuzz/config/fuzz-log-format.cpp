// Any bytes as a format and as its text arguments, beside arguments of every other kind: the result
// is UTF-8 whatever comes in.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "lib/log-format.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  const std::wstring format(data, data + size);
  std::u16string units;
  for (std::size_t i = 0; i + 1 < size; i += 2) {
    units += static_cast<char16_t>(data[i] << 8 | data[i + 1]);
  }
  const tolven::LogArg args[] = {std::string_view(bytes),
                                 -1,
                                 units,
                                 1e300,
                                 data,
                                 size,
                                 format,
                                 bytes.empty() ? 'x' : bytes.front()};
  std::string text;
  tolven::FormatLogMessage(text, format.c_str(), args);
  if (!tolven::ustring::is_valid(tolven::ustring(text))) std::abort();
  return 0;
}
