// The client's side of the protocol against the real server, plain and in TLS.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

#include "client/core/protocol-client.h"
#include "e2e/server-process.h"
#include "lib/proto-common.h"
#include "rsapi-cpp/simple-file-reader.h"

namespace tolven {
namespace {

class ClientServer : public ::testing::TestWithParam<bool> {
 protected:
  ClientServer() : connection_(Info(), nullptr, nullptr), client_(&stream_, connection_) {
    client_.SetReceiveLocation(ustring(received_.path()));
  }

  ConnectionInfo Info() const {
    ConnectionInfo info;
    info.server_ip = "127.0.0.1";
    info.server_port = server_.port;
    info.session = ustring(server_.token);
    info.use_ssl = GetParam();
    info.ssl_allow_untrust = true;
    info.version_info.build_number = 3317;
    return info;
  }
  PObject Start(const char* action, const char* path) const {
    PObject request;
    InitRequest(request, action);
    request["session"] = ustring(server_.token);
    request["view_id"] = 1;
    request["node_id"] = 1;
    request["path"] = path;
    return request;
  }
  PObject Upload(const char* path, const ustring& file, std::uint64_t base = 0) const {
    PObject request = Start("upload", path);
    request["sync_id"] = base;
    request["max_id"] = base;
    request["is_dir"] = false;
    request["mtime"]["refer"] = false;
    request["mtime"]["mtime"] = 1'600'000'000;
    PObject::binary_type data;
    data.path = file;
    data.length = std::filesystem::file_size(file.str());
    request["file"]["refer"] = false;
    request["file"]["is_delta"] = false;
    request["file"]["size"] = data.length;
    request["file"]["hash"] = Md4(file);
    request["file"]["data"].asBinary() = data;
    return request;
  }
  static ustring Md4(const ustring& file) {
    SimpleFileReader reader;
    ustring hash;
    reader.setFile(file);
    reader.setHashString(hash);
    EXPECT_EQ(reader.readFile(), 0);
    return hash;
  }
  PObject Ask(std::uint8_t command, const PObject& request) {
    PObject response;
    EXPECT_EQ(client_.Request(command, request, response), 0);
    const PObject& answer = response;
    EXPECT_FALSE(answer.hasMember("error")) << answer.toString().str();
    return response;
  }
  ustring File(const std::string& content) {
    ustring path = files_ / std::to_string(++file_count_);
    test::WriteFile(path, content);
    return path;
  }
  std::string Download(const char* path, std::uint64_t version) {
    PObject request = Start("download", path);
    request["sync_id"] = 0;
    request["max_id"] = 0;
    request["target_sync_id"] = version;
    request["file"]["offset"] = 0;
    const PObject answer = Ask(SCMD_EVT_SEND_2, request);
    EXPECT_EQ(answer["sync_id"].asUInt64(), version);
    return test::ReadFile(answer["file"]["data"].asBinary().path);
  }

  test::ServerProcess server_;
  test::TempFolder received_, files_;
  int file_count_ = 0;
  PStream stream_;
  Connection connection_;
  ProtocolClient client_;
};

TEST_P(ClientServer, UploadsListsDownloadsAndRemoves) {
  const PObject made = Ask(SCMD_EVT_RECV_4, Upload("/docs/a", File("one")));
  const std::uint64_t first = made["sync_id"].asUInt64();
  EXPECT_EQ(Download("/docs/a", first), "one");
  const PObject changed = Ask(SCMD_EVT_RECV_4, Upload("/docs/a", File("two"), first));
  EXPECT_EQ(Download("/docs/a", changed["sync_id"].asUInt64()), "two");
  EXPECT_EQ(Download("/docs/a", first), "one");  // an older version

  PObject pull = Start("pull_event", "/");
  pull["sync_id"] = 0;
  pull["recursive"] = true;
  const PObject page = Ask(SCMD_EVT_PULL, pull);
  EXPECT_EQ(page["next_sync_id"].asUInt64(), changed["sync_id"].asUInt64());
  EXPECT_EQ(page["event_list"].asArray().size(), 3U);

  PObject stale;
  PObject request = Start("remove", "/docs/a");
  request["sync_id"] = first;
  request["max_id"] = first;
  EXPECT_EQ(client_.Request(SCMD_EVT_REMOVE, request, stale), 0);
  EXPECT_EQ(stale["error"]["code"].asUInt32(), SPROTO_ERR_REMOVE_MODIFIED);
  request["sync_id"] = changed["sync_id"].asUInt64();
  Ask(SCMD_EVT_REMOVE, request);
  EXPECT_EQ(server_.Admin("check").find(" 0 problems") == std::string::npos, false);
}

TEST_P(ClientServer, GoesOnWithABrokenUpload) {
  std::string content(32 << 20, '\0');
  for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * i >> 8);
  const ustring file = File(content);
  const PObject token = Ask(SCMD_RESUME_TRANSFER, Start("resume_get_token", "/large"));
  PObject request = Upload("/large", file);
  request["_action"] = "resume_upload";
  request["_resume_token"] = token["resume_token"].asString();

  std::atomic<int> abort{0};
  client_.SetAbortFlag(&abort);
  std::thread interrupts([&] {
    ustring item;
    std::uint64_t sent = 0, size = 0;
    while (sent < content.size() / 4 && abort == 0) stream_.GetStatus(item, sent, size);
    abort = 1;
  });
  PObject broken;
  EXPECT_EQ(client_.Request(SCMD_RESUME_TRANSFER, request, broken), ErrorCodes::ERR_INT);
  interrupts.join();
  abort = 0;

  PObject status = Start("resume_get_status", "/large");
  status["_resume_token"] = token["resume_token"].asString();
  const std::uint64_t held = Ask(SCMD_RESUME_TRANSFER, status)["file"]["offset"].asUInt64();
  EXPECT_LT(held, content.size());
  PObject::binary_type tail;
  tail.path = file;
  tail.offset = held;
  tail.length = content.size() - held;
  request["file"]["data"].asBinary() = tail;
  const PObject made = Ask(SCMD_RESUME_TRANSFER, request);
  EXPECT_EQ(Download("/large", made["sync_id"].asUInt64()) == content, true);
}

INSTANTIATE_TEST_SUITE_P(PlainAndTls, ClientServer, ::testing::Bool());

// A client that was told of another build notices, and older ones send no access lists.
TEST(OlderServers, SpeakAsTheBuildThatTheyAreToldToBe) {
  for (const int build : {3111, 3112}) {
    SCOPED_TRACE(build);
    const test::ServerProcess server({"--build", ustring(std::to_string(build))});
    const test::TempFolder received;
    ConnectionInfo info;
    info.server_ip = "127.0.0.1";
    info.server_port = server.port;
    info.session = ustring(server.token);
    PObject request;
    InitRequest(request, "pull_event");
    request["session"] = info.session;
    request["view_id"] = 1;
    request["path"] = "/";
    request["sync_id"] = 0;
    for (const int expected : {3317, build}) {
      info.version_info.build_number = expected;
      Connection connection(info, nullptr, nullptr);
      PStream stream;
      ProtocolClient client(&stream, connection);
      client.SetReceiveLocation(ustring(received.path()));
      PObject response;
      const int result = client.Request(SCMD_EVT_PULL, request, response);
      EXPECT_EQ(result, expected == build ? 0 : ErrorCodes::ERR_BUILD_NUM_CHANGED);
      if (result != 0) continue;
      const auto& records = std::as_const(response)["event_list"].asArray();
      ASSERT_EQ(records.size(), 1U);
      EXPECT_TRUE(records.front().hasMember("unix_perm"));
      EXPECT_EQ(records.front().hasMember("zentrova_acl"), build == 3112);
      EXPECT_FALSE(records.front().hasMember("share_priv"));
    }
  }
}

}  // namespace
}  // namespace tolven
