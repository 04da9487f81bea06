#include "platform/termination-windows.h"

#include <atomic>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/wide-windows.h"

namespace tolven::platform {

namespace {

constexpr wchar_t kClassName[] = L"TolvenhubSessionEnd";
// How long the end of the session waits for ours. The system itself loses patience after 5 seconds
// for a closed console, later for a log-off.
constexpr DWORD kGraceMs = 20'000;

// Set once and never closed: handlers may run until the process is gone.
std::atomic<HANDLE> g_asked{nullptr};

BOOL WINAPI OnConsoleEvent(DWORD event) {
  ::SetEvent(g_asked.load());
  // When a handler for one of the others returns, the process ends at once. Its main thread, which
  // knows now, ends it in order.
  if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) ::Sleep(kGraceMs);
  return TRUE;
}

LRESULT CALLBACK OnMessage(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  if (message == WM_QUERYENDSESSION) return TRUE;
  if (message == WM_ENDSESSION) {
    if (wparam == FALSE) return 0;  // the user has changed their mind
    ::SetEvent(g_asked.load());
    ::Sleep(kGraceMs);  // as above
    return 0;
  }
  return ::DefWindowProcW(window, message, wparam, lparam);
}

// A console program that has loaded the user interface's library hears of the end of the session by
// a window alone. Without a window there is no such news, and nothing else is lost.
void WatchSession() {
  WNDCLASSEXW window_class{};
  window_class.cbSize = sizeof window_class;
  window_class.lpfnWndProc = OnMessage;
  window_class.hInstance = ::GetModuleHandleW(nullptr);
  window_class.lpszClassName = kClassName;
  if (::RegisterClassExW(&window_class) == 0) return;
  if (::CreateWindowExW(0, kClassName, kClassName, WS_OVERLAPPED, 0, 0, 0, 0, nullptr, nullptr,
                        window_class.hInstance, nullptr) == nullptr) {
    return;
  }
  MSG message;
  while (::GetMessageW(&message, nullptr, 0, 0) > 0) ::DispatchMessageW(&message);
}

}  // namespace

Status RunOnTermination(std::function<void()> handler) {
  ScopedHandle asked(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
  if (!asked.valid()) return LastError();
  HANDLE none = nullptr;
  if (!g_asked.compare_exchange_strong(none, asked.get())) {
    return StatusFromError(ERROR_ALREADY_EXISTS);
  }
  const HANDLE event = asked.Release();
  try {
    std::thread([event, run = std::move(handler)] {
      if (::WaitForSingleObject(event, INFINITE) == WAIT_OBJECT_0) run();
    }).detach();
    std::thread(WatchSession).detach();
  } catch (const std::system_error&) {
    return StatusFromError(ERROR_NO_SYSTEM_RESOURCES);
  }
  // A parent may have switched Ctrl-C off for its children.
  ::SetConsoleCtrlHandler(nullptr, FALSE);
  return StatusOf(::SetConsoleCtrlHandler(OnConsoleEvent, TRUE));
}

}  // namespace tolven::platform
