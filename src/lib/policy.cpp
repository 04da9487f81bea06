#include "lib/policy.h"

#include <algorithm>
#include <string_view>

#include "lib/log.h"
#include "platform/files.h"
#include "platform/identity.h"
#include "platform/paths.h"
#include "platform/volumes.h"

namespace tolven {

namespace {

constexpr const char* kCategory = "default_component";

char Unified(char c) { return platform::IsPathSeparator(c) ? '/' : c; }

platform::Status Look(const ustring& path, platform::NodeInfo& info) {
  const platform::Status status = platform::files().Stat(path, info);
  if (!status.ok()) {
    Logger::LogMsg(Logger::L_DEBUG, kCategory,
                   L"[DEBUG] policy(%d): get file attributes fail, error code [%d]\n", __LINE__,
                   status.code);
  }
  return status;
}

bool IsOwnData(const ustring& path) {
  ustring data;
  // Without such a folder there is nothing to protect.
  if (!platform::identity().LocalAppData(data).ok()) return false;
  return isMatchPrefix(data + "/Tolvenhub", path) || isMatchPrefix(data + "/Temp", path);
}

bool IsAcceptable(const platform::NodeInfo& info) {
  if (info.offline) {
    Logger::LogMsg(Logger::L_DEBUG, kCategory,
                   L"[DEBUG] policy(%d): cannot accept DEVICE OFFLINE.\n", __LINE__);
    return false;
  }
  if (info.kind == platform::NodeKind::kLink) {
    Logger::LogMsg(Logger::L_DEBUG, kCategory,
                   L"[DEBUG] policy(%d): cannot accept DEVICE REPARSE.\n", __LINE__);
    return false;
  }
  if (info.system) {
    Logger::LogMsg(Logger::L_DEBUG, kCategory,
                   L"[DEBUG] policy(%d): cannot accept DEVICE SYSTEM.\n", __LINE__);
    return false;
  }
  if (info.temporary) {
    Logger::LogMsg(Logger::L_DEBUG, kCategory,
                   L"[DEBUG] policy(%d): cannot accept DEVICE TEMPORARY.\n", __LINE__);
    return false;
  }
  return true;
}

}  // namespace

bool isMatchPrefix(const ustring& prefix, const ustring& path) {
  const std::string_view head = path.view().substr(0, prefix.length());
  return std::equal(head.begin(), head.end(), prefix.view().begin(), prefix.view().end(),
                    [](char a, char b) { return Unified(a) == Unified(b); });
}

bool IsValidNode(const ustring& folder_path) { return TestNode(folder_path) == NodeTest::VALID; }

NodeTest TestNode(const ustring& folder_path) {
  if (IsOwnData(folder_path)) return NodeTest::REFUSED;
  platform::NodeInfo info;
  const platform::Status status = Look(folder_path, info);
  if (status.ok()) return IsAcceptable(info) ? NodeTest::VALID : NodeTest::REFUSED;
  const bool is_gone =
      status.is(platform::ErrorKind::kNotFound) || status.is(platform::ErrorKind::kNameTooLong);
  return is_gone ? NodeTest::VALID : NodeTest::UNKNOWN;
}

bool IsValidSyncFolder(const ustring& folder_path) {
  const platform::DriveKind drive = platform::volumes().KindOf(folder_path);
  if (drive == platform::DriveKind::kOptical || drive == platform::DriveKind::kRamDisk) {
    return false;
  }
  platform::NodeInfo info;
  return Look(folder_path, info).ok();
}

}  // namespace tolven
