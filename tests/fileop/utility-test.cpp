// Codecs against published vectors and against results of OpenSSL's command line.

#include "lib/utility.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <set>
#include <thread>

#include "lib/critical-section.h"
#include "lib/sf-file.h"
#include "lib/temp-file.h"
#include "lib/tmp-name-gen.h"
#include "support/temp-folder.h"

namespace tolven {
namespace {

using test::TempFolder;

TEST(Utility, Base64AndMd5Vectors) {
  const std::pair<const char*, const char*> vectors[] = {
      {"", ""},
      {"f", "Zg=="},
      {"fo", "Zm8="},
      {"foo", "Zm9v"},
      {"abcd", "YWJjZA=="},
      {"foobar", "Zm9vYmFy"},
      {"\xff\xfe", "//4="},
  };
  for (const auto& [plain, coded] : vectors) {
    EXPECT_STREQ(SzBase64EncBuffer(plain, std::strlen(plain)).get(), coded);
    std::array<char, 16> out{};
    std::size_t size = out.size();
    EXPECT_EQ(EncBase64Dec(coded, std::strlen(coded), out.data(), size), 1);
    EXPECT_EQ(std::string(out.data(), size), plain);
  }
  EXPECT_STREQ(SzBase64EncOneLine("ab\0cd", 5).get(), "YWI=");
  EXPECT_EQ(SzBase64EncBuffer(nullptr, 1), nullptr);
  const std::string long_text(5000, 'x');
  EXPECT_LT(std::strlen(SzBase64EncBuffer(long_text.data(), long_text.size()).get()), 3072u);

  std::array<char, 2> small{};
  std::size_t size = small.size();
  EXPECT_EQ(EncBase64Dec("Zm9v", 4, small.data(), size), 0);
  size = small.size();
  EXPECT_EQ(EncBase64Dec("Z*", 2, small.data(), size), 0);
  EXPECT_EQ(EncBase64Dec(nullptr, 0, small.data(), size), 0);

  EXPECT_EQ(HashMD5(""), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(HashMD5("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
}

TEST(Utility, Passwords) {
  // From openssl enc -bf-cfb -provider legacy, given the key four times over: the cipher repeats a
  // short key.
  ustring coded, plain;
  SyncPassEnc("hello world", coded);
  EXPECT_EQ(coded, "KghZyXwrWnz4v1I=");
  for (const char* text :
       {"", "a", "hello world", "p\xC3\xA4ss\nword", "0123456789abcdef0123456789"}) {
    SyncPassEnc(text, coded);
    SyncPassDec(coded, plain);
    EXPECT_EQ(plain, text);
  }
  SyncPassDec("no*base64", plain);
  EXPECT_TRUE(plain.empty());
}

TEST(Utility, UserNamesAndWideText) {
  const std::tuple<const char*, const char*, const char*> cases[] = {{"ACME/joe", "ACME", "joe"},
                                                                     {"ACME\\joe", "ACME", "joe"},
                                                                     {"a/b\\c", "a", "b\\c"},
                                                                     {"ACME/", "ACME", ""},
                                                                     {"joe", "", "joe"}};
  for (const auto& [text, domain_wanted, user_wanted] : cases) {
    ustring user = text, domain = "old";
    ParseUsrName(user, domain);
    EXPECT_EQ(user, user_wanted);
    EXPECT_EQ(domain, domain_wanted);
  }
  std::u16string wide;
  std::string narrow;
  EXPECT_EQ(UTF8ToNativeStr("h\xC3\xA9\xF0\x9F\x98\x80", wide), 0);
  EXPECT_EQ(wide, u"h\u00e9\U0001F600");
  EXPECT_EQ(NativeStrToUTF8(wide, narrow), 0);
  EXPECT_EQ(narrow, "h\xC3\xA9\xF0\x9F\x98\x80");
  EXPECT_EQ(UTF8ToNativeStr("\xFF", wide), -1);
  EXPECT_EQ(UTF8ToNativeStr("", wide), 0);
  EXPECT_EQ(UTF8ToNativeStr(std::string(8193, 'x'), wide), -1);
  EXPECT_EQ(NativeStrToCodePage(u"abc", narrow), 0);
  EXPECT_EQ(narrow, "abc");
  EXPECT_EQ(CodePageToNativeStr(narrow, wide), 0);
  EXPECT_EQ(wide, u"abc");
  EXPECT_EQ(CodePageToNativeStr(std::string(8193, 'x'), wide), -1);
  ustring host;
  EXPECT_EQ(GetSysHostName(host), 0);
  EXPECT_FALSE(host.empty());
}

TEST(TempNames, AreSafeAndDifferAcrossThreads) {
  std::array<std::vector<std::string>, 4> drawn;
  std::vector<std::thread> threads;
  for (auto& names : drawn) {
    threads.emplace_back([&names] {
      for (int i = 0; i < 2000; ++i) {
        names.push_back(TmpNameGen::getInstance().getTmpName().str());
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::set<std::string> all;
  for (const auto& names : drawn) all.insert(names.begin(), names.end());
  EXPECT_EQ(all.size(), 8000u);
  for (const std::string& name : all) {
    EXPECT_EQ(name.size(), 8u);
    EXPECT_EQ(name.find_first_not_of("0123456789abcdefghijklmnopqrstuvwxyz"
                                     "ABCDEFGHIJKLMNOPQRSTUVWXYZ-_"),
              std::string::npos);
  }
}

TEST(TempFiles, LiveAsLongAsTheirHolders) {
  const TempFolder folder;
  const auto count = [&folder] {
    return std::distance(std::filesystem::directory_iterator(folder.path()), {});
  };
  {
    TempFile first{ustring(folder.path())};
    EXPECT_EQ(first.create(), 0);
    EXPECT_EQ(first.create(), -1);
    {
      const TempFile copy = first;
      TempFile third;
      third = copy;
      const TempFile& itself = third;
      third = itself;
      EXPECT_EQ(third.getPath(), first.getPath());
    }
    EXPECT_EQ(count(), 1);
    TempFile other{ustring(folder.path())};
    EXPECT_EQ(other.create(), 0);
    EXPECT_EQ(count(), 2);
    other = first;  // the sole holder of its own file gives it up
    EXPECT_EQ(count(), 1);
    EXPECT_EQ(first.remove(), 0);
    EXPECT_EQ(first.create(), 0);
    other = TempFile();  // has no share in the new file
  }
  EXPECT_EQ(count(), 0);
  {
    TempFile kept{ustring(folder.path())};
    EXPECT_EQ(kept.create(), 0);
    kept.convert_permanent();
  }
  EXPECT_EQ(count(), 1);
  SFFile plain{ustring(folder.path())};
  EXPECT_EQ(plain.create(), 0);
  const ustring path = plain.getPath();
  EXPECT_EQ(plain.create(), 0);
  EXPECT_EQ(plain.getPath(), path);
  test::WriteFile(path, "1234");
  EXPECT_EQ(plain.getSize(), 4u);
  EXPECT_EQ(plain.remove(), 0);
  EXPECT_EQ(count(), 1);
}

TEST(CriticalSections, StayBalanced) {
  Mutex mutex;
  CriticalSection none(static_cast<Mutex*>(nullptr));
  none.start();
  EXPECT_FALSE(none.held());
  EXPECT_FALSE(CriticalSection(3).held());
  {
    CriticalSection section(&mutex);
    section.start();
    section.start();
    EXPECT_TRUE(section.held());
    section.end();
    section.end();
    section.start();
  }
  mutex.lock();  // would hang if the section had kept it
  mutex.unlock();
}

}  // namespace
}  // namespace tolven
