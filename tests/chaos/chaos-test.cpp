// Never lose a byte: two daemons and a server on small trees, in rounds that are drawn from seeds.
// test_chaos [--seed S] [--seconds N] [--operations N] [--phases N] [--lone 1] [--keep FOLDER]
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <string>

#include "chaos/round.h"

namespace tolven::test {
namespace {

struct Plan {
  std::uint64_t seed = 1;
  int seconds = 0;  // rounds go on for so long; 0: one round
  std::size_t operations = 60;
  std::size_t phases = 1;
  // Stricter than what is promised: that nothing is lost, but not that nobody is in conflict with
  // an upload of their own whose answer was not heard.
  bool with_lone_users = false;
  std::string keep = "chaos-failures";
};
Plan plan;

constexpr std::size_t kShownLines = 80;

std::string TailOf(const std::vector<std::string>& lines) {
  std::string text;
  const std::size_t first = lines.size() - std::min(lines.size(), kShownLines);
  for (std::size_t i = first; i < lines.size(); ++i) text += lines[i] + "\n";
  return text;
}

void RunRound(std::uint64_t seed, Figures& all) {
  // At once, for whoever has to end a round that hangs.
  std::printf("seed %llu\n", static_cast<unsigned long long>(seed));
  std::fflush(stdout);
  Round round(seed);
  const bool is_good = round.Run(plan.operations, plan.phases, plan.with_lone_users);
  all.operations += round.figures().operations;
  all.kills += round.figures().kills;
  all.faults += round.figures().faults;
  all.contents += round.figures().contents;
  all.failed_calls += round.figures().failed_calls;
  if (is_good && !::testing::Test::HasFailure()) return;
  const std::string folder = plan.keep + "/seed-" + std::to_string(seed);
  std::filesystem::remove_all(folder);
  std::filesystem::create_directories(folder);
  round.Keep(folder);
  ADD_FAILURE() << "seed " << seed << " (--operations " << plan.operations << " --phases "
                << plan.phases << (plan.with_lone_users ? " --lone 1" : "")
                << "); everything is kept in " << folder << "\n"
                << TailOf(round.trace());
}

TEST(Chaos, NeverLosesAByte) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(plan.seconds);
  Figures figures;
  std::uint64_t seed = plan.seed;
  auto begin = std::chrono::steady_clock::now(), now = begin;
  do {
    begin = now;
    RunRound(seed++, figures);
    now = std::chrono::steady_clock::now();
    // Another round like this one would end further from the end than we are.
  } while (!HasFailure() && now + (now - begin) / 2 < end);
  std::printf(
      "seeds %llu to %llu: %zu operations, %zu faults, %zu kills, %zu failed calls, %zu contents\n",
      static_cast<unsigned long long>(plan.seed), static_cast<unsigned long long>(seed - 1),
      figures.operations, figures.faults, figures.kills, figures.failed_calls, figures.contents);
}

bool TakeArguments(int argc, char** argv) {
  for (int i = 1; i < argc; i += 2) {
    const std::string name = argv[i];
    if (i + 1 == argc) return false;
    const std::string value = argv[i + 1];
    if (name == "--seed") {
      plan.seed = std::stoull(value);
    } else if (name == "--seconds") {
      plan.seconds = std::stoi(value);
    } else if (name == "--operations") {
      plan.operations = std::stoull(value);
    } else if (name == "--phases") {
      plan.phases = std::stoull(value);
    } else if (name == "--lone") {
      plan.with_lone_users = value == "1";
    } else if (name == "--keep") {
      plan.keep = value;
    } else {
      return false;
    }
  }
  return true;
}

}  // namespace
}  // namespace tolven::test

int main(int argc, char** argv) {
  ::testing::InitGoogleMock(&argc, argv);
  if (!tolven::test::TakeArguments(argc, argv)) {
    std::fprintf(stderr,
                 "usage: test_chaos [--seed S] [--seconds N] [--operations N] [--phases N] "
                 "[--lone 1] [--keep FOLDER]\n");
    return 2;
  }
  return RUN_ALL_TESTS();
}
