#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "lib/error-table.h"
#include "lib/proto-client.h"
#include "lib/proto-common.h"
#include "lib/proto-section.h"
#include "protocol/scripted-peer.h"
#include "support/memory-channel.h"
#include "support/temp-folder.h"

namespace tolven {
namespace {

using test::MemoryChannel;
using test::ScriptedPeer;
using test::TempFolder;
using test::Visitor;
using Errors = ErrorCodes;

struct Kept {
  std::string bytes;
};
// A memory channel that owns what it gives.
class Input : Kept, public MemoryChannel {
 public:
  explicit Input(std::string input) : Kept{std::move(input)}, MemoryChannel(bytes) {}
};

std::string Bytes(std::initializer_list<int> values) {
  std::string bytes;
  for (const int value : values) bytes.push_back(static_cast<char>(value));
  return bytes;
}

TEST(ProtoTest, FramesRequestsAndTellsAWrongMagicOnlyBehindTheHeader) {
  MemoryChannel out;
  ASSERT_EQ(ProtoWriteHeader(out, 0x0102, SCMD_EVT_PULL), 0);
  EXPECT_EQ(out.output(), Bytes({0x25, 0x52, 0x18, 0x14, 70, 6, 1, 2}));

  Input in(Bytes({0x25, 0x52, 0x18, 0x15, 71, 31, 0, 9, 0x77}));
  std::uint16_t length = 0;
  std::uint8_t command = 0, version = 0, behind = 0;
  EXPECT_EQ(ProtoReadHeader(in, length, command, version), Errors::ERR_PROTO);
  ASSERT_EQ(in.Read(reinterpret_cast<char*>(&behind), 1), 0);
  EXPECT_EQ(behind, 0x77);
  Input cut(Bytes({0x25, 0x52, 0x18, 0x14, 70, 6}));
  EXPECT_EQ(ProtoReadHeader(cut, length, command, version), Errors::ERR_IO);
}

TEST(ProtoTest, KnowsItsTables) {
  EXPECT_EQ(ProtoCheck(69), 2);
  EXPECT_EQ(ProtoCheck(70), 0);
  EXPECT_EQ(ProtoCheck(71), 1);
  EXPECT_EQ(ProtoCheck(79), 1);
  EXPECT_EQ(ProtoCheck(80), 3);
  EXPECT_STREQ(ProtoCmd2String(22), "SCMD_REQUEST_SSL_2");
  EXPECT_STREQ(ProtoCmd2String(23), "SCMD_PKG_VER_QUERY");
  EXPECT_STREQ(ProtoCmd2String(25), "Unknown command");
  EXPECT_STREQ(ProtoGetErroString(4), "Protocol aborted due to invalid argument");
  EXPECT_STREQ(ProtoGetErroString(5), "Unknown protocol error");
  const int codes[] = {-3, 0,  -7,  -7,  -12, -13, -6,  -6, -5, -8, -10, -11,
                       -6, -6, -15, -16, -3,  -3,  -10, -6, -6, -6, -6,  -3};
  for (std::uint32_t i = 0; i < std::size(codes); ++i) {
    EXPECT_EQ(ProtoResp2ErrorCode(i), codes[i]) << i;
  }
  // v: a text; else the width.
  const std::string widths =
      "11vvvvv18v"
      "84811v48v1"
      "8v4411v1v4"
      "44v818v44v"
      "v444442244"
      "v8v";
  int id = 0;
  for (const char width : widths) {
    const SYNC_SECTION_ATTR_tag* const attr = ProtoGetSecAttr(++id);
    ASSERT_NE(attr, nullptr) << id;
    EXPECT_EQ(attr->id, id);
    EXPECT_EQ(attr->hasLen ? 'v' : '0' + attr->len, width) << attr->name;
    EXPECT_EQ(attr->headLen, attr->hasLen ? 3 : 1);
  }
  EXPECT_EQ(id, 53);
  EXPECT_STREQ(ProtoGetSecAttr(52)->name, "SPROTO_ID_FILE_OFFSET");
  EXPECT_EQ(ProtoGetSecAttr(0), nullptr);
  EXPECT_EQ(ProtoGetSecAttr(54), nullptr);
}

TEST(ProtoTest, WritesAndReadsRecords) {
  MemoryChannel out;
  ASSERT_EQ(ProtoWriteObjectId(out, {0x0102, "/a"}), 0);
  ASSERT_EQ(ProtoWriteObjectMetadata(out, {7, 9, "ff"}), 0);
  EXPECT_EQ(out.output(), Bytes({9, 0, 0, 0, 0, 0, 0,  1, 2, 7, 0, 2,  '/', 'a', 18,  0,  0,
                                 0, 0, 0, 0, 0, 9, 17, 0, 0, 0, 7, 16, 0,   2,   'f', 'f'}));
  ASSERT_EQ(ProtoWriteView(out, {5, false, false, false, false, "docs"}), 0);
  ASSERT_EQ(ProtoWriteProtocolVersion(out, {3, 1, 3317}), 0);
  ASSERT_EQ(ProtoWriteFilterVersion(out, {1, 0, 4'000'000'000}), 0);
  ASSERT_EQ(ProtoWriteKeepAliveControl(out, 90), 0);

  Input in(out.output());
  ObjectID id;
  ObjectMetadata metadata;
  View view;
  ProtocolVersion protocol;
  FilterVersion filter;
  ASSERT_EQ(ProtoReadObjectId(in, id), 0);
  ASSERT_EQ(ProtoReadObjectMetadata(in, metadata), 0);
  ASSERT_EQ(ProtoReadView(in, view), 0);
  ASSERT_EQ(ProtoReadProtocolVersion(in, protocol), 0);
  ASSERT_EQ(ProtoReadFilterVersion(in, filter), 0);
  EXPECT_EQ(id.sync_id, 0x0102u);
  EXPECT_EQ(metadata.hash, "ff");
  EXPECT_EQ(view.name, "docs");
  EXPECT_EQ(protocol.build, 3317u);
  EXPECT_EQ(filter.build, 4'000'000'000u);
  std::string rest(8 + 15, '\0');
  ASSERT_EQ(in.Read(rest.data(), rest.size()), 0);
  EXPECT_EQ(rest.substr(8), Bytes({42, 0, 0, 0, 0, 43, 0, 0, 0, 1, 30, 0, 0, 0, 90}));

  MemoryChannel secret_out;
  ASSERT_EQ(ProtoWriteCheckUser(secret_out, "anna", "s\xC3\xA9same"), 0);
  EXPECT_EQ(secret_out.output().find("same"), std::string::npos);
  Input secret_in(secret_out.output());
  std::uint16_t length = 0;
  std::uint8_t command = 0, version = 0;
  ustring name, password;
  ASSERT_EQ(ProtoReadHeader(secret_in, length, command, version), 0);
  EXPECT_EQ(ProtoReadSection(secret_in, SPROTO_ID_USER, name), 7);
  ASSERT_GT(ProtoReadDecSection(secret_in, SPROTO_ID_PASSWD, password), 3);
  EXPECT_EQ(password, "s\xC3\xA9same");
}

TEST(ProtoTest, RefusesSectionsThatAreNotTheOneExpected) {
  std::uint64_t number = 0;
  std::uint32_t narrow = 0;
  ustring text;
  Input other(Bytes({7, 0, 1, 'x'}));
  EXPECT_EQ(ProtoReadSection(other, SPROTO_ID_SID, number), Errors::ERR_PROTO);
  Input untouched(Bytes({9, 0, 0, 0, 0, 0, 0, 0, 5}));
  EXPECT_EQ(ProtoReadSection(untouched, SPROTO_ID_SID, narrow), Errors::ERR_PROTO);
  EXPECT_EQ(ProtoReadSection(untouched, SPROTO_ID_SID, text), Errors::ERR_PROTO);
  EXPECT_EQ(ProtoReadSection(untouched, SPROTO_ID_SID, number), 9);
  EXPECT_EQ(number, 5u);

  const std::string head = Bytes({7, 0x20});
  Input full(head + Bytes({0}) + std::string(8192, 'x'));
  EXPECT_EQ(ProtoReadSection(full, SPROTO_ID_PATH, text), 3 + 8192);
  Input longer(head + Bytes({1}) + std::string(8193, 'x'));
  EXPECT_EQ(ProtoReadSection(longer, SPROTO_ID_PATH, text), Errors::ERR_PROTO);
  Input cut_by_nul(Bytes({7, 0, 3, 'a', 0, 'b'}));
  EXPECT_EQ(ProtoReadSection(cut_by_nul, SPROTO_ID_PATH, text), 6);
  EXPECT_EQ(text, "a");

  MemoryChannel out;
  char buffer[4];
  EXPECT_EQ(ProtoWriteSection(out, SPROTO_ID_SID, std::uint32_t{1}), Errors::ERR_PROTO);
  EXPECT_EQ(ProtoWriteSection(out, 54, std::uint8_t{1}), Errors::ERR_PROTO);
  EXPECT_EQ(ProtoWriteVarData(out, nullptr, 1), Errors::ERR_INVAL);
  EXPECT_EQ(ProtoWriteVarData(out, "x", -1), Errors::ERR_INVAL);
  EXPECT_EQ(ProtoReadVarData(out, buffer, 0), Errors::ERR_INVAL);
  EXPECT_EQ(out.output(), "");
}

TEST(ProtoTest, SendsFilesInBlocks) {
  const TempFolder folder;
  const struct {
    std::size_t size, offset, blocks;
  } cases[] = {{0, 0, 0}, {8192, 0, 1}, {8193, 0, 2}, {20'000, 3, 3}, {100, 100, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.size);
    std::string content(c.size, '\0');
    for (std::size_t i = 0; i < c.size; ++i) content[i] = static_cast<char>(i / 3);
    test::WriteFile(folder / "from", content);
    test::WriteFile(folder / "to", content.substr(0, c.offset));
    MemoryChannel out;
    ASSERT_EQ(ProtoWriteFile2(out, true, folder / "from", c.offset), 0);
    EXPECT_EQ(out.output().size(), 2 + 9 + (c.size - c.offset) + 8 * c.blocks);
    Input in(out.output());
    bool is_delta = false;
    EXPECT_EQ(ProtoReadFile2(in, is_delta, folder / "to", c.offset), 0);
    EXPECT_TRUE(is_delta);
    EXPECT_EQ(test::ReadFile(folder / "to"), content);
  }
  MemoryChannel out;
  EXPECT_EQ(ProtoWriteFile2(out, false, folder / "from", 101), Errors::ERR_SYS);
  bool is_delta = false;
  MemoryChannel nothing;
  EXPECT_EQ(ProtoReadFile2(nothing, is_delta, folder / "to", 99), Errors::ERR_SYS);
  // Two bytes are announced and three come: not one beyond the announced size is stored.
  Input more(Bytes({25, 0, 21, 0, 0, 0, 0, 0, 0, 0, 2, 24, 0, 0, 0, 0, 22, 0, 3, 1, 2, 3}));
  EXPECT_EQ(ProtoReadFile(more, is_delta, folder / "to"), Errors::ERR_PROTO);
  EXPECT_EQ(test::ReadFile(folder / "to"), "");
}

TEST(ProtoTest, AsksForTlsOfNewAndOlderPeers) {
  const SSLServiceReq request{{3, 1, 3317}, 1};
  const struct { int code, result; } cases[] = {{0, 0}, {2, -7}, {10, -10}, {0x1000, -3}, {-1, -2}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.code);
    ScriptedPeer peer([&c](Visitor& visitor) {
      int command = 0;
      PObject asked;
      if (!visitor.ReadRequest(command, asked) || c.code < 0) return;
      EXPECT_EQ(command, SCMD_REQUEST_SSL_2);
      EXPECT_EQ(asked["action"].asString(), "encrypt_channel");
      EXPECT_EQ(asked["proto_ver"]["build"].asUInt32(), 3317u);
      EXPECT_EQ(asked["ssl_option"].asUInt32(), 1u);
      PObject answer = test::Alive(60);
      if (c.code != 0) answer["error"]["code"] = c.code;
      visitor.Answer(answer);
      visitor.Stall();
    });
    Channel channel;
    ASSERT_EQ(channel.Open("127.0.0.1", peer.port()), 0);
    EXPECT_EQ(ProtoWriteSSLServiceRequest2(channel, request), c.result);
  }

  const std::string header = Bytes({0x25, 0x52, 0x18, 0x14, 70, SCMD_REQUEST_SSL_2, 0, 0, 1});
  const std::string option = Bytes({46, 0, 0, 0, 5});
  SSLServiceResponse response;
  Input accepted(header + Bytes({1}) + option);
  EXPECT_EQ(ProtoWriteSSLServiceRequest2OLD(accepted, request, response), 0);
  EXPECT_EQ(response.misc_response, 5u);
  EXPECT_EQ(accepted.output().substr(8, 12), Bytes({41, 0, 8}) + "3.1.3317" + Bytes({45}));
  Input too_old(header + Bytes({10}));
  EXPECT_EQ(ProtoWriteSSLServiceRequest2OLD(too_old, request, response), Errors::ERR_VERSION);
  Input other(header + Bytes({3}) + option);
  EXPECT_EQ(ProtoWriteSSLServiceRequest2OLD(other, request, response), Errors::ERR_SYS);
}

TEST(ProtoTest, RunsExchangesOnAChannelOfTheCallers) {
  const std::string header = Bytes({0x25, 0x52, 0x18, 0x14, 70, SCMD_TEST_CONN, 0, 0, 1});
  std::uint8_t version = 0;
  ustring serial, server;
  Input good(header + Bytes({1, 28, 70, 27, 0, 1, 's', 29, 0, 1, 'i'}));
  EXPECT_EQ(ProtoTestConnection(good, version, serial, server), 0);
  EXPECT_EQ(version, 70);
  EXPECT_EQ(server, "i");
  Input refused(header + Bytes({12}));
  EXPECT_EQ(ProtoTestConnection(refused, version, serial, server), Errors::ERR_AUTH);

  ScriptedPeer peer([](Visitor& visitor) {
    std::string asked(8, '\0');
    if (visitor.channel.Read(asked.data(), asked.size()) != 0) return;
    EXPECT_EQ(asked[5], SCMD_TEST_CONN);
    visitor.Write(asked + Bytes({1, 1, 28, 71, 27, 0, 0, 29, 0, 1, 'j'}));
    visitor.Stall();
  });
  const auto test = [&](const TunnelInfo& tunnel) {
    return ProtoTestConnectionProxyTunnel("127.0.0.1", peer.port(), nullptr, &tunnel, false,
                                          version, serial, server);
  };
  EXPECT_EQ(test({false, "192.0.2.1", 1}), 0);
  EXPECT_EQ(server, "j");
  EXPECT_EQ(test({true, "127.0.0.1", 1}), Errors::ERR_IO);  // nobody there
  EXPECT_EQ(peer.accepted(), 1);

  PStream stream;
  MemoryChannel unused;
  PObject request, response;
  request["view_id"] = 1;
  request["target_sync_id"] = 2;
  request["username"] = "anna";
  EXPECT_EQ(ProtoDownload(unused, stream, request, response), -1);
  EXPECT_EQ(ProtoShareLink(unused, stream, request, response), -1);
  EXPECT_EQ(unused.output(), "");

  request["session"] = "token";
  MemoryChannel answers;
  PObject busy;
  busy["type"] = "keep_alive";
  busy["alive"] = 90;
  ASSERT_EQ(stream.Send(answers, busy), 0);
  ASSERT_EQ(stream.Send(answers, busy), 0);
  ASSERT_EQ(stream.Send(answers, request), 0);
  Input in(answers.output());
  ASSERT_EQ(ProtoDownload(in, stream, request, response), 0);
  EXPECT_EQ(response.toString(), request.toString());
  EXPECT_EQ(in.output()[5], SCMD_EVT_SEND_2);
  EXPECT_EQ(ProtoDownload(in, stream, request, response), Errors::ERR_IO);
}

}  // namespace
}  // namespace tolven
