// Windows paths as text, on every system.

#include "platform/long-path.h"

#include <gtest/gtest.h>

#include <map>

namespace tolven::platform {
namespace {

TEST(LongPath, Forms) {
  const struct {
    const char* path;
    const char* extended;
    std::size_t root;  // of `path`
  } cases[] = {
      {"C:/dir//sub/file", R"(\\?\C:\dir\sub\file)", 3},
      {R"(C:\dir\)", R"(\\?\C:\dir)", 3},
      {"C:", R"(\\?\C:\)", 2},
      {"C:/", R"(\\?\C:\)", 3},
      {"D://a", R"(\\?\D:\a)", 4},  // a root joined with a path
      {R"(\\?\C:\dir/x)", R"(\\?\C:\dir\x)", 7},
      {"//?/C:/dir", R"(\\?\C:\dir)", 7},
      {"//server/share/dir", R"(\\?\UNC\server\share\dir)", 15},
      {R"(\\server\share)", R"(\\?\UNC\server\share)", 14},
      {R"(\\?\unc\server\share\d)", R"(\\?\UNC\server\share\d)", 21},
      {"relative/x", R"(\\?\relative\x)", 0},
  };
  for (const auto& c : cases) {
    const ustring extended = get_extened_path(c.path);
    EXPECT_EQ(extended, c.extended) << c.path;
    EXPECT_EQ(get_extened_path(extended), extended);
    EXPECT_EQ(get_extened_path(PlainPath(extended)), extended);
    EXPECT_EQ(WindowsRootLength(c.path), c.root) << c.path;
  }
  EXPECT_EQ(PlainPath(R"(\\?\UNC\server\share\d)"), R"(\\server\share\d)");
  EXPECT_EQ(PlainPath(R"(\\?\C:\d)"), R"(C:\d)");
}

TEST(LongPath, NamesThatCannotBeHeld) {
  for (const char* name : {"a", "a b", ".a", "a.b.c", "console", "com", "COM10", "nula", "\xC3\xA4",
                           "lpt\xC3\xA4", "a'b", "#x~1"}) {
    EXPECT_TRUE(IsWindowsName(name)) << name;
    EXPECT_TRUE(IsWindowsPath(std::string("C:/dir/") + name + "/x")) << name;
  }
  for (const char* name :
       {"a:b",  "a?",       "*",           "a<",     "a>",  "a|",      "a\"",
        "a.",   "a ",       "a\tb",        "a\x1F",  "con", "Nul.txt", "aux .x.y",
        "COM1", "lpt9.log", "com\xC2\xB2", "CONIN$", "..",  "."}) {
    EXPECT_FALSE(IsWindowsName(name)) << name;
    EXPECT_FALSE(IsWindowsPath(std::string("C:/dir/") + name + "/x")) << name;
  }
  EXPECT_TRUE(IsWindowsName(std::string(255, 'n')));
  EXPECT_FALSE(IsWindowsName(std::string(256, 'n')));
  std::string emoji;
  for (int i = 0; i < 127; ++i) emoji += "\xF0\x9F\x98\x80";  // 254 units
  EXPECT_TRUE(IsWindowsName(emoji + "x"));
  EXPECT_FALSE(IsWindowsName(emoji + "xy"));
  EXPECT_TRUE(IsWindowsPath(R"(\\?\C:\dir)"));
  EXPECT_TRUE(IsWindowsPath("//server/share/dir"));
  EXPECT_FALSE(IsWindowsPath("C:/a:b"));
  std::string deep = "C:/";
  while (deep.size() < 32700) deep += "dir/";
  EXPECT_TRUE(IsWindowsPath(deep));
  EXPECT_FALSE(IsWindowsPath(deep + std::string(100, 'n')));
}

TEST(LongPath, Spelling) {
  EXPECT_TRUE(DifferOnlyInCase("C:/dir/\xC3\xA9t\xC3\xA9", R"(C:\DIR\)"
                                                           "\xC3\x89t\xC3\xA9"));
  EXPECT_FALSE(DifferOnlyInCase("C:/dir/a", R"(C:\dir\a\)")) << "the same spelling";
  EXPECT_FALSE(DifferOnlyInCase("C:/a", "C:/ab"));
  EXPECT_FALSE(
      DifferOnlyInCase("C:/stra\xC3\x9F"
                       "e",
                       "C:/STRASSE"));

  const std::map<std::string, std::string> disk = {
      {R"(C:\PROGRA~1)", "Program Files"},
      {R"(C:\Program Files\APP)", "App"},
      {R"(\\server\share\X)", "x"},
  };
  const NameLookUp look_up = [&disk](const std::string& path, std::string& name) {
    const auto found = disk.find(path);
    if (found != disk.end()) name = found->second;
    return found != disk.end();
  };
  ustring real;
  EXPECT_TRUE(SpellPath("C:/PROGRA~1/APP/", look_up, real));
  EXPECT_EQ(real, R"(C:\Program Files\App)");
  EXPECT_TRUE(SpellPath(R"(\\?\UNC\server\share\X)", look_up, real));
  EXPECT_EQ(real, R"(\\server\share\x)");
  EXPECT_TRUE(SpellPath("C:/", look_up, real));
  EXPECT_EQ(real, R"(C:\)");
  EXPECT_FALSE(SpellPath("C:/PROGRA~1/none", look_up, real));
}

}  // namespace
}  // namespace tolven::platform
