// The object stream over real loopback channels: exact bytes, refused input, files.

#include "protocol/stream.h"

#include <gtest/gtest.h>

#include <thread>

#include "platform/fault-plan.h"
#include "platform/forwarding-files.h"
#include "support/channel-pair.h"
#include "support/temp-folder.h"

namespace tolven {
namespace {

using test::ChannelPair;
using test::ReadFile;
using test::TempFolder;
using test::WriteFile;

std::string Bytes(std::initializer_list<int> values) {
  std::string bytes;
  for (const int value : values) bytes += static_cast<char>(value);
  return bytes;
}

std::string Encoded(const PObject& object) {
  ChannelPair pair;
  PStream stream;
  int sent = -1;
  std::thread sender([&] {
    sent = stream.Send(pair.a, object);
    pair.a.Close();
  });
  std::string bytes;
  for (char byte = 0; pair.b.Read(&byte, 1) == 0;) bytes += byte;
  sender.join();
  EXPECT_EQ(sent, PStream::ERR_OK);
  return bytes;
}

int Decoded(const std::string& bytes, PObject& object, const PStream::Limits& limits = {},
            const ustring& folder = "") {
  ChannelPair pair;
  std::thread sender([&] {
    pair.a.Write(bytes.data(), bytes.size());
    pair.a.FlushWrite(0);
    pair.a.Close();
  });
  PStream stream;
  stream.SetLimits(limits);
  stream.SetDefaultRecvLocation(folder);
  const int result = stream.Recv(pair.b, object);
  pair.b.Close();
  sender.join();
  return result;
}

TEST(Stream, EncodesEachTypeInTheFewestBytes) {
  const std::pair<std::uint64_t, std::string> integers[] = {
      {0, Bytes({1, 1, 0})},
      {255, Bytes({1, 1, 255})},
      {256, Bytes({1, 2, 1, 0})},
      {65536, Bytes({1, 4, 0, 1, 0, 0})},
      {std::uint64_t{1} << 32, Bytes({1, 8, 0, 0, 0, 1, 0, 0, 0, 0})},
  };
  for (const auto& [value, bytes] : integers) EXPECT_EQ(Encoded(value), bytes);

  PObject map;
  map["b"] = "x";
  map["a"] = 300;
  const std::string told =
      Bytes({0x42, 0x10, 0, 1, 'a', 1, 2, 1, 0x2C, 0x10, 0, 1, 'b', 0x10, 0, 1, 'x', 0x40});
  EXPECT_EQ(Encoded(map), told);

  PObject mixed;
  mixed.asArray().resize(4);
  mixed.asArray()[1] = "";
  mixed.asArray()[2].asMap();
  mixed.asArray()[3]["__x"].asArray();
  const std::string rest = Bytes(
      {0x41, 0, 0, 0x10, 0, 0, 0x42, 0x40, 0x42, 0x10, 0, 2, '_', 'x', 0x41, 0x40, 0x40, 0x40});
  EXPECT_EQ(Encoded(mixed), rest);
}

TEST(Stream, FillsMapsInPlaceAndKeepsWhatDidNotCome) {
  PObject target;
  target["kept"] = 7;
  target["list"].asArray().emplace_back("first");
  target["a"] = "old";
  const std::string bytes =
      Bytes({0x42, 0x10, 0, 1, 'a', 1,    1,    5, 0x10, 0,   4, 'l', 'i', 's',
             't',  0x41, 1, 1, 9,   0x40, 0x10, 0, 1,    'a', 0, 0,   0x40});
  ASSERT_EQ(Decoded(bytes, target), PStream::ERR_OK);
  EXPECT_EQ(target.toString(), R"({"a": null, "kept": 7, "list": ["first", 9]})");
}

TEST(Stream, RefusesWhatIsNoTree) {
  const std::string map_with_integer_key = Bytes({0x42, 1, 1, 0});
  const std::pair<std::string, int> cases[] = {
      {Bytes({0x40}), PStream::ERR_STREAM},
      {Bytes({0x7F}), PStream::ERR_STREAM},
      {Bytes({0, 1}), PStream::ERR_STREAM},
      {Bytes({1, 9, 0, 0, 0, 0, 0, 0, 0, 0, 0}), PStream::ERR_STREAM},
      {map_with_integer_key, PStream::ERR_STREAM},
      // Contents without a place to go must not land at the root.
      {Bytes({0x30, 0, 0, 0, 0, 0, 0, 0, 1, 'x'}), PStream::ERR_SYS},
  };
  for (const auto& [bytes, result] : cases) {
    PObject object;
    EXPECT_EQ(Decoded(bytes, object, {}, "/"), result) << testing::PrintToString(bytes);
  }

  // A tree cut at any byte is an I/O failure, and whole it is none.
  PObject whole;
  whole["key"]["deep"].asArray().assign(2, PObject("text"));
  whole["n"] = 70000;
  const std::string bytes = Encoded(whole);
  for (std::size_t cut = 0; cut < bytes.size(); ++cut) {
    PObject object;
    EXPECT_EQ(Decoded(bytes.substr(0, cut), object), PStream::ERR_IO) << cut;
  }
  PObject object;
  EXPECT_EQ(Decoded(bytes, object), PStream::ERR_OK);
  EXPECT_EQ(object.toString(), whole.toString());
}

TEST(Stream, LimitsAndDepth) {
  PObject object;
  EXPECT_EQ(Decoded(std::string(200'000, 0x41), object, {100'000, 1 << 20, false}),
            PStream::ERR_STREAM);
  object.clear();
  const std::string deep = std::string(100'000, 0x41) + std::string(100'000, 0x40);
  ASSERT_EQ(Decoded(deep, object), PStream::ERR_OK);
  {
    const PObject copy = object;
    EXPECT_EQ(copy.toString().size(), 200'000u);
  }
  EXPECT_TRUE(Encoded(object) == deep);

  const std::string text = Bytes({0x10, 0, 4, 'a', 'b', 'c', 'd'});
  EXPECT_EQ(Decoded(text, object, {10, 6, true}), PStream::ERR_STREAM);
  EXPECT_EQ(Decoded(text, object, {10, 7, true}), PStream::ERR_OK);
  const std::string file = Bytes({0x30, 0, 0, 0, 0, 0, 0, 0, 0});
  EXPECT_EQ(Decoded(file, object, {10, 100, false}, "/nowhere"), PStream::ERR_STREAM);
}

TEST(Stream, RefusesLongTextsBeforeTheFirstByte) {
  ChannelPair pair;
  PStream stream;
  PObject object;
  object["a"] = 1;
  object["z"].asArray().emplace_back(ustring(std::string(65536, 'x')));
  EXPECT_EQ(stream.Send(pair.a, object), PStream::ERR_INPUT);
  object["z"].asArray()[0] = ustring(std::string(65535, 'x'));
  std::thread sender([&] { EXPECT_EQ(stream.Send(pair.a, object), PStream::ERR_OK); });
  PObject received;
  PStream other;
  EXPECT_EQ(other.Recv(pair.b, received), PStream::ERR_OK);
  sender.join();
  EXPECT_EQ(received.toString(), object.toString());
}

// Sends the slice and receives it into `target`; the result of Recv.
int Transfer(const PObject::binary_type& slice, PObject& target, PStream& receiver) {
  ChannelPair pair;
  PObject message;
  message["file"]["data"] = slice;
  PStream sender_stream;
  int sent = -1;
  std::thread sender([&] { sent = sender_stream.Send(pair.a, message); });
  const int result = receiver.Recv(pair.b, target);
  pair.b.Close();
  sender.join();
  if (result == PStream::ERR_OK) {
    EXPECT_EQ(sent, PStream::ERR_OK);
  }
  return result;
}

TEST(Stream, StoresContentsWhereTheCallerSays) {
  const TempFolder folder;
  std::string content(300'000, '\0');
  for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 7 + i / 256);
  WriteFile(folder / "source", content);
  const std::string old(200, 'o');

  struct Case {
    std::uint64_t offset, length;
    std::string kept;
  };
  const Case cases[] = {{0, 0, ""}, {0, 50, ""}, {200, 200, old}, {100, 200, old.substr(0, 100)}};
  for (const Case& c : cases) {
    WriteFile(folder / "target", old);
    PObject target;
    target["file"]["data"] = PObject::binary_type{c.offset, c.length, folder / "target"};
    PStream stream;
    ASSERT_EQ(Transfer({1000, 250'000, folder / "source"}, target, stream), PStream::ERR_OK);
    EXPECT_TRUE(ReadFile(folder / "target") == c.kept + content.substr(1000, 250'000));
    const PObject::binary_type& stored = target["file"]["data"].asBinary();
    EXPECT_EQ(stored.offset, c.offset + 250'000);
    EXPECT_EQ(stored.length, stored.offset);
  }

  PObject target;
  PStream stream;
  stream.SetDefaultRecvLocation(ustring(folder.path()));
  ASSERT_EQ(Transfer({0, 5, folder / "source"}, target, stream), PStream::ERR_OK);
  const PObject::binary_type& stored = target["file"]["data"].asBinary();
  EXPECT_EQ(ReadFile(stored.path), content.substr(0, 5));
  EXPECT_EQ(stored.path.find(folder.path()), 0u);
}

TEST(Stream, BrokenTransfersTellWhatIsGood) {
  const TempFolder folder;
  // The sender announces more than it sends.
  PObject target;
  target["f"] = PObject::binary_type{0, 0, folder / "cut"};
  const std::string bytes =
      Bytes({0x42, 0x10, 0, 1, 'f', 0x30, 0, 0, 0, 0, 0, 2, 0, 0}) + std::string(100'000, 'd');
  EXPECT_EQ(Decoded(bytes, target), PStream::ERR_IO);
  EXPECT_EQ(target["f"].asBinary().length, 81920u);
  EXPECT_EQ(ReadFile(folder / "cut").size(), 81920u);

  // The file shrank after its length was told: the peer must not wait for the rest for ever.
  WriteFile(folder / "short", "12345");
  ChannelPair pair;
  PStream stream;
  PObject message;
  message["f"] = PObject::binary_type{0, 10, folder / "short"};
  EXPECT_EQ(stream.Send(pair.a, message), PStream::ERR_IO);
  ChannelPair fresh;
  message["f"] = PObject::binary_type{0, 10, folder / "missing"};
  EXPECT_EQ(stream.Send(fresh.a, message), PStream::ERR_SYS);
}

TEST(Stream, FullDisk) {
  const TempFolder folder;
  WriteFile(folder / "source", std::string(300'000, 's'));
  platform::FaultPlan plan;
  platform::ForwardingFiles faulty(platform::files(), plan.hook());
  const std::pair<platform::ErrorKind, int> cases[] = {
      {platform::ErrorKind::kNoSpace, PStream::ERR_DISKFULL},
      {platform::ErrorKind::kOther, PStream::ERR_SYS}};
  for (const auto& [kind, result] : cases) {
    plan.Clear();
    plan.FailNth("Write", 3, kind);
    platform::SetFiles(&faulty);
    PObject target;
    target["file"]["data"] = PObject::binary_type{0, 0, folder / "target"};
    PStream stream;
    EXPECT_EQ(Transfer({0, 300'000, folder / "source"}, target, stream), result);
    platform::SetFiles(nullptr);
    EXPECT_EQ(target["file"]["data"].asBinary().length, 2 * 81920u);
  }

  // Told at the end alone.
  const std::string one_byte = Bytes({0x30, 0, 0, 0, 0, 0, 0, 0, 1, 'x'});
  for (const auto& [kind, result] : cases) {
    plan.Clear();
    plan.FailNth("Close", 1, kind);
    platform::SetFiles(&faulty);
    PObject target;
    target = PObject::binary_type{0, 0, folder / "target"};
    EXPECT_EQ(Decoded(one_byte, target), result);
    platform::SetFiles(nullptr);
  }

  // The file was cut and cannot be opened again: nothing behind the cut counts as good.
  plan.Clear();
  plan.FailNth("Open", 2, platform::ErrorKind::kAccessDenied);
  WriteFile(folder / "target", std::string(200, 'o'));
  platform::SetFiles(&faulty);
  PObject target;
  target = PObject::binary_type{100, 200, folder / "target"};
  EXPECT_EQ(Decoded(one_byte, target), PStream::ERR_SYS);
  platform::SetFiles(nullptr);
  EXPECT_EQ(target.asBinary().length, ReadFile(folder / "target").size());
}

TEST(Stream, ProgressNamesTheItem) {
  const TempFolder folder;
  ChannelPair pair;
  PStream stream;
  PObject target;
  target["file"]["data"] = PObject::binary_type{0, 0, folder / "target"};
  int result = -1;
  std::thread receiver([&] { result = stream.Recv(pair.b, target); });
  const std::string head = Bytes({0x42, 0x10, 0,   4,    'f', 'i', 'l', 'e', 0x42, 0x10, 0, 4, 'd',
                                  'a',  't',  'a', 0x30, 0,   0,   0,   0,   0,    2,    0, 0});
  const std::string content(0x20000, 'c');
  pair.a.Write((head + content.substr(0, 0x18000)).data(), head.size() + 0x18000);
  pair.a.FlushWrite(0);

  ustring item;
  std::uint64_t sent = 0, size = 0;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (sent == 0 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::yield();
    stream.GetStatus(item, sent, size);
  }
  EXPECT_EQ(item, "file.data");
  EXPECT_EQ(sent, 0x14000u);
  EXPECT_EQ(size, 0x20000u);

  const std::string rest = content.substr(0x18000) + Bytes({0x40, 0x40});
  pair.a.Write(rest.data(), rest.size());
  pair.a.FlushWrite(0);
  receiver.join();
  EXPECT_EQ(result, PStream::ERR_OK);
  EXPECT_TRUE(ReadFile(folder / "target") == content);
  stream.GetStatus(item, sent, size);
  EXPECT_TRUE(item.empty() && sent == 0 && size == 0);
}

}  // namespace
}  // namespace tolven
