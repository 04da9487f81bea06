// The watched folders of one root: which place in the tree each of the kernel's watch numbers
// stands for. No system calls here.
//
// A folder knows its own name only, so that moving it moves everything below it, and a hundred
// thousand of them stay small.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace tolven::platform {

struct WatchedFolder {
  int wd = -1;
  bool shallow = false;  // what lies below is not watched
  WatchedFolder* parent = nullptr;
  WatchedFolder* first_child = nullptr;
  WatchedFolder* next = nullptr;  // among the children of `parent`
  WatchedFolder* previous = nullptr;
  std::string name;
};

class WatchTree {
 public:
  WatchedFolder* Find(int wd);
  WatchedFolder* Child(const WatchedFolder& parent, std::string_view name);
  // REQUIRES: `wd` is unknown, and nothing has that place. A null parent makes the root.
  WatchedFolder& Insert(int wd, WatchedFolder* parent, std::string_view name);
  // REQUIRES: nothing has the new place, and it does not lie below `folder`.
  void Move(WatchedFolder& folder, WatchedFolder& parent, std::string_view name);
  // Forgets `folder` and all below it; their watch numbers are appended to `wds`.
  void Remove(WatchedFolder& folder, std::vector<int>& wds);
  void Clear();

  // Whether `folder` is `ancestor` or lies below it.
  static bool IsWithin(const WatchedFolder& folder, const WatchedFolder& ancestor);
  // Relative to the root, without a leading separator; empty for the root.
  static std::string PathOf(const WatchedFolder& folder);

  std::size_t size() const { return by_wd_.size(); }

 private:
  struct Place {
    const WatchedFolder* parent;
    std::string_view name;
  };
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(const Place& place) const;
    std::size_t operator()(const WatchedFolder* folder) const {
      return (*this)(Place{folder->parent, folder->name});
    }
  };
  struct Equal {
    using is_transparent = void;
    bool operator()(const WatchedFolder* a, const WatchedFolder* b) const { return a == b; }
    bool operator()(const Place& a, const WatchedFolder* b) const {
      return a.parent == b->parent && a.name == b->name;
    }
    bool operator()(const WatchedFolder* a, const Place& b) const { return (*this)(b, a); }
  };

  void Link(WatchedFolder& folder, WatchedFolder* parent, std::string_view name);
  void Unlink(WatchedFolder& folder);

  std::unordered_map<int, WatchedFolder> by_wd_;
  std::unordered_set<WatchedFolder*, Hash, Equal> by_place_;
};

}  // namespace tolven::platform
