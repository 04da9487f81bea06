// Processes, identity, volumes, trash and clocks.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <future>
#include <thread>

#include "platform/fake-clock.h"
#include "platform/files.h"
#include "platform/forwarding-process.h"
#include "platform/forwarding-system.h"
#include "platform/mount-table-linux.h"
#include "platform/peer-table-linux.h"
#include "support/temp-folder.h"

namespace tolven::platform {
namespace {

namespace fs = std::filesystem;
using test::ReadFile;
using test::WriteFile;
using ::testing::ElementsAre;

constexpr int kPatienceMs = 20'000;
constexpr uid_t kNobody = 65534;

// Runs `body` in a child of its own, which may change what belongs to the whole process.
int InChild(const std::function<int()>& body) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(body());
  int status = 0;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(ProcessTest, DecodesArguments) {
  ustring text;
  EXPECT_TRUE(process().DecodeArgument("/etc/\xC3\xA4.conf", text).ok());
  EXPECT_EQ(text, "/etc/\xC3\xA4.conf");
  const std::string longest(8191, 'x');
  EXPECT_TRUE(process().DecodeArgument(longest.c_str(), text).ok());
  for (const std::string& bad : {std::string(), longest + "x", std::string("\xFF")}) {
    EXPECT_FALSE(process().DecodeArgument(bad.c_str(), text).ok());
    EXPECT_TRUE(text.empty());
  }
}

TEST(ProcessTest, StartsChildrenWithNothingOfOurs) {
  test::TempFolder folder;
  const ustring output = folder / "output";
  WriteFile(output, "kept\n");
  ASSERT_TRUE(process().StartSockets().ok());  // ignores a signal, which the child must not
  ChildProcess child;
  ScopedFile secret;
  ASSERT_TRUE(files().Open(folder / "secret", OpenMode::kTruncate, *secret.receive()).ok());
  const char* const script =
      "cat; echo out; echo err >&2; [ $(ps -o pgid= -p $$) = $$ ] && echo group; "
      "ls -l /proc/$$/fd | grep -c secret; (kill -PIPE $BASHPID; echo alive); exit 7";
  ASSERT_TRUE(process().Spawn({"bash", "-c", script}, output, child).ok());
  int status = -1;
  ASSERT_TRUE(process().WaitForExit(child, kPatienceMs, status));
  EXPECT_EQ(status, 7);
  status = -1;
  EXPECT_TRUE(process().WaitForExit(child, 0, status));
  EXPECT_EQ(status, 7);
  EXPECT_EQ(ReadFile(output).substr(0, 21), "kept\nout\nerr\ngroup\n0\n");
  EXPECT_EQ(ReadFile(output).find("alive"), std::string::npos);
  EXPECT_FALSE(process().IsRunning(child.pid));
  EXPECT_EQ(process().Kill(child).kind, ErrorKind::kNotFound);
  EXPECT_EQ(process().Spawn({"/no/such/program"}, "", child).kind, ErrorKind::kNotFound);
  EXPECT_FALSE(process().WaitForExit(child, 0, status));
}

TEST(ProcessTest, KillsAndTellsWhetherOneRuns) {
  ChildProcess child;
  ASSERT_TRUE(process().Spawn({"sleep", "1000"}, "", child).ok());
  int status = 0;
  EXPECT_FALSE(process().WaitForExit(child, 0, status));
  EXPECT_TRUE(process().IsRunning(child.pid));
  EXPECT_TRUE(process().IsRunning(1));
  EXPECT_FALSE(process().IsRunning(0));
  ASSERT_TRUE(process().Kill(child).ok());
  // One that nobody has asked after yet has ended all the same.
  while (process().IsRunning(child.pid)) std::this_thread::yield();
  ASSERT_TRUE(process().WaitForExit(child, kPatienceMs, status));
  EXPECT_EQ(status, 128 + SIGKILL);
}

TEST(ProcessTest, RunsTheTerminationHandlerOnce) {
  EXPECT_EQ(InChild([] {
              std::atomic<int> runs = 0;
              std::promise<void> ran;
              const auto handler = [&] {
                ++runs;
                ran.set_value();
              };
              if (!process().OnTermination(handler).ok()) return 1;
              if (!process().OnTermination(handler).is(ErrorKind::kExists)) return 2;
              ::kill(::getpid(), SIGTERM);
              ran.get_future().wait();
              ::kill(::getpid(), SIGINT);
              return runs == 1 ? 0 : 3;
            }),
            0);
}

TEST(IdentityTest, FindsTheUsersFolders) {
  struct {
    const char* xdg;
    const char* home;
    const char* data;
  } const cases[] = {
      {"/data/", "/home/me", "/data"},
      {"", "/home/me/", "/home/me/.local/share"},
      {"not/absolute", "/home/me", "/home/me/.local/share"},
      {"", "/", "/.local/share"},
  };
  EXPECT_EQ(InChild([&] {
              int wrong = 0;
              for (const auto& c : cases) {
                ::setenv("XDG_DATA_HOME", c.xdg, 1);
                ::setenv("HOME", c.home, 1);
                ustring path;
                if (!identity().LocalAppData(path).ok() || !(path == c.data)) ++wrong;
              }
              ::unsetenv("HOME");
              ustring home, host;
              int id = -1;
              if (!identity().HomeDirectory(home).ok() || home[0] != '/') ++wrong;
              if (!identity().HostName(host, id).ok() || host.empty()) ++wrong;
              return wrong;
            }),
            0);
}

int Listen(sockaddr_in& address) {
  const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
  address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  EXPECT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), size), 0);
  EXPECT_EQ(::listen(listener, 8), 0);
  EXPECT_EQ(::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size), 0);
  return listener;
}

int Connect(const sockaddr_in& address) {
  const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  const auto* const target = reinterpret_cast<const sockaddr*>(&address);
  return ::connect(fd, target, sizeof address) == 0 ? fd : -1;
}

TEST(IdentityTest, KnowsWhoHoldsTheOtherEnd) {
  sockaddr_in address;
  const int listener = Listen(address);
  const int ours = Connect(address);
  const int peer = ::accept(listener, nullptr, nullptr);
  EXPECT_EQ(identity().OwnerOfPeer(peer), PeerOwner::kAllowed);
  // Without a holder the kernel shows user 0 until the end of the connection is forgotten.
  ::close(ours);
  char byte;
  EXPECT_EQ(::read(peer, &byte, 1), 0);
  EXPECT_EQ(identity().OwnerOfPeer(peer), PeerOwner::kUnknown);
  ::close(peer);
  EXPECT_EQ(identity().OwnerOfPeer(listener), PeerOwner::kUnknown);

  if (::geteuid() == 0) {
    int hold[2];
    ASSERT_EQ(::pipe(hold), 0);
    const pid_t stranger = ::fork();
    if (stranger == 0) {
      ::close(hold[1]);
      if (::setresuid(kNobody, kNobody, kNobody) != 0 || Connect(address) < 0) ::_exit(1);
      ::_exit(::read(hold[0], &byte, 1) == 0 ? 0 : 1);
    }
    const int accepted = ::accept(listener, nullptr, nullptr);
    EXPECT_EQ(identity().OwnerOfPeer(accepted), PeerOwner::kRefused);
    ::close(hold[1]);
    int status = 1;
    ::waitpid(stranger, &status, 0);
    EXPECT_EQ(status, 0);
    ::close(accepted);
    ::close(hold[0]);
  }
  ::close(listener);
}

TEST(IdentityTest, DoesNotBelieveALineWithoutAHolder) {
  const std::string head = "  sl  local_address rem_address   st ...\n";
  const std::string line = "   1: 0100007F:1F90 0100007F:C350 ";
  const auto find = [&](const std::string& rest) {
    return FindHolder(head + line + rest, "0100007F:1F90", "0100007F:C350");
  };
  const std::string queues = "00000000:00000000 00:00000000 00000000 ";
  EXPECT_EQ(find("01 " + queues + " 1000        0 2345 1 0 20 0\n"), 1000u);
  EXPECT_EQ(find("01 " + queues + "    0        0 2345 1 0 20 0"), 0u);
  EXPECT_EQ(find("06 " + queues + "    0        0 0 3 0\n"), std::nullopt);
  EXPECT_EQ(find("01 " + queues + " 1000"), std::nullopt);
  EXPECT_EQ(find("01 " + queues + " me 0 2345"), std::nullopt);
  EXPECT_EQ(FindHolder(head + line, "0100007F:C350", "0100007F:1F90"), std::nullopt);
}

TEST(VolumesTest, ReadsTheMountTable) {
  const std::vector<Mount> mounts = ParseMounts(
      "22 1 8:1 / / rw,relatime shared:1 master:2 - ext4 /dev/sda1 rw\n"
      "no mount at all\n"
      "30 22 0:40 / /mnt rw - nfs4 host:/x rw\n"
      "31 22 8:17 / /mnt/a\\040b\\134 rw - vfat /dev/sdb1 rw\n"
      "32 22 8:18 / /mnt rw - fuse.sshfs host: rw\n");
  ASSERT_EQ(mounts.size(), 4u);
  const auto type = [&](const char* path) { return FindMount(mounts, path)->type; };
  EXPECT_EQ(type("/mnt/a b\\/c"), "vfat");
  EXPECT_EQ(type("/mnt/other"), "fuse.sshfs");  // mounted over the first
  EXPECT_EQ(type("/mntx"), "ext4");
  EXPECT_EQ(FindMount({}, "/"), nullptr);
  const std::vector<Mount> fewer(mounts.begin(), mounts.begin() + 2);
  EXPECT_THAT(GonePoints(mounts, fewer), ElementsAre("/mnt/a b\\"));
  EXPECT_THAT(GonePoints(mounts, {}), ElementsAre("/", "/mnt", "/mnt/a b\\"));

  ustring name;
  ASSERT_TRUE(volumes().FileSystemName("/proc/self/nothing/here", name).ok());
  EXPECT_EQ(name, "proc");
  bool coarse = true;
  ASSERT_TRUE(volumes().IsCoarseTimed("/proc", coarse).ok());
  EXPECT_FALSE(coarse);
  EXPECT_EQ(volumes().KindOf("/proc"), DriveKind::kFixed);
  EXPECT_EQ(volumes().KindOf("relative"), DriveKind::kUnknown);
  EXPECT_FALSE(volumes().IsVolumePath("relative"));
}

class FirstGone : public VolumeMonitor::Listener {
 public:
  void OnGone(const ustring& volume) override { told.set_value(volume.str()); }
  void OnDeviceChange(std::uint32_t, bool, std::uint32_t) override {}
  void OnMessage(std::uint32_t) override {}

  std::promise<std::string> told;
};

TEST(VolumesTest, TellsOfAVolumeThatGoesAway) {
  FirstGone none;
  const auto stopped = volumes().NewMonitor();
  stopped->Stop();
  EXPECT_TRUE(stopped->Run("", none).ok());

  test::TempFolder folder;
  const std::string point = (folder / "a b").str();
  fs::create_directory(point);
  constexpr int kNotAllowed = 77;
  const int result = InChild([&] {
    if (::unshare(CLONE_NEWNS) != 0) return kNotAllowed;
    if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return kNotAllowed;
    if (::mount("none", point.c_str(), "tmpfs", 0, nullptr) != 0) return kNotAllowed;
    (void)::umount(point.c_str());
    const auto monitor = volumes().NewMonitor();
    FirstGone first;
    std::future<std::string> gone = first.told.get_future();
    std::thread runner([&] {
      if (!monitor->Run("", first).ok()) first.told.set_value("failed");
    });
    // Again and again, since the first time may come before Run has looked at the table.
    do {
      (void)::mount("none", point.c_str(), "tmpfs", 0, nullptr);
      std::this_thread::yield();
      (void)::umount(point.c_str());
    } while (gone.wait_for(std::chrono::milliseconds(20)) != std::future_status::ready);
    monitor->Stop();
    runner.join();
    return gone.get() == point ? 0 : 1;
  });
  if (result == kNotAllowed) GTEST_SKIP() << "must be allowed to mount";
  EXPECT_EQ(result, 0);
}

class TrashTest : public ::testing::Test {
 protected:
  TrashTest() : clock_(1'700'000'000) {
    ::setenv("XDG_DATA_HOME", (folder_ / "data").c_str_utf8(), 1);
    ::setenv("TZ", "UTC", 1);
    SetClock(&clock_);
  }
  ~TrashTest() override {
    SetClock(nullptr);
    ::unsetenv("XDG_DATA_HOME");
    ::unsetenv("TZ");
  }
  void MakeTrash() {
    fs::create_directories((folder_ / "data/Trash/files").str());
    fs::create_directories((folder_ / "data/Trash/info").str());
  }

  test::TempFolder folder_;
  FakeClock clock_;
};

TEST_F(TrashTest, MovesWholeFoldersUnderNamesOfTheirOwn) {
  const ustring object = folder_ / "a %\xC3\xA4";
  for (const char* name : {"a %\xC3\xA4", "a %\xC3\xA4.2", "a %\xC3\xA4.3"}) {
    fs::create_directory(object.str());
    WriteFile(object + "/inside", name);
    if (name == std::string("a %\xC3\xA4")) {
      EXPECT_EQ(trash().MoveToTrash(object).kind, ErrorKind::kNotSupported);
      EXPECT_EQ(ReadFile(object + "/inside"), name);
      MakeTrash();
    }
    ASSERT_TRUE(trash().MoveToTrash(object).ok());
    EXPECT_FALSE(fs::exists(object.str()));
    const std::string in_bin = std::string("data/Trash/files/") + name + "/inside";
    EXPECT_EQ(ReadFile(folder_ / in_bin), name);
    EXPECT_EQ(ReadFile(folder_ / (std::string("data/Trash/info/") + name + ".trashinfo")),
              "[Trash Info]\nPath=" + folder_.path() +
                  "/a%20%25%C3%A4\nDeletionDate=2023-11-14T22:13:20\n");
  }
}

TEST_F(TrashTest, LeavesNothingBehindWhenItCannotMove) {
  MakeTrash();
  EXPECT_EQ(trash().MoveToTrash(folder_ / "none").kind, ErrorKind::kNotFound);
  EXPECT_EQ(trash().MoveToTrash(folder_ / "data").kind, ErrorKind::kInvalid);
  EXPECT_EQ(trash().MoveToTrash("/proc/self/status").kind, ErrorKind::kNotSupported);
  EXPECT_TRUE(fs::is_empty((folder_ / "data/Trash/info").str()));
  // The longest name leaves no room for the suffix of its information file.
  std::string name;
  while (name.size() < 254) name += "\xC3\xA4";
  WriteFile(folder_ / name, "x");
  ASSERT_TRUE(trash().MoveToTrash(folder_ / name).ok());
  const auto kept = fs::directory_iterator((folder_ / "data/Trash/files").str())->path();
  EXPECT_TRUE(ustring::is_valid(kept.filename().string()));
  EXPECT_EQ(kept.filename().string().size(), 244u);
}

}  // namespace
}  // namespace tolven::platform
