// The event tree in its plainest form: vectors searched from end to end, recursion, no index and
// nothing remembered that could be worked out. Only tests use it, to be compared with EventList2.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "client/event.h"

namespace tolven::test {

struct NaiveNode {
  enum Status { WAITING, PROCESSING, DONE, RETRY };

  std::string name;
  NaiveNode* parent = nullptr;
  Status status = DONE;
  Event event;
  int server_refs = 0;  // directories only, as is all below
  int local_refs = 0;
  std::vector<std::unique_ptr<NaiveNode>> dirs;
  std::vector<std::unique_ptr<NaiveNode>> files;

  bool server() const { return event.isServerEvent(); }
  bool childless() const { return dirs.empty() && files.empty(); }
};

class NaiveTree {
 public:
  static constexpr uint32_t kTypeConflict = 4096;

  int Push(const Event& event, Event& old);
  int Pop(Event& out);
  int PopPath(const std::string& path, bool dirs, bool files, Event& out);
  int Done(const Event& event);
  int Redo(const Event& event);
  void Clear();
  void ClearLocal();
  int Count(bool server) const { return server ? server_count_ : local_count_; }
  const NaiveNode& root() const { return *root_; }

 private:
  using Nodes = std::vector<std::unique_ptr<NaiveNode>>;

  NaiveNode* Parent(const std::string& path, bool make);
  void MergeInto(NaiveNode& node, NaiveNode& holder, const Event& event, Event& old);
  int Sweep(NaiveNode& dir, const Event& removal);
  bool First(NaiveNode& dir, Event& out);
  int DropLocal(NaiveNode& dir);
  void HandOut(NaiveNode& node, NaiveNode& holder, Event& out);
  int& Counter(bool server) { return server ? server_count_ : local_count_; }

  std::unique_ptr<NaiveNode> root_ = std::make_unique<NaiveNode>();
  int server_count_ = 0;
  int local_count_ = 0;
};

}  // namespace tolven::test
