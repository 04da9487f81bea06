// Whatever call fails once, the sync that comes next leads to where it would have led.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <thread>

#include "client/core/resume-trans-mgr.h"
#include "faults/engine.h"
#include "faults/small-sync.h"
#include "platform/fault-plan.h"
#include "platform/forwarding-files.h"
#include "platform/forwarding-sockets.h"
#include "support/faulty-vfs.h"

namespace tolven::test {
namespace {

enum class Kind { kFiles, kFullDisk, kSockets, kDatabases };

std::ostream& operator<<(std::ostream& out, Kind kind) {
  const char* const names[] = {"Files", "FullDisk", "Sockets", "Databases"};
  return out << names[static_cast<int>(kind)];
}

// Arguments are taken from the environment: FAULTS_EVERY, of how many calls each is made to fail in
// turn, FAULTS_FIRST and FAULTS_LAST. Without the first, a test takes about so many of the calls.
constexpr unsigned kSample = 15;

unsigned Argument(const char* name, unsigned otherwise) {
  const char* const text = std::getenv(name);
  return text == nullptr ? otherwise : static_cast<unsigned>(std::strtoul(text, nullptr, 10));
}

class Faults : public ::testing::TestWithParam<Kind> {
 protected:
  Faults() {
    const platform::CallHook hook = [this](const char* call) { return Next(call); };
    if (GetParam() == Kind::kFiles || GetParam() == Kind::kFullDisk) {
      files_.emplace(platform::files(), hook);
      platform::SetFiles(&*files_);
    } else if (GetParam() == Kind::kSockets) {
      sockets_.emplace(platform::sockets(), hook);
      platform::SetSockets(&*sockets_);
    } else {
      vfs_ = std::make_unique<FaultyVfs>(hook);
    }
  }
  ~Faults() override {
    engine_.reset();
    platform::SetFiles(nullptr);
    platform::SetSockets(nullptr);
  }

  platform::Status Next(const char* call) {
    const platform::Status status = plan_.hook()(call);
    if (!status.ok()) {
      const MutexLock hold(lock_);
      failed_ = call;
    }
    return status;
  }
  std::string Failed() {
    const MutexLock hold(lock_);
    return failed_;
  }
  static platform::ErrorKind Error() {
    if (GetParam() == Kind::kFullDisk) return platform::ErrorKind::kNoSpace;
    if (GetParam() == Kind::kSockets) return platform::ErrorKind::kRefused;
    return platform::ErrorKind::kOther;
  }

  // Until the sync has come to its end.
  bool Settle(const SmallSync::Run& run) {
    const auto end = std::chrono::steady_clock::now() + kLongest;
    while (!run.Differences().empty() || !engine_->IsIdle()) {
      if (std::chrono::steady_clock::now() > end) return false;
      std::this_thread::sleep_for(kLook);
    }
    return true;
  }
  // The same, or until nothing happens any more after the call that failed: a change may be
  // forgotten until the next sync.
  bool SettleOrGiveUp(const SmallSync::Run& run) {
    auto busy = std::chrono::steady_clock::now();
    const auto end = busy + kLongest;
    while (!run.Differences().empty() || !engine_->IsIdle()) {
      const auto now = std::chrono::steady_clock::now();
      if (!engine_->IsIdle() || plan_.failures() == 0) busy = now;
      if (now - busy > kQuiet || now > end) return false;
      std::this_thread::sleep_for(kLook);
    }
    return true;
  }

  // One sync in which the `nth` call fails, and one in which none does. False when there were fewer
  // calls.
  bool Check(const SmallSync& sync, unsigned nth) {
    const SmallSync::Run run(sync);
    plan_.Clear();
    plan_.FailNth(nth, Error());
    const bool added = engine_->Start(run.peer(), run.place());
    const bool settled = added && SettleOrGiveUp(run);
    const bool failed = plan_.failures() > 0;
    SCOPED_TRACE("call " + std::to_string(nth) + ", " + Failed());
    EXPECT_TRUE(settled || failed) << ::testing::PrintToString(run.Differences());
    if (settled && ResumeTransMgr::GetInstance().Size() == 0) {
      // What could not be removed waits for the next start.
      EXPECT_LE(run.LeftOvers().size(), files_ ? 1U : 0U)
          << ::testing::PrintToString(run.LeftOvers());
    }
    plan_.Clear();
    EXPECT_TRUE(engine_->Start(run.peer(), run.place()));
    EXPECT_TRUE(Settle(run)) << ::testing::PrintToString(run.Differences());
    EXPECT_EQ(run.LeftOvers(), std::vector<std::string>());
    engine_->Stop();
    return failed;
  }

  // Of how many calls each is made to fail in turn.
  unsigned Step(const SmallSync& sync) {
    if (const unsigned every = Argument("FAULTS_EVERY", 0); every > 0) return every;
    const SmallSync::Run run(sync);
    plan_.Clear();
    EXPECT_TRUE(engine_->Start(run.peer(), run.place()));
    EXPECT_TRUE(Settle(run)) << ::testing::PrintToString(run.Differences());
    engine_->Stop();
    return plan_.calls() / kSample + 1;
  }

  static constexpr std::chrono::milliseconds kLook{5};
  static constexpr std::chrono::milliseconds kQuiet{700};
  static constexpr std::chrono::seconds kLongest{60};

  platform::FaultPlan plan_;
  Mutex lock_;
  std::string failed_ GUARDED_BY(lock_);
  std::optional<platform::ForwardingFiles> files_;
  std::optional<platform::ForwardingSockets> sockets_;
  std::unique_ptr<FaultyVfs> vfs_;
  std::unique_ptr<Engine> engine_ = std::make_unique<Engine>();
};

TEST_P(Faults, OfOneCallHealWithTheNextSync) {
  const bool is_sample = std::getenv("FAULTS_EVERY") == nullptr;
  const SmallSync sync(*engine_);
  const unsigned step = Step(sync);
  const unsigned first = Argument("FAULTS_FIRST", 1), last = Argument("FAULTS_LAST", 1'000'000);
  unsigned runs = 0, nth = first;
  for (; nth <= last && Check(sync, nth); nth += step) {
    if (is_sample && (++runs == kSample || HasFailure())) break;
  }
  EXPECT_GT(nth, first);
  std::cout << "every " << step << " of " << nth << " calls\n";
}

INSTANTIATE_TEST_SUITE_P(OneCall, Faults,
                         ::testing::Values(Kind::kFiles, Kind::kFullDisk, Kind::kSockets,
                                           Kind::kDatabases),
                         ::testing::PrintToStringParamName());

}  // namespace
}  // namespace tolven::test
