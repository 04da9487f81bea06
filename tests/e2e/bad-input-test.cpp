// What goes wrong around a session: a server that stops, refuses, becomes another build or loses
// its latest data, and folders and files that come and go under the daemon's hands.
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "e2e/sync-fixture.h"

namespace tolven::test {
namespace {

constexpr int kRefusedToken = -6, kLostView = -18, kOtherBuild = -32;

bool LogHas(const ClientProcess& client, const std::string& text) {
  return client.Log().find(text) != std::string::npos;
}

TEST_F(Sync, AServerMayStopAndRefuse) {
  ClientProcess a(server_, "a"), b(server_, "b");
  Write(a, "one", "one");
  ExpectBoth(a, b, {{"one", "one"}});
  server_.Stop();
  Write(a, "two", "two");
  fs::remove((b / "one").str());
  const auto is_connected = [&a] {
    const PObject status = a.Tell("get_status");
    return status["connection_list"].asArray().front()["status"].asString() == "connected";
  };
  EXPECT_TRUE(Eventually([&] { return !is_connected(); }));
  server_.Start();
  ExpectBoth(a, b, {{"two", "two"}});
  EXPECT_TRUE(Eventually(is_connected));

  a.ReloadConnection(3317, "this is no token");
  EXPECT_TRUE(Eventually([&] { return a.ToldError(kRefusedToken) > 0; }));
  Write(a, "three", "three");
  Write(b, "four", "four");
  a.ReloadConnection(3317);
  ExpectBoth(a, b, {{"two", "two"}, {"three", "three"}, {"four", "four"}});
}

TEST_F(Sync, AServerMayBecomeAnotherBuild) {
  ClientProcess a(server_, "a"), b(server_, "b");
  Write(a, "one", "one");
  ExpectBoth(a, b, {{"one", "one"}});
  Tree wanted{{"one", "one"}};
  for (const int build : {3111, 3317}) {
    server_.Restart({"--build", ustring(std::to_string(build))});
    Write(a, "of-a-" + std::to_string(build), "a");
    Write(b, "of-b-" + std::to_string(build), "b");
    EXPECT_TRUE(
        Eventually([&] { return a.ToldError(kOtherBuild) > 0 && b.ToldError(kOtherBuild) > 0; }));
    a.ReloadConnection(build);
    b.ReloadConnection(build);
    wanted["of-a-" + std::to_string(build)] = "a";
    wanted["of-b-" + std::to_string(build)] = "b";
    ExpectBoth(a, b, wanted);
  }
}

TEST_F(Sync, ABackupOfTheServerChangesNothingHere) {
  ClientProcess a(server_, "a");
  Write(a, "one", "one");
  EXPECT_TRUE(Eventually([&] { return a.Version("/one") > 0 && a.StoredNumber() > 0; }));
  server_.Stop();
  TempFolder backup;
  const auto copy = [](const std::string& from, const std::string& to) {
    fs::remove_all(to);
    fs::copy(from, to, fs::copy_options::recursive);
  };
  copy(server_.Data(), backup.path() + "/old");
  server_.Start();
  for (const char* name : {"two", "dir/three"}) Write(a, name, name);
  fs::remove((a / "one").str());
  const Tree wanted{{"two", "two"}, {"dir", "<dir>"}, {"dir/three", "dir/three"}};
  EXPECT_TRUE(Eventually([&] {
    return a.Version("/two") > 0 && a.Version("/dir/three") > 0 &&
           server_.Admin("ls team").find("/one") == std::string::npos &&
           a.StoredNumber() >= std::max(a.Version("/two"), a.Version("/dir/three"));
  }));
  server_.Stop();
  copy(server_.Data(), backup.path() + "/new");
  copy(backup.path() + "/old", server_.Data());
  const std::uint64_t stored = a.StoredNumber();
  const int told = a.ToldError(kLostView);
  server_.Start();
  EXPECT_TRUE(Eventually([&] { return a.ToldError(kLostView) > told; }));
  EXPECT_EQ(a.StoredNumber(), stored);
  EXPECT_EQ(a.Files(), wanted);
  server_.Stop();
  copy(backup.path() + "/new", server_.Data());
  server_.Start();
  Write(a, "four", "four");
  ClientProcess b(server_, "b");
  Tree more = wanted;
  more["four"] = "four";
  ExpectBoth(a, b, more);
}

// The same work with servers on both sides of the build that first knew access lists.
class OlderServer : public Sync, public ::testing::WithParamInterface<int> {
 protected:
  OlderServer() { server_.Restart({"--build", ustring(std::to_string(GetParam()))}); }
  ClientProcess::Options Options() { return {.build = GetParam()}; }
};

TEST_P(OlderServer, DoesAllThatOthersDo) {
  ClientProcess a(server_, "a", Options()), b(server_, "b", Options());
  const bool is_v0 = GetParam() <= 3111;
  std::string large = Noise(200'000, 1);
  Write(a, "large", large);
  Write(a, "dir/one", "one");
  Write(a, "dir/two", "two");
  Write(a, "kind", "a file");
  Tree wanted{{"large", large},
              {"dir", "<dir>"},
              {"dir/one", "one"},
              {"dir/two", "two"},
              {"kind", "a file"}};
  ExpectBoth(a, b, wanted);
  wanted["large"] = large.insert(100'000, "something in the middle");
  Replace(b, "large", large);
  ExpectBoth(a, b, wanted);
  fs::remove_all((b / "dir").str());
  fs::remove((b / "kind").str());
  Write(b, "kind/inside", "inside");
  Write(b, "copy", "a file");
  ExpectBoth(a, b,
             {{"large", large}, {"kind", "<dir>"}, {"kind/inside", "inside"}, {"copy", "a file"}});
  // Both edit.
  a.TellSession("pause");
  b.TellSession("pause");
  Replace(a, "copy", "edit of a");
  Replace(b, "copy", "edit of b, which is longer");
  a.TellSession("resume");
  b.TellSession("resume");
  ExpectSame(a, b, [](const Tree& tree) {
    return Count(tree, "edit of a") == 1 && Count(tree, "edit of b, which is longer") == 1;
  });
  EXPECT_EQ(LogHas(b, "download-remote-handler-v0("), is_v0);
  EXPECT_EQ(LogHas(b, "download-remote-handler("), !is_v0);
  // What an old server tells of the root is left alone.
  int roots = 0;
  b.Query("SELECT 1 FROM event_table WHERE path = '/' AND syncID > 0;",
          [&](sqlite3_stmt*) { ++roots; });
  EXPECT_EQ(roots, is_v0 ? 0 : 1);
  int lists = 0;
  b.Query("SELECT 1 FROM event_table WHERE aclAttribute <> '';", [&](sqlite3_stmt*) { ++lists; });
  EXPECT_EQ(lists, 0);
  int parked = 0;
  b.Query("SELECT 1 FROM server_filter_table;", [&](sqlite3_stmt*) { ++parked; });
  EXPECT_EQ(parked, 0);
}

INSTANTIATE_TEST_SUITE_P(Build, OlderServer, ::testing::Values(3111, 3112),
                         ::testing::PrintToStringParamName());

TEST_F(Sync, FilesMayGrowAndVanishWhileTheyAreRead) {
  ClientProcess a(server_, "a"), b(server_, "b");
  std::atomic<bool> done = false;
  std::thread vanishing([&] {
    for (int i = 0; !done; ++i) {
      const std::string file = (a / ("passing" + std::to_string(i % 5))).str();
      WriteFile(ustring(file), Noise(300'000, static_cast<std::uint64_t>(i)));
      std::this_thread::yield();
      fs::remove(file);
    }
  });
  std::string grown;
  {
    std::ofstream file((a / "grows").str(), std::ios::binary);
    for (std::uint64_t i = 0; i < 40; ++i) {
      grown += Noise(100'000, i);
      file << Noise(100'000, i) << std::flush;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
  }
  done = true;
  vanishing.join();
  ExpectBoth(a, b, {{"grows", grown}});
  EXPECT_TRUE(Eventually([&] { return a.TemporaryFiles().empty(); }));
}

TEST_F(Sync, WhatTheDaemonKeepsMayGoAway) {
  ClientProcess a(server_, "a"), b(server_, "b");
  for (const char* file : {"one", "two", "three"}) Write(b, file, file);
  Tree wanted{{"one", "one"}, {"two", "two"}, {"three", "three"}};
  ExpectBoth(a, b, wanted);
  const std::string bin = a.working_directory() + "/#ZentRecycle";
  // Somebody puts something into the bin.
  WriteFile(ustring(bin + "/foreign"), "foreign");
  fs::remove((b / "one").str());
  wanted.erase("one");
  ExpectBoth(a, b, wanted);
  EXPECT_EQ(Count(ReadTree(bin), "one"), 1);
  EXPECT_EQ(Count(ReadTree(bin), "foreign"), 1);
  // What was in the bin is gone.
  fs::remove_all(bin);
  fs::remove((b / "two").str());
  wanted.erase("two");
  ExpectBoth(a, b, wanted);
  EXPECT_EQ(Count(ReadTree(bin), "two"), 1);
  // The working directory goes: it is made anew while the session runs, with the folder's id.
  fs::rename(a.working_directory(), a.config() + "/taken");
  Write(b, "four", "four");
  wanted["four"] = "four";
  ExpectBoth(a, b, wanted);
  EXPECT_TRUE(Eventually([&] { return fs::exists(a.working_directory() + "/#RootId"); }));
  // The configuration is away for a while.
  fs::rename(a.config(), a.config() + ".away");
  Write(b, "five", Noise(100'000, 5));
  Write(a, "six", Noise(100'000, 6));
  PObject request;
  request["session_id"] = 1;
  request["do_reload_filter"] = true;
  EXPECT_EQ(a.Tell("reload_session", request)["error"].asString(), "Failed to load black list.");
  fs::rename(a.config() + ".away", a.config());
  wanted["five"] = Noise(100'000, 5);
  wanted["six"] = Noise(100'000, 6);
  ExpectBoth(a, b, wanted);
  a.ReloadRules();
  // Nothing of all this made the next start distrust what it finds.
  a.Stop();
  fs::remove((a / "four").str());
  a.Start();
  wanted.erase("four");
  ExpectBoth(a, b, wanted);
}

TEST_F(Sync, ALinkStandsForTheFolderBehindIt) {
  TempFolder folders;
  const std::string real = folders.path() + "/real", link = folders.path() + "/link";
  fs::create_directory(real);
  if (!MakeLink(real, link)) GTEST_SKIP() << "no links here";
  ClientProcess a(server_, "a", {.root = link}), b(server_, "b");
  Write(a, "dir/one", "one");
  Write(b, "two", "two");
  const Tree wanted{{"dir", "<dir>"}, {"dir/one", "one"}, {"two", "two"}};
  EXPECT_TRUE(Eventually([&] { return ReadTree(real) == wanted && b.Files() == wanted; }));
  // The session stays with its folder; no look at another one takes anything for removed.
  fs::remove(link);
  fs::create_directory(link);
  Write(b, "three", "three");
  EXPECT_TRUE(Eventually([&] { return ReadTree(real).contains("three"); }));
  EXPECT_TRUE(fs::is_empty(link));
  fs::remove((b / "two").str());
  EXPECT_TRUE(Eventually([&] { return ReadTree(real) == b.Files(); }));
}

}  // namespace
}  // namespace tolven::test
