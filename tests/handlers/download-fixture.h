// A session's folder, its database and a server that answers as the test says, for the handlers
// that download.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "client/core/connection-manager.h"
#include "client/core/event-context.h"
#include "client/core/handlers/download-remote-handler.h"
#include "client/core/helpers/file-helper.h"
#include "client/core/resume-trans-mgr.h"
#include "client/core/worker.h"
#include "client/event-manager.h"
#include "client/file-event-db.h"
#include "lib/proto-constants.h"
#include "lib/white-list-cpp.h"
#include "platform/mutex.h"
#include "rsapi-cpp/simple-file-reader.h"
#include "support/scripted-server.h"
#include "support/system.h"
#include "support/temp-folder.h"

namespace tolven::test {

class DownloadFixture : public testing::Test {
 public:
  using Answer = std::function<std::optional<PObject>(const PObject& request)>;
  static constexpr std::uint32_t kTime = 1'500'000'000;

 protected:
  DownloadFixture() {
    std::filesystem::create_directories((config_ + "/db/sign").str());
    std::filesystem::create_directories((working_ + "/" + kRecycleBin).str());
    EventManager::getInstance().SetSessionLookup([this](std::uint64_t, ustring& path) {
      path = root_;
      return 1;
    });
    ConnectionInfo info;
    info.conn_id = 5;
    info.server_ip = "127.0.0.1";
    info.server_port = server_.port();
    info.computer_name = "pc";
    info.version_info.build_number = 3317;
    EXPECT_EQ(ConnectionManager::getInstance().add(info, nullptr, nullptr), 0);
    EXPECT_EQ(ConnectionManager::getInstance().get(5, connection_), 0);
    WriteFile(folder_ / "white", "[File]\nwhite_ext=\"*\"\n");
    entry_.sess_id = 1;
    entry_.conn_id = 5;
    entry_.local_path = root_;
    entry_.remote_path = "/";
    entry_.config_path = config_;
    entry_.recursive = true;
    entry_.white_list = std::make_shared<WhiteListCpp>();
    EXPECT_EQ(entry_.white_list->Load(folder_ / "white"), 0);
    entry_.event_db = std::make_shared<FileEventDB>();
    EXPECT_EQ(entry_.event_db->initialize(config_ + "/db/event-db.sqlite"), 0);
    EXPECT_EQ(Db().updateConfigStrByKey("is_admin", "1"), 0);
  }
  ~DownloadFixture() override {
    ResumeTransMgr::GetInstance().Clear();
    EventManager::getInstance().Clear();
    ConnectionManager::getInstance().clear();
  }

  FileEventDB& Db() { return *entry_.event_db; }
  ustring Place(const ustring& path) const { return root_ + path; }
  std::string Read(const ustring& path) const { return ReadFile(Place(path)); }
  bool Exists(const ustring& path) const { return std::filesystem::exists(Place(path).str()); }
  static ustring Md4(const ustring& file) {
    ustring hash;
    EXPECT_EQ(FileHelper::CalculateMd4FromFile(file, hash, nullptr), 0);
    return hash;
  }
  // A file outside the session that holds the text.
  ustring Store(const std::string& text) {
    ustring file = folder_ / ("content" + std::to_string(++stored_));
    WriteFile(file, text);
    return file;
  }
  DBFileInfo Row(const ustring& path) {
    DBFileInfo row;
    (void)Db().getEventInfo(path, row);
    return row;
  }

  // Puts an object here as it would stand after a sync at version `sync_id`.
  void PutSynced(const ustring& path, const std::string& text, std::uint64_t sync_id) {
    WriteFile(Place(path), text);
    EXPECT_TRUE(File(Place(path), true).SetLastModifiedTime(kTime));
    DBFileInfo row;
    row.path = path;
    row.syncID = row.maxSyncID = sync_id;
    row.fileSize = text.size();
    row.fileCheckSum = Md4(Place(path));
    row.fileModTime = row.localFileModTime = kTime;
    EXPECT_EQ(Db().setEventInfo(row), 0);
  }
  void PutSyncedFolder(const ustring& path, std::uint64_t sync_id) {
    std::filesystem::create_directories(Place(path).str());
    DBFileInfo row;
    row.path = path;
    row.syncID = row.maxSyncID = sync_id;
    row.fileType = 1;
    EXPECT_EQ(Db().setEventInfo(row), 0);
  }

  Event Change(const ustring& path, std::uint64_t sync_id, const std::string& text) {
    Event event;
    event.m_type = Event::EV_CREATE;
    event.m_mode = Event::F_SERVER;
    event.m_sess_id = 1;
    event.m_path = path;
    event.m_sync_id = event.m_max_id = sync_id;
    event.m_data_size = text.size();
    event.m_data_hash = Md4(Store(text));
    event.m_time = kTime + 10;
    return event;
  }
  Event FolderChange(const ustring& path, std::uint64_t sync_id) {
    Event event = Change(path, sync_id, "");
    event.setDir();
    event.m_data_hash.clear();
    return event;
  }
  // An answer with the text as a whole, at version `sync_id`.
  PObject Whole(const std::string& text, std::uint64_t sync_id) {
    PObject answer;
    answer["alive"] = 60;
    answer["is_dir"] = false;
    answer["sync_id"] = sync_id;
    answer["max_id"] = sync_id;
    PObject& file = answer["file"];
    const ustring content = Store(text);
    file["refer"] = false;
    file["is_delta"] = false;
    file["size"] = text.size();
    file["hash"] = Md4(content);
    file["data"] = PObject::binary_type{0, text.size(), content};
    return answer;
  }
  PObject Delta(const std::string& basis, const std::string& text, std::uint64_t sync_id) {
    PObject answer = Whole(text, sync_id);
    const ustring signature = Store(""), delta = Store("");
    SimpleFileReader old_file, new_file;
    old_file.setFile(Store(basis));
    old_file.setSignature(signature, 2048, 8);
    EXPECT_EQ(old_file.readFile(), 0);
    new_file.setFile(static_cast<const PObject&>(answer)["file"]["data"].asBinary().path);
    new_file.setDelta(delta, signature);
    EXPECT_EQ(new_file.readFile(), 0);
    answer["file"]["is_delta"] = true;
    answer["file"]["data"] =
        PObject::binary_type{0, std::filesystem::file_size(delta.str()), delta};
    return answer;
  }

  int Handle(EventHandler& handler, const Event& event) {
    context_.SetEvent(event);
    context_.SetEntry(entry_);
    context_.SetConnection(connection_);
    context_.Update();
    controller_.Reset();
    handler.SetContext(&context_);
    handler.SetWorkerController(&controller_);
    return handler.Handle();
  }
  int Handle(const Event& event) { return Handle(download_, event); }
  // All that was asked for a content since the last call.
  std::vector<PObject> TakeRequests() {
    const MutexLock hold(lock_);
    return std::exchange(requests_, {});
  }
  // Temporary files that nobody would ever use.
  std::vector<std::string> LeftOvers() const {
    std::vector<std::string> names;
    for (const auto& item : std::filesystem::directory_iterator(working_.str())) {
      if (item.path().filename() != kRecycleBin) names.push_back(item.path().string());
    }
    for (const auto& item : std::filesystem::directory_iterator((config_ + "/db/sign").str())) {
      if (item.path().filename().string()[0] != '.') names.push_back(item.path().string());
    }
    return names;
  }
  // The copies that conflicts left, with what they hold; of a folder with what `inside` holds.
  std::vector<std::string> Conflicts(const std::string& inside = "") const {
    std::vector<std::string> texts;
    for (const auto& item : std::filesystem::directory_iterator(root_.str())) {
      if (item.path().string().find("_pc_") == std::string::npos) continue;
      const std::string file = Utf8(item.path()) + inside;
      if (std::filesystem::is_regular_file(file)) texts.push_back(ReadFile(ustring(file)));
    }
    return texts;
  }

  TempFolder folder_;
  const ustring root_ = folder_ / "root", config_ = folder_ / "config";
  const ustring working_ = root_ + "/" + kWorkingDirectory;
  Mutex lock_;
  std::vector<PObject> requests_ GUARDED_BY(lock_);
  Answer answer_ = [](const PObject&) { return std::nullopt; };
  std::function<void()> before_answer_;
  Registry::Entry entry_;
  Connection connection_;
  Worker worker_{[](EventDispatcher&) {}};
  WorkerController controller_{&worker_};
  EventContext context_;
  DownloadRemoteHandler download_;
  int stored_ = 0;

 private:
  std::optional<PObject> Serve(int command, const PObject& request) {
    PObject answer;
    answer["alive"] = 60;
    if (command == SCMD_REQUEST_CONNECT) {
      answer["server"]["package_version"]["build"] = 3317;
      return answer;
    }
    if (request["action"].asString() == "resume_get_token") {
      answer["resume_token"] = "ticket";
      return answer;
    }
    {
      const MutexLock hold(lock_);
      requests_.push_back(request);
    }
    if (before_answer_) before_answer_();
    return answer_(request);
  }

  // Last: its threads use all of the above.
  ScriptedServer server_{
      [this](int command, const PObject& request) { return Serve(command, request); }};
};

}  // namespace tolven::test
