// What an upload sends, what it records and what it leaves behind, against a server that answers as
// the test says.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "client/core/connection.h"
#include "client/core/event-context.h"
#include "client/core/handlers/upload-local-handler.h"
#include "client/core/rescan-requests.h"
#include "client/core/resume-trans-mgr.h"
#include "client/core/worker-controller.h"
#include "client/core/worker.h"
#include "event-gen/session-fixture.h"
#include "lib/proto-constants.h"
#include "lib/white-list-cpp.h"
#include "platform/clock.h"
#include "platform/forwarding-files.h"
#include "support/scripted-server.h"

namespace tolven {
namespace {

namespace fs = std::filesystem;
using test::ReadFile;
using test::WriteFile;

// Calls the test once, at the first read of a file.
class MeddlingFiles : public platform::ForwardingFiles {
 public:
  explicit MeddlingFiles(std::function<void()> meddle)
      : ForwardingFiles(platform::files()), meddle_(std::move(meddle)) {
    replaced_ = platform::SetFiles(this);
  }
  ~MeddlingFiles() override { platform::SetFiles(replaced_); }
  platform::Status Read(platform::NativeFile file, void* data, std::size_t size,
                        std::size_t& got) override {
    const platform::Status status = ForwardingFiles::Read(file, data, size, got);
    if (meddle_) std::exchange(meddle_, nullptr)();
    return status;
  }

 private:
  std::function<void()> meddle_;
  platform::Files* replaced_ = nullptr;
};

class UploadHandlerTest : public test::SessionTest {
 protected:
  using Answer = std::function<std::optional<PObject>(const PObject& request)>;

  UploadHandlerTest() {
    for (const char* folder : {"db/sign", "sign", "received"}) {
      fs::create_directories((folder_ / folder).str());
    }
    fs::create_directories(Working());
    WriteFile(folder_ / "white", "[Version]\nmajor = 1\nminor = 0\n[File]\nwhite_ext = \"*\"\n");
    entry_.white_list = std::make_shared<WhiteListCpp>();
    EXPECT_EQ(entry_.white_list->Load(folder_ / "white"), 0);
    entry_.config_path = ustring(folder_.path());
    entry_.remote_path = "/";
    entry_.view_id = 3;
    entry_.recursive = true;
    info_.server_ip = "127.0.0.1";
    info_.server_port = server_.port();
    info_.session = "token";
    info_.computer_name = "pc";
    info_.version_info.build_number = 3317;
    ResumeTransMgr::GetInstance().Clear();
  }
  ~UploadHandlerTest() override { ResumeTransMgr::GetInstance().Clear(); }

  int Handle(const ustring& path) {
    Event event;
    event.m_sess_id = 1;
    event.m_type = Event::EV_MODIFY;
    event.m_path = path;
    if (fs::is_directory(Full(path))) event.setDir();
    EventContext context;
    context.SetEvent(event);
    context.SetEntry(entry_);
    context.SetConnection(Connection(info_, nullptr, nullptr));
    context.Update();
    controller_.Reset();
    UploadLocalHandler handler;
    handler.SetContext(&context);
    handler.SetWorkerController(&controller_);
    return handler.Handle();
  }
  // Files that nobody needs any more: transfers' own, half-made signatures.
  std::vector<std::string> Leftovers() const {
    std::vector<std::string> left;
    for (const std::string& folder : {Working(), (folder_ / "db/sign").str()}) {
      for (const auto& item : fs::directory_iterator(folder)) left.push_back(item.path().string());
    }
    return left;
  }
  DBFileInfo RowOf(const ustring& path) {
    DBFileInfo row;
    EXPECT_GE(entry_.event_db->getEventInfo(path, row), 0);
    return row;
  }
  std::string Full(const ustring& path) const { return entry_.local_path.str() + path.str(); }
  std::string Working() const { return Full("/.ZentrovaWorkingDirectory"); }
  // A file that was written long ago, so that size and time are trusted.
  void Write(const ustring& path, const std::string& content, int age = 100) {
    WriteFile(ustring(Full(path)), content);
    Touch(path, age);
  }
  void SetTime(const ustring& path, std::int64_t nanoseconds) const {
    EXPECT_TRUE(platform::files().SetModifiedTime(Full(path), nanoseconds).ok());
  }
  std::int64_t TimeOf(const ustring& path) const {
    platform::NodeInfo info;
    EXPECT_TRUE(platform::files().Stat(Full(path), info).ok());
    return info.mtime_ns;
  }
  void Touch(const ustring& path, int age) {
    SetTime(path, platform::clock().WallNanoseconds() - std::int64_t{age} * 1'000'000'000);
  }

  // The requests so far, without the handshakes, forgotten then; `n` of them are expected.
  std::vector<PObject> Asked(std::size_t n) {
    const std::lock_guard lock(mutex_);
    EXPECT_EQ(asked_.size(), n);
    std::vector<PObject> asked = std::move(asked_);
    asked_.clear();
    asked.resize(n);
    return asked;
  }
  static PObject Version(std::uint64_t number, bool is_dir = false) {
    PObject answer;
    answer["alive"] = 60;
    answer["sync_id"] = number;
    answer["max_id"] = number;
    answer["is_dir"] = is_dir;
    return answer;
  }
  static PObject Refusal(std::uint32_t code) {
    PObject answer;
    answer["alive"] = 60;
    answer["error"]["code"] = code;
    answer["error"]["reason"] = "no";
    return answer;
  }
  std::optional<PObject> Serve(const PObject& request) {
    if (Action(request) == "connect") {
      PObject answer;
      answer["alive"] = 60;
      answer["server"]["package_version"]["build"] = 3317;
      return answer;
    }
    {
      const std::lock_guard lock(mutex_);
      asked_.push_back(request);
    }
    return answer_(request);
  }
  static std::string Action(const PObject& request) { return request["action"].asString().str(); }
  // With the file at version 5 on both sides.
  void Sync(const ustring& path, const std::string& content) {
    Write(path, content);
    answer_ = [](const PObject&) { return Version(5); };
    EXPECT_EQ(Handle(path), 0);
    Asked(content.size() > 0x80000 ? 3 : 1);
  }

  std::mutex mutex_;
  std::vector<PObject> asked_;
  Answer answer_ = [](const PObject&) { return Version(5); };
  test::ScriptedServer server_{[this](int, const PObject& request) { return Serve(request); },
                               folder_ / "received"};
  ConnectionInfo info_;
  Worker worker_{{}};
  WorkerController controller_{&worker_};
};

std::string Noise(std::size_t size) {
  std::string text(size, '\0');
  std::uint32_t state = 1;
  for (char& c : text) c = static_cast<char>((state = state * 1664525 + 1013904223) >> 24);
  return text;
}

TEST_F(UploadHandlerTest, SendsWholeTouchedOrNothing) {
  Write("/file", "content");
  EXPECT_EQ(Handle("/file"), 0);
  PObject sent = Asked(1)[0];
  EXPECT_EQ(Action(sent), "upload");
  EXPECT_EQ(sent["path"].asString(), "/file");
  EXPECT_EQ(sent["sync_id"].asUInt64(), 0u);
  EXPECT_FALSE(sent["file"]["refer"].asBool());
  EXPECT_FALSE(sent["file"]["is_delta"].asBool());
  EXPECT_EQ(ReadFile(sent["file"]["data"].asBinary().path), "content");
  const DBFileInfo first = RowOf("/file");
  EXPECT_EQ(first.syncID, 5u);
  EXPECT_EQ(first.fileSize, 7u);
  EXPECT_EQ(first.fileModTime, first.localFileModTime);
  EXPECT_TRUE(fs::exists(first.signaturePath.str()));
  // Nothing changed, so that what is parked of this version has nothing to tell.
  FilteredEvent parked;
  parked.path = "/file";
  parked.is_server = parked.is_exist = true;
  parked.filter_type = FilteredEvent::FILTERED_SELECTIVE_SYNC;
  for (const std::uint64_t version : {9u, 5u}) {
    parked.sync_id = version;
    ASSERT_EQ(entry_.event_db->setServerFilteredEvent(parked), 0);
    EXPECT_EQ(Handle("/file"), 0);
    Asked(0);
    std::vector<FilteredEvent> left;
    EXPECT_EQ(
        entry_.event_db->getServerFilteredEvent(FilteredEvent::FILTERED_ALL, "/file", 0, left), 0);
    EXPECT_EQ(left.size(), version == 5 ? 0u : 1u);
  }
  // Only its time did.
  Touch("/file", 50);
  answer_ = [](const PObject&) { return Version(6); };
  EXPECT_EQ(Handle("/file"), 0);
  sent = Asked(1)[0];
  EXPECT_EQ(sent["sync_id"].asUInt64(), 5u);
  EXPECT_TRUE(sent["file"]["refer"].asBool());
  EXPECT_FALSE(sent["file"].hasMember("data"));
  EXPECT_FALSE(sent["mtime"]["refer"].asBool());
  EXPECT_EQ(RowOf("/file").syncID, 6u);
  EXPECT_EQ(RowOf("/file").fileCheckSum, first.fileCheckSum);
  EXPECT_GT(RowOf("/file").fileModTime, first.fileModTime);
  // A folder's time tells nothing.
  fs::create_directory(Full("/folder"));
  answer_ = [](const PObject&) { return Version(7, true); };
  EXPECT_EQ(Handle("/folder"), 0);
  EXPECT_FALSE(Asked(1)[0].hasMember("file"));
  Touch("/folder", 500);
  EXPECT_EQ(Handle("/folder"), 0);
  Asked(0);
  EXPECT_TRUE(Leftovers().empty());
}

TEST_F(UploadHandlerTest, SendsADeltaWhereThereIsABasis) {
  std::string content = Noise(100'000);
  Sync("/file", content);
  content.insert(50'000, "news");
  Write("/file", content, 90);
  EXPECT_EQ(Handle("/file"), 0);
  PObject sent = Asked(1)[0];
  EXPECT_TRUE(sent["file"]["is_delta"].asBool());
  EXPECT_LT(sent["file"]["data"].asBinary().length, 5'000u);
  EXPECT_EQ(sent["file"]["size"].asUInt64(), content.size());
  // Without a signature, and where there was nothing before, all of it goes.
  fs::remove(RowOf("/file").signaturePath.str());
  content += "more";
  Write("/file", content, 80);
  EXPECT_EQ(Handle("/file"), 0);
  sent = Asked(1)[0];
  EXPECT_FALSE(sent["file"]["is_delta"].asBool());
  EXPECT_EQ(sent["file"]["data"].asBinary().length, content.size());
  Sync("/empty", "");
  Write("/empty", "no longer", 80);
  EXPECT_EQ(Handle("/empty"), 0);
  EXPECT_FALSE(Asked(1)[0]["file"]["is_delta"].asBool());
  EXPECT_TRUE(Leftovers().empty());
}

TEST_F(UploadHandlerTest, ARefusalRecordsNothingAndLeavesNothing) {
  const struct {
    std::uint32_t code;
    int result;
    bool keeps_row, keeps_name, is_parked, is_rescanned;
  } cases[] = {
      {SPROTO_ERR_UPLOAD_NOBASE, ErrorCodes::ERR_INT, false, true, false, false},
      {SPROTO_ERR_UPLOAD_BASE_CHANGED, 0, true, true, false, false},
      {SPROTO_ERR_CONFLICT_MAC_ATTR, 0, true, true, false, false},
      {SPROTO_ERR_CONFLICT_PATH, ErrorCodes::ERR_INT, true, false, false, false},
      {SPROTO_ERR_UPLOAD, ErrorCodes::ERR_INT, true, true, false, false},
      {SPROTO_ERR_RESUME_OFFSET, ErrorCodes::ERR_INT, true, true, false, false},
      {SPROTO_ERR_UPLOAD_NO_ACCESS, ErrorCodes::ERR_NO_ACCESS_PERM, true, true, true, false},
      {SPROTO_ERR_UPLOAD_NO_PERMISSION, ErrorCodes::ERR_NO_UPLOAD_PERM, true, true, true, false},
      {SPROTO_ERR_QUOTA, ErrorCodes::ERR_QUOTA, true, true, false, false},
      {SPROTO_ERR_SESSION_INVALID, ErrorCodes::ERR_AUTH, true, true, false, false},
      {SPROTO_ERR_INTERNAL, 0, true, true, false, true},
  };
  int number = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.code);
    const ustring path("/file" + std::to_string(++number));
    std::string content = Noise(20'000);
    Sync(path, content);
    content[10'000] = static_cast<char>(content[10'000] + 1);
    Write(path, content, 90);
    answer_ = [&c](const PObject&) { return Refusal(c.code); };
    EXPECT_EQ(Handle(path), c.result);
    EXPECT_TRUE(Asked(1)[0]["file"]["is_delta"].asBool());
    EXPECT_EQ(RowOf(path).syncID, c.keeps_row ? 5u : 0u);
    EXPECT_EQ(fs::exists(Full(path)), c.keeps_name);
    std::vector<FilteredEvent> parked;
    EXPECT_EQ(entry_.event_db->getLocalFilteredEvent(FilteredEvent::FILTERED_ACL, path, 0, parked),
              0);
    EXPECT_EQ(parked.size(), c.is_parked ? 1u : 0u);
    EXPECT_EQ(RescanRequests::getInstance().Take(1), c.is_rescanned);
    EXPECT_TRUE(Leftovers().empty());
  }
}

// The server cannot put anything below what it knows as a file.
TEST_F(UploadHandlerTest, AFolderInThePlaceOfAFileGoesBeforeItsContent) {
  Sync("/kind", "a file");
  fs::remove(Full("/kind"));
  fs::create_directories(Full("/kind/sub"));
  Write("/kind/sub/inside", "inside");
  answer_ = [](const PObject&) { return Refusal(SPROTO_ERR_CONFLICT_PATH); };
  EXPECT_EQ(Handle("/kind/sub/inside"), ErrorCodes::ERR_INT);
  Asked(1);
  EXPECT_TRUE(fs::exists(Full("/kind/sub/inside")));
  Task task;
  Event next;
  ASSERT_EQ(EventManager::getInstance().PullEvent(&task, next), 0);
  EXPECT_EQ(next.m_path, "/kind");
  EXPECT_TRUE(next.isDir() && next.isLocalEvent());
  EventManager::getInstance().Clear();
}

TEST_F(UploadHandlerTest, RecordsOnlyWhatTheServerAnsweredFor) {
  Sync("/file", "first");
  Write("/file", "second", 90);
  // An answer without a version, one of the other kind, none at all.
  for (const auto& [answer, result] : std::vector<std::pair<std::optional<PObject>, int>>{
           {Version(0), ErrorCodes::ERR_SERVER},
           {Version(9, true), ErrorCodes::ERR_SERVER},
           {std::nullopt, ErrorCodes::ERR_IO}}) {
    answer_ = [&answer = answer](const PObject&) { return answer; };
    EXPECT_EQ(Handle("/file"), result);
    Asked(1);
    EXPECT_EQ(RowOf("/file").syncID, 5u);
    EXPECT_TRUE(Leftovers().empty());
  }
  // What changes while it is sent is sent again.
  answer_ = [this](const PObject&) {
    Write("/file", "third!", 80);
    return Version(6);
  };
  EXPECT_EQ(Handle("/file"), 0);
  Asked(1);
  EXPECT_EQ(RowOf("/file").syncID, 6u);
  answer_ = [](const PObject&) { return Version(7); };
  EXPECT_EQ(Handle("/file"), 0);
  const PObject sent = Asked(1)[0];
  EXPECT_EQ(ReadFile(sent["file"]["data"].asBinary().path), "third!");
  EXPECT_TRUE(Leftovers().empty());
}

TEST_F(UploadHandlerTest, AFileThatChangesWhileItIsReadIsNotSent) {
  std::string content = Noise(50'000);
  Sync("/file", content);
  content += "x";
  Write("/file", content, 90);
  {
    MeddlingFiles files([this] { Write("/file", "something else", 80); });
    EXPECT_EQ(Handle("/file"), ErrorCodes::ERR_INT);
  }
  Asked(0);
  EXPECT_EQ(RowOf("/file").syncID, 5u);
  EXPECT_TRUE(Leftovers().empty());
}

TEST_F(UploadHandlerTest, AnEditOfTheSameSizeWithinTheSecondIsFound) {
  Write("/file", "one", 0);
  const std::int64_t time = TimeOf("/file");
  EXPECT_EQ(Handle("/file"), 0);
  Asked(1);
  WriteFile(ustring(Full("/file")), "two");
  SetTime("/file", time);
  EXPECT_EQ(Handle("/file"), 0);
  const PObject sent = Asked(1)[0];
  EXPECT_FALSE(sent["file"]["refer"].asBool());
}

TEST_F(UploadHandlerTest, ContentThatTheServerHoldsStaysHere) {
  Write("/large", Noise(0x80001));
  answer_ = [](const PObject& request) -> std::optional<PObject> {
    PObject answer = Version(8);
    if (Action(request) == "resume_get_token") answer["resume_token"] = "resume me";
    if (request["dry_run"].asBool()) answer["file"]["file_id"] = 77;
    return answer;
  };
  EXPECT_EQ(Handle("/large"), 0);
  const std::vector<PObject> asked = Asked(3);
  EXPECT_EQ(Action(asked[0]), "resume_get_token");
  EXPECT_EQ(Action(asked[1]), "upload");
  EXPECT_FALSE(asked[1]["file"].hasMember("data"));
  EXPECT_EQ(Action(asked[2]), "resume_upload");
  EXPECT_EQ(asked[2]["resume_token"].asString(), "resume me");
  EXPECT_FALSE(asked[2]["file"].hasMember("data"));
  EXPECT_EQ(asked[2]["file"]["file_id"].asUInt64(), 77u);
  EXPECT_EQ(RowOf("/large").fileSize, 0x80001u);
  EXPECT_EQ(RowOf("/large").fileCheckSum, asked[2]["file"]["hash"].asString());
  EXPECT_TRUE(Leftovers().empty());
  // One byte less goes at once.
  Write("/edge", Noise(0x80000));
  EXPECT_EQ(Handle("/edge"), 0);
  EXPECT_EQ(Action(Asked(1)[0]), "upload");
}

class ResumedUploadTest : public UploadHandlerTest {
 protected:
  // A delta of some 600 KiB whose sending broke off; the server holds `kHeld` bytes of it.
  static constexpr std::uint64_t kHeld = 250'000;

  ResumedUploadTest() {
    answer_ = [this](const PObject& request) { return AnswerInParts(request); };
    Write("/large", Noise(200'000));
    EXPECT_EQ(Handle("/large"), 0);
    Asked(1);
    content_ = Noise(200'000) + std::string(600'000, 'x');
    for (std::size_t i = 200'000; i < content_.size(); i += 7) {
      content_[i] = static_cast<char>(i * i / 13);
    }
    Write("/large", content_, 90);
    breaks_ = true;
    EXPECT_EQ(Handle("/large"), ErrorCodes::ERR_IO);
    delta_ = Asked(3)[2]["file"]["data"].asBinary();
    EXPECT_EQ(ResumeTransMgr::GetInstance().Size(), 1u);
    EXPECT_EQ(Leftovers().size(), 2u);  // the delta and the signature
    breaks_ = false;
  }
  std::optional<PObject> AnswerInParts(const PObject& request) {
    const std::string action = Action(request);
    if (action == "resume_upload" && breaks_) return std::nullopt;
    PObject answer = Version(9);
    if (action == "resume_get_token") answer["resume_token"] = "resume me";
    if (action == "resume_get_status") answer = status_;
    return answer;
  }
  static PObject Held(std::uint64_t offset) {
    PObject answer;
    answer["alive"] = 60;
    answer["file"]["offset"] = offset;
    return answer;
  }

  std::string content_;
  PObject::binary_type delta_;
  PObject status_ = Held(kHeld);
  std::atomic<bool> breaks_{false};
};

TEST_F(ResumedUploadTest, SendsOnlyTheTail) {
  info_.session = "another token";
  EXPECT_EQ(Handle("/large"), 0);
  std::vector<PObject> asked = Asked(2);
  EXPECT_EQ(Action(asked[0]), "resume_get_status");
  EXPECT_EQ(Action(asked[1]), "resume_upload");
  EXPECT_EQ(asked[1]["session"].asString(), "another token");
  const PObject::binary_type tail = asked[1]["file"]["data"].asBinary();
  EXPECT_EQ(tail.length, delta_.length - kHeld);
  EXPECT_EQ(ReadFile(tail.path), ReadFile(delta_.path).substr(kHeld));
  EXPECT_EQ(RowOf("/large").syncID, 9u);
  EXPECT_EQ(RowOf("/large").fileSize, content_.size());
  EXPECT_TRUE(fs::exists(RowOf("/large").signaturePath.str()));
  EXPECT_TRUE(ResumeTransMgr::GetInstance().IsEmpty());
  EXPECT_TRUE(Leftovers().empty());
}

TEST_F(ResumedUploadTest, BreaksAgainAndGoesOnFromWhatIsHeldThen) {
  breaks_ = true;
  EXPECT_EQ(Handle("/large"), ErrorCodes::ERR_IO);
  Asked(2);
  EXPECT_EQ(Leftovers().size(), 2u);
  breaks_ = false;
  status_ = Held(delta_.length);
  EXPECT_EQ(Handle("/large"), 0);
  EXPECT_EQ(Asked(2)[1]["file"]["data"].asBinary().length, 0u);
  EXPECT_TRUE(Leftovers().empty());
}

TEST_F(ResumedUploadTest, AnotherFileOrAForgottenTokenStartsAnew) {
  // Of the same size, and written within the same second.
  const std::int64_t time = TimeOf("/large");
  content_[700'000] = '!';
  WriteFile(ustring(Full("/large")), content_);
  SetTime("/large", time + 1000);
  breaks_ = true;
  EXPECT_EQ(Handle("/large"), ErrorCodes::ERR_IO);
  EXPECT_EQ(Action(Asked(3)[0]), "resume_get_token");
  EXPECT_EQ(Leftovers().size(), 2u);
  breaks_ = false;
  status_ = Refusal(SPROTO_ERR_RESUME_TOKEN);
  EXPECT_EQ(Handle("/large"), ErrorCodes::ERR_INT);
  Asked(1);
  EXPECT_TRUE(Leftovers().empty());
  EXPECT_EQ(RowOf("/large").syncID, 9u);  // of the upload before
  EXPECT_EQ(RowOf("/large").fileSize, 200'000u);
  EXPECT_EQ(Handle("/large"), 0);
  Asked(3);
  EXPECT_EQ(RowOf("/large").fileSize, content_.size());
  EXPECT_TRUE(Leftovers().empty());
}

}  // namespace
}  // namespace tolven
