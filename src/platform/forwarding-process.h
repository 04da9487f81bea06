// See forwarding.h.
#pragma once

#include "platform/forwarding.h"
#include "platform/process.h"

namespace tolven::platform {

class ForwardingProcess : public Process, protected Forwarding {
 public:
  explicit ForwardingProcess(Process& base, CallHook hook = {})
      : Forwarding(std::move(hook)), base_(base) {}

  void RequestLateShutdown() override {
    if (Allows("RequestLateShutdown")) base_.RequestLateShutdown();
  }
  Status StartSockets() override {
    return Do("StartSockets", [&] { return base_.StartSockets(); });
  }
  void StopSockets() override {
    if (Allows("StopSockets")) base_.StopSockets();
  }
  void SetUserLocale() override {
    if (Allows("SetUserLocale")) base_.SetUserLocale();
  }
  std::uint32_t Id() override {
    (void)Ask("Id");
    return base_.Id();
  }
  std::vector<std::string> Arguments(int argc, const char* const* argv) override {
    (void)Ask("Arguments");
    return base_.Arguments(argc, argv);
  }
  Status DecodeArgument(const char* word, ustring& text) override {
    return Do("DecodeArgument", [&] { return base_.DecodeArgument(word, text); });
  }

  ustring Environment(const char* name) override {
    return Allows("Environment") ? base_.Environment(name) : ustring();
  }
  Status ExecutablePath(ustring& path) override {
    return Do("ExecutablePath", [&] { return base_.ExecutablePath(path); });
  }
  Status CurrentDirectory(ustring& path) override {
    return Do("CurrentDirectory", [&] { return base_.CurrentDirectory(path); });
  }
  bool IsTerminal(int stream) override { return Allows("IsTerminal") && base_.IsTerminal(stream); }
  bool TerminalSize(int& columns, int& rows) override {
    return Allows("TerminalSize") && base_.TerminalSize(columns, rows);
  }

  Status Spawn(const std::vector<ustring>& words, const ustring& output_path,
               ChildProcess& child) override {
    return Do("Spawn", [&] { return base_.Spawn(words, output_path, child); });
  }
  bool WaitForExit(ChildProcess& child, int timeout_ms, int& exit_status) override {
    return Allows("WaitForExit") && base_.WaitForExit(child, timeout_ms, exit_status);
  }
  Status Kill(ChildProcess& child) override {
    return Do("Kill", [&] { return base_.Kill(child); });
  }
  bool IsRunning(std::int64_t pid) override { return Allows("IsRunning") && base_.IsRunning(pid); }

  Status OnTermination(std::function<void()> handler) override {
    return Do("OnTermination", [&] { return base_.OnTermination(std::move(handler)); });
  }

 private:
  Process& base_;
};

}  // namespace tolven::platform
