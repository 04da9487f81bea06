// Who may do what, and input that means no good.
#include "server-proto/fixture.h"

namespace tolven::test {
namespace {

class Abuse : public ServerFixture {
 protected:
  // Sends bytes behind a header and expects that only this connection ends.
  void ExpectEnd(std::uint8_t command, const std::string& body) {
    RawClient client = Connected();
    client.Header(command);
    client.channel.Write(body.data(), body.size());
    EXPECT_TRUE(client.IsEnded()) << static_cast<int>(command) << " " << body.size();
  }
};

TEST_F(Abuse, EndsTheConnectionAndNothingElse) {
  Start();
  RawClient good = Connected();
  {
    RawClient client(port());
    client.Header(14, 0x12345678);
    EXPECT_TRUE(client.IsEnded());
  }
  ExpectEnd(99, "");
  ExpectEnd(14, "\x40");
  ExpectEnd(14, std::string("\x42\x01\x01\x05", 4));
  ExpectEnd(14, std::string("\x42\x10\x00\x01"
                            "a\x01\x09",
                            7));
  ExpectEnd(14, std::string(100'000, '\x41'));  // nests without end
  ExpectEnd(13, std::string("\x03\xFF\xFF", 3));
  ExpectEnd(13, std::string("\x04\x00\x01x", 4));
  ExpectEnd(22, std::string("\x29\xFF\xFF", 3));
  {
    // Contents are taken from those alone who have shown a session.
    RawClient client(port());
    client.Header(23);
    const PObject upload = UploadRequest("/file", "content");
    client.stream.Send(client.channel, upload);
    EXPECT_TRUE(client.IsEnded());
  }
  {
    RawClient client(port());
    client.Header(14, 0x25521814, 60);
    client.stream.Send(client.channel, NewRequest("connect", token()));
    PObject answer;
    ASSERT_EQ(client.stream.Recv(client.channel, answer), 0);
    EXPECT_EQ(CodeOf(answer), 0x5000u);
    EXPECT_TRUE(client.IsEnded());
  }
  EXPECT_EQ(CodeOf(good.Request(14, NewRequest("upload", token()))), 2u);
  PObject wrong_types = NewRequest("pull_event", token());
  wrong_types["session"]["map"] = 1;
  EXPECT_EQ(CodeOf(good.Request(6, wrong_types)), 0x2001u);
  EXPECT_EQ(CodeOf(Pull(good, 0)), 0u);
  EXPECT_TRUE(FilesIn("transfers/incoming").empty());
}

TEST_F(Abuse, NoPathLeadsOutOfAView) {
  Start();
  RawClient client = Connected();
  for (const char* path :
       {"", "file", "/../file", "/a/../../file", "/./a", "/a//b", "/a/", "//", "/..",
        "/.ZentrovaWorkingDirectory/x", "/a/.zentrovaworkingdirectory", "/bad\xC3"}) {
    EXPECT_EQ(CodeOf(client.Request(23, UploadRequest(path, "x"))), 0x3003u) << path;
    EXPECT_EQ(CodeOf(client.Request(24, DownloadRequest(path, 0, 0))), 0x3003u) << path;
    EXPECT_EQ(CodeOf(client.Request(15, RemoveRequest(path, 0, 0))), 0x3003u) << path;
    EXPECT_EQ(CodeOf(Pull(client, 0, path)), 0x3003u) << path;
  }
  EXPECT_EQ(CodeOf(Pull(client, 0, "/none")), 0x3003u);
  EXPECT_EQ(PathsOf(Pull(client, 0)), "/");
}

TEST_F(Abuse, KeepsAccessListsQuotaAndReadOnlyViews) {
  Start();
  RawClient ada = Connected();
  const std::uint64_t secret = Put(ada, "/secret/plan", "plan");
  const std::uint64_t shown = Put(ada, "/shown/text", "text");
  Put(ada, "/free/text", "text");
  // Nothing for group 200; read alone for group 200, passed down to everything below.
  SetAcl("/secret", "1 0 2 4 200 8191 6 0 0 8 0 8191 6 1 0 ");
  SetAcl("/shown", "1 0 1 8 0 117 6 1 0 ");
  const std::string bob = NewSession("bob");  // uid 1001, group 200
  const auto as_bob = [&](PObject request) {
    request["session"] = bob;
    return request;
  };
  EXPECT_EQ(CodeOf(ada.Request(24, as_bob(DownloadRequest("/secret/plan", 0, secret)))), 0x8002u);
  EXPECT_EQ(CodeOf(ada.Request(23, as_bob(UploadRequest("/secret/new", "x")))), 0x9004u);
  EXPECT_EQ(CodeOf(ada.Request(15, as_bob(RemoveRequest("/secret/plan", secret, secret)))),
            0xA003u);
  EXPECT_EQ(CodeOf(ada.Request(24, as_bob(DownloadRequest("/shown/text", 0, shown)))), 0u);
  EXPECT_EQ(CodeOf(ada.Request(23, as_bob(UploadRequest("/shown/text", "y", shown)))), 0x9003u);
  EXPECT_EQ(CodeOf(ada.Request(15, as_bob(RemoveRequest("/shown/text", shown, shown)))), 0xA004u);
  EXPECT_EQ(CodeOf(ada.Request(23, as_bob(UploadRequest("/free/new", "x")))), 0u);
  EXPECT_EQ(CodeOf(ada.Request(6, as_bob(PullRequest(0, "/secret")))), 0x3002u);
  // The client judges for itself what it hears of.
  bool told = false;
  const PObject pulled = ada.Request(6, as_bob(PullRequest(0, "/")));
  for (const PObject& record : pulled["event_list"].asArray()) {
    if (record["path"].asString() == "/secret") {
      told = !record["zentrova_acl"]["acl"].asString().empty();
    }
  }
  EXPECT_TRUE(told);

  const std::uint64_t small = NewView("small", 1000, false), frozen = NewView("frozen", 0, true);
  const auto in = [&](std::uint64_t id, PObject request) {
    request["view_id"] = id;
    return request;
  };
  EXPECT_EQ(CodeOf(ada.Request(23, in(small, UploadRequest("/a", std::string(600, 'a'))))), 0u);
  EXPECT_EQ(CodeOf(ada.Request(23, in(small, UploadRequest("/b", std::string(600, 'b'))))),
            0x4001u);
  PObject dry = in(small, UploadRequest("/c", std::string(600, 'c')));
  dry["dry_run"] = true;
  EXPECT_EQ(CodeOf(ada.Request(23, dry)), 0x4001u);
  EXPECT_EQ(CodeOf(ada.Request(23, in(frozen, UploadRequest("/a", "a")))), 0x3004u);
  EXPECT_EQ(CodeOf(ada.Request(15, in(frozen, RemoveRequest("/a", 1, 1)))), 0x3004u);
}

TEST_F(Abuse, OlderBuildsHearNothingOfAccessLists) {
  options.build = 3111;
  Start();
  RawClient client = Connected();
  const PObject pulled = Pull(client, 0);
  EXPECT_TRUE(pulled["event_list"][0].hasMember("unix_perm"));
  EXPECT_FALSE(pulled["event_list"][0].hasMember("zentrova_acl"));
  const PObject connected = client.Request(14, NewRequest("connect", token()));
  EXPECT_EQ(connected["server"]["package_version"]["build"].asUInt32(), 3111u);
}

TEST_F(Abuse, PagesAreBoundedAndBeginWithWhatTheyNeed) {
  Start();
  RawClient client = Connected();
  const std::uint64_t folder = client.Request(23, FolderRequest("/d", 0))["sync_id"].asUInt64();
  for (int i = 0; i < 1010; ++i) client.Request(23, FolderRequest("/d/" + std::to_string(i), 0));
  // The folder's own number is now higher than those of all that lies in it.
  PObject touch = FolderRequest("/d", folder);
  touch["mtime"]["mtime"] = kTime + 5;
  ASSERT_EQ(CodeOf(client.Request(23, touch)), 0u);

  std::uint64_t since = 0, last = 0;
  std::set<std::string> seen;
  int pages = 0;
  for (;; ++pages) {
    const PObject page = Pull(client, since);
    const auto& records = page["event_list"].asArray();
    if (records.empty()) break;
    if (since == 0) {
      EXPECT_EQ(records[0]["path"].asString(), "/");
    }
    std::size_t numbered = 0;
    for (const PObject& record : records) {
      const std::string path = record["path"].asString().str();
      if (path != "/") {
        const std::string parent = path.substr(0, std::max<std::size_t>(path.rfind('/'), 1));
        EXPECT_TRUE(seen.contains(parent)) << path;
      }
      seen.insert(path);
      if (record["sync_id"].asUInt64() <= page["next_sync_id"].asUInt64()) ++numbered;
    }
    EXPECT_LE(numbered, 1000u);
    last = page["next_sync_id"].asUInt64();
    ASSERT_GT(last, since);
    since = last;
  }
  EXPECT_EQ(pages, 2);
  EXPECT_EQ(seen.size(), 1012u);
}

TEST_F(Abuse, ServesManyAndEndsThoseWhoNeverLogIn) {
  options.login_time = std::chrono::seconds(1);
  Start();
  RawClient silent(port());
  std::vector<std::unique_ptr<RawClient>> clients;
  for (int i = 0; i < 200; ++i) {
    clients.push_back(std::make_unique<RawClient>(port()));
    EXPECT_EQ(CodeOf(clients.back()->Request(14, NewRequest("connect", token()))), 0u);
  }
  EXPECT_TRUE(silent.IsEnded());
  for (const auto& client : clients) EXPECT_EQ(CodeOf(Pull(*client, 0)), 0u);
  Stop();  // with all of them open
  for (const auto& client : clients) EXPECT_TRUE(client->IsEnded());
}

TEST_F(Abuse, KeepsItsCertificate) {
  Start();
  const std::string first = fingerprint();
  EXPECT_EQ(first.size(), 32 * 3 - 1u);
  Stop();
  Start();
  EXPECT_EQ(fingerprint(), first);
}

}  // namespace
}  // namespace tolven::test
