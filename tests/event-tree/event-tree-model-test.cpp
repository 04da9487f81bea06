// EventList2 against the plain model under random calls: every result and, after every call, every
// node with its place, status, event and counts must be the same, and the counts must be right.
#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <cstdlib>
#include <ostream>
#include <sstream>

#include "client/event-list2.h"
#include "naive-tree.h"

namespace tolven {

struct EventList2Peer {
  static const EventDirNode& Root(const EventList2& list) NO_THREAD_SAFETY_ANALYSIS {
    return list.tree_.root();
  }
};

namespace test {
namespace {

enum Kind { PUSH, POP, POP_PATH, DONE, REDO, CLEAR, CLEAR_LOCAL };

struct Call {
  Kind kind;
  unsigned pick;  // of a path, or of an event at work
  bool at_work;   // for done and redo
  bool is_dir;
  Event::Type type;
  uint32_t flags;
  uint64_t sync_id;
};

std::ostream& operator<<(std::ostream& out, const Call& call) {
  static const char* const names[] = {"push", "pop", "pop-path", "done", "redo", "clear", "local"};
  return out << names[call.kind] << " #" << call.pick << (call.at_work ? " at work" : "")
             << (call.is_dir ? " dir " : " file ") << Event::TypeText(call.type) << " flags "
             << call.flags << " sync " << call.sync_id;
}

std::string Text(const Event& event) {
  std::ostringstream out;
  out << event.m_type << ' ' << event.m_mode << ' ' << event.m_sync_id << ' ' << event.m_max_id
      << ' ' << event.m_path.str() << ' ' << event.m_data_hash.str();
  return out.str();
}

void Describe(const NaiveNode& dir, std::ostream& out) {
  out << dir.name << '/' << dir.status << ' ' << Text(dir.event) << ' ' << dir.server_refs << ' '
      << dir.local_refs << "{\n";
  for (const auto& file : dir.files) {
    out << file->name << ' ' << file->status << ' ' << Text(file->event) << '\n';
  }
  for (const auto& child : dir.dirs) Describe(*child, out);
  out << "}\n";
}

std::string NodeText(const EventNode& node) {
  Event event;
  node.attr.ToEvent(event);
  return std::to_string(static_cast<int>(node.status)) + " " + Text(event);
}

void Describe(const EventDirNode& dir, std::ostream& out) {
  out << dir.name << '/' << NodeText(dir) << ' ' << dir.RefCount(true) << ' ' << dir.RefCount(false)
      << "{\n";
  for (auto* file = dir.files().first(); file != nullptr; file = dir.files().Next(*file)) {
    out << file->name << ' ' << NodeText(*file) << '\n';
  }
  for (auto* child = dir.dirs().first(); child != nullptr; child = dir.dirs().Next(*child)) {
    Describe(*child, out);
  }
  out << "}\n";
}

struct Totals {
  int pending[2] = {0, 0};
  int running[2] = {0, 0};
};

// Counts again what the tree claims to know; `running` is what works below `dir`.
Totals Recount(const NaiveNode& dir, bool check_refs) {
  Totals totals;
  const auto add = [&totals](const NaiveNode& node) {
    totals.pending[node.server()] += node.status != NaiveNode::DONE;
    totals.running[node.server()] += node.status == NaiveNode::PROCESSING;
  };
  for (const auto& file : dir.files) add(*file);
  for (const auto& child : dir.dirs) {
    const Totals below = Recount(*child, check_refs);
    for (int side : {0, 1}) {
      totals.pending[side] += below.pending[side];
      totals.running[side] += below.running[side];
    }
    add(*child);
  }
  if (dir.parent == nullptr) add(dir);
  if (check_refs) {
    RC_ASSERT(totals.running[0] == dir.local_refs);
    RC_ASSERT(totals.running[1] == dir.server_refs);
  }
  return totals;
}

class Comparison {
 public:
  explicit Comparison(const std::vector<std::string>& paths) : paths_(paths) {}

  void Run(const Call& call) {
    switch (call.kind) {
      case PUSH:
        return Push(call);
      case POP:
        return Pop();
      case POP_PATH:
        return PopPath(call);
      case DONE:
      case REDO:
        return GiveBack(call);
      case CLEAR:
        real_.Clear();
        naive_.Clear();
        at_work_.clear();
        refs_hold_ = true;
        return;
      case CLEAR_LOCAL:
        real_.ClearLocalEvent();
        naive_.ClearLocal();
        at_work_.clear();    // what ran may have become a local event meanwhile
        refs_hold_ = false;  // by design: what ran is not taken off the counts
    }
  }

  void CheckState() const {
    std::ostringstream real;
    std::ostringstream naive;
    Describe(EventList2Peer::Root(real_), real);
    Describe(naive_.root(), naive);
    RC_ASSERT(real.str() == naive.str());
    const Totals totals = Recount(naive_.root(), refs_hold_);
    RC_ASSERT(real_.GetLocalEventCount() == totals.pending[0]);
    RC_ASSERT(real_.GetServerEventCount() == totals.pending[1]);
    RC_ASSERT(real_.IsEmpty() == (totals.pending[0] + totals.pending[1] == 0));
  }

 private:
  static bool SameNode(const Event& a, const Event& b) {
    return a.m_path == b.m_path && a.isDir() == b.isDir();
  }

  Event EventOf(const Call& call) {
    Event event;
    event.m_path = paths_[call.pick % paths_.size()];
    event.m_type = call.type;
    event.m_mode = call.flags;
    event.m_sync_id = call.sync_id;
    event.m_max_id = serial_;
    event.m_data_hash = "hash of " + std::to_string(serial_++);
    if (call.is_dir || event.m_path == "/") event.setDir();
    return event;
  }

  void Push(const Call& call) {
    const Event event = EventOf(call);
    Event old;
    Event naive_old;
    RC_ASSERT(real_.Push(event, old) == naive_.Push(event, naive_old));
    RC_ASSERT(Text(old) == Text(naive_old));
  }

  void Pop() {
    Event event;
    Event naive_event;
    const int result = real_.Pop(event);
    RC_ASSERT(result == naive_.Pop(naive_event));
    RC_ASSERT(Text(event) == Text(naive_event));
    if (result != 0) return;
    for (const Event& other : at_work_) RC_ASSERT(!SameNode(event, other));
    CheckParentsAreOut(event);
    at_work_.push_back(event);
  }

  // Nothing leaves while a directory above it still has to be done, but for one that a file of its
  // name holds back.
  void CheckParentsAreOut(const Event& event) {
    std::istringstream names(event.m_path.str());
    const NaiveNode* dir = &naive_.root();
    for (std::string name; dir != nullptr && std::getline(names, name, '/');) {
      if (name.empty()) continue;
      if (dir->parent != nullptr || event.m_path.length() > 1) {
        const bool held = (dir->event.m_mode & NaiveTree::kTypeConflict) != 0;
        RC_ASSERT(dir->status == NaiveNode::DONE || (dir->status == NaiveNode::WAITING && held));
      }
      const NaiveNode* next = nullptr;
      for (const auto& child : dir->dirs) next = child->name == name ? child.get() : next;
      dir = next;
    }
  }

  void PopPath(const Call& call) {
    const std::string& path = paths_[call.pick % paths_.size()];
    Event event;
    Event naive_event;
    const int result = call.at_work ? real_.Pop(path, event) : real_.Pop(path, call.is_dir, event);
    RC_ASSERT(result == naive_.PopPath(path, call.at_work || call.is_dir,
                                       call.at_work || !call.is_dir, naive_event));
    RC_ASSERT(Text(event) == Text(naive_event));
    if (result != 0) return;
    std::erase_if(at_work_, [&](const Event& other) { return SameNode(event, other); });
    at_work_.push_back(event);
  }

  void GiveBack(const Call& call) {
    if (call.at_work && at_work_.empty()) return;
    const Event event = call.at_work ? at_work_[call.pick % at_work_.size()] : EventOf(call);
    const int result = call.kind == DONE ? real_.DoneEvent(event) : real_.Redo(event);
    RC_ASSERT(result == (call.kind == DONE ? naive_.Done(event) : naive_.Redo(event)));
    if (result != 0) return;
    std::erase_if(at_work_, [&](const Event& other) { return SameNode(event, other); });
  }

  const std::vector<std::string>& paths_;
  EventList2 real_;
  NaiveTree naive_;
  std::vector<Event> at_work_;
  bool refs_hold_ = true;
  uint64_t serial_ = 0;
};

rc::Gen<Call> AnyCall() {
  return rc::gen::construct<Call>(
      rc::gen::weightedElement<Kind>({{40, PUSH},
                                      {25, POP},
                                      {8, POP_PATH},
                                      {20, DONE},
                                      {8, REDO},
                                      {1, CLEAR},
                                      {1, CLEAR_LOCAL}}),
      rc::gen::inRange(0U, 64U), rc::gen::weightedElement<bool>({{5, true}, {1, false}}),
      rc::gen::arbitrary<bool>(),
      rc::gen::element(Event::EV_CREATE, Event::EV_REMOVE, Event::EV_MODIFY),
      rc::gen::weightedElement<uint32_t>(
          {{8, 0}, {8, 2}, {1, 64}, {1, 130}, {1, 256}, {1, 514}, {1, 1024}}),
      rc::gen::weightedElement<uint64_t>({{3, 1}, {3, 2}, {3, 3}, {1, 0x7FFFFFFFFFFFFFFF}}));
}

void CompareOver(const std::vector<std::string>& paths) {
  setenv("RC_PARAMS", "max_success=400 max_size=120", 0);
  const bool held = rc::check([&paths] {
    const auto calls = *rc::gen::container<std::vector<Call>>(AnyCall());
    Comparison comparison(paths);
    for (const Call& call : calls) {
      comparison.Run(call);
      comparison.CheckState();
    }
  });
  EXPECT_TRUE(held);
}

TEST(EventTreeModel, AgreesOnDeepSmallTrees) {
  CompareOver({"/", "/a", "/b", "/a/a", "/a/b", "/b/a", "/b/b", "/a/a/a", "/a/a/b", "/a/b/a",
               "/a/b/b", "/b/a/b", "/b/b/a", "/b/b/b/a", "/a/"});
}

TEST(EventTreeModel, AgreesOnManySiblings) {
  std::vector<std::string> paths{"/", "/d"};
  for (char name = 'a'; name < 'q'; ++name) paths.push_back(std::string("/d/") + name);
  for (char name = 'a'; name < 'd'; ++name) paths.push_back(std::string("/d/") + name + "/f");
  CompareOver(paths);
}

}  // namespace
}  // namespace test
}  // namespace tolven
