#include "client/core/registry.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

#include "lib/black-list2.h"
#include "lib/profile-set.h"

namespace tolven {
namespace {

Registry::Entry Session(std::uint64_t id) {
  Registry::Entry entry;
  entry.sess_id = id;
  return entry;
}

Registry::Entry Stored(const Registry& registry, std::uint64_t id) {
  Registry::Entry entry;
  EXPECT_EQ(registry.Find(id, entry), 1) << id;
  return entry;
}

TEST(Registry, WalksByAscendingIdWithoutEnd) {
  Registry registry;
  Registry::Entry at = Session(77);
  EXPECT_EQ(registry.FindNext(0, at), 0);
  EXPECT_EQ(registry.Find(77, at), 0);
  EXPECT_EQ(at.sess_id, 77u);

  registry.Set(Session(5));
  EXPECT_EQ(registry.FindNext(5, at), 1);
  EXPECT_EQ(at.sess_id, 5u);
  registry.Set(Session(UINT64_MAX));
  registry.Set(Session(3));
  std::vector<std::uint64_t> walk;
  at.clear();
  for (int i = 0; i < 4; ++i) {
    ASSERT_EQ(registry.FindNext(at.sess_id, at), 1);
    walk.push_back(at.sess_id);
  }
  EXPECT_EQ(walk, (std::vector<std::uint64_t>{3, 5, UINT64_MAX, 3}));
  // From an id that is gone the walk begins anew, also when there are higher ones.
  EXPECT_EQ(registry.FindNext(4, at), 1);
  EXPECT_EQ(at.sess_id, 3u);

  std::vector<Registry::Entry> all(1);
  registry.GetAll(all);
  ASSERT_EQ(all.size(), 4u);
  EXPECT_EQ(all[1].sess_id, 3u);
  EXPECT_EQ(all[3].sess_id, UINT64_MAX);
  registry.Clear(4);
  registry.Remove(5);
  EXPECT_EQ(registry.Size(), 2u);
}

TEST(Registry, CopiesOutliveWhatReplacesOrRemovesThem) {
  Registry registry;
  Registry::Entry entry = Session(1);
  entry.black_list = std::make_shared<BlackList2>();
  entry.local_path = "/first";
  entry.server_black_lists = nullptr;
  registry.Set(entry);
  const std::weak_ptr<BlackList2> watched = entry.black_list;
  entry = Session(1);
  Registry::Entry worker = Stored(registry, 1);
  EXPECT_NE(worker.server_black_lists, nullptr);

  entry.local_path = "/second";
  registry.Set(entry);
  EXPECT_EQ(Stored(registry, 1).local_path, "/second");
  EXPECT_EQ(Stored(registry, 1).black_list, nullptr);
  EXPECT_GT(Stored(registry, 1).generation, worker.generation);
  EXPECT_GT(worker.generation, 0u);
  const std::uint64_t second = Stored(registry, 1).generation;
  registry.Clear(1);
  registry.Set(worker);
  EXPECT_GT(Stored(registry, 1).generation, second);
  registry.Clear();
  EXPECT_EQ(worker.local_path, "/first");
  EXPECT_FALSE(watched.expired());
  worker.clear();
  EXPECT_TRUE(watched.expired());
  EXPECT_EQ(worker.generation, 0u);
  EXPECT_EQ(worker.local_path, "");
  EXPECT_NE(worker.server_black_lists, Registry::Entry().server_black_lists);
}

TEST(Registry, DestroysNothingUnderItsLock) {
  Registry registry;
  int asked = 0;
  // Asks the table for its size when its last pointer goes, which under the lock would hang.
  const auto asking = [&] {
    Registry::Entry entry = Session(1);
    entry.black_list = {new BlackList2, [&](const BlackList2* list) {
                          delete list;
                          registry.Size();
                          ++asked;
                        }};
    return entry;
  };
  Registry::Entry out = asking();
  registry.Set(asking());
  registry.Set(asking());
  registry.SetBlackList(1, nullptr);
  registry.Find(1, out);
  out = asking();
  registry.FindNext(1, out);
  registry.Set(asking());
  registry.Remove(1);
  registry.Set(asking());
  registry.Clear();
  EXPECT_EQ(asked, 6);
}

TEST(Registry, ChangesFieldsOfASessionThatIsThere) {
  Registry registry;
  const Registry::Entry session = Session(1);
  const auto list = std::make_shared<BlackList2>();
  const auto change = [&] {
    registry.SetPause(1, true);
    registry.SetBlackList(1, list);
    registry.SetServerBlackLists(1, nullptr);
    registry.UpdateRecycleTime(session, 0);
    registry.InitRecycleTime(session, 600);
  };
  change();
  EXPECT_EQ(registry.Size(), 0u);
  registry.Set(session);
  const std::uint64_t generation = Stored(registry, 1).generation;
  change();
  const Registry::Entry changed = Stored(registry, 1);
  EXPECT_TRUE(changed.pause && !changed.read_only && !changed.recursive);
  EXPECT_EQ(changed.black_list, list);
  EXPECT_NE(changed.server_black_lists, nullptr);
  EXPECT_EQ(changed.generation, generation);
  EXPECT_EQ(changed.recycle_time, 600u);

  registry.UpdateRecycleTime(session, 500);
  registry.InitRecycleTime(session, 600);
  registry.Set(session);
  EXPECT_EQ(Stored(registry, 1).recycle_time, 500u);
  registry.InitRecycleTime(session, 400);
  EXPECT_EQ(Stored(registry, 1).recycle_time, 400u);
}

TEST(Registry, ThreadsThatWriteDifferentFieldsLoseNothing) {
  Registry registry;
  registry.Set(Session(1));
  std::atomic<bool> done{false};
  std::thread syncer([&] {
    for (std::uint32_t i = 1; i <= 2000; ++i) {
      const auto set = std::make_shared<ProfileSet>();
      registry.SetServerBlackLists(1, set);
      registry.UpdateRecycleTime(Session(1), i);
      const Registry::Entry stored = Stored(registry, 1);
      EXPECT_TRUE(stored.server_black_lists == set && stored.recycle_time == i);
    }
    done = true;
  });
  Registry::Entry at;
  for (bool read_only = true; !done; read_only = !read_only) {
    registry.SetReadOnly(1, read_only);
    EXPECT_EQ(Stored(registry, 1).read_only, read_only);
    registry.Set(Session(2));
    registry.FindNext(at.sess_id, at);
    registry.Remove(2);
  }
  syncer.join();
}

}  // namespace
}  // namespace tolven
