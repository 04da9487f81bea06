// Transfers that break and go on, and long ones.
#include "server-proto/fixture.h"

namespace tolven::test {
namespace {

class TransfersOfServer : public ServerFixture {
 protected:
  std::string Token(RawClient& client) {
    PObject request = NewRequest("resume_get_token", token());
    request["view_id"] = view();
    return client.Request(27, request)["resume_token"].asString().str();
  }

  PObject Status(RawClient& client, const std::string& resume, const std::string& session) {
    PObject request = NewRequest("resume_get_status", session);
    request["view_id"] = view();
    request["_resume_token"] = resume;
    return client.Request(27, request);
  }

  PObject ResumeUpload(const std::string& resume, const std::string& content) {
    PObject request = UploadRequest("/large", content);
    request["_action"] = "resume_upload";
    request["_resume_token"] = resume;
    return request;
  }

  // Sends the request up to the middle of its data and goes away.
  void BreakOff(const std::string& resume, const std::string& content, std::size_t sent) {
    RawClient client = Connected();
    client.Header(27);
    Channel& channel = client.channel;
    const auto text = [&](const std::string& value) {
      channel.WriteByte(0x10);
      channel.WriteInt16(static_cast<std::uint16_t>(value.size()));
      channel.Write(value.data(), value.size());
    };
    channel.WriteByte(0x42);
    text("action");
    text("resume_upload");
    text("resume_token");
    text(resume);
    text("file");
    channel.WriteByte(0x42);
    text("data");
    channel.WriteByte(0x30);
    channel.WriteInt64(content.size());
    channel.Write(content.data(), sent);
    channel.FlushWrite(0);
  }

  // For one above `known`.
  std::uint64_t WaitForOffset(RawClient& client, const std::string& resume, std::uint64_t known) {
    for (int i = 0; i < 500; ++i) {
      const std::uint64_t offset = Status(client, resume, token())["file"]["offset"].asUInt64();
      if (offset > known) return offset;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return 0;
  }
};

TEST_F(TransfersOfServer, UploadGoesOnBehindTheLastByteEvenAfterARestart) {
  Start();
  const std::string content = RandomBytes(1'500'000);
  std::string resume;
  {
    RawClient client = Connected();
    resume = Token(client);
    EXPECT_EQ(Status(client, resume, token())["file"]["offset"].asUInt64(), 0u);
    EXPECT_EQ(CodeOf(Status(client, "0123", token())), 0xB001u);
    EXPECT_EQ(CodeOf(Status(client, resume, NewSession("bob"))), 0xB001u);
    BreakOff(resume, content, 400'000);
    // Only the block that was just being received may be lost.
    const std::uint64_t kept = WaitForOffset(client, resume, 0);
    EXPECT_GT(kept, 300'000u);
    BreakOff(resume, content.substr(kept), 300'000);
    WaitForOffset(client, resume, kept);
  }
  Stop();
  Start();
  RawClient client = Connected();
  const std::uint64_t offset = Status(client, resume, token())["file"]["offset"].asUInt64();
  ASSERT_GT(offset, 500'000u);
  PObject request = ResumeUpload(resume, content);
  request["file"]["data"].asBinary().offset = offset;
  request["file"]["data"].asBinary().length = content.size() - offset;
  ASSERT_EQ(CodeOf(client.Request(27, request)), 0u);
  EXPECT_EQ(Fetch(client, "/large", 0, 0), content);
  EXPECT_EQ(CodeOf(Status(client, resume, token())), 0xB001u);  // spent
  EXPECT_TRUE(FilesIn("transfers").empty());
  EXPECT_TRUE(FilesIn("transfers/incoming").empty());
}

TEST_F(TransfersOfServer, DownloadGoesOnWithTheSameBytes) {
  Start();
  RawClient client = Connected();
  const std::string first = RandomBytes(300'000);
  const std::uint64_t v1 = Put(client, "/large", first);
  PObject request = DownloadRequest("/large", 0, v1);
  request["_action"] = "resume_download";
  EXPECT_EQ(CodeOf(client.Request(27, request)), 0xB001u);
  request["_resume_token"] = Token(client);
  const PObject whole = client.Request(27, request);
  EXPECT_EQ(ReadFile(whole["file"]["data"].asBinary().path), first);
  request["file"]["offset"] = 100'000;
  const PObject rest = client.Request(27, request);
  EXPECT_EQ(ReadFile(rest["file"]["data"].asBinary().path), first.substr(100'000));
  request["file"]["offset"] = first.size() + 1;
  EXPECT_EQ(CodeOf(client.Request(27, request)), 0xB002u);
  // Another version would continue with bytes of something else.
  const std::uint64_t v2 = Put(client, "/large", first + "more", v1);
  request["file"]["offset"] = 100'000;
  request["target_sync_id"] = v2;
  EXPECT_EQ(CodeOf(client.Request(27, request)), 0xB002u);
}

TEST_F(TransfersOfServer, TellsTheClientThatWorkGoesOn) {
  options.keep_alive_interval = std::chrono::milliseconds(1);
  Start();
  RawClient client = Connected();
  EXPECT_GT(Put(client, "/large", RandomBytes(8 << 20)), 0u);
  EXPECT_GT(client.keep_alives, 0);
}

}  // namespace
}  // namespace tolven::test
