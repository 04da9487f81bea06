#include <gmock/gmock.h>

#include <filesystem>

#include "client/core/callbacks/create-event-callback.h"
#include "client/core/event-generator.h"
#include "client/core/filters/preliminary-filter.h"
#include "client/core/handlers/force-download-handler.h"
#include "client/core/handlers/remove-local-handler.h"
#include "client/core/handlers/rescan-handler.h"
#include "client/event-path.h"
#include "handlers/download-fixture.h"
#include "lib/file-status-db.h"

namespace tolven::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Download : public DownloadFixture {
 protected:
  std::vector<FilteredEvent> Parked(FilteredEvent::FilterType type) {
    std::vector<FilteredEvent> parked;
    EXPECT_EQ(
        Db().getServerFilteredEvent(type, "/", FileEventDB::FILTER_FLAG_INCLUDE_CHILD, parked), 0);
    return parked;
  }
};

TEST_F(Download, AsksNobodyForWhatIsHere) {
  PutSynced("/echo", "old", 5);
  EXPECT_EQ(Db().setServerFilteredEvent(FileEventDB::ToFilteredEvent(
                Change("/echo", 5, "old"), FilteredEvent::FILTERED_SELECTIVE_SYNC)),
            0);
  Event own;
  own.m_path = "/echo";
  EXPECT_EQ(Db().setLocalFilteredEvent(
                FileEventDB::ToFilteredEvent(own, FilteredEvent::FILTERED_SELECTIVE_SYNC)),
            0);
  EXPECT_EQ(Handle(Change("/echo", 5, "new")), 0);
  EXPECT_EQ(Read("/echo"), "old");
  EXPECT_THAT(Parked(FilteredEvent::FILTERED_ALL), IsEmpty());
  std::vector<FilteredEvent> own_parked;
  EXPECT_EQ(Db().getLocalFilteredEvent(FilteredEvent::FILTERED_ALL, "/echo", 0, own_parked), 0);
  EXPECT_THAT(own_parked, IsEmpty());
  // The local edit that came together with the echo still has to go out.
  WriteFile(Place("/echo"), "edited");
  Event conflict = Change("/echo", 5, "old");
  conflict.setConflict();
  EXPECT_EQ(Handle(conflict), 0);
  EXPECT_NE(dynamic_cast<CreateEventCallback*>(controller_.GetErrorCallback()), nullptr);

  PutSynced("/fake", "same", 5);
  Event fake = Change("/fake", 7, "same");
  fake.m_time = kTime;
  fake.m_privilege.unix_mode.mode = 0x750;
  EXPECT_EQ(Handle(fake), 0);
  EXPECT_EQ(Row("/fake").syncID, 7U);
  DBFileInfo server;
  EXPECT_EQ(Db().fillServerColumns("/fake", server), 1);
  EXPECT_EQ(server.serverUnixMode, 0x750U);

  WriteFile(Place("/here"), "content");
  EXPECT_EQ(Handle(Change("/here", 8, "content")), 0);
  EXPECT_EQ(Row("/here").syncID, 8U);
  EXPECT_EQ(File(Place("/here"), true).GetLastModifiedTime(), kTime + 10);

  PutSynced("/elsewhere", "shared content", 5);
  EXPECT_EQ(Handle(Change("/sub/copy", 9, "shared content")), 0);
  EXPECT_EQ(Read("/sub/copy"), "shared content");
  EXPECT_EQ(Row("/sub/copy").fileCheckSum, Row("/elsewhere").fileCheckSum);
  EXPECT_EQ(controller_.GetUINotification(), UI_NOTIFY_SERVER_MODIFY);

  WriteFile(working_ + "/" + kRecycleBin + "/kept", "thrown away");
  const Event back = Change("/back", 10, "thrown away");
  EXPECT_EQ(Db().addFileToRecycleBin("/kept", 11, back.m_data_hash, ""), 0);
  EXPECT_EQ(Handle(back), 0);
  EXPECT_EQ(Read("/back"), "thrown away");

  EXPECT_EQ(Handle(FolderChange("/folder", 11)), 0);
  EXPECT_EQ(Row("/folder").fileType, 1);
  EXPECT_EQ(File(Place("/folder"), true).GetLastModifiedTime(), kTime + 10);
  EXPECT_EQ(Handle(FolderChange("/", 12)), 0);
  EXPECT_EQ(Row("/").syncID, 12U);

  EXPECT_THAT(TakeRequests(), IsEmpty());
  EXPECT_THAT(LeftOvers(), IsEmpty());
}

TEST_F(Download, TransfersWholeFilesAndDeltas) {
  answer_ = [&](const PObject&) { return Whole("first", 6); };
  EXPECT_EQ(Handle(Change("/a/b/file", 6, "first")), 0);
  EXPECT_EQ(Read("/a/b/file"), "first");
  EXPECT_EQ(File(Place("/a/b/file"), true).GetLastModifiedTime(), kTime + 10);

  std::string old_text(50'000, 'x');
  for (std::size_t i = 0; i < old_text.size(); ++i) old_text[i] = static_cast<char>(i * i >> 7);
  const std::string new_text = "front" + old_text + "end";
  PutSynced("/big", old_text, 5);
  std::filesystem::permissions(Place("/big").str(), std::filesystem::perms(0750));
  answer_ = [&](const PObject&) { return Delta(old_text, new_text, 7); };
  TakeRequests();
  EXPECT_EQ(Handle(Change("/big", 7, new_text)), 0);
  EXPECT_EQ(Read("/big"), new_text);
  if (HasModes()) {
    EXPECT_EQ(File(Place("/big"), true).GetMode() & 07777U, 0750U);
  }
  const DBFileInfo row = Row("/big");
  EXPECT_EQ(row.syncID, 7U);
  EXPECT_EQ(row.fileSize, new_text.size());
  EXPECT_EQ(row.localFileModTime, kTime + 10);
  EXPECT_GT(std::filesystem::file_size(row.signaturePath.str()), 0U);
  const PObject request = TakeRequests().at(0);
  EXPECT_EQ(request["sync_id"].asUInt64(), 5U);
  EXPECT_EQ(request["target_sync_id"].asUInt64(), 7U);
  EXPECT_EQ(request["resume_token"].asString(), "ticket");
  EXPECT_THAT(LeftOvers(), IsEmpty());
  EXPECT_THAT(Conflicts(), IsEmpty());
}

TEST_F(Download, KeepsALocalEditMadeMeanwhile) {
  PutSynced("/moved", "basis", 5);
  before_answer_ = [&] { WriteFile(Place("/moved"), "my edit"); };
  answer_ = [&](const PObject&) { return Whole("theirs", 6); };
  EXPECT_EQ(Handle(Change("/moved", 6, "theirs")), 0);
  EXPECT_EQ(Read("/moved"), "theirs");
  EXPECT_THAT(Conflicts(), ElementsAre("my edit"));

  // A server that says the content here stands, while it is edited.
  PutSynced("/stays", "basis", 5);
  before_answer_ = [&] { WriteFile(Place("/stays"), "edit!"); };
  answer_ = [&](const PObject&) {
    PObject answer = Whole("basis", 6);
    answer["file"]["data"].clear();
    answer["file"].asMap().erase("data");
    answer["file"]["refer"] = true;
    return answer;
  };
  EXPECT_EQ(Handle(Change("/stays", 6, "other")), ErrorCodes::ERR_CONFLICT_DOWNLOAD);
  EXPECT_EQ(Read("/stays"), "edit!");
  EXPECT_EQ(Row("/stays").syncID, 0U);
  before_answer_ = [&] {};
  PutSynced("/stays", "basis", 5);
  EXPECT_EQ(Handle(Change("/stays", 6, "other")), 0) << "unless it does stand";
  EXPECT_EQ(Row("/stays").syncID, 6U);
  EXPECT_THAT(LeftOvers(), IsEmpty());
}

TEST_F(Download, ContinuesABrokenTransferOfTheSameVersion) {
  std::string text(300'000, 't');
  const auto break_off = [&](const PObject&) {
    PObject answer = Whole(text, 6);
    // Announced as longer than the file is, so that the server fails in the middle.
    answer["file"]["data"] = PObject::binary_type{0, text.size(), Store(text.substr(0, 250'000))};
    return std::optional(answer);
  };
  answer_ = break_off;
  EXPECT_EQ(Handle(Change("/file", 6, text)), ErrorCodes::ERR_IO);
  EXPECT_EQ(LeftOvers().size(), 1U);
  EXPECT_FALSE(Exists("/file"));
  TakeRequests();
  answer_ = [&](const PObject& request) {
    const std::uint64_t offset = request["file"]["offset"].asUInt64();
    PObject answer = Whole(text, 6);
    answer["file"]["data"] =
        PObject::binary_type{0, text.size() - offset, Store(text.substr(offset))};
    return std::optional(answer);
  };
  EXPECT_EQ(Handle(Change("/file", 6, text)), 0);
  const std::uint64_t offset = TakeRequests().at(0)["file"]["offset"].asUInt64();
  EXPECT_TRUE(offset > 150'000 && offset <= 250'000) << offset;
  EXPECT_EQ(Read("/file"), text);

  // Another version, and a part that somebody removed, begin anew.
  for (const bool is_part_lost : {false, true}) {
    SCOPED_TRACE(is_part_lost);
    text += "another";
    const auto good = answer_;
    answer_ = break_off;
    EXPECT_EQ(Handle(Change("/next", 6, text)), ErrorCodes::ERR_IO);
    if (is_part_lost) std::filesystem::remove(LeftOvers().at(0));
    TakeRequests();
    answer_ = good;
    EXPECT_EQ(Handle(Change("/next", is_part_lost ? 6 : 7, text)), 0);
    EXPECT_EQ(TakeRequests().at(0)["file"]["offset"].asUInt64(), 0U);
    EXPECT_EQ(Read("/next"), text);
    EXPECT_THAT(LeftOvers(), IsEmpty());
    std::filesystem::remove(Place("/next").str());
  }
  EXPECT_TRUE(ResumeTransMgr::GetInstance().IsEmpty());
}

TEST_F(Download, ParksWhatMayNotOrCannotBeHere) {
  EXPECT_EQ(Db().updateConfigStrByKey("is_admin", "0"), 0);
  EXPECT_EQ(Db().updateUid(9), 0);
  Event root = FolderChange("/", 3);
  root.m_privilege.unix_mode.mode = 0x755;
  EXPECT_EQ(Handle(root), 0);
  Event secret = Change("/secret", 6, "text");
  secret.m_privilege.unix_mode = {1, 2, 0x700};
  EXPECT_EQ(Handle(secret), ErrorCodes::ERR_NO_ACCESS_PERM);
  EXPECT_EQ(Parked(FilteredEvent::FILTERED_ACL).size(), 1U);
  answer_ = [&](const PObject&) { return Whole("text", 6); };
  secret.m_privilege.unix_mode.mode = 0x755;
  EXPECT_EQ(Handle(secret), 0);
  EXPECT_EQ(Read("/secret"), "text");
  EXPECT_THAT(Parked(FilteredEvent::FILTERED_ACL), IsEmpty());

  EXPECT_EQ(Db().updateConfigStrByKey("is_admin", "1"), 0);
  const ustring long_name("/" + std::string(300, 'n'));
  for (const Event& event : {Change(long_name, 7, "text"), FolderChange(long_name, 7)}) {
    EXPECT_EQ(Handle(event), 0);
    EXPECT_EQ(controller_.GetErrorAction(), ACTION_DONE);
    ASSERT_EQ(Parked(FilteredEvent::FILTERED_SELECTIVE_SYNC).size(), 1U);
    EXPECT_EQ(Row(long_name).syncID, 0U);
  }
  EXPECT_EQ(FileStatusDB::initialize(folder_ / "fstat"), 0);
  ASSERT_NE(controller_.GetErrorCallback(), nullptr);
  controller_.GetErrorCallback()->Exec(context_);
  FileStatusInfo status;
  EXPECT_EQ(FileStatusDB::getFileSyncStat(FileStatusKey(root_, long_name.view()), &status), 1);
  EXPECT_EQ(status.syncStatus, FSTAT_UNSUPPORT);
  FileStatusDB::destroy();
  EXPECT_THAT(LeftOvers(), IsEmpty());
}

TEST_F(Download, ChangesKindsAndKeepsEditsInside) {
  PutSyncedFolder("/plain", 4);
  PutSynced("/plain/member", "synced", 5);
  answer_ = [&](const PObject&) { return Whole("a file now", 6); };
  EXPECT_EQ(Handle(Change("/plain", 6, "a file now")), 0);
  EXPECT_EQ(Read("/plain"), "a file now");
  EXPECT_EQ(Row("/plain/member").syncID, 0U) << "what was in the folder is forgotten";
  EXPECT_EQ(Db().setServerFilteredEvent(FileEventDB::ToFilteredEvent(
                Change("/plain/member", 5, "synced"), FilteredEvent::FILTERED_SELECTIVE_SYNC)),
            0);
  EXPECT_NE(Handle(Change("/plain/member", 5, "synced")), 0);
  EXPECT_THAT(Parked(FilteredEvent::FILTERED_ALL), IsEmpty()) << "also what was parked of it";
  EXPECT_THAT(Conflicts(), IsEmpty());
  EXPECT_EQ(Handle(FolderChange("/plain", 7)), 0);
  EXPECT_TRUE(File(Place("/plain"), true).IsDirectory());
  EXPECT_THAT(Conflicts(), IsEmpty());

  PutSyncedFolder("/edited", 4);
  PutSynced("/edited/member", "synced", 5);
  WriteFile(Place("/edited/member"), "edited here");
  EXPECT_EQ(Handle(Change("/edited", 6, "a file now")), 0);
  EXPECT_EQ(Read("/edited"), "a file now");
  EXPECT_THAT(Conflicts("/member"), ElementsAre("edited here"));

  PutSynced("/file", "synced", 5);
  WriteFile(Place("/file"), "changed");
  EXPECT_EQ(Handle(FolderChange("/file", 6)), 0);
  EXPECT_TRUE(File(Place("/file"), true).IsDirectory());
  EXPECT_THAT(Conflicts(), testing::Contains("changed"));
  EXPECT_THAT(LeftOvers(), IsEmpty());
}

// What arrives while a worker has an event makes it do the event again.
TEST_F(Download, BringsNothingBackThatWasRemovedRightAfterItCame) {
  answer_ = [&](const PObject&) { return Whole("content", 7); };
  const Event event = Change("/file", 7, "content");
  EXPECT_EQ(Handle(event), 0);
  std::filesystem::remove(Place("/file").str());
  TakeRequests();
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(Handle(event), 0);
    EXPECT_NE(dynamic_cast<CreateEventCallback*>(controller_.GetErrorCallback()), nullptr);
    EXPECT_FALSE(Exists("/file"));
  }
  EXPECT_THAT(TakeRequests(), IsEmpty());
  EXPECT_EQ(Handle(Change("/file", 8, "content")), 0);
  EXPECT_TRUE(Exists("/file")) << "news";
}

TEST_F(Download, ForcedFetchesWhatIsGoneAndForgetsNothing) {
  ForceDownloadHandler forced;
  Event event = Change("/file", kForcedDownload, "synced");
  EXPECT_EQ(Handle(forced, event), 0) << "unknown";
  PutSynced("/file", "synced", 5);
  EXPECT_EQ(Handle(forced, event), 0) << "unchanged";
  EXPECT_THAT(TakeRequests(), IsEmpty());

  DBFileInfo row = Row("/file");
  row.serverAclHash = "list";
  row.signaturePath.clear();
  EXPECT_EQ(Db().setEventInfo(row), 0);
  std::filesystem::remove(Place("/file").str());
  PObject refusal;
  refusal["error"]["code"] = 0x7000;
  answer_ = [&](const PObject&) { return refusal; };
  EXPECT_EQ(Handle(forced, event), 0) << "a refusal that is no error";
  EXPECT_EQ(Row("/file").syncID, 5U);
  DBFileInfo server;
  EXPECT_EQ(Db().fillServerColumns("/file", server), 1);
  EXPECT_EQ(server.serverAclHash, "list");

  answer_ = [&](const PObject&) { return Whole("synced", 5); };
  EXPECT_EQ(Handle(forced, event), 0);
  EXPECT_EQ(Read("/file"), "synced");
  EXPECT_EQ(Row("/file").syncID, 5U);
  EXPECT_THAT(LeftOvers(), IsEmpty());

  // What is parked for the path is newer than its record.
  EXPECT_EQ(Db().setServerFilteredEvent(FileEventDB::ToFilteredEvent(
                Change("/file", 8, "parked"), FilteredEvent::FILTERED_SELECTIVE_SYNC)),
            0);
  std::filesystem::remove(Place("/file").str());
  answer_ = [&](const PObject& request) {
    EXPECT_EQ(request["target_sync_id"].asUInt64(), 8U);
    return Whole("parked", 8);
  };
  EXPECT_EQ(Handle(forced, event), 0);
  EXPECT_EQ(Read("/file"), "parked");
  EXPECT_EQ(Row("/file").syncID, 8U);
}

TEST_F(Download, ForcedTakesTheKindOfWhatIsParkedAndItsRemoval) {
  ForceDownloadHandler forced;
  const auto park = [&](const Event& event) {
    EXPECT_EQ(Db().setServerFilteredEvent(
                  FileEventDB::ToFilteredEvent(event, FilteredEvent::FILTERED_SELECTIVE_SYNC)),
              0);
  };
  PutSyncedFolder("/kind", 4);
  std::filesystem::remove(Place("/kind").str());
  park(Change("/kind", 8, "a file now"));
  answer_ = [&](const PObject&) { return Whole("a file now", 8); };
  EXPECT_EQ(Handle(forced, FolderChange("/kind", kForcedDownload)), 0);
  EXPECT_EQ(Read("/kind"), "a file now");
  EXPECT_TRUE(Row("/kind").IsFile());
  TakeRequests();

  PutSynced("/gone", "synced", 5);
  std::filesystem::remove(Place("/gone").str());
  Event removal = Change("/gone", 8, "");
  removal.m_type = Event::EV_REMOVE;
  park(removal);
  EXPECT_EQ(Handle(forced, Change("/gone", kForcedDownload, "synced")), 0);
  EXPECT_NE(dynamic_cast<CreateEventCallback*>(controller_.GetErrorCallback()), nullptr);
  EXPECT_THAT(TakeRequests(), IsEmpty());
  EXPECT_EQ(Parked(FilteredEvent::FILTERED_ALL).size(), 1U);
  RemoveLocalHandler remove;
  EXPECT_EQ(Handle(remove, removal), 0);
  EXPECT_EQ(Row("/gone").syncID, 0U);
  EXPECT_THAT(Parked(FilteredEvent::FILTERED_ALL), IsEmpty());
}

TEST_F(Download, ARemovalForgetsWhatIsParkedBelowAndSparesWhatCameBack) {
  RemoveLocalHandler remove;
  PutSyncedFolder("/folder", 4);
  PutSynced("/folder/member", "synced", 5);
  EXPECT_EQ(Db().setServerFilteredEvent(FileEventDB::ToFilteredEvent(
                Change("/folder/member", 6, "parked"), FilteredEvent::FILTERED_SELECTIVE_SYNC)),
            0);
  Event removal = FolderChange("/folder", 7);
  removal.m_type = Event::EV_REMOVE;
  EXPECT_EQ(Handle(remove, removal), 0);
  EXPECT_FALSE(Exists("/folder"));
  EXPECT_THAT(Parked(FilteredEvent::FILTERED_ALL), IsEmpty());

  // An upload found its file gone, and now it is there again.
  WriteFile(Place("/back"), "new");
  Event vanished = Change("/back", 0, "");
  vanished.m_type = Event::EV_REMOVE;
  EXPECT_EQ(Handle(remove, vanished), 0);
  EXPECT_NE(dynamic_cast<CreateEventCallback*>(controller_.GetErrorCallback()), nullptr);
  EXPECT_EQ(Read("/back"), "new");
  EXPECT_THAT(Conflicts(), IsEmpty());
}

TEST_F(Download, RescansAndFiltersFirst) {
  PutSynced("/same", "synced", 5);
  std::filesystem::create_directories(Place("/#recycle/deep").str());
  WriteFile(Place("/#recycle/deep/old"), "text");
  Event event;
  event.m_type = Event::EV_CREATE;
  event.m_mode = Event::F_DIR | Event::F_EXPAND | Event::F_RESCAN;
  event.m_sess_id = 1;
  event.m_path = "/";
  RescanHandler rescan;
  EXPECT_EQ(Handle(rescan, event), 0);
  EXPECT_EQ(EventManager::getInstance().GetAllPendingEventCount(1), 0);
  WriteFile(Place("/new"), "text");
  EXPECT_EQ(Handle(rescan, event), 0);
  EXPECT_EQ(EventManager::getInstance().GetAllPendingEventCount(1), 1);

  PreliminaryFilter filter;
  const auto is_dropped = [&](const Event& tested) {
    (void)Handle(filter, tested);
    return filter.FilterEvent();
  };
  entry_.pause = true;
  EXPECT_TRUE(is_dropped(Change("/a", 6, "")));
  EXPECT_EQ(controller_.GetErrorAction(), ACTION_RETURN_EVENT);
  EXPECT_FALSE(is_dropped(event));
  entry_.pause = entry_.recursive = false;
  EXPECT_TRUE(is_dropped(Change("/a/b", 6, "")));
  EXPECT_EQ(controller_.GetErrorAction(), ACTION_DONE);
  EXPECT_TRUE(is_dropped(FolderChange("/a", 6)));
  EXPECT_FALSE(is_dropped(Change("/a", 6, "")));
  entry_.recursive = true;
  const bool has_link = MakeLink(folder_.path(), Place("/link").str());
  EXPECT_EQ(is_dropped(Change("/link/out", 6, "")), has_link);
}

}  // namespace
}  // namespace tolven::test
