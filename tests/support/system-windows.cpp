#include <windows.h>
#include <winsock2.h>

#include <cstdlib>
#include <filesystem>

#include "support/system.h"

namespace tolven::test {

namespace {

// SYMBOLIC_LINK_FLAG_ALLOW_UNPRIVILEGED_CREATE, which the compiler's headers lack.
constexpr DWORD kUnprivileged = 0x2;

struct Search {
  DWORD pid;
  HWND window;
};

BOOL CALLBACK TakeSessionWindow(HWND window, LPARAM search) {
  auto* const wanted = reinterpret_cast<Search*>(search);
  wchar_t name[64] = {};
  DWORD pid = 0;
  ::GetWindowThreadProcessId(window, &pid);
  ::GetClassNameW(window, name, 64);
  if (pid != wanted->pid || std::wstring(name) != L"TolvenhubSessionEnd") return TRUE;
  wanted->window = window;
  return FALSE;
}

}  // namespace

const char* const kDevice = nullptr;

const std::size_t kNameLength = 40;

void SetVariable(const char* name, const std::string& value) { ::_putenv_s(name, value.c_str()); }

void UseDataHome(const std::string& folder) {
  SetVariable("TOLVEN_DATA_HOME", std::filesystem::path(folder).make_preferred().string());
}

void AskToEnd(std::int64_t pid) {
  Search search{static_cast<DWORD>(pid), nullptr};
  ::EnumWindows(TakeSessionWindow, reinterpret_cast<LPARAM>(&search));
  if (search.window != nullptr) ::PostMessageW(search.window, WM_ENDSESSION, TRUE, 0);
}

void KillProgram(std::int64_t pid) {
  const HANDLE process = ::OpenProcess(PROCESS_TERMINATE, FALSE, static_cast<DWORD>(pid));
  if (process == nullptr) return;
  ::TerminateProcess(process, 137);
  ::CloseHandle(process);
}

bool MakeLink(const std::string& target, const std::string& link) {
  namespace fs = std::filesystem;
  const fs::path place = fs::path(link).make_preferred();
  fs::path to = fs::path(target).make_preferred();
  const bool is_folder = fs::is_directory(to.is_absolute() ? to : place.parent_path() / to);
  const DWORD flags = kUnprivileged | (is_folder ? SYMBOLIC_LINK_FLAG_DIRECTORY : 0);
  if (::CreateSymbolicLinkW(place.c_str(), to.c_str(), flags) == FALSE) return false;
  const DWORD made = ::GetFileAttributesW(place.c_str());
  return made != INVALID_FILE_ATTRIBUTES && (made & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

bool HasModes() { return false; }

std::size_t OpenHandles() {
  DWORD count = 0;
  ::GetProcessHandleCount(::GetCurrentProcess(), &count);
  return count;
}

}  // namespace tolven::test
