#include <gtest/gtest.h>

#include <filesystem>

#include "client/core/resume-trans-mgr.h"
#include "platform/fake-clock.h"
#include "support/temp-folder.h"

namespace tolven {
namespace {

class ResumeTest : public testing::Test {
 protected:
  ResumeTest() : before_(platform::SetClock(&clock_)) {
    for (const char* dir : {"work", "work2"})
      std::filesystem::create_directory((folder_ / dir).str());
  }
  ~ResumeTest() override { platform::SetClock(before_); }

  PObject Binary(const ustring& path) {
    test::WriteFile(path, "x");
    PObject object;
    object = PObject::binary_type{0, 1, path};
    return object;
  }
  // A job whose files are named after its token.
  ResumeTransMgr::CachedJob Make(const std::string& token) {
    PObject req, resp;
    req["file"]["data"] = Binary(folder_ / ("user-" + token));
    resp["file"]["data"] = Binary(folder_ / ("work/" + token));
    test::WriteFile(folder_ / ("sign-" + token), "x");
    ResumeTransMgr::CachedJob job;
    ResumeTransMgr::InitialCachedJob(ustring(token), folder_ / ("sign-" + token), folder_ / "work",
                                     req, resp, job);
    return job;
  }
  bool Exists(const std::string& name) { return std::filesystem::exists((folder_ / name).str()); }
  // The files that the job owns.
  int Owned(const std::string& token) { return Exists("work/" + token) + Exists("sign-" + token); }

  test::TempFolder folder_;
  platform::FakeClock clock_;
  platform::Clock* const before_;
  ResumeTransMgr cache_{2};
};

TEST_F(ResumeTest, KeepsFreshJobsWhenFull) {
  EXPECT_EQ(cache_.Push(Make("a")), 0);
  EXPECT_EQ(cache_.Push(Make("b")), 0);
  ResumeTransMgr::CachedJob again = Make("a");
  again.cached_req["new"] = 1;
  EXPECT_EQ(cache_.Push(again), -1);

  clock_.Advance(std::chrono::seconds(120));
  EXPECT_EQ(cache_.Push(Make("c")), 0);
  EXPECT_TRUE(cache_.HasToken("a") && !cache_.HasToken("c"));
  EXPECT_EQ(Owned("a") + Owned("c"), 4) << "files of a job that was not kept stay its caller's";
  clock_.Advance(std::chrono::seconds(1));
  EXPECT_EQ(cache_.Push(Make("c")), 0);
  EXPECT_TRUE(!cache_.HasToken("a") && cache_.HasToken("c") && cache_.Size() == 2);
  EXPECT_EQ(Owned("a"), 0);
  EXPECT_TRUE(Exists("user-a"));

  ResumeTransMgr::CachedJob taken;
  EXPECT_EQ(cache_.Take("a", taken), -1);
  ASSERT_EQ(cache_.Take("b", taken), 0);
  EXPECT_EQ(taken.cached_resp["file"]["data"].asBinary().path, folder_ / "work/b");
  EXPECT_EQ(taken.upload_sign_file, folder_ / "sign-b");
  EXPECT_EQ(Owned("b"), 2);
  EXPECT_EQ(cache_.Push(taken), 0);
  cache_.Erase("c");
  EXPECT_EQ(Owned("c"), 0);
  cache_.Clear();
  EXPECT_TRUE(cache_.IsEmpty());
  EXPECT_EQ(Owned("b"), 0);
  EXPECT_EQ(ResumeTransMgr::GenToken(7, "/a|b", "Upload"), "7|/a|b|Upload");
}

TEST_F(ResumeTest, RemovesOnlyWhatLiesInTheWorkingDirectory) {
  ResumeTransMgr::CachedJob job = Make("a");
  for (const char* kept : {"work2/a", "work/../up"}) {
    PObject object;
    object["file"]["data"] = Binary(folder_ / kept);
    job.ClearPObject(object);
    EXPECT_TRUE(Exists(kept) && object.isNull());
  }
  PObject object;
  object["mac_attribute"]["data"] = Binary(folder_ / "mac");
  job.ClearPObject(object);
  EXPECT_FALSE(Exists("mac"));
  job.working_dir.clear();
  job.Clear();
  EXPECT_TRUE(Exists("work/a") && Exists("user-a") && !Exists("sign-a"));
}

}  // namespace
}  // namespace tolven
