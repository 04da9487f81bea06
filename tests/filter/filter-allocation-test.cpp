// Tests of paths run for every path that the engine touches: they must not allocate.
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "filter/filter.h"
#include "filter/white-list.h"
#include "support/fifty-rules.h"

namespace {

thread_local int allocations = 0;

}  // namespace

// Weak, since the runtime of clang's sanitizers has its own: the count is then left out.
[[gnu::weak]] void* operator new(std::size_t size) {
  ++allocations;
  if (void* const memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
[[gnu::weak]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::weak]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace tolven {
namespace {

TEST(FilterPath, TestsAllocateNothing) {
  Filter filter;
  ASSERT_EQ(_filter_parse(&filter, test::kFiftyRules), 0);
  WhiteList white;
  _vt_string_set_insert(&white.File.white_ext, "an extension beyond small strings");
  const int before = allocations;
  if (before == 0) GTEST_SKIP() << "allocations are not seen in this build";
  for (const char* path : test::kPassingPaths) {
    EXPECT_EQ(_filter_test_path(&filter, false, path), 0) << path;
    EXPECT_EQ(_filter_test_path(&filter, true, path), 0) << path;
    EXPECT_EQ(_filter_test_ea(&filter, path), 0);
    EXPECT_EQ(_white_list_test(&white, path), -1);
  }
  EXPECT_EQ(_filter_test_path(&filter, false, "/a/reportABCdraft.txt"), -519);
  EXPECT_EQ(allocations, before);
}

}  // namespace
}  // namespace tolven
