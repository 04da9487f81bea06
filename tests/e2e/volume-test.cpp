// What becomes of a folder whose volume goes away, comes back, is full or may not be written.
#include <filesystem>
#include <string>

#include "e2e/sync-fixture.h"
#include "support/forwarder.h"
#include "support/private-mounts.h"

namespace tolven::test {
namespace {

constexpr std::size_t kMegabyte = 1U << 20;
constexpr int kVolumeAway = -29, kLocalDiskFull = -22;

class Volume : public Sync {
 protected:
  void SetUp() override {
    if (!mounts_.is_allowed()) GTEST_SKIP() << "needs to be allowed to mount something";
    fs::create_directory(point_);
  }
  // A folder on the disk below the mount point.
  std::string NewFolder(const std::string& name) {
    const std::string path = folders_.path() + "/" + name;
    fs::create_directory(path);
    return path;
  }
  // Names at the mount point while nothing is mounted there.
  Tree Bare() const {
    Tree tree;
    for (const auto& item : fs::recursive_directory_iterator(point_)) tree[item.path().string()];
    return tree;
  }
  bool Serves(const std::string& path) {
    return server_.Admin("ls team").find(path) != std::string::npos;
  }

  PrivateMounts mounts_;
  TempFolder folders_;
  const std::string point_ = folders_.path() + "/point";
};

TEST_F(Volume, WhatIsAwayIsNotRemovedAndGoesOnOnceItIsBack) {
  const std::string disk = NewFolder("disk");
  PrivateMounts::Bind(disk, point_);
  ClientProcess a(server_, "a", {.root = point_}), b(server_, "b");
  Write(a, "dir/one", "one");
  Write(a, "two", "two");
  Tree wanted{{"dir", "<dir>"}, {"dir/one", "one"}, {"two", "two"}};
  ExpectBoth(a, b, wanted);

  PrivateMounts::Away(point_);
  EXPECT_TRUE(Eventually([&] { return a.ToldError(kVolumeAway) > 0; }));
  // Both sides go on meanwhile; the disk is changed by somebody who has it elsewhere.
  Write(b, "dir/three", "three");
  fs::remove((b / "two").str());
  WriteFile(ustring(disk + "/dir/four"), "four");
  fs::remove(disk + "/dir/one");
  EXPECT_TRUE(Eventually([&] { return Serves("/dir/three") && !Serves("/two"); }));
  EXPECT_TRUE(Eventually([&] { return a.Log().find("is not the folder") != std::string::npos; }));
  EXPECT_EQ(Bare(), Tree());
  EXPECT_TRUE(Serves("/dir/one"));

  PrivateMounts::Bind(disk, point_);
  ExpectBoth(a, b, {{"dir", "<dir>"}, {"dir/three", "three"}, {"dir/four", "four"}});
}

// A disk that was pulled out comes back as another one, while the old one is still held open.
TEST_F(Volume, WhatComesBackIsWatchedAnew) {
  const std::string disk = NewFolder("disk"), copy = folders_.path() + "/copy";
  PrivateMounts::Bind(disk, point_);
  ClientProcess a(server_, "a", {.root = point_}), b(server_, "b");
  Write(a, "dir/one", "one");
  ExpectBoth(a, b, {{"dir", "<dir>"}, {"dir/one", "one"}});
  PrivateMounts::Away(point_);
  EXPECT_TRUE(Eventually([&] { return a.ToldError(kVolumeAway) > 0; }));
  ASSERT_EQ(std::system(("cp -a " + disk + " " + copy).c_str()), 0);
  WriteFile(ustring(copy + "/while-away"), "while away");
  PrivateMounts::Bind(copy, point_);
  ExpectBoth(a, b, {{"dir", "<dir>"}, {"dir/one", "one"}, {"while-away", "while away"}});
  Write(a, "dir/later", "later");
  ExpectBoth(
      a, b,
      {{"dir", "<dir>"}, {"dir/one", "one"}, {"dir/later", "later"}, {"while-away", "while away"}});
}

TEST_F(Volume, MayGoInTheMiddleOfATransfer) {
  const std::string disk = NewFolder("disk");
  PrivateMounts::Bind(disk, point_);
  Forwarder wire(server_.port);
  ClientProcess a(server_, "a", {.root = point_, .port = wire.port()}), b(server_, "b");
  const std::string up = Noise(16 * kMegabyte, 1), down = Noise(16 * kMegabyte, 2);
  Write(a, "stays", "stays");
  ExpectBoth(a, b, {{"stays", "stays"}});
  Write(a, "up", up);
  EXPECT_TRUE(Eventually([&] { return wire.up() > kMegabyte; }));
  PrivateMounts::Away(point_);
  EXPECT_TRUE(Eventually([&] { return a.ToldError(kVolumeAway) > 0; }));
  PrivateMounts::Bind(disk, point_);
  ExpectBoth(a, b, {{"stays", "stays"}, {"up", up}});

  wire.Reset();
  Replace(b, "down", down);
  EXPECT_TRUE(Eventually([&] { return wire.down() > kMegabyte; }));
  PrivateMounts::Away(point_);
  EXPECT_TRUE(Eventually([&] { return a.ToldError(kVolumeAway) > 1; }));
  EXPECT_EQ(Bare(), Tree());
  PrivateMounts::Bind(disk, point_);
  ExpectBoth(a, b, {{"stays", "stays"}, {"up", up}, {"down", down}});
}

TEST_F(Volume, AFullDiskIsToldAndFilledOnceThereIsRoom) {
  PrivateMounts::Disk(point_, 2 * kMegabyte);
  ClientProcess a(server_, "a", {.root = point_}), b(server_, "b");
  Write(b, "small", "small");
  ExpectBoth(a, b, {{"small", "small"}});
  const std::string large = Noise(4 * kMegabyte, 3);
  Replace(b, "large", large);
  EXPECT_TRUE(Eventually([&] { return a.ToldError(kLocalDiskFull) > 0; }));
  EXPECT_EQ(a.Files(), (Tree{{"small", "small"}}));
  // What is here still goes up.
  Write(a, "own", "own");
  EXPECT_TRUE(Eventually([&] { return b.Files().contains("own"); }));
  PrivateMounts::Change(point_, 16 * kMegabyte);
  ExpectBoth(a, b, {{"small", "small"}, {"own", "own"}, {"large", large}});
  EXPECT_TRUE(Eventually([&] { return a.TemporaryFiles().empty(); }))
      << ::testing::PrintToString(a.TemporaryFiles());
}

TEST_F(Volume, WhatMayNotBeWrittenWaitsUntilItMay) {
  PrivateMounts::Disk(point_, 16 * kMegabyte);
  ClientProcess a(server_, "a", {.root = point_}), b(server_, "b");
  Write(b, "kept", "first");
  Write(b, "gone", "gone");
  ExpectBoth(a, b, {{"kept", "first"}, {"gone", "gone"}});
  PrivateMounts::Change(point_, 16 * kMegabyte, true);
  // All in one batch: the next one is only asked for when nothing has moved for a minute.
  a.TellSession("pause");
  const std::uint64_t first = b.Version("/kept");
  Replace(b, "kept", "second");
  fs::remove((b / "gone").str());
  Write(b, "new", "new");
  EXPECT_TRUE(
      Eventually([&] { return b.Version("/kept") > first && Serves("/new") && !Serves("/gone"); }));
  a.TellSession("resume");
  EXPECT_TRUE(Eventually([&] { return a.ToldLocked("/kept"); }));
  EXPECT_EQ(a.Files(), (Tree{{"kept", "first"}, {"gone", "gone"}}));
  PrivateMounts::Change(point_, 16 * kMegabyte);
  ExpectBoth(a, b, {{"kept", "second"}, {"new", "new"}});
}

// A file that is a mount point can be read and written, and not be replaced or removed.
TEST_F(Volume, AFileThatIsHeldFastWaitsUntilItIsLetGo) {
  ClientProcess a(server_, "a"), b(server_, "b");
  for (const char* file : {"dir/kept", "dir/gone", "loose"}) Write(b, file, file);
  const Tree first{
      {"dir", "<dir>"}, {"dir/kept", "dir/kept"}, {"dir/gone", "dir/gone"}, {"loose", "loose"}};
  ExpectBoth(a, b, first);
  const std::string kept = (a / "dir/kept").str(), gone = (a / "dir/gone").str();
  for (const std::string& file : {kept, gone}) PrivateMounts::Bind(file, file);
  a.TellSession("pause");
  const std::uint64_t number = b.Version("/dir/kept");
  Replace(b, "dir/kept", "second");
  fs::remove((b / "dir/gone").str());
  fs::remove((b / "loose").str());
  EXPECT_TRUE(Eventually([&] {
    return b.Version("/dir/kept") > number && !Serves("/dir/gone") && !Serves("/loose");
  }));
  a.TellSession("resume");
  EXPECT_TRUE(Eventually([&] {
    const std::string log = a.Log();
    return log.find("Failed to remove '/dir/gone'") != std::string::npos &&
           !a.Files().contains("loose");
  }));
  EXPECT_EQ(a.Files(),
            (Tree{{"dir", "<dir>"}, {"dir/kept", "dir/kept"}, {"dir/gone", "dir/gone"}}));
  for (const std::string& file : {kept, gone}) PrivateMounts::Away(file);
  ExpectBoth(a, b, {{"dir", "<dir>"}, {"dir/kept", "second"}});
}

}  // namespace
}  // namespace tolven::test
