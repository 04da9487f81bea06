// The daemon's start and end: tolven-daemon [config_file]
#include <openssl/ssl.h>

#include <chrono>
#include <cstdio>
#include <string>

#include "client/core/app.h"
#include "client/core/control-server.h"
#include "client/core/settings.h"
#include "client/core/task-factory.h"
#include "lib/log.h"
#include "lib/ui-report-queue.h"
#include "platform/files.h"
#include "platform/process.h"

namespace tolven {
namespace {

constexpr const char* kCategory = "client_debug";
constexpr int kFailed = -1;
constexpr int kLogFiles = 50;
// What the tasks have reported at their end may still go out.
constexpr std::chrono::milliseconds kReportGrace{2000};

// The verbs of an older control tool, which scripts still look for.
void usage() {
  std::fputs(
      "* Controling application: \n"
      "    Control <action>\n"
      "* Controling session: \n"
      "    ControlSession <action> <session_id> \n"
      "* Supported actions: \n"
      "    stop\n"
      "    link\n"
      "    unlink\n"
      "    pause\n"
      "    resume\n"
      "    reload_setting\n"
      "    reload_session\n"
      "    add_session\n"
      "    remove_session\n",
      stdout);
  std::fflush(stdout);
}

// OpenSSL takes the C allocator and its own locks by itself; its error texts are to be there before
// several threads want them.
void StartTls() {
  OPENSSL_init_ssl(OPENSSL_INIT_LOAD_SSL_STRINGS | OPENSSL_INIT_LOAD_CRYPTO_STRINGS, nullptr);
}

int StartLog() {
  const Settings& settings = Settings::getInstance();
  const ustring levels = settings.getLogLevelFilePath();
  const ustring path = settings.getLogFilePath();
  const int result = settings.isForeground()
                         ? Logger::Initialize(Logger::STDOUT_LOGGER, "", levels, kLogFiles)
                         : Logger::Initialize(Logger::FILE_LOGGER, path, levels, kLogFiles);
  if (result < 0) {
    std::fprintf(stderr, "Tolven Hub: client is not enabled %s %s\n", levels.c_str_utf8(),
                 path.c_str_utf8());
    return kFailed;
  }
  if (!settings.isForeground()) {
    Logger::LogMsg(Logger::L_NOTICE, kCategory,
                   L"[NOTE] test(%d): daemon is now running in the background\n", __LINE__);
  }
  return 0;
}

bool WriteText(const ustring& path, const std::string& text) {
  platform::ScopedFile file;
  std::size_t written = 0;
  return platform::files().Open(path, platform::OpenMode::kTruncate, *file.receive()).ok() &&
         platform::files().Write(file.get(), text.data(), text.size(), written).ok();
}

// A missing pid file is not fatal.
void WritePidFile() {
  const ustring path = Settings::getInstance().getPidFilePath();
  if (path.empty() || WriteText(path, std::to_string(platform::process().Id()) + "\n")) return;
  Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] test(%d): failed to create pid file at '%s'\n",
                 __LINE__, path);
}

void RemovePidFile() {
  const ustring path = Settings::getInstance().getPidFilePath();
  if (!path.empty()) (void)platform::files().RemoveFile(path);
}

void RunDaemon() {
  UiReportQueue::getInstance().Start();
  TolvenhubApp app(MakeTasks);
  app.run();
  ControlServer server(app);
  if (server.Open() == 0) server.Serve();

  server.Close();
  app.kill();
  UiReportQueue::getInstance().Stop(kReportGrace);
  RemovePidFile();
  platform::process().StopSockets();
}

int Main(int argc, char** argv) {
  if (argc > 3) return kFailed;
  platform::Process& process = platform::process();
  process.RequestLateShutdown();
  if (!process.StartSockets().ok()) {
    process.StopSockets();
    return kFailed;
  }
  process.SetUserLocale();
  StartTls();
  if (argc > 1) {
    ustring path;
    if (!process.DecodeArgument(argv[1], path).ok()) return kFailed;
    Settings::getInstance().loadConfigSettings(path);
  }
  if (StartLog() < 0) return kFailed;
  WritePidFile();
  usage();
  RunDaemon();
  return 0;
}

}  // namespace
}  // namespace tolven

int main(int argc, char** argv) { return tolven::Main(argc, argv); }
