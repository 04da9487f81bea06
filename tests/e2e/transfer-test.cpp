// What goes over the wire, by count.
#include <filesystem>
#include <string>

#include "e2e/sync-fixture.h"
#include "support/forwarder.h"

namespace tolven::test {
namespace {

constexpr std::size_t kMegabyte = 1U << 20;

TEST_F(Sync, OnlyWhatChangedGoesOverTheWire) {
  Forwarder wire_a(server_.port), wire_b(server_.port);
  ClientProcess a(server_, "a", {.port = wire_a.port()});
  ClientProcess b(server_, "b", {.port = wire_b.port()});
  std::string content = Noise(6 * kMegabyte, 3);
  Write(a, "large", content);
  ExpectBoth(a, b, {{"large", content}});
  EXPECT_GT(wire_a.up(), content.size());
  EXPECT_GT(wire_b.down(), content.size());
  wire_a.Reset();
  wire_b.Reset();
  content.insert(content.size() / 2, "something in the middle");
  Replace(a, "large", content);
  ExpectBoth(a, b, {{"large", content}});
  EXPECT_LT(wire_a.up(), kMegabyte / 10);
  EXPECT_LT(wire_b.down(), kMegabyte / 10);
  // The other way, against the signature that a download has left.
  ASSERT_TRUE(Eventually([&] { return b.Version("/large") == a.Version("/large"); }));
  content.replace(100, 10, "0123456789");
  Replace(b, "large", content);
  ExpectBoth(a, b, {{"large", content}});
  EXPECT_LT(wire_b.up(), kMegabyte / 10);
}

TEST_F(Sync, ARenamedFolderTakesItsContentAlong) {
  Forwarder wire_a(server_.port), wire_b(server_.port);
  ClientProcess a(server_, "a", {.port = wire_a.port()});
  ClientProcess b(server_, "b", {.port = wire_b.port()});
  constexpr int kFiles = 12;
  Tree before{{"old", "<dir>"}}, after{{"new", "<dir>"}};
  for (int i = 0; i < kFiles; ++i) {
    const std::string name = "/" + std::to_string(i);
    before["old" + name] = after["new" + name] = Noise(kMegabyte, static_cast<std::uint64_t>(i));
    Write(a, "old" + name, before["old" + name]);
  }
  ExpectBoth(a, b, before);
  wire_a.Reset();
  wire_b.Reset();
  fs::rename((a / "old").str(), (a / "new").str());
  ExpectBoth(a, b, after);
  EXPECT_LT(wire_a.up(), kMegabyte / 4);
  EXPECT_LT(wire_b.down(), kMegabyte / 4);
}

TEST_F(Sync, ABrokenTransferGoesOnWithItsTail) {
  Forwarder wire_a(server_.port), wire_b(server_.port);
  ClientProcess a(server_, "a", {.port = wire_a.port()});
  const std::string content = Noise(12 * kMegabyte, 5);
  wire_a.CutAfterUp(8 * kMegabyte);
  Replace(a, "large", content);
  ASSERT_TRUE(Eventually([&] { return a.Version("/large") > 0; }));
  EXPECT_TRUE(wire_a.WasCut());
  EXPECT_LT(wire_a.up(), 14 * kMegabyte);
  wire_b.CutAfterDown(8 * kMegabyte);
  ClientProcess b(server_, "b", {.port = wire_b.port()});
  ExpectBoth(a, b, {{"large", content}});
  EXPECT_TRUE(wire_b.WasCut());
  EXPECT_LT(wire_b.down(), 14 * kMegabyte);
}

}  // namespace
}  // namespace tolven::test
