// The daemon's engine in this process, with one session at a time.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "app/daemon-home.h"
#include "client/core/app.h"
#include "client/core/task-factory.h"
#include "lib/log.h"
#include "platform/clock.h"
#include "platform/forwarding-system.h"

namespace tolven::test {

// Waits are over twenty times as soon.
class HastyClock : public platform::ForwardingClock {
 public:
  HastyClock() : ForwardingClock(platform::clock()), real_(platform::clock()) {
    platform::SetClock(this);
  }
  ~HastyClock() override { platform::SetClock(nullptr); }
  std::int64_t MonotonicMilliseconds() override { return real_.MonotonicMilliseconds() * kHaste; }
  void Sleep(std::chrono::milliseconds time) override { real_.Sleep(time / kHaste); }

 private:
  static constexpr int kHaste = 20;
  platform::Clock& real_;
};

// What belongs to one session: the folder that is synced, and what the daemon keeps of it.
struct Place {
  std::string root, config;
};

// A server that a session may be with.
struct Peer {
  int port = 0;
  std::string token;
};

class Engine {
 public:
  // With FAULTS_LOG in the environment, the engine's messages go to standard error.
  Engine() {
    home_.Load();
    if (std::getenv("FAULTS_LOG") == nullptr) return;
    WriteFile(home_.folder / "levels",
              "client_debug = 7\nworker_debug = 7\nsyncer_debug = 7\nevent_db_debug = 7\n");
    Logger::Initialize(Logger::STDERR_LOGGER, "", home_.folder / "levels", 1);
  }
  ~Engine() { Do("unlink"); }
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  // Links anew, with a session on the place. False when that fails.
  bool Start(const Peer& peer, const Place& place) {
    Do("unlink");
    if (Do("link").hasMember("error")) return false;
    PObject connection;
    connection["connection_id"] = 5;
    connection["server_ip"] = "127.0.0.1";
    connection["server_port"] = peer.port;
    connection["session"] = ustring(peer.token);
    connection["computer_name"] = "pc";
    connection["package_version"] = 3317;
    (void)Do("link_connection", connection);
    PObject session;
    session["connection_id"] = 5;
    session["session_id"] = 1;
    session["view_id"] = 1;
    session["config_path"] = ustring(place.config);
    session["sync_folder"] = ustring(place.root);
    return !Do("add_session", session).hasMember("error");
  }
  void Stop() { Do("unlink"); }
  bool IsIdle() {
    const PObject status = Do("get_status");
    const auto& sessions = status["session_list"].asArray();
    return sessions.empty() || sessions.front()["unfinished_files"].asInt32() == 0;
  }

 private:
  PObject Do(const char* action, PObject request = PObject(PObject::TYPE_MAP)) {
    request["action"] = action;
    PObject result;
    app_.handle_control(request, result);
    return result;
  }

  HastyClock clock_;
  DaemonHome home_{26'700, "worker_count = 1\n"};
  TolvenhubApp app_{MakeTasks};
};

}  // namespace tolven::test
