// The administrator's commands, by running the real program.
#include <gtest/gtest.h>

#include <string>

#include "support/program.h"
#include "support/temp-folder.h"

namespace tolven {
namespace {

class ServerProgram {
 public:
  // What it prints; the exit status goes to `status`.
  std::string Run(const std::string& words) {
    const test::Outcome outcome =
        test::RunLine(SERVER, words + " --data " + folder_.path() + "/server");
    status = outcome.status;
    return outcome.output;
  }
  const test::TempFolder& folder() const { return folder_; }
  int status = -1;

 private:
  test::TempFolder folder_;
};

TEST(ServerAdmin, SetsUpAServerAndTellsOfIt) {
  ServerProgram server;
  EXPECT_NE(server.Run("ls").find("init"), std::string::npos);
  EXPECT_EQ(server.status, 1);
  server.Run("init");
  EXPECT_EQ(server.status, 0);
  server.Run("user add ada --uid 1000 --group 100 --admin");
  EXPECT_EQ(server.status, 0);
  server.Run("user add ada");
  EXPECT_EQ(server.status, 1);
  EXPECT_EQ(server.Run("user add bob"), "user bob added, its uid is 1001\n");
  EXPECT_EQ(server.Run("session ada").size(), 65U);
  server.Run("session eve");
  EXPECT_EQ(server.status, 1);
  EXPECT_EQ(server.Run("view add team --quota 1000 --json"), "{\"id\":1,\"name\":\"team\"}\n");
  EXPECT_NE(server.Run("ls").find("view\tteam\tid 1\t0 bytes"), std::string::npos);
  EXPECT_NE(server.Run("acl set team / --user 1001=r --everyone none --json").find("\"acl\""),
            std::string::npos);
  server.Run("acl set team / --user 1001=everything");
  EXPECT_EQ(server.status, 1);
  server.Run("acl set team /missing --everyone rw");
  EXPECT_EQ(server.status, 1);
  test::WriteFile(server.folder() / "one.filter", "[File]\nblack_ext=\"x\"\n");
  server.Run("profile set ada " + (server.folder() / "one.filter").str());
  EXPECT_EQ(server.status, 0);
  EXPECT_EQ(server.Run("log team").substr(0, 2), "2\t");  // the list was a change of the root
  server.Run("restore team /missing --version 1");
  EXPECT_EQ(server.status, 1);
  EXPECT_EQ(server.Run("check"), "0 contents, 0 unused, 0 problems\n");
  for (const char* command : {"serve", "user add", "acl set", "check"}) {
    EXPECT_NE(server.Run(std::string(command) + " --help").find("--data"), std::string::npos);
    EXPECT_EQ(server.status, 0);
  }
  server.Run("serve --listen nowhere:port");
  EXPECT_EQ(server.status, 1);
}

}  // namespace
}  // namespace tolven
