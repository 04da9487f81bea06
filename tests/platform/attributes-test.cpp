// What Windows attributes, times, masks and command lines mean, on every system.
#include "platform/attributes.h"

#include <gtest/gtest.h>

#include <limits>

#include "platform/command-line.h"
#include "platform/volume-mask.h"

namespace tolven::platform {
namespace {

TEST(AttributesTest, TellTheKindAndTheFlags) {
  const struct {
    std::uint32_t attributes;
    NodeKind kind;
    std::uint32_t mode;
  } cases[] = {
      {0x80, NodeKind::kFile, 0666},      {0x21, NodeKind::kFile, 0444},
      {0x10, NodeKind::kDirectory, 0777}, {0x11, NodeKind::kDirectory, 0777},
      {0x410, NodeKind::kLink, 0666},  // a junction
      {0x420, NodeKind::kLink, 0666},     {0x440, NodeKind::kDevice, 0666},
  };
  for (const auto& c : cases) {
    const NodeInfo info = InfoFromAttributes(c.attributes);
    EXPECT_EQ(info.kind, c.kind) << c.attributes;
    EXPECT_EQ(info.mode, c.mode) << c.attributes;
  }
  const NodeInfo all = InfoFromAttributes(0x1107);
  EXPECT_TRUE(all.read_only && all.hidden && all.system && all.temporary && all.offline);
  const NodeInfo none = InfoFromAttributes(0x20);
  EXPECT_FALSE(none.read_only || none.hidden || none.system || none.temporary || none.offline);
}

TEST(AttributesTest, TimesGoThereAndBack) {
  for (const std::int64_t ns : {std::int64_t{0}, std::int64_t{1'500'000'000'123'456'700},
                                std::int64_t{-100}, std::int64_t{-1'500'000'000}}) {
    const std::uint64_t time = ToFileTime(ns);
    EXPECT_EQ(
        FromFileTime(static_cast<std::uint32_t>(time >> 32), static_cast<std::uint32_t>(time)), ns);
  }
  EXPECT_EQ(ToFileTime(0), 116444736000000000u);
  EXPECT_EQ(ToFileTime(-1), 116444736000000000u - 1) << "what is not whole goes to the past";
  EXPECT_EQ(FromFileTime(0xFFFFFFFF, 0xFFFFFFFF), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(FromFileTime(0, 0), std::numeric_limits<std::int64_t>::min());
}

TEST(AttributesTest, TheLowestDriveOfABroadcastCounts) {
  EXPECT_EQ(LetterOfMask(1), 'A');
  EXPECT_EQ(LetterOfMask(0b110000), 'E');
  EXPECT_EQ(LetterOfMask(1u << 25), 'Z');
  EXPECT_EQ(LetterOfMask(0), '[');
  EXPECT_EQ(LetterOfMask(1u << 26), '[');
}

TEST(AttributesTest, CommandLinesKeepTheirWords) {
  EXPECT_EQ(JoinCommandLine({"a.exe", "b c", "", R"(d"e)", R"(C:\x\)", R"(C:\a b\)", R"(\"q)"}),
            R"(a.exe "b c" "" "d\"e" C:\x\ "C:\a b\\" "\\\"q")");
}

}  // namespace
}  // namespace tolven::platform
