// What each command answers, and what it refuses.
#include "server-proto/fixture.h"

namespace tolven::test {
namespace {

class Commands : public ServerFixture {};

TEST_F(Commands, HandshakesInAllForms) {
  Start();
  RawClient client(port());
  PObject request = NewRequest("connect", token());
  PObject answer = client.Request(14, request);
  EXPECT_EQ(CodeOf(answer), 0u);
  EXPECT_EQ(answer["alive"].asUInt32(), options.alive_seconds);
  EXPECT_EQ(answer["server"]["package_version"]["build"].asUInt32(), 3317u);

  request["session"] = "nobody's";
  EXPECT_EQ(CodeOf(client.Request(14, request)), 0x2001u);
  request["session"] = token();
  request["view_id"] = view() + 77;
  answer = client.Request(14, request);
  EXPECT_EQ(CodeOf(answer), 0x3001u);
  EXPECT_EQ(answer["alive"].asUInt32(), options.alive_seconds);
  EXPECT_FALSE(answer["error"]["reason"].asString().empty());

  // TLS behind the answer to "connect".
  request = NewRequest("connect", token());
  request["do_ssl"] = true;
  EXPECT_EQ(CodeOf(client.Request(14, request)), 0u);
  ASSERT_TRUE(client.StartTls());
  EXPECT_EQ(CodeOf(Pull(client, 0)), 0u);

  // By a command of its own, before anything else.
  RawClient hidden(port());
  PObject encrypt = NewRequest("encrypt_channel", "");
  encrypt["proto_ver"]["major"] = 3;
  encrypt["ssl_option"] = 1;
  EXPECT_EQ(CodeOf(hidden.Request(22, encrypt)), 0u);
  ASSERT_TRUE(hidden.StartTls());
  EXPECT_EQ(CodeOf(hidden.Request(14, NewRequest("connect", token()))), 0u);
}

TEST_F(Commands, SpeaksTheSectionForm) {
  Start();
  RawClient client(port());
  Channel& channel = client.channel;
  const auto expect_header = [&](std::uint8_t command) {
    std::uint32_t magic = 0;
    std::uint8_t version = 0, got = 0;
    std::uint16_t length = 1;
    ASSERT_EQ(channel.ReadInt32(magic), 0);
    channel.ReadByte(version);
    channel.ReadByte(got);
    channel.ReadInt16(length);
    EXPECT_EQ(magic, 0x25521814u);
    EXPECT_EQ(version, 70);
    EXPECT_EQ(got, command);
  };
  const auto byte = [&] {
    std::uint8_t value = 0xFF;
    channel.ReadByte(value);
    return static_cast<int>(value);
  };
  const auto text = [&](std::uint8_t id) {
    EXPECT_EQ(byte(), id);
    std::uint16_t length = 0;
    channel.ReadInt16(length);
    std::string value(length, '\0');
    channel.Read(value.data(), length);
    return value;
  };
  const auto write_text = [&](std::uint8_t id, const ustring& value) {
    channel.WriteByte(id);
    channel.WriteInt16(static_cast<std::uint16_t>(value.size()));
    channel.Write(value.c_str_utf8(), value.size());
  };

  client.Header(11);  // test of the connection
  channel.FlushWrite(0);
  expect_header(11);
  EXPECT_EQ(byte(), 1);
  EXPECT_EQ(byte(), 1);
  EXPECT_EQ(byte(), 28);
  EXPECT_EQ(byte(), 70);
  EXPECT_FALSE(text(27).empty());
  EXPECT_FALSE(text(29).empty());

  const auto check_user = [&](const ustring& name, const ustring& password) {
    ustring encoded;
    SyncPassEnc(password, encoded);
    client.Header(13);
    write_text(3, name);
    write_text(4, encoded);
    channel.FlushWrite(0);
    expect_header(13);
    EXPECT_EQ(byte(), 1);
    return byte();
  };
  EXPECT_EQ(check_user("ada", ustring(token())), 1);
  EXPECT_EQ(check_user("nobody", ustring(token())), 4);
  EXPECT_EQ(check_user("ada", "wrong"), 5);

  client.Header(2);  // keep-alive control is not answered
  for (const auto& [id, value] : {std::pair(42, 0), std::pair(43, 1), std::pair(30, 60)}) {
    channel.WriteByte(static_cast<std::uint8_t>(id));
    channel.WriteInt32(static_cast<std::uint32_t>(value));
  }

  client.Header(22);  // TLS, older form under the same command byte
  write_text(41, "3.1.3317");
  channel.WriteByte(45);
  channel.WriteInt32(1);
  channel.FlushWrite(0);
  expect_header(22);
  EXPECT_EQ(byte(), 1);
  EXPECT_EQ(byte(), 1);
  EXPECT_EQ(byte(), 46);
  std::uint32_t option = 1;
  channel.ReadInt32(option);
  ASSERT_TRUE(client.StartTls());
  EXPECT_EQ(CodeOf(client.Request(14, NewRequest("connect", token()))), 0u);

  RawClient oldest(port());
  oldest.Header(20);
  oldest.channel.FlushWrite(0);
  std::array<char, 10> reply{};
  ASSERT_EQ(oldest.channel.Read(reply.data(), reply.size()), 0);
  EXPECT_EQ(reply[9], 1);
  EXPECT_TRUE(oldest.StartTls());
}

TEST_F(Commands, TakesContentsOnlyWhenTheyAreWhatWasAnnounced) {
  Start();
  RawClient client = Connected();
  const std::string content = RandomBytes(100'000);
  PObject upload = UploadRequest("/a/b/file", content);
  upload["file"]["hash"] = ustring(std::string(32, '0'));
  EXPECT_EQ(CodeOf(client.Request(23, upload)), 0x9000u);
  upload = UploadRequest("/a/b/file", content);
  upload["file"]["size"] = content.size() - 1;
  EXPECT_EQ(CodeOf(client.Request(23, upload)), 0x9000u);
  EXPECT_EQ(Pull(client, 0)["event_list"].asArray().size(), 1u);  // the root alone

  PObject answer = client.Request(23, UploadRequest("/a/b/file", content));
  ASSERT_EQ(CodeOf(answer), 0u);
  const std::uint64_t version = answer["sync_id"].asUInt64();
  EXPECT_GT(version, 0u);
  EXPECT_EQ(answer["is_dir"].asUInt32(), 0u);

  const PObject pulled = Pull(client, 0);
  EXPECT_EQ(PathsOf(pulled), "/ /a /a/b /a/b/file");
  EXPECT_EQ(pulled["next_sync_id"].asUInt64(), version);
  const PObject& record = pulled["event_list"][3];
  EXPECT_EQ(record["file"]["hash"].asString(), Md4(content));
  EXPECT_EQ(record["file"]["size"].asUInt64(), content.size());
  EXPECT_EQ(record["mtime"]["mtime"].asUInt32(), kTime);
  EXPECT_EQ(pulled["uid"].asUInt32(), 1000u);
  EXPECT_EQ(pulled["group"].asArray().size(), 1u);
  EXPECT_TRUE(pulled["profile_list"][0]["hash"].asString().empty());

  const PObject nothing = Pull(client, version);
  EXPECT_EQ(nothing["event_list"].asArray().size(), 0u);
  EXPECT_EQ(nothing["next_sync_id"].asUInt64(), version);
  EXPECT_EQ(PathsOf(Pull(client, 0, "/a")), "/ /b /b/file");

  EXPECT_EQ(Fetch(client, "/a/b/file", 0, 0), content);
  EXPECT_EQ(CodeOf(client.Request(24, DownloadRequest("/a/none", 0, 0))), 0x8001u);
}

TEST_F(Commands, SendsAndTakesDeltas) {
  Start();
  RawClient client = Connected();
  const std::string first = RandomBytes(300'000);
  const std::uint64_t v1 = Put(client, "/file", first);
  std::string second = first;
  second.insert(100'000, "something new");
  const ustring delta = DeltaOf(first, second);

  PObject upload = UploadRequest("/file", second, v1);
  upload["file"]["is_delta"] = true;
  upload["file"]["data"] = WholeFile(delta);
  upload["file"]["size"] = 1000;  // the result would grow beyond what was announced
  EXPECT_EQ(CodeOf(client.Request(23, upload)), 0x9000u);
  upload["file"]["size"] = second.size();
  const PObject answer = client.Request(23, upload);
  ASSERT_EQ(CodeOf(answer), 0u);
  const std::uint64_t v2 = answer["sync_id"].asUInt64();
  EXPECT_EQ(Fetch(client, "/file", 0, v2), second);

  const PObject sent = client.Request(24, DownloadRequest("/file", v1, v2));
  EXPECT_TRUE(sent["file"]["is_delta"].asBool());
  EXPECT_LT(sent["file"]["data"].asBinary().length, 10'000u);
  EXPECT_EQ(Patched(first, sent["file"]["data"].asBinary().path), second);

  // The version that the client has already, an older one, one that never was.
  const PObject current = client.Request(24, DownloadRequest("/file", v2, v2));
  EXPECT_EQ(current["sync_id"].asUInt64(), v2);
  EXPECT_FALSE(current.hasMember("file"));
  EXPECT_EQ(Fetch(client, "/file", 0, v1), first);
  EXPECT_EQ(Fetch(client, "/file", 0, v2 + 100), second);
}

TEST_F(Commands, KnowsContentsItHasOnADryRun) {
  Start();
  RawClient client = Connected();
  const std::string content = RandomBytes(50'000);
  PObject dry = UploadRequest("/copy", content);
  dry["dry_run"] = true;
  dry["file"].asMap().erase("data");
  EXPECT_FALSE(client.Request(23, dry)["file"].hasMember("file_id"));
  Put(client, "/original", content);
  const std::uint64_t id = client.Request(23, dry)["file"]["file_id"].asUInt64();
  ASSERT_NE(id, 0u);

  PObject upload = dry;
  upload.asMap().erase("dry_run");
  upload["file"]["refer"] = true;
  upload["file"]["file_id"] = id + 1;
  EXPECT_EQ(CodeOf(client.Request(23, upload)), 0x9000u);
  upload["file"]["file_id"] = id;
  EXPECT_EQ(CodeOf(client.Request(23, upload)), 0u);
  EXPECT_EQ(Fetch(client, "/copy", 0, 0), content);
}

TEST_F(Commands, RefusesChangesThatDoNotFitTheCurrentVersion) {
  Start();
  RawClient client = Connected();
  const std::uint64_t v1 = Put(client, "/file", "one");
  const std::uint64_t v2 = Put(client, "/file", "two", v1);
  EXPECT_EQ(CodeOf(client.Request(23, UploadRequest("/file", "three", v1))), 0x9002u);
  EXPECT_EQ(CodeOf(client.Request(23, UploadRequest("/file", "three", 0))), 0x6002u);
  EXPECT_EQ(CodeOf(client.Request(23, UploadRequest("/gone", "three", v1))), 0x9001u);
  EXPECT_EQ(CodeOf(client.Request(23, UploadRequest("/file/below", "x", 0))), 0x6002u);
  EXPECT_EQ(CodeOf(client.Request(23, UploadRequest("/tail. ", "x", 0))), 0x9005u);
  const PObject same = client.Request(23, UploadRequest("/file", "two", 0));
  EXPECT_EQ(CodeOf(same), 0u);
  EXPECT_EQ(same["sync_id"].asUInt64(), v2);
  EXPECT_EQ(CodeOf(client.Request(23, FolderRequest("/file", 0))), 0x6002u);

  // A touched file: the content stands, the time is new.
  PObject touch = UploadRequest("/file", "two", v2);
  touch["file"]["refer"] = true;
  touch["file"].asMap().erase("data");
  touch["mtime"]["mtime"] = kTime + 1;
  const std::uint64_t v3 = client.Request(23, touch)["sync_id"].asUInt64();
  EXPECT_GT(v3, v2);
  EXPECT_EQ(Fetch(client, "/file", 0, v3), "two");

  // The other kind with the current base takes its place; folders meet in peace.
  EXPECT_EQ(CodeOf(client.Request(23, FolderRequest("/file", v3))), 0u);
  EXPECT_EQ(CodeOf(client.Request(23, FolderRequest("/file", 0))), 0u);
  EXPECT_EQ(CodeOf(client.Request(23, UploadRequest("/file/below", "x", 0))), 0u);
}

TEST_F(Commands, GivesProfilesAndTheirHash) {
  Start();
  RawClient client = Connected();
  const std::string rules[] = {"[file]\n", "[folder]\n"};
  std::vector<std::string> sums;
  std::vector<server::Profile> profiles;
  for (const std::string& text : rules) {
    server::Profile& profile = profiles.emplace_back();
    profile.name = "rules-" + std::to_string(profiles.size());
    profile.file = LocalFile(text);
    profile.md5 = HashMD5(ustring(text)).str();
    sums.push_back(profile.md5);
  }
  SetProfiles(profiles);
  std::sort(sums.begin(), sums.end());
  const PObject pulled = Pull(client, 0);
  EXPECT_EQ(pulled["profile_list"][0]["hash"].asString(), sums[0] + sums[1]);
  const PObject answer = client.Request(31, NewRequest("get_profile", token()));
  ASSERT_EQ(answer["profile_list"].asArray().size(), 2u);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(answer["profile_list"][i]["name"].asString(), "rules-" + std::to_string(i + 1));
    EXPECT_EQ(ReadFile(answer["profile_list"][i]["file"].asBinary().path), rules[i]);
  }
  // One that is lost is a refusal, and the connection goes on.
  std::filesystem::remove(profiles[0].file.str());
  EXPECT_EQ(CodeOf(client.Request(31, NewRequest("get_profile", token()))), 0x7000u);
  EXPECT_EQ(CodeOf(Pull(client, 0)), 0u);
}

TEST_F(Commands, RemovesOnlyWhatTheClientKnows) {
  Start();
  RawClient client = Connected();
  const std::uint64_t v1 = Put(client, "/d/file", "one");
  const std::uint64_t v2 = Put(client, "/d/file", "two", v1);
  EXPECT_EQ(CodeOf(client.Request(15, RemoveRequest("/d/file", v1, v1))), 0xA002u);
  EXPECT_EQ(CodeOf(client.Request(15, RemoveRequest("/d", v1, v1))), 0xA002u);
  EXPECT_EQ(CodeOf(client.Request(15, RemoveRequest("/none", v1, v1))), 0xA001u);
  EXPECT_EQ(CodeOf(client.Request(15, RemoveRequest("/", v2, v2))), 0xA004u);
  EXPECT_EQ(CodeOf(client.Request(15, RemoveRequest("/d", v1, v2))), 0u);
  EXPECT_EQ(CodeOf(client.Request(24, DownloadRequest("/d/file", 0, v2))), 0x8001u);
  const PObject pulled = Pull(client, v2);
  bool removed = false;
  for (const PObject& record : pulled["event_list"].asArray()) {
    removed |= record["path"].asString() == "/d" && record["is_removed"].asBool();
  }
  EXPECT_TRUE(removed);
  EXPECT_GT(pulled["next_sync_id"].asUInt64(), v2);
}

}  // namespace
}  // namespace tolven::test
