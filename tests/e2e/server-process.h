// The real server with one user and one view, on a free port, until the object goes.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "platform/process.h"
#include "support/program.h"
#include "support/system.h"
#include "support/temp-folder.h"

namespace tolven::test {

class ServerProcess {
 public:
  // `words` are further ones of "serve".
  explicit ServerProcess(std::vector<ustring> words = {}) : words_(std::move(words)) {
    Admin("init");
    Admin("user add ada --uid 1000 --group 100");
    Admin("view add team");
    token = Admin("session ada");
    token.pop_back();
    Start();
  }
  // On a copy of the data of one that was stopped.
  struct Saved {
    std::string data, token;
  };
  explicit ServerProcess(const Saved& saved) : token(saved.token) {
    std::filesystem::copy(saved.data, Data(), std::filesystem::copy_options::recursive);
    Start();
  }
  ~ServerProcess() { Stop(); }
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  // Runs one of the administrator's commands and gives its output.
  std::string Admin(const std::string& words) {
    const Outcome outcome = RunLine(SERVER, words + " --data " + Data());
    EXPECT_EQ(outcome.status, 0) << words << ": " << outcome.output;
    return outcome.output;
  }

  // On the same port each time. A port of the range from which the system takes those of
  // connections might be gone when the server comes back.
  void Start() {
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!Launch()) {
      ASSERT_LT(std::chrono::steady_clock::now(), end) << ReadFile(folder_ / "output");
    }
    is_known_ = true;
  }
  void Stop() {
    int status = 0;
    (void)platform::process().Kill(child_);
    EXPECT_TRUE(platform::process().WaitForExit(child_, 60'000, status));
  }

  // With other words of "serve".
  void Restart(std::vector<ustring> words) {
    Stop();
    words_ = std::move(words);
    Start();
  }

  std::int64_t pid() const { return child_.pid; }
  // The folder that it keeps everything in.
  std::string Data() const { return folder_.path() + "/server"; }

  int port = 0;
  std::string token;

 private:
  // False when the server ended at once, as it does where its port is taken.
  bool Launch() {
    if (!is_known_) port = 10'000 + static_cast<int>(std::random_device()() % 9'000);
    const ustring output = folder_ / "output";
    std::filesystem::remove(output.str());
    std::vector<ustring> command{ustring(SERVER), "serve",
                                 "--data",        ustring(Data()),
                                 "--listen",      ustring("127.0.0.1:" + std::to_string(port))};
    command.insert(command.end(), words_.begin(), words_.end());
    EXPECT_TRUE(platform::process().Spawn(command, output, child_).ok());
    int status = 0;
    while (ReadFile(output).find("listening on 127.0.0.1:") == std::string::npos) {
      if (platform::process().WaitForExit(child_, 5, status)) return false;
    }
    return true;
  }

  std::vector<ustring> words_;
  bool is_known_ = false;  // the port
  TempFolder folder_;
  platform::ChildProcess child_;
};

}  // namespace tolven::test
