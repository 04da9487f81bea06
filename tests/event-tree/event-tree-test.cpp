#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <thread>
#include <vector>

#include "client/event-dump.h"
#include "client/event-list2.h"
#include "lib/file-status-db.h"
#include "lib/log.h"
#include "support/temp-folder.h"

namespace tolven {
namespace {

constexpr uint64_t kForced = 0x7FFFFFFFFFFFFFFF;
constexpr uint32_t kLocal = 0;
constexpr uint32_t kServer = Event::F_SERVER;
constexpr uint32_t kDir = Event::F_DIR;

Event Make(const std::string& path, Event::Type type, uint32_t mode, uint64_t sync_id = 0) {
  Event event;
  event.m_path = path;
  event.m_type = type;
  event.m_mode = mode;
  event.m_sync_id = sync_id;
  return event;
}

// The path that leaves next, or "" when none may.
std::string Next(EventList2& list, Event* out = nullptr) {
  Event event;
  if (list.Pop(event) != 0) return "";
  if (out != nullptr) *out = event;
  return event.m_path.str();
}

TEST(EventTree, MergesTwoEventsOfOnePath) {
  using enum Event::Type;
  struct Row {
    uint32_t dir;
    Event old;
    Event arrival;
    bool keeps_old;
    uint32_t added;
  };
  const auto e = [](Event::Type type, uint32_t mode, uint64_t id = 0) {
    return Make("/p", type, mode, id);
  };
  const Row rows[] = {
      {0, e(EV_CREATE, kLocal), e(EV_REMOVE, kLocal), false, 0},
      {0, e(EV_MODIFY, kLocal), e(EV_CREATE, kServer, 5), false, Event::F_CONFLICT},
      {0, e(EV_REMOVE, kLocal), e(EV_CREATE, kServer, 5), false, 0},
      {0, e(EV_REMOVE, kLocal), e(EV_REMOVE, kServer, 5), false, 0},
      {0, e(EV_MODIFY, kLocal), e(EV_REMOVE, kServer, 5), true, Event::F_REPLACED_SERVER_EVENT},
      {0, e(EV_REMOVE, kServer, 5), e(EV_MODIFY, kLocal), false, Event::F_REPLACED_SERVER_EVENT},
      {0, e(EV_CREATE, kServer, 5), e(EV_MODIFY, kLocal), true, Event::F_CONFLICT},
      {0, e(EV_CREATE, kServer, 5), e(EV_REMOVE, kLocal), true, 0},
      {0, e(EV_CREATE, kServer, 10), e(EV_REMOVE, kServer, 10), true, 0},
      {0, e(EV_CREATE, kServer, 10), e(EV_REMOVE, kServer, 11), false, 0},
      {0, e(EV_CREATE, kServer, kForced), e(EV_CREATE, kServer, 5), false, 0},
      {0, e(EV_CREATE, kServer, 5), e(EV_CREATE, kServer, kForced), false, 0},
      {0, e(EV_CREATE, kLocal | 256), e(EV_MODIFY, kLocal), false, 256},
      {kDir, e(EV_CREATE, kLocal), e(EV_CREATE, kServer, 5), false, 0},
      {kDir, e(EV_CREATE, kServer, 5), e(EV_REMOVE, kLocal), true, 0},
      {kDir, e(EV_CREATE, kServer, 10), e(EV_CREATE, kServer, 10), true, 0},
      {kDir, e(EV_CREATE, kServer, 10), e(EV_CREATE, kServer, 11), false, 0},
      {kDir, e(EV_CREATE, kServer, kForced), e(EV_CREATE, kServer, 5), false, 0},
      {kDir, e(EV_REMOVE, kLocal), e(EV_CREATE, kLocal), false, Event::F_LOCAL_SUBDIR_RESCAN},
      {kDir, e(EV_REMOVE, kLocal), e(EV_CREATE, kServer, 1), false, Event::F_LOCAL_SUBDIR_RESCAN},
      {kDir, e(EV_REMOVE, kServer, 1), e(EV_CREATE, kServer, 2), false,
       Event::F_SERVER_SUBDIR_RESCAN},
  };
  for (Row row : rows) {
    row.old.m_mode |= row.dir;
    row.arrival.m_mode |= row.dir;
    SCOPED_TRACE(row.old.toString().str() + " + " + row.arrival.toString().str());
    EventList2 list;
    Event previous;
    ASSERT_EQ(list.Push(row.old), 0);
    ASSERT_EQ(list.Push(row.arrival, previous), 0);
    EXPECT_EQ(previous.toString().str(), row.old.toString().str());
    Event expected = row.keeps_old ? row.old : row.arrival;
    expected.m_mode |= row.added;
    Event out;
    ASSERT_EQ(Next(list, &out), "/p");
    EXPECT_EQ(out.m_type, expected.m_type);
    EXPECT_EQ(out.m_mode, expected.m_mode);
    EXPECT_EQ(out.m_sync_id, expected.m_sync_id);
    EXPECT_EQ(list.GetServerEventCount(), expected.isServerEvent() ? 1 : 0);
    EXPECT_EQ(list.DoneEvent(out), 0);
    EXPECT_TRUE(list.IsEmpty());
  }
}

TEST(EventTree, HandsOutTopDownAndStarvesLaterDirectories) {
  EventList2 list;
  for (const char* path : {"/a/1", "/b/1", "/a/2"}) list.Push(Make(path, Event::EV_CREATE, kLocal));
  EXPECT_EQ(Next(list), "/a/1");
  EXPECT_EQ(Next(list), "/a/2");
  EXPECT_EQ(Next(list), "");  // /a has nothing more to give, but is in the way
  list.Push(Make("/a", Event::EV_MODIFY, kLocal | kDir));
  EXPECT_EQ(Next(list), "/b/1");  // /a waits for its files, and no longer leads the search astray
  EXPECT_EQ(list.DoneEvent(Make("/a/1", Event::EV_CREATE, kLocal)), 0);
  EXPECT_EQ(list.Redo(Make("/a/2", Event::EV_CREATE, kLocal)), 0);
  EXPECT_EQ(Next(list), "");  // /a fell behind /b, in which nothing waits
  EXPECT_EQ(list.DoneEvent(Make("/b/1", Event::EV_CREATE, kLocal)), 0);
  EXPECT_EQ(Next(list), "/a");
  EXPECT_EQ(Next(list), "");
  list.Push(Make("/", Event::EV_MODIFY, kLocal | kDir));
  EXPECT_EQ(Next(list), "/");
}

TEST(EventTree, GivesAMergedEventToTheOneWhoHasThePath) {
  EventList2 list;
  Event out;
  list.Push(Make("/f", Event::EV_CREATE, kLocal));
  ASSERT_EQ(Next(list), "/f");
  list.Push(Make("/f", Event::EV_REMOVE, kLocal));
  EXPECT_EQ(Next(list), "");
  EXPECT_EQ(list.DoneEvent(Make("/f", Event::EV_CREATE, kLocal)), -1);
  EXPECT_EQ(list.Pop("/f", true, out), -1);
  ASSERT_EQ(list.Pop("/f", out), 0);
  EXPECT_EQ(out.m_type, Event::EV_REMOVE);
  EXPECT_EQ(list.Pop("/f", out), -1);
  EXPECT_EQ(list.DoneEvent(Make("/f", Event::EV_REMOVE, kServer)), -1);
  EXPECT_EQ(list.DoneEvent(out), 0);
  EXPECT_TRUE(list.IsEmpty());
}

TEST(EventTree, HoldsBackTheSecondKindOfAName) {
  EventList2 list;
  Event file;
  list.Push(Make("/a", Event::EV_CREATE, kLocal));
  list.Push(Make("/a", Event::EV_CREATE, kLocal | kDir));
  list.Push(Make("/a/x", Event::EV_CREATE, kLocal));
  ASSERT_EQ(Next(list, &file), "/a");
  EXPECT_EQ(Next(list), "/a/x");  // what is below goes ahead
  EXPECT_EQ(Next(list), "");
  EXPECT_EQ(list.DoneEvent(Make("/a/x", Event::EV_CREATE, kLocal)), 0);
  EXPECT_EQ(Next(list), "");
  EXPECT_EQ(list.DoneEvent(file), 0);
  Event dir;
  EXPECT_EQ(Next(list, &dir), "/a");
  EXPECT_EQ(dir.m_mode, kDir);
}

TEST(EventTree, SweepsBelowARemoval) {
  const std::string folder = ::testing::TempDir() + "event-tree-sweep";
  std::filesystem::create_directories(folder);
  ASSERT_EQ(FileStatusDB::initialize(folder + "/fstat.db"), 0);
  const auto known = [](const char* key) {
    FileStatusInfo info;
    return FileStatusDB::getFileSyncStat(key, &info);
  };
  for (const char* key : {"D:\\d\\old", "D:\\d\\new", "D:\\d\\mine"}) {
    FileStatusDB::setFileSyncStat({0, FSTAT_SYNCING, key});
  }

  EventList2 list;
  list.SetWatchPath("D:/");
  list.Push(Make("/d/old", Event::EV_CREATE, kServer, 3));
  list.Push(Make("/d/new", Event::EV_CREATE, kServer, 9));
  list.Push(Make("/d/mine", Event::EV_MODIFY, kLocal));
  list.Push(Make("/d", Event::EV_REMOVE, kServer | kDir, 9));
  EXPECT_EQ(list.GetServerEventCount(), 2);
  EXPECT_EQ(known("D:\\d\\old"), 0);
  EXPECT_EQ(known("D:\\d\\new") + known("D:\\d\\mine"), 2);
  Event out;
  ASSERT_EQ(Next(list, &out), "/d");
  EXPECT_TRUE(out.isServerSubDirRescanWithStat());
  FileStatusDB::destroy();
  std::filesystem::remove_all(folder);
}

TEST(EventTree, KeepsEveryFieldOfAnEvent) {
  Event in = Make("/" + std::string(900, 'n'), Event::EV_CREATE, kServer | 256, 1ULL << 63);
  in.m_max_id = ~0ULL;
  in.m_data_size = 1ULL << 40;
  in.m_time = 0xFFFFFFFF;
  in.m_data_hash = std::string(300, 'h');
  in.m_opt = "o";
  in.m_mac_attr_hash = "m";
  in.m_mac_attr_size = 127;
  in.m_sess_id = 128;
  in.m_exec_bit = 1;
  in.m_privilege = {{1, 2, 0x755}, {"acl", "hash"}, {-1, "d", "ro", "rw", "h"}};
  EventList2 list;
  list.Push(in);
  Event out = Make("/other", Event::EV_REMOVE, kDir, 1);
  out.m_privilege.share_priv.share_priv_hash = "left over";
  ASSERT_EQ(list.Pop(out), 0);
  EXPECT_EQ(out.toString(), in.toString());
  EXPECT_EQ(out.m_mode, in.m_mode);
  EXPECT_EQ(out.m_max_id, in.m_max_id);
  EXPECT_EQ(out.m_data_size, in.m_data_size);
  EXPECT_EQ(out.m_time, in.m_time);
  EXPECT_EQ(out.m_opt, in.m_opt);
  EXPECT_EQ(out.m_mac_attr_hash, in.m_mac_attr_hash);
  EXPECT_EQ(out.m_mac_attr_size, in.m_mac_attr_size);
  EXPECT_EQ(out.m_sess_id, in.m_sess_id);
}

TEST(EventTree, CutsWhatIsTooLong) {
  EventList2 list;
  const std::string head(1023, 'c');
  list.Push(Make("/" + head + "x/" + head + "y", Event::EV_CREATE, kLocal));
  list.Push(Make("//" + head + "z//" + head, Event::EV_REMOVE, kLocal));
  EXPECT_EQ(list.GetLocalEventCount(), 1);
  EXPECT_EQ(list.Push(Make("/a/", Event::EV_CREATE, kLocal)), -1);
  EXPECT_EQ(list.Push(Make("", Event::EV_CREATE, kLocal)), -1);

  std::string deep;
  while (deep.size() < 4094) deep += "/d";
  list.Clear();
  list.Push(Make(deep + "e", Event::EV_CREATE, kServer, 1));
  list.Push(Make(deep + "ex", Event::EV_CREATE, kServer, 2));  // the same within 4,095 bytes
  EXPECT_EQ(list.GetServerEventCount(), 1);
  list.Push(Make(deep + "/f", Event::EV_CREATE, kServer, 1));
  EXPECT_EQ(list.GetServerEventCount(), 1);  // cut to a path that ends in "/"
  list.Push(Make("/d", Event::EV_REMOVE, kServer | kDir, 3));
  EXPECT_EQ(list.GetServerEventCount(), 1);
}

TEST(EventTree, ServesManyThreads) {
  constexpr int kFiles = 2000;
  EventList2 list;
  std::atomic<int> finished{0};
  std::vector<std::thread> threads;
  for (int producer = 0; producer < 2; ++producer) {
    threads.emplace_back([&list, producer] {
      for (int i = 0; i < kFiles; ++i) {
        list.Push(Make("/" + std::to_string(producer) + "/" + std::to_string(i), Event::EV_CREATE,
                       producer == 0 ? kLocal : kServer, 1));
      }
    });
  }
  for (int worker = 0; worker < 2; ++worker) {
    threads.emplace_back([&] {
      int turn = 0;
      for (Event event; finished < 2 * kFiles;) {
        if (list.Pop(event) != 0) {
          std::this_thread::yield();
        } else if (++turn % 7 == 0) {
          list.Redo(event);
        } else if (list.DoneEvent(event) == 0) {
          ++finished;
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(finished, 2 * kFiles);
  EXPECT_TRUE(list.IsEmpty());
}

TEST(EventTree, WritesEveryNodeToTheLog) {
  const test::TempFolder folder;
  test::WriteFile(folder / "levels", "event_list_debug=7\n");
  EventList2 list;
  list.Push(Make("/dir/file", Event::EV_REMOVE, kServer, 5));
  ASSERT_EQ(Logger::Initialize(Logger::FILE_LOGGER, folder / "log", folder / "levels", 2), 0);
  list.TraverseTree();
  list.Print();
  Logger::Destroy();
  const std::string log = test::ReadFile(folder / "log");
  EXPECT_THAT(log, testing::HasSubstr("========TraverseTree , server_event_count = [1], "
                                      "local_event_count=[0] =========\n"));
  EXPECT_THAT(log, testing::HasSubstr("file [server] name = [file], status = [WAITING], type = "
                                      "[EV_REMOVE], path = [/dir/file]\n"));
  EXPECT_THAT(log, testing::HasSubstr("  dir 'dir' DONE EV_EMPTY (local)\n"));
}

TEST(EventTree, NamesModesForTheLog) {
  EXPECT_EQ(GetModeString(0), "local");
  EXPECT_EQ(GetModeString(2 | 64 | 512 | 1024 | 4096),
            "server,local-dir-rescan,server-dir-rescan-stat,conflict, file-type-conflict");
}

}  // namespace
}  // namespace tolven
