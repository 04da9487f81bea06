#include "ctl/words.h"

#include <regex>

#include "client/event.h"
#include "ctl/json-tree.h"
#include "lib/error-table.h"

namespace tolven::ctl {
namespace {

struct Words {
  int code;
  const char* text;
};

constexpr Words kErrors[] = {
    {ErrorCodes::ERR_IO, "the connection broke"},
    {ErrorCodes::ERR_AUTH,
     "the server refuses the login token; give a new one with \"tolvenctl token\""},
    {ErrorCodes::ERR_SERVER, "the server had an error"},
    {ErrorCodes::ERR_VERSION, "the server asks for another version of Tolven Hub"},
    {ErrorCodes::ERR_QUOTA, "the quota on the server is used up; what is new here stays here"},
    {ErrorCodes::ERR_DISKFULL, "the server's disk is full; what is new here stays here"},
    {ErrorCodes::ERR_SYNCFOLDER_MISS, "the synced folder is missing"},
    {ErrorCodes::ERR_VIEW, "the server has no such view, or does not let you see it"},
    {ErrorCodes::ERR_PERMISS, "the server does not let you see this folder"},
    {ErrorCodes::ERR_VIEW_PATH, "the folder on the server does not exist"},
    {ErrorCodes::ERR_LOCAL_DISKFULL, "this computer's disk is full; downloads wait"},
    {ErrorCodes::ERR_LOCKED_FILE, "another program has the file open, or it may not be read"},
    {ErrorCodes::ERR_SSL_VERIFY_FAIL,
     "the server's certificate is not trusted, or is for another host name"},
    {ErrorCodes::ERR_PERMISS_READ_ONLY, "the folder on the server is read-only"},
    {ErrorCodes::ERR_NOT_MOUNTED, "the folder on the server is not mounted there"},
    {ErrorCodes::ERR_WATCH_VOL_UMOUNT, "the synced folder is gone or its volume is not mounted"},
    {ErrorCodes::ERR_SESSION_INITIAL, "the synced folder is gone or its volume is not mounted"},
    {ErrorCodes::ERR_NO_ACCESS_PERM, "the server does not give access to it"},
    {ErrorCodes::ERR_BUILD_NUM_CHANGED, "the server runs another version now; connecting anew"},
    {ErrorCodes::ERR_FILE_TOO_BIG, "the file is too big for the server"},
};

std::string Path(const PObject& message) { return Printable(message["path"].asStringView()); }

std::string Done(const PObject& message) {
  const bool removed = message["event_type"].asInt32() == Event::EV_REMOVE;
  const std::string path = Path(message);
  if (!removed && IsConflictName(path)) return "kept both versions: " + path;
  return (removed ? "removed " : "synced ") + path;
}

std::string Body(const std::string& kind, const PObject& message) {
  if (kind == "syncing_file") return "to sync " + Path(message);
  if (kind == "recent_file") return Done(message);
  if (kind == "readonly_file")
    return "not uploaded, it is read-only on the server: " + Path(message);
  if (kind == "no_perm_file") return "no permission on the server: " + Path(message);
  if (kind == "locked_file") {
    return "waiting, " + ErrorWords(ErrorCodes::ERR_LOCKED_FILE) + ": " + Path(message);
  }
  if (kind == "error") return ErrorWords(message["error_type"].asInt32());
  return {};
}

}  // namespace

std::string ErrorWords(int code) {
  for (const Words& words : kErrors) {
    if (words.code == code) return words.text;
  }
  return std::string(ErrorText(code)) + " (" + std::to_string(code) + ")";
}

std::string Describe(const PObject& message) {
  const std::string body = Body(message["notify"].asString().str(), message);
  if (body.empty()) return Printable(TreeToJson(message, false));
  if (message.hasMember("session_id")) {
    return body + " (session " + std::to_string(message["session_id"].asUInt64()) + ")";
  }
  return body + " (connection " + std::to_string(message["connection_id"].asUInt64()) + ")";
}

bool IsProblem(const PObject& message) {
  const std::string_view kind = message["notify"].asStringView();
  return kind == "error" || kind == "locked_file" || kind == "readonly_file" ||
         kind == "no_perm_file" ||
         (kind == "recent_file" && IsConflictName(message["path"].asStringView()) &&
          message["event_type"].asInt32() != Event::EV_REMOVE);
}

bool IsConflictName(std::string_view name) {
  // NAME_COMPUTER_Mar-05-143007-2014_Conflict_1.txt; the month stands in the user's language.
  static const std::regex pattern(
      R"(_[^_/]+-\d\d-\d{6}-\d{4}_(TailCharacter|WhiteSpace)?Conflict(_\d+)?(\.[^./]*)?$)",
      std::regex::optimize);
  return std::regex_search(name.begin(), name.end(), pattern);
}

std::string Printable(std::string_view text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    // The second block of control characters takes two bytes in UTF-8.
    const bool is_c1 =
        byte == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) < 0xA0;
    if (is_c1) ++i;
    result += is_c1 || byte < 0x20 || byte == 0x7F ? '?' : static_cast<char>(byte);
  }
  return result;
}

}  // namespace tolven::ctl
