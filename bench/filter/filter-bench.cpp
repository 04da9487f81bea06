// Paths a second against 50 rules: bare, and through the object that threads share. Wanted are
// 1,000,000.
#include <benchmark/benchmark.h>

#include <cstdlib>

#include "lib/black-list2.h"
#include "support/fifty-rules.h"

namespace {

using tolven::test::kPassingPaths;

void FilterTestPath(benchmark::State& state) {
  tolven::Filter filter;
  if (_filter_parse(&filter, tolven::test::kFiftyRules) != 0) std::abort();
  for (auto _ : state) {
    for (const char* path : kPassingPaths) {
      benchmark::DoNotOptimize(_filter_test_path(&filter, false, path));
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(std::size(kPassingPaths)));
}
BENCHMARK(FilterTestPath);

void BlackListTestFilePath(benchmark::State& state) {
  tolven::BlackList2 list;
  {
    const tolven::FilterGuard filter(list);
    if (_filter_parse(&*filter, tolven::test::kFiftyRules) != 0) std::abort();
  }
  std::vector<tolven::ustring> paths;
  for (const char* path : kPassingPaths) paths.emplace_back(path);
  for (auto _ : state) {
    for (const tolven::ustring& path : paths) benchmark::DoNotOptimize(list.TestFilePath(path));
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(paths.size()));
}
BENCHMARK(BlackListTestFilePath);

}  // namespace
