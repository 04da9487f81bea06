// One round: a server and two daemons, disturbed while both folders change, then left to settle.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "chaos/forwarder.h"
#include "chaos/ledger.h"
#include "chaos/oracle.h"
#include "chaos/plan.h"
#include "chaos/user.h"
#include "e2e/client-process.h"
#include "e2e/server-process.h"

namespace tolven::test {

struct Figures {
  std::size_t operations = 0, kills = 0, faults = 0, contents = 0;
  std::size_t failed_calls = 0;  // of the daemons' platform
};

class Round {
 public:
  explicit Round(std::uint64_t seed);
  ~Round();

  // Whether everything was as it must be; Problems() tells what was not.
  // The plan of `operations` is cut into `phases`, and all is mended and judged after each. With
  // lone users, only one of the two is at work in every other phase, and nobody else may change
  // that user's folder.
  bool Run(std::size_t operations, std::size_t phases, bool with_lone_users);
  const std::vector<std::string>& problems() const { return problems_; }
  const std::vector<std::string>& trace() const { return trace_; }
  const Figures& figures() const { return figures_; }
  // Copies logs, databases and the trace.
  void Keep(const std::string& folder) const;

 private:
  struct Side {
    std::string name, root;
    std::unique_ptr<Forwarder> way;
    std::unique_ptr<ClientProcess> client;
    std::unique_ptr<User> user;
    std::string fault_file;  // see seam-faults.cpp
    bool is_paused = false, is_away = false, has_faults = false;
    int rule = -1;  // of the black list; -1: none
    // Since the daemon started. What was to be removed meanwhile from a root that was away, or by a
    // call that failed, stays until the next start.
    bool was_away = false, had_faults = false;
    std::size_t failed_calls = 0;  // of this daemon, as far as they were counted
  };

  void Do(Operation operation);
  std::string Disturb(const Operation& operation);
  std::string DisturbSide(Side& side, const Operation& operation);
  // What is asked of a daemon that runs.
  std::string Tell(Side& side, const Operation& operation);
  std::string Start(Side& side);
  std::string Kill(Side& side);
  std::string MoveRoot(Side& side, bool away);
  std::string Hide(Side& side, std::size_t rule);
  std::string Show(Side& side, bool anew);
  std::string AddAnew(Side& side);
  std::string FailCalls(Side& side, std::size_t which);
  std::string StopFaults(Side& side);
  void CountFailedCalls(Side& side);
  // Whether a disturbance may bring back what its user has removed.
  bool MayBringBack(const Operation& operation) const;
  // Whether the folder of a user who is alone at work is as that user left it.
  void LookForMeddling();
  // Ends all that disturbs, and waits until nothing changes any more and everything agrees.
  void MendAll();
  void Settle();
  bool IsIdle(Side& side);
  std::vector<std::string> Differences();
  void Judge();
  std::vector<std::string> LeftOvers(const Side& side) const;
  void LookForDead();
  void Note(const std::string& text);
  void Fail(const std::string& text);

  const std::uint64_t seed_;
  const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
  TempFolder folder_;
  ServerProcess server_;
  bool server_runs_ = true;
  Ledger ledger_;
  Oracle oracle_;
  std::array<Side, 2> sides_;
  Side* alone_ = nullptr;  // whose user alone is at work; null: both are
  Listing left_;           // what the user who is alone last left
  std::vector<std::string> trace_, problems_;
  Figures figures_;
};

}  // namespace tolven::test
