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

// MD4 and size of every file stand in the change records, which all users of a view get: they give
// nobody the file.
TEST_F(Abuse, SumsOfAFileGiveNobodyTheFile) {
  Start();
  RawClient ada = Connected();
  const std::string content = RandomBytes(20'000);
  std::uint64_t version = Put(ada, "/secret/deep/plan", content);
  SetAcl("/secret", "1 0 2 4 200 8191 6 0 0 8 0 8191 6 1 0 ");  // nothing for group 200
  const std::string bob = NewSession("bob");
  const auto as_bob = [&](PObject request) {
    request["session"] = bob;
    return request;
  };
  PObject dry = UploadRequest("/mine", content);
  dry["dry_run"] = true;
  dry["file"].asMap().erase("data");
  const std::uint64_t id = ada.Request(23, dry)["file"]["file_id"].asUInt64();
  ASSERT_NE(id, 0u);
  const auto expect_unknown = [&](const char* when) {
    SCOPED_TRACE(when);
    const PObject answer = ada.Request(23, as_bob(dry));
    EXPECT_EQ(CodeOf(answer), 0u);
    EXPECT_FALSE(answer["file"].hasMember("file_id"));
    PObject claim = as_bob(dry);
    claim.asMap().erase("dry_run");
    claim["file"]["refer"] = true;
    claim["file"]["file_id"] = id;
    EXPECT_EQ(CodeOf(ada.Request(23, claim)), 0x9000u);
    EXPECT_EQ(CodeOf(ada.Request(24, as_bob(DownloadRequest("/mine", 0, 0)))), 0x8001u);
  };
  expect_unknown("a current version");
  version = Put(ada, "/secret/deep/plan", "another", version);
  expect_unknown("an older version");
  ASSERT_EQ(CodeOf(ada.Request(15, RemoveRequest("/secret", version, version))), 0u);
  expect_unknown("a version of what is gone");

  // What he may read at one path is known to him, whoever else has it where.
  Put(ada, "/zshown", content);
  EXPECT_EQ(ada.Request(23, as_bob(dry))["file"]["file_id"].asUInt64(), id);
}

// What holds for an object by itself holds for it as a part of a folder, too.
TEST_F(Abuse, NothingGoesWithItsFolderThatCouldNotGoAlone) {
  Start();
  RawClient ada = Connected();
  Put(ada, "/listed/kept", "kept");
  const std::uint64_t last = Put(ada, "/passed/kept", "kept");
  // A list on a file; one on a folder that lets write there and passes down reading alone.
  SetAcl("/listed/kept", "1 0 1 8 0 117 0 1 0 ");
  SetAcl("/passed", "1 0 2 8 0 8191 0 1 0 8 0 117 3 1 0 ");
  const std::string bob = NewSession("bob");
  const std::uint64_t known = last + 2;
  for (const char* folder : {"/listed", "/passed"}) {
    SCOPED_TRACE(folder);
    PObject remove = RemoveRequest(folder, known, known);
    remove["session"] = bob;
    EXPECT_EQ(CodeOf(ada.Request(15, remove)), 0xA004u);
    const PObject pulled = Pull(ada, 0);
    PObject replace = UploadRequest(folder, "a file");
    for (const PObject& record : pulled["event_list"].asArray()) {
      if (record["path"].asString() == folder) replace["sync_id"] = record["sync_id"].asUInt64();
    }
    replace["max_id"] = known;
    replace["session"] = bob;
    EXPECT_EQ(CodeOf(ada.Request(23, replace)), 0x9003u);
  }
  SetAcl("/passed", "");
  PObject remove = RemoveRequest("/passed", last + 3, last + 3);
  remove["session"] = bob;
  EXPECT_EQ(CodeOf(ada.Request(15, remove)), 0u);
}

TEST_F(Abuse, OlderBuildsHearNothingOfAccessLists) {
  for (const std::uint32_t build : {3111u, 3112u}) {
    SCOPED_TRACE(build);
    const bool lists = build == 3112;
    options.build = build;
    Start();
    RawClient client = Connected();
    const PObject connected = client.Request(14, NewRequest("connect", token()));
    EXPECT_EQ(connected["server"]["package_version"]["build"].asUInt32(), build);
    const std::string path = "/file" + std::to_string(build);
    const PObject uploaded = client.Request(23, UploadRequest(path, "content"));
    ASSERT_EQ(CodeOf(uploaded), 0u);
    const PObject pulled = Pull(client, uploaded["sync_id"].asUInt64() - 1);
    ASSERT_EQ(PathsOf(pulled), path);
    const PObject sent = client.Request(24, DownloadRequest(path, 0, 0));
    EXPECT_EQ(ReadFile(sent["file"]["data"].asBinary().path), "content");
    for (const PObject* told : {&uploaded, &pulled["event_list"][0]}) {
      EXPECT_EQ((*told)["unix_perm"]["mode"].asUInt32(), 1877u);
      EXPECT_EQ((*told)["exec_bit"]["exec_bit"].asUInt32(), 1u);
      EXPECT_EQ(told->hasMember("zentrova_acl"), lists);
      EXPECT_EQ((*told)["zentrova_acl"].hasMember("hash"), lists);
      EXPECT_FALSE(told->hasMember("share_priv"));
    }
    EXPECT_FALSE(sent.hasMember("zentrova_acl"));
    Stop();
  }
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
