// Processes, identity, volumes and trash of Windows.
#include <gmock/gmock.h>

#include <filesystem>
#include <future>
#include <set>
#include <thread>
#include <vector>

#include "platform/files.h"
#include "platform/identity.h"
#include "platform/paths.h"
#include "platform/process.h"
#include "platform/sockets.h"
#include "platform/trash.h"
#include "platform/volumes.h"
#include "platform/wide-windows.h"
#include "support/temp-folder.h"

namespace tolven::platform {
namespace {

namespace fs = std::filesystem;
using test::FsPath;
using test::ReadFile;
using test::WriteFile;

constexpr int kPatienceMs = 20'000;

TEST(ProcessTest, DecodesArguments) {
  ustring text;
  EXPECT_TRUE(process().DecodeArgument("C:/conf", text).ok());
  EXPECT_EQ(text, "C:/conf");
  // A character of the code page is one unit, whatever its bytes are.
  std::string word;
  const std::u16string letter = u"\u00e4";
  if (ToCodePage(letter, word).ok()) {
    EXPECT_TRUE(process().DecodeArgument(word.c_str(), text).ok());
    EXPECT_EQ(text, "\xC3\xA4");
  }
  const std::string longest(8191, 'x');
  EXPECT_TRUE(process().DecodeArgument(longest.c_str(), text).ok());
  for (const std::string& bad : {std::string(), longest + "x"}) {
    EXPECT_FALSE(process().DecodeArgument(bad.c_str(), text).ok());
    EXPECT_TRUE(text.empty());
  }
  std::u16string wide;
  EXPECT_TRUE(FromCodePage("plain", wide).ok());
  EXPECT_EQ(wide, u"plain");
  EXPECT_EQ(ToCodePage(std::u16string(1, 0xD800), word).kind, ErrorKind::kInvalid);
}

TEST(ProcessTest, StartsChildrenWithNothingOfOurs) {
  test::TempFolder folder;
  const ustring output = folder / "out put";
  WriteFile(output, "kept\r\n");
  WriteFile(folder / "script.bat", "@echo off\r\necho %~1\r\n>&2 echo err\r\nexit 7\r\n");
  ChildProcess child;
  const ustring shell = process().Environment("ComSpec");
  ASSERT_FALSE(shell.empty());
  std::string script = (folder / "script.bat").str();
  std::replace(script.begin(), script.end(), '/', '\\');
  ASSERT_TRUE(process().Spawn({shell, "/c", script, "two words"}, output, child).ok());
  int status = -1;
  ASSERT_TRUE(process().WaitForExit(child, kPatienceMs, status));
  EXPECT_EQ(status, 7);
  status = -1;
  EXPECT_TRUE(process().WaitForExit(child, 0, status));
  EXPECT_EQ(status, 7);
  EXPECT_EQ(ReadFile(output), "kept\r\ntwo words\r\nerr\r\n");
  EXPECT_FALSE(process().IsRunning(child.pid));
  EXPECT_EQ(process().Kill(child).kind, ErrorKind::kNotFound);
  EXPECT_EQ(process().Spawn({"C:/no/such/program.exe"}, "", child).kind, ErrorKind::kNotFound);
  EXPECT_FALSE(process().WaitForExit(child, 0, status));
  EXPECT_FALSE(process().IsTerminal(-1));
}

TEST(ProcessTest, KillsAndTellsWhetherOneRuns) {
  ChildProcess child;
  const ustring shell = process().Environment("ComSpec");
  test::TempFolder folder;
  WriteFile(folder / "forever.bat", "@echo off\r\n:again\r\ngoto again\r\n");
  ASSERT_TRUE(process().Spawn({shell, "/c", folder / "forever.bat"}, "", child).ok());
  int status = 0;
  EXPECT_FALSE(process().WaitForExit(child, 0, status));
  EXPECT_TRUE(process().IsRunning(child.pid));
  EXPECT_TRUE(process().IsRunning(process().Id()));
  EXPECT_FALSE(process().IsRunning(0));
  ASSERT_TRUE(process().Kill(child).ok());
  ASSERT_TRUE(process().WaitForExit(child, kPatienceMs, status));
  EXPECT_EQ(status, 137);
  EXPECT_FALSE(process().IsRunning(child.pid));
}

TEST(ProcessTest, RunsTheTerminationHandlerAtTheEndOfTheSession) {
  std::promise<void> ran;
  ASSERT_TRUE(process().OnTermination([&ran] { ran.set_value(); }).ok());
  EXPECT_EQ(process().OnTermination([] {}).kind, ErrorKind::kExists);
  process().RequestLateShutdown();
  DWORD level = 0, flags = 0;
  ASSERT_TRUE(::GetProcessShutdownParameters(&level, &flags));
  EXPECT_EQ(level, 0x100u);
  HWND window = nullptr;
  while (window == nullptr) {
    window = ::FindWindowW(L"TolvenhubSessionEnd", nullptr);
    std::this_thread::yield();
  }
  EXPECT_TRUE(::SendMessageW(window, WM_QUERYENDSESSION, 0, 0));
  ::SendMessageW(window, WM_ENDSESSION, FALSE, 0);
  std::future<void> told = ran.get_future();
  EXPECT_EQ(told.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
  ::PostMessageW(window, WM_ENDSESSION, TRUE, 0);
  EXPECT_EQ(told.wait_for(std::chrono::milliseconds(kPatienceMs)), std::future_status::ready);
}

TEST(IdentityTest, FindsTheUsersFolders) {
  ustring path, name;
  for (const auto folder :
       {&Identity::LocalAppData, &Identity::HomeDirectory, &Identity::TempDirectory}) {
    ASSERT_TRUE((identity().*folder)(path).ok());
    EXPECT_GT(PathRootLength(path), 0u) << path.str();
    EXPECT_EQ(path.find("\\"), ustring::npos);
    EXPECT_FALSE(path.str().ends_with('/'));
  }
  int id = -1;
  ASSERT_TRUE(identity().HostName(name, id).ok());
  EXPECT_FALSE(name.empty());
  EXPECT_EQ(id, 500);  // what the system calls itself
  ASSERT_TRUE(identity().UserName(name).ok());
  EXPECT_FALSE(name.empty());
  ASSERT_TRUE(process().ExecutablePath(path).ok());
  EXPECT_TRUE(path.str().ends_with("/test_platform.exe")) << path.str();
  ASSERT_TRUE(process().CurrentDirectory(path).ok());
  EXPECT_GT(PathRootLength(path), 0u);
}

struct Ends {
  NativeSocket listener = kInvalidSocket, ours = kInvalidSocket, peer = kInvalidSocket;

  Ends() {
    int port = 0;
    std::vector<SocketAddress> addresses;
    EXPECT_TRUE(sockets().Create(4, listener).ok());
    EXPECT_TRUE(sockets().BindLoopback(listener, 0).ok());
    EXPECT_TRUE(sockets().Listen(listener, 8).ok());
    EXPECT_TRUE(sockets().LocalPort(listener, port).ok());
    EXPECT_TRUE(sockets().Resolve("127.0.0.1", port, true, addresses).ok());
    EXPECT_TRUE(sockets().Create(4, ours).ok());
    EXPECT_TRUE(sockets().Connect(ours, addresses.at(0)).ok());
    EXPECT_TRUE(sockets().Accept(listener, peer).ok());
  }
  ~Ends() {
    for (const NativeSocket each : {listener, ours, peer}) (void)sockets().Close(each);
  }
};

TEST(IdentityTest, KnowsWhoHoldsTheOtherEnd) {
  const Ends ends;
  std::size_t sent = 0;
  ASSERT_TRUE(sockets().Send(ends.ours, "x", 1, sent).ok());
  EXPECT_EQ(identity().OwnerOfPeer(ends.peer), PeerOwner::kAllowed);
  EXPECT_EQ(identity().OwnerOfPeer(ends.listener), PeerOwner::kUnknown);
}

TEST(VolumesTest, KnowsTheDriveOfAPath) {
  test::TempFolder folder;
  ustring name;
  ASSERT_TRUE(volumes().FileSystemName(folder.path() + "/none", name).ok());
  EXPECT_EQ(name, "NTFS");
  bool coarse = true;
  ASSERT_TRUE(volumes().IsCoarseTimed(folder.path(), coarse).ok());
  EXPECT_FALSE(coarse);
  EXPECT_EQ(volumes().KindOf(folder.path()), DriveKind::kFixed);
  EXPECT_EQ(volumes().KindOf("relative"), DriveKind::kUnknown);
  EXPECT_TRUE(volumes().IsVolumePath("c:/x"));
  EXPECT_FALSE(volumes().IsVolumePath("/x"));
  EXPECT_FALSE(volumes().IsVolumePath("C"));
}

LRESULT Broadcast(HWND window, DWORD type, WPARAM event, DWORD mask) {
  DEV_BROADCAST_VOLUME data{};
  data.dbcv_size = sizeof data;
  data.dbcv_devicetype = type;
  data.dbcv_unitmask = mask;
  return ::SendMessageW(window, WM_DEVICECHANGE, event, reinterpret_cast<LPARAM>(&data));
}

class WhatIsTold : public VolumeMonitor::Listener {
 public:
  void OnGone(const ustring& volume) override { ADD_FAILURE() << volume; }
  void OnDeviceChange(std::uint32_t event, bool is_volume, std::uint32_t unit_mask) override {
    changes.push_back({event, is_volume ? 1U : 0U, unit_mask});
  }
  void OnMessage(std::uint32_t message) override { messages.insert(message); }

  std::vector<std::vector<std::uint32_t>> changes;
  std::set<std::uint32_t> messages;
};

TEST(VolumesTest, TellsWhatItsWindowHears) {
  const ustring name = "TolvenhubTestClass", title = "a window that nobody sees";
  VolumeMonitor::Step step{};
  WhatIsTold none, told;
  const auto stopped = volumes().NewMonitor();
  stopped->Stop();
  ASSERT_TRUE(stopped->Prepare(name, step).ok());
  EXPECT_TRUE(stopped->Run(title, none).ok());
  EXPECT_TRUE(stopped->Release().ok());
  EXPECT_FALSE(stopped->Run(title, none).ok());

  const auto monitor = volumes().NewMonitor();
  ASSERT_TRUE(monitor->Prepare(name, step).ok());
  std::thread runner([&] { EXPECT_TRUE(monitor->Run(title, told).ok()); });
  HWND window = nullptr;
  while (window == nullptr) {
    window = ::FindWindowW(L"TolvenhubTestClass", L"a window that nobody sees");
    std::this_thread::yield();
  }
  Broadcast(window, DBT_DEVTYP_VOLUME, DBT_DEVICEREMOVECOMPLETE, 0b110000);
  Broadcast(window, DBT_DEVTYP_PORT, DBT_DEVICEREMOVECOMPLETE, 1);
  Broadcast(window, DBT_DEVTYP_VOLUME, DBT_DEVICEARRIVAL, 1);
  ::SendMessageW(window, WM_DEVICECHANGE, DBT_DEVICEREMOVECOMPLETE, 0);
  ::SendMessageW(window, WM_DEVICECHANGE, DBT_DEVNODES_CHANGED, 0);
  ::SendMessageW(window, WM_USER, 0, 0);
  monitor->Stop();
  runner.join();
  EXPECT_TRUE(monitor->Release().ok());
  EXPECT_THAT(told.changes,
              ::testing::ElementsAre(::testing::ElementsAre(DBT_DEVICEREMOVECOMPLETE, 1, 0b110000),
                                     ::testing::ElementsAre(DBT_DEVICEREMOVECOMPLETE, 0, 0),
                                     ::testing::ElementsAre(DBT_DEVICEARRIVAL, 0, 0),
                                     ::testing::ElementsAre(DBT_DEVICEREMOVECOMPLETE, 0, 0),
                                     ::testing::ElementsAre(DBT_DEVNODES_CHANGED, 0, 0)));
  EXPECT_THAT(told.messages, ::testing::Contains(std::uint32_t{WM_USER}));
  EXPECT_EQ(::FindWindowW(L"TolvenhubTestClass", nullptr), nullptr);
}

TEST(TrashTest, MovesFilesAndWholeFolders) {
  test::TempFolder folder;
  fs::create_directories(FsPath(folder / "\xC3\xA4/inside"));
  WriteFile(folder / "file", "x");
  for (const char* name : {"\xC3\xA4", "file"}) {
    ASSERT_TRUE(trash().MoveToTrash(folder / name).ok());
    EXPECT_FALSE(fs::exists(FsPath(folder / name)));
  }
  EXPECT_EQ(trash().MoveToTrash(folder / "none").kind, ErrorKind::kNotFound);
  std::string deep = folder.path();
  while (deep.size() < 1100) {
    deep += "/" + std::string(100, 'd');
    ASSERT_TRUE(files().MakeDirectory(deep).ok());
  }
  EXPECT_EQ(trash().MoveToTrash(deep).kind, ErrorKind::kNotSupported);
  for (; deep.size() > folder.path().size(); deep.resize(deep.rfind('/'))) {
    ASSERT_TRUE(files().RemoveDirectory(deep).ok()) << deep;
  }
}

}  // namespace
}  // namespace tolven::platform
