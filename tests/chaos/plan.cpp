#include "chaos/plan.h"

#include <array>
#include <iterator>
#include <random>
#include <utility>

namespace tolven::test {

namespace {

// Few names, so that both sides meet; some sort around "/".
constexpr std::array<const char*, 4> kNames = {"a", "b", "a-b", "a b"};
constexpr std::size_t kMostDepth = 3;
// Out of a hundred user's operations so many are followed by a disturbance.
constexpr std::uint64_t kDisturbed = 14;

class Planner {
 public:
  explicit Planner(std::uint64_t seed) : random_(seed) {}

  std::vector<Operation> Make(std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
      while (!mends_.empty() && mends_.front().first <= i) {
        plan_.push_back(mends_.front().second);
        mends_.erase(mends_.begin());
      }
      plan_.push_back(UserOperation());
      if (Below(100) < kDisturbed) Disturb(i);
    }
    return std::move(plan_);
  }

 private:
  // The library's distributions differ from system to system; this is the same everywhere.
  std::uint64_t Below(std::uint64_t limit) { return random_() % limit; }

  std::string Path() {
    std::string path;
    for (std::size_t depth = 1 + Below(kMostDepth); depth > 0; --depth) {
      if (!path.empty()) path += "/";
      path += kNames.at(Below(kNames.size()));
    }
    return path;
  }
  std::size_t Size() {
    const std::uint64_t kind = Below(100);
    if (kind < 70) return 40 + Below(200);
    if (kind < 92) return 8'000 + Below(60'000);
    return 520'000 + Below(300'000);  // above the limit of simple uploads
  }
  int Pause() {
    const std::uint64_t kind = Below(100);
    if (kind < 60) return static_cast<int>(Below(15));
    if (kind < 95) return static_cast<int>(Below(150));
    return static_cast<int>(Below(1'500));
  }
  Operation UserOperation() {
    static constexpr std::pair<int, Action> kShares[] = {
        {26, Action::kWrite},     {4, Action::kWriteSlow}, {10, Action::kEdit},
        {4, Action::kEditTwice},  {10, Action::kSave},     {6, Action::kTouch},
        {14, Action::kRemove},    {14, Action::kRename},   {4, Action::kMakeFolder},
        {6, Action::kChangeKind}, {2, Action::kTidy},
    };
    int at = static_cast<int>(Below(100));
    const auto* share = std::begin(kShares);
    while (at >= share->first) at -= (share++)->first;
    Operation operation{share->second, static_cast<int>(Below(2)), Path(), Path(), Size(), 0};
    operation.wait_ms = Pause();
    return operation;
  }
  void Disturb(std::size_t now) {
    static constexpr std::pair<Action, Action> kKinds[] = {
        {Action::kPause, Action::kResume},        {Action::kHide, Action::kShow},
        {Action::kAddAnew, Action::kAddAnew},     {Action::kKill, Action::kStart},
        {Action::kTakeRoot, Action::kGiveRoot},   {Action::kKillServer, Action::kStartServer},
        {Action::kDropLinks, Action::kDropLinks}, {Action::kFailCalls, Action::kStopFaults},
    };
    const auto& kind = kKinds[Below(std::size(kKinds))];
    const Operation break_it{kind.first, static_cast<int>(Below(2)), "", "", Below(10'000),
                             Pause()};
    plan_.push_back(break_it);
    Operation mend = break_it;
    mend.action = kind.second;
    const std::size_t when = now + 1 + Below(12);
    auto place = mends_.begin();
    while (place != mends_.end() && place->first <= when) ++place;
    mends_.emplace(place, when, mend);
  }

  std::mt19937_64 random_;
  std::vector<Operation> plan_;
  std::vector<std::pair<std::size_t, Operation>> mends_;  // by the operation that they precede
};

}  // namespace

std::vector<Operation> MakePlan(std::uint64_t seed, std::size_t count) {
  return Planner(seed).Make(count);
}

const char* ToText(Action action) {
  switch (action) {
    case Action::kWrite:
      return "write";
    case Action::kWriteSlow:
      return "write slowly";
    case Action::kEdit:
      return "edit";
    case Action::kEditTwice:
      return "edit twice";
    case Action::kSave:
      return "save";
    case Action::kTouch:
      return "touch";
    case Action::kRemove:
      return "remove";
    case Action::kRename:
      return "rename";
    case Action::kMakeFolder:
      return "make folder";
    case Action::kChangeKind:
      return "change kind";
    case Action::kTidy:
      return "tidy";
    case Action::kPause:
      return "PAUSE";
    case Action::kResume:
      return "RESUME";
    case Action::kHide:
      return "HIDE";
    case Action::kShow:
      return "SHOW";
    case Action::kAddAnew:
      return "ADD ANEW";
    case Action::kKill:
      return "KILL";
    case Action::kStart:
      return "START";
    case Action::kTakeRoot:
      return "TAKE ROOT";
    case Action::kGiveRoot:
      return "GIVE ROOT";
    case Action::kDropLinks:
      return "DROP LINKS";
    case Action::kFailCalls:
      return "FAIL CALLS";
    case Action::kStopFaults:
      return "STOP FAULTS";
    case Action::kKillServer:
      return "KILL SERVER";
    case Action::kStartServer:
      return "START SERVER";
  }
  return "";
}

std::string ToText(const Operation& operation) {
  std::string text = operation.side == 0 ? "a: " : "b: ";
  text += ToText(operation.action);
  if (operation.path.empty()) return text;
  text += " '" + operation.path + "'";
  if (operation.action == Action::kRename) text += " to '" + operation.other + "'";
  return text;
}

}  // namespace tolven::test
