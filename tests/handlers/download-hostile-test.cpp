// Servers that lie and disks that fail.
#include <gmock/gmock.h>

#include <filesystem>
#include <thread>
#include <utility>

#include "handlers/download-fixture.h"
#include "platform/fault-plan.h"
#include "platform/forwarding-files.h"

namespace tolven::test {
namespace {

using testing::IsEmpty;

using DownloadFailure = DownloadFixture;

TEST_F(DownloadFailure, TakesNothingThatIsNotWhatWasAsked) {
  struct {
    const char* name;
    int result;
    std::function<void(PObject& answer)> spoil;
  } const cases[] = {
      {"another hash", ErrorCodes::ERR_SYS,
       [](PObject& a) { a["file"]["hash"] = "00112233445566778899aabbccddeeff"; }},
      {"no length of it", ErrorCodes::ERR_SYS, [](PObject& a) { a["file"]["size"] = 9; }},
      {"no delta", ErrorCodes::ERR_SYS, [](PObject& a) { a["file"]["is_delta"] = true; }},
      {"no content", ErrorCodes::ERR_IO, [](PObject& a) { a.asMap().erase("file"); }},
      {"no hash", ErrorCodes::ERR_IO, [](PObject& a) { a["file"].asMap().erase("hash"); }},
      {"content that stands", ErrorCodes::ERR_IO, [](PObject& a) { a["file"]["refer"] = true; }},
      {"content that is here", ErrorCodes::ERR_IO,
       [](PObject& a) { a["file"]["refer_local"] = true; }},
      {"a number for a file", ErrorCodes::ERR_IO, [](PObject& a) { a["file"] = 1; }},
      {"a text for a content", ErrorCodes::ERR_IO, [](PObject& a) { a["file"]["data"] = "x"; }},
      {"a text for a version", ErrorCodes::ERR_IO, [](PObject& a) { a["sync_id"] = "6"; }},
      {"no version", ErrorCodes::ERR_IO, [](PObject& a) { a["sync_id"] = 0; }},
      {"a version beyond all", ErrorCodes::ERR_IO, [](PObject& a) { a["sync_id"] = -1; }},
      {"a text for a time", ErrorCodes::ERR_IO, [](PObject& a) { a["mtime"] = "now"; }},
      {"a map for rights", ErrorCodes::ERR_IO, [](PObject& a) { a["unix_perm"]["mode"]["x"] = 1; }},
      {"no map at all", ErrorCodes::ERR_IO, [](PObject& a) { a = 1; }},
  };
  PutSynced("/file", "basis", 5);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    answer_ = [&](const PObject&) {
      PObject answer = Whole("theirs", 6);
      answer["stray"]["data"] = PObject(static_cast<const PObject&>(answer)["file"]["data"]);
      c.spoil(answer);
      return answer;
    };
    EXPECT_EQ(Handle(Change("/file", 6, "theirs")), c.result);
    EXPECT_EQ(Read("/file"), "basis");
    EXPECT_EQ(Row("/file").syncID, 5U);
    EXPECT_THAT(LeftOvers(), IsEmpty());
    EXPECT_THAT(Conflicts(), IsEmpty());
  }
  answer_ = [&](const PObject&) {
    PObject answer = Whole("theirs", 6);
    answer["stray"]["data"] = PObject(static_cast<const PObject&>(answer)["file"]["data"]);
    return answer;
  };
  EXPECT_EQ(Handle(Change("/file", 6, "theirs")), 0) << "the rest of the answer is sound";
  EXPECT_EQ(Read("/file"), "theirs");
  EXPECT_THAT(LeftOvers(), IsEmpty());
}

TEST_F(DownloadFailure, DropsAnEventWhoseDeltasNeverFit) {
  const std::string basis(10'000, 'b');
  PutSynced("/file", basis, 5);
  // Copies more out of the basis than was announced.
  answer_ = [&](const PObject&) {
    PObject answer = Delta(basis, basis + basis, 6);
    answer["file"]["size"] = 12'000;
    return answer;
  };
  const Event event = Change("/file", 6, basis + basis);
  const std::uint64_t unapplied = EventManager::getInstance().GetUnappliedServerEventCount(1);
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(Handle(event), ErrorCodes::ERR_SYS);
    EXPECT_EQ(controller_.GetErrorAction(), i < 3 ? ACTION_DEFAULT : ACTION_DONE);
    EXPECT_EQ(TakeRequests().at(0)["sync_id"].asUInt64(), i == 0 ? 5U : 0U) << "whole from then on";
    EXPECT_THAT(LeftOvers(), IsEmpty());
  }
  EXPECT_EQ(EventManager::getInstance().GetUnappliedServerEventCount(1), unapplied + 1);
  EXPECT_EQ(Read("/file"), basis);
  EXPECT_EQ(Row("/file").syncID, 5U);
  // A basis that is not the one of the record is an edit: it steps aside before the next attempt.
  before_answer_ = [&] { WriteFile(Place("/file"), "edited"); };
  EXPECT_EQ(Handle(event), ErrorCodes::ERR_INT);
  EXPECT_THAT(Conflicts(), testing::ElementsAre("edited"));
  EXPECT_THAT(LeftOvers(), IsEmpty());
}

TEST_F(DownloadFailure, EndsARefusedEventAsToldByTheCode) {
  struct {
    std::uint32_t code;
    int result;
    ErrorAction action;
  } const cases[] = {
      {0x8001, ErrorCodes::ERR_INT, ACTION_DONE},
      {0x8002, ErrorCodes::ERR_INT, ACTION_DONE},
      {0x8003, ErrorCodes::ERR_INT, ACTION_DONE},
      {0xB001, ErrorCodes::ERR_INT, ACTION_DEFAULT},
      {0x3002, ErrorCodes::ERR_PERMISS, ACTION_DEFAULT},
      {0x7000, 0, ACTION_DEFAULT},
  };
  for (const auto& c : cases) {
    answer_ = [&](const PObject&) {
      PObject answer = Whole("theirs", 6);
      answer["error"]["code"] = c.code;
      return answer;
    };
    EXPECT_EQ(Handle(Change("/file", 6, "theirs")), c.result) << c.code;
    EXPECT_EQ(controller_.GetErrorAction(), c.action) << c.code;
    EXPECT_FALSE(Exists("/file"));
    EXPECT_THAT(LeftOvers(), IsEmpty());
  }
}

// Asks a hook before each call of the test's own thread.
class HookedDisk {
 public:
  explicit HookedDisk(platform::CallHook hook)
      : hook_(std::move(hook)), before_(platform::SetFiles(&files_)) {}
  ~HookedDisk() { platform::SetFiles(before_); }

 private:
  const std::thread::id thread_ = std::this_thread::get_id();
  const platform::CallHook hook_;
  platform::ForwardingFiles files_{platform::files(), [this](const char* call) {
                                     // Without a removal nothing can be tidied up.
                                     const bool passes = std::this_thread::get_id() != thread_ ||
                                                         call == std::string("RemoveFile");
                                     return passes ? platform::Status{} : hook_(call);
                                   }};
  platform::Files* const before_;
};

TEST_F(DownloadFailure, AFolderThatGoesAwayIsNotMadeAnew) {
  answer_ = [&](const PObject&) { return Whole("theirs", 6); };
  const std::string root = Place("").str(), away = root + ".away";
  const auto take_away = [&](const std::string& call) {
    if (call == "Sync" && std::filesystem::exists(root)) std::filesystem::rename(root, away);
    return platform::Status{};
  };
  {
    const HookedDisk disk(take_away);
    EXPECT_LT(Handle(Change("/new/folder/file", 6, "theirs")), 0);
  }
  EXPECT_FALSE(std::filesystem::exists(root));
  std::filesystem::rename(away, root);
  EXPECT_EQ(Handle(Change("/new/folder/file", 6, "theirs")), 0);
  EXPECT_EQ(Read("/new/folder/file"), "theirs");
}

TEST_F(DownloadFailure, LosesNoEditMadeAtTheLastMoment) {
  // Once the old content was judged, and right before the new one comes in its place.
  answer_ = [&](const PObject&) { return Whole("theirs", 6); };
  PutSynced("/file", "basis", 5);
  bool is_finished = false, is_edited = false;
  int looks = 0;
  const auto edit_file = [&](const std::string& call) {
    if (call == "Sync") is_finished = true;
    // The first look is the one that it is judged by.
    if (is_finished && call == "Stat" && ++looks == 2) {
      is_edited = true;
      WriteFile(Place("/file"), "mine!");
    }
    return platform::Status{};
  };
  {
    const HookedDisk disk(edit_file);
    EXPECT_EQ(Handle(Change("/file", 6, "theirs")), 0);
  }
  EXPECT_TRUE(is_edited);
  EXPECT_EQ(Read("/file"), "theirs");
  EXPECT_THAT(Conflicts(), testing::ElementsAre("mine!"));

  // A folder that gives way to a file, and a file to a folder: right before they are moved away.
  PutSyncedFolder("/folder", 4);
  PutSynced("/folder/member", "synced", 5);
  PutSynced("/single", "synced", 5);
  for (const char* const edited : {"/folder/member", "/single"}) {
    SCOPED_TRACE(edited);
    const bool is_folder = edited != std::string("/single");
    const ustring path = is_folder ? "/folder" : "/single";
    const Event event = is_folder ? Change(path, 6, "theirs!") : FolderChange(path, 6);
    answer_ = [&](const PObject&) { return Whole("theirs!", 6); };
    {
      const HookedDisk disk([&](const std::string& call) {
        if (call == "Rename") WriteFile(Place(edited), "last moment");
        return platform::Status{};
      });
      EXPECT_EQ(Handle(event), 0);
    }
    EXPECT_EQ(File(Place(path), true).IsFile(), is_folder);
    EXPECT_THAT(Conflicts(is_folder ? "/member" : ""), testing::Contains("last moment"));
  }
  EXPECT_THAT(LeftOvers(), IsEmpty());
}

TEST_F(DownloadFailure, LosesNothingWhenTheDiskFailsAtAnyCall) {
  const std::string basis(5'000, 'b'), theirs = basis + "theirs";
  const Event event = Change("/object", 6, theirs);
  const auto put_file = [&] { PutSynced("/object", basis, 5); };
  const auto put_folder = [&] {
    std::filesystem::remove(Place("/object").str());
    PutSyncedFolder("/object", 4);
    PutSynced("/object/member", "synced", 5);
  };
  struct {
    const char* name;
    std::function<void()> prepare;
    std::function<PObject()> answer;
    bool is_file;
  } const cases[] = {
      {"whole file", put_file, [&] { return Whole(theirs, 6); }, true},
      {"delta", put_file, [&] { return Delta(basis, theirs, 6); }, true},
      {"folder becomes file", put_folder, [&] { return Whole(theirs, 6); }, false},
  };
  for (const auto& c : cases) {
    // A delta fits only what is here; after a failure the whole file may be wanted.
    answer_ = [&](const PObject& request) {
      return request["sync_id"].asUInt64() == 5 ? c.answer() : Whole(theirs, 6);
    };
    unsigned failures = 1;
    for (unsigned nth = 1; failures != 0 && !HasFailure(); ++nth) {
      SCOPED_TRACE(c.name + (" " + std::to_string(nth)));
      c.prepare();
      {
        platform::FaultPlan plan;
        plan.FailNth(nth, platform::ErrorKind::kOther);
        const HookedDisk disk(plan.hook());
        (void)Handle(event);
        failures = plan.failures();
      }
      ResumeTransMgr::GetInstance().Clear();
      const bool is_here = File(Place("/object"), true).IsFile();
      const std::string now = is_here ? Read("/object") : "";
      EXPECT_TRUE(now == theirs || Row("/object").syncID != 6);
      if (c.is_file) {
        EXPECT_TRUE(now == basis || now == theirs);
        EXPECT_THAT(LeftOvers(), IsEmpty());
        EXPECT_THAT(Conflicts(), IsEmpty());
      }
      EXPECT_EQ(Handle(event), 0) << "the next attempt";
      EXPECT_EQ(Read("/object"), theirs);
    }
  }
}

}  // namespace
}  // namespace tolven::test
