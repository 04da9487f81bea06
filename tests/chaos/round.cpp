#include "chaos/round.h"

#include <cstdio>
#include <fstream>
#include <thread>

#include "platform/clock.h"

namespace tolven::test {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::chrono::seconds kSettleLimit(150);
constexpr milliseconds kLook(250);
// So long everything has to stay as it is.
constexpr milliseconds kQuiet(2'500);
constexpr int kLeftOverLooks = 40;
// After this the daemon has looked at the file that tells it which calls fail.
constexpr milliseconds kFaultsSeen(30);
constexpr std::array<const char*, 4> kRules = {
    "[File]\nblack_name = \"a-b\"\n", "[Common]\nblack_name = \"b\"\n",
    "[Directory]\nblack_name = \"a b\"\n", "[File]\nmax_size = 8000\n"};
constexpr std::array<bool, kRules.size()> kHidesFolders = {false, true, true, false};
constexpr std::array<int, 3> kFaultsPerMillion = {300, 2'000, 15'000};
constexpr char kLevels[] =
    "client_debug = 6\ndetector_debug = 7\nevent_list_debug = 7\nevent_manager_debug = 7\n";

}  // namespace

Round::Round(std::uint64_t seed) : seed_(seed), ledger_(seed), oracle_(server_) {
  const std::string aside = (folder_ / "aside").str();
  fs::create_directories(aside);
  for (std::size_t i = 0; i < sides_.size(); ++i) {
    Side& side = sides_.at(i);
    side.name = i == 0 ? "a" : "b";
    side.root = (folder_ / side.name).str();
    side.way = std::make_unique<Forwarder>(server_.port);
    ClientProcess::Options options;
    options.merge = true;
    options.root = side.root;
    options.port = side.way->port();
    options.levels = kLevels;
    side.fault_file = (folder_ / "faults-").str() + side.name;
    options.program = {"/usr/bin/env", ustring("TOLVEN_SEAM_FAULTS=" + side.fault_file),
                       ustring(DAEMON)};
    side.client = std::make_unique<ClientProcess>(server_, side.name, options);
    side.user = std::make_unique<User>(side.name, side.root, aside, ledger_);
  }
}

Round::~Round() {
  for (Side& side : sides_) side.client.reset();
}

// Each line has the seconds since the beginning and the time of day in UTC, to find it in the logs.
void Round::Note(const std::string& text) {
  const auto now = std::chrono::duration_cast<milliseconds>(steady_clock::now() - begin_).count();
  const std::int64_t clock = platform::clock().WallSeconds();
  std::array<char, 64> stamp{};
  std::snprintf(stamp.data(), stamp.size(), "%6.2f %02d:%02d:%02d ",
                static_cast<double>(now) / 1000, static_cast<int>(clock / 3600 % 24),
                static_cast<int>(clock / 60 % 60), static_cast<int>(clock % 60));
  trace_.push_back(stamp.data() + text);
}

void Round::Fail(const std::string& text) {
  Note("PROBLEM " + text);
  problems_.push_back(text);
}

bool Round::Run(std::size_t operations, std::size_t phases, bool with_lone_users) {
  const std::vector<Operation> plan = MakePlan(seed_, operations);
  for (std::size_t phase = 0; phase < phases && problems_.empty(); ++phase) {
    const std::size_t end = plan.size() * (phase + 1) / phases;
    const bool is_lone = with_lone_users && phase % 2 != 0;
    alone_ = is_lone ? &sides_.at((seed_ + phase / 2) % sides_.size()) : nullptr;
    if (alone_ != nullptr) {
      Note("only " + alone_->name + " is at work");
      left_ = Oracle::Folder(alone_->root);
    }
    for (std::size_t i = plan.size() * phase / phases; i < end && problems_.empty(); ++i) {
      Do(plan[i]);
    }
    MendAll();
    Settle();
    LookForMeddling();
    Judge();
  }
  figures_.contents = ledger_.written();
  return problems_.empty();
}

void Round::Do(Operation operation) {
  const bool is_users = operation.action < Action::kPause;
  if (alone_ != nullptr) {
    if (MayBringBack(operation)) return;
    if (is_users) operation.side = static_cast<int>(alone_ - sides_.data());
    LookForMeddling();
  }
  ++figures_.operations;
  Note(ToText(operation) + (is_users ? "" : " ..."));
  std::string outcome;
  if (is_users) {
    outcome = sides_.at(static_cast<std::size_t>(operation.side)).user->Do(operation);
    if (alone_ != nullptr) left_ = Oracle::Folder(alone_->user->root());
  } else {
    ++figures_.faults;
    outcome = Disturb(operation);
  }
  trace_.back() += " -> " + outcome;
  std::this_thread::sleep_for(milliseconds(operation.wait_ms));
  LookForDead();
}

std::string Round::Disturb(const Operation& operation) {
  if (operation.action == Action::kKillServer) {
    if (!server_runs_) return "is dead";
    ++figures_.kills;
    server_.Stop();
    server_runs_ = false;
    return "dead";
  }
  if (operation.action == Action::kStartServer) {
    if (server_runs_) return "runs";
    server_.Start();
    server_runs_ = true;
    return "started";
  }
  return DisturbSide(sides_.at(static_cast<std::size_t>(operation.side)), operation);
}

std::string Round::DisturbSide(Side& side, const Operation& operation) {
  const Action action = operation.action;
  if (action == Action::kTakeRoot) return MoveRoot(side, true);
  if (action == Action::kGiveRoot) return MoveRoot(side, false);
  if (action == Action::kStart) return Start(side);
  if (!side.client->is_running()) return "is dead";
  if (action == Action::kFailCalls) return FailCalls(side, operation.size);
  if (action == Action::kStopFaults) return StopFaults(side);
  if (action == Action::kKill) return Kill(side);
  if (action == Action::kDropLinks) {
    side.way->Drop();
    return "dropped";
  }
  // What is told a daemon has to reach it.
  if (!side.has_faults) return Tell(side, operation);
  StopFaults(side);
  std::string told = Tell(side, operation);
  FailCalls(side, operation.size);
  return told;
}

std::string Round::Tell(Side& side, const Operation& operation) {
  switch (operation.action) {
    case Action::kPause:
    case Action::kResume:
      side.is_paused = operation.action == Action::kPause;
      side.client->TellSession(side.is_paused ? "pause" : "resume");
      return "told";
    case Action::kHide:
      return Hide(side, operation.size % kRules.size());
    case Action::kShow:
      return Show(side, operation.size % 2 == 0);
    case Action::kAddAnew:
      return AddAnew(side);
    default:
      return "not of a side";
  }
}

std::string Round::Hide(Side& side, std::size_t rule) {
  side.rule = static_cast<int>(rule);
  side.client->SetRules(kRules.at(rule));
  side.client->ReloadRules();
  return "rule " + std::to_string(rule);
}

// A rule goes by a reload, or like a user interface does it that wants what was deleted meanwhile
// to come back. A folder that nobody looked into has to be compared.
std::string Round::Show(Side& side, bool anew) {
  if (side.rule < 0) return "is shown";
  if (side.is_away) return "without its folder";
  anew = anew || kHidesFolders.at(static_cast<std::size_t>(side.rule));
  side.rule = -1;
  side.client->SetRules("");
  if (anew) return AddAnew(side);
  side.client->ReloadRules();
  return "told";
}

std::string Round::AddAnew(Side& side) {
  if (side.is_away) return "without its folder";
  side.client->AddSession(true);
  side.is_paused = false;
  return "added";
}

std::string Round::Kill(Side& side) {
  ++figures_.kills;
  side.client->Kill();
  CountFailedCalls(side);
  return "dead";
}

std::string Round::FailCalls(Side& side, std::size_t which) {
  const int rate = kFaultsPerMillion.at(which % kFaultsPerMillion.size());
  const std::string draft = side.fault_file + ".draft";
  WriteFile(ustring(draft), std::to_string(seed_ * 10'000 + which) + " " + std::to_string(rate));
  fs::rename(draft, side.fault_file);
  side.has_faults = side.had_faults = true;
  return std::to_string(rate) + " in a million";
}

std::string Round::StopFaults(Side& side) {
  fs::remove(side.fault_file);
  side.has_faults = false;
  std::this_thread::sleep_for(kFaultsSeen);
  CountFailedCalls(side);
  return "told";
}

// A daemon writes down all of its own; a few of one that was killed may be missing.
void Round::CountFailedCalls(Side& side) {
  std::size_t failed = side.failed_calls;
  std::ifstream(side.fault_file + ".count") >> failed;
  if (failed <= side.failed_calls) return;
  figures_.failed_calls += failed - side.failed_calls;
  side.failed_calls = failed;
}

std::string Round::Start(Side& side) {
  if (side.client->is_running()) return "runs";
  // A session cannot be added without its folder.
  if (side.is_away) MoveRoot(side, false);
  fs::remove(side.fault_file);
  fs::remove(side.fault_file + ".count");
  side.client->SetRules(side.rule < 0 ? "" : kRules.at(static_cast<std::size_t>(side.rule)));
  side.client->Start();
  side.is_paused = side.was_away = side.has_faults = side.had_faults = false;
  side.failed_calls = 0;
  return "started";
}

std::string Round::MoveRoot(Side& side, bool away) {
  if (side.is_away == away) return "is so";
  const std::string other = side.root + "-away";
  if (!away && fs::exists(side.root)) {
    Fail(side.name + ": a root of its own while the true one is away");
    return "taken";
  }
  fs::rename(away ? side.root : other, away ? other : side.root);
  side.is_away = away;
  side.was_away = side.was_away || away;
  side.user->Follow(away ? other : side.root);
  return away ? "gone" : "back";
}

// A session that is added anew is merged, so that what was removed before may come back. So may
// what was removed while the root was away, and what the server got without its answer being heard.
bool Round::MayBringBack(const Operation& operation) const {
  switch (operation.action) {
    case Action::kHide:
    case Action::kShow:
    case Action::kAddAnew:
    case Action::kKillServer:
      return true;
    case Action::kPause:
    case Action::kKill:
    case Action::kTakeRoot:
    case Action::kDropLinks:
    case Action::kFailCalls:
      return &sides_.at(static_cast<std::size_t>(operation.side)) == alone_;
    default:
      return false;
  }
}

void Round::LookForMeddling() {
  if (alone_ == nullptr) return;
  const Listing now = Oracle::Folder(alone_->user->root());
  for (const std::string& line :
       Oracle::Changes(left_, now, alone_->name + ", left by its user / now:")) {
    Fail(line);
  }
}

void Round::LookForDead() {
  for (Side& side : sides_) {
    int status = 0;
    if (side.client->HasEnded(status)) {
      Fail(side.name + ": the daemon ended with " + std::to_string(status));
    }
  }
}

void Round::MendAll() {
  Note("mend all");
  if (!server_runs_) server_.Start();
  server_runs_ = true;
  for (Side& side : sides_) {
    if (side.has_faults) StopFaults(side);
    MoveRoot(side, false);
    Start(side);
    if (side.is_paused) Tell(side, Operation{Action::kResume, 0, "", "", 0, 0});
    if (side.rule >= 0) Show(side, false);
  }
}

bool Round::IsIdle(Side& side) {
  const PObject session = side.client->Session();
  return session["status"].asString() == "uptodate";
}

std::vector<std::string> Round::Differences() {
  std::vector<std::string> all;
  for (Side& side : sides_) {
    for (std::string& line : oracle_.Differences(*side.client, side.name)) {
      all.push_back(std::move(line));
    }
  }
  return all;
}

void Round::Settle() {
  const auto end = steady_clock::now() + kSettleLimit;
  auto good_since = steady_clock::time_point::max();
  while (problems_.empty()) {
    const bool is_idle = IsIdle(sides_[0]) && IsIdle(sides_[1]);
    const std::vector<std::string> differences =
        is_idle ? Differences() : std::vector<std::string>{"not idle"};
    const auto now = steady_clock::now();
    if (!differences.empty()) {
      good_since = steady_clock::time_point::max();
    } else if (good_since == steady_clock::time_point::max()) {
      good_since = now;
    } else if (now - good_since >= kQuiet) {
      Note("settled");
      for (Side& side : sides_) side.client->SetMerge(false);
      return;
    }
    if (now > end) {
      for (const std::string& line : is_idle ? differences : Differences()) Fail(line);
      Fail(is_idle ? "the folders do not come to agree" : "the daemons do not come to rest");
    }
    LookForDead();
    std::this_thread::sleep_for(kLook);
  }
}

void Round::Judge() {
  for (const std::string& name :
       ledger_.Missing(oracle_.Contents({sides_[0].root, sides_[1].root}))) {
    Fail("LOST " + name);
  }
  for (Side& side : sides_) {
    std::vector<std::string> left = LeftOvers(side);
    if (!left.empty() && side.had_faults) {
      side.client->Stop();
      Start(side);
      left = LeftOvers(side);
    }
    for (const std::string& line : left) Fail(line);
  }
  const std::string check = server_.Admin("check");
  if (check.find(" 0 problems") == std::string::npos) Fail("server: " + check);
}

// What is at work once more makes temporary files, too; what is left over stays.
std::vector<std::string> Round::LeftOvers(const Side& side) const {
  std::vector<std::string> left;
  for (int look = 0; look < kLeftOverLooks; ++look) {
    left = oracle_.LeftOvers(*side.client, side.name, !side.was_away);
    if (left.empty()) break;
    std::this_thread::sleep_for(kLook);
  }
  return left;
}

void Round::Keep(const std::string& folder) const {
  std::error_code ignored;
  for (const Side& side : sides_) {
    side.client->KeepLogs(folder + "/" + side.name);
    const std::string root = fs::exists(side.root) ? side.root : side.root + "-away";
    fs::copy(root, folder + "/root-" + side.name, fs::copy_options::recursive, ignored);
  }
  fs::copy(server_.Data(), folder + "/server", fs::copy_options::recursive, ignored);
  std::ofstream out(folder + "/trace");
  for (const std::string& line : trace_) out << line << "\n";
}

}  // namespace tolven::test
