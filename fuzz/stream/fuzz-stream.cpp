// Any bytes as a tree: refused, or read into one that goes out and comes back the same.

#include <cstdint>
#include <cstdlib>

#include "protocol/stream.h"
#include "support/memory-channel.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tolven;
  test::MemoryChannel in({reinterpret_cast<const char*>(data), size});
  PStream stream;
  stream.SetLimits({100'000, 1 << 20, true});
  PObject tree;
  tree["seeded"]["list"].asArray().emplace_back("x");
  if (stream.Recv(in, tree) != PStream::ERR_OK) return 0;

  test::MemoryChannel out;
  if (stream.Send(out, tree) != PStream::ERR_OK) std::abort();
  test::MemoryChannel again(out.output());
  PObject copy;
  if (stream.Recv(again, copy) != PStream::ERR_OK) std::abort();
  // Keys lose a leading "_" on the way, so texts agree only where there is none.
  const ustring text = tree.toString();
  if (text.find('_') == ustring::npos && copy.toString() != text) std::abort();
  return 0;
}
