#include "client/core/helpers/filter-helper.h"

#include <cstdint>
#include <string_view>

#include "client/core/event-context.h"
#include "client/core/handlers/handler-log.h"
#include "client/core/helpers/file-helper.h"
#include "lib/black-list2.h"
#include "lib/policy.h"
#include "lib/profile-set.h"
#include "lib/white-list-cpp.h"

namespace tolven {

namespace {

constexpr int kNotInWhiteList = -262;
constexpr int kNotAValidNode = -2457;

const char* Source() { return "filter-helper"; }

// How long the text is in UTF-16 units.
std::uint64_t WideLength(std::string_view text) {
  std::uint64_t units = 0;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte & 0xC0) != 0x80) units += byte >= 0xF0 ? 2 : 1;
  }
  return units;
}

// The length first, then the path; each by the session's rules, then by the server's.
template <class TestPath>
int TestBlackLists(const EventContext& context, const ustring& full_path, TestPath&& test_path) {
  const std::uint64_t length = WideLength(full_path.view());
  int blocked = context.GetBlackList().TestFullPathSize(length);
  if (blocked == 0) blocked = context.ServerBlackLists().TestFullPathSize(length);
  if (blocked == 0) blocked = test_path(context.GetBlackList());
  if (blocked == 0) blocked = test_path(context.ServerBlackLists());
  return blocked;
}

}  // namespace

int FilterHelper::TestSystemFilter(const EventContext& context) {
  const BlackList2& system = BlackList2::getInstance();
  int blocked = system.TestFullPathSize(WideLength(context.GetFullPath().view()));
  if (blocked == 0) blocked = CheckFileByPlatform(context.GetFullPath());
  if (blocked != 0) return blocked;
  return context.GetEvent().isDir() ? system.TestDirectoryPath(context.GetPath())
                                    : system.TestFilePath(context.GetPath());
}

int FilterHelper::TestCommonFilter(const EventContext& context) {
  return TestWhiteList(context) != 0 ? kNotInWhiteList : TestBlackListPath(context);
}

int FilterHelper::TestWhiteList(const EventContext& context) {
  const ustring& path = context.GetPath();
  if (context.GetEvent().isDir() || path.empty() || path == "/") return 0;
  return context.GetWhiteList().Test(FileHelper::GetBaseName(path)) == 0 ? 0 : -1;
}

int FilterHelper::TestBlackListPath(const EventContext& context) {
  const ustring& path = context.GetPath();
  const bool is_dir = context.GetEvent().isDir();
  const int blocked = is_dir ? TestDirectory(context, path, context.GetFullPath())
                             : TestFilePath(context, path, context.GetFullPath());
  if (blocked != 0 && is_dir) {
    HANDLER_DEBUG("TestBlackListPath: Directory '%s'. (blocked: %d)", path, blocked);
  } else if (blocked != 0) {
    HANDLER_DEBUG("TestBlackListPath: File '%s'. (blocked: %d)", path, blocked);
  }
  return blocked;
}

int FilterHelper::TestFilePath(const EventContext& context, const ustring& path,
                               const ustring& full_path) {
  return TestBlackLists(context, full_path,
                        [&path](const auto& list) { return list.TestFilePath(path); });
}

int FilterHelper::TestDirectory(const EventContext& context, const ustring& path,
                                const ustring& full_path) {
  return TestBlackLists(context, full_path,
                        [&path](const auto& list) { return list.TestDirectoryPath(path); });
}

int FilterHelper::CheckFileByPlatform(const ustring& full_path) {
  // What cannot be looked at now is not refused for good: whoever opens it next sees to that.
  if (TestNode(full_path) != NodeTest::REFUSED) return 0;
  HANDLER_INFO("'%s' is not a valid node", full_path);
  return kNotAValidNode;
}

bool FilterHelper::CheckIfiWorkZipFile(const ustring&) { return false; }

}  // namespace tolven
