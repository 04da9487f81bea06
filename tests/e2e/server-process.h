// The real server with one user and one view, on a free port, until the object goes.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/process.h"
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
  ~ServerProcess() { Stop(); }
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  // Runs one of the administrator's commands and gives its output.
  std::string Admin(const std::string& words) {
    const std::string command = std::string(SERVER) + " " + words + " --data " + Data();
    FILE* const pipe = popen(command.c_str(), "r");
    std::string output;
    std::array<char, 4096> buffer;
    while (const std::size_t got = std::fread(buffer.data(), 1, buffer.size(), pipe)) {
      output.append(buffer.data(), got);
    }
    EXPECT_EQ(pclose(pipe), 0) << command;
    return output;
  }

  void Start() {
    const ustring output = folder_ / "output";
    std::filesystem::remove(output.str());
    std::vector<ustring> command{ustring(SERVER), "serve",
                                 "--data",        ustring(Data()),
                                 "--listen",      ustring("127.0.0.1:" + std::to_string(port))};
    command.insert(command.end(), words_.begin(), words_.end());
    ASSERT_TRUE(platform::process().Spawn(command, output, child_).ok());
    const std::string wanted = "listening on 127.0.0.1:";
    for (std::string text;; std::this_thread::yield()) {
      text = ReadFile(output);
      const std::size_t at = text.find(wanted);
      if (at == std::string::npos || text.find('\n', at) == std::string::npos) continue;
      port = std::stoi(text.substr(at + wanted.size()));
      return;
    }
  }
  void Stop() {
    int status = 0;
    (void)platform::process().Kill(child_);
    EXPECT_TRUE(platform::process().WaitForExit(child_, 60'000, status));
  }

  std::int64_t pid() const { return child_.pid; }
  // The folder that it keeps everything in.
  std::string Data() const { return folder_.path() + "/server"; }

  int port = 0;
  std::string token;

 private:
  const std::vector<ustring> words_;
  TempFolder folder_;
  platform::ChildProcess child_;
};

}  // namespace tolven::test
