#include "platform/volume-monitor-windows.h"

#include "platform/mutex.h"
#include "platform/volume-mask.h"
#include "platform/wide-windows.h"

namespace tolven::platform {

namespace {

constexpr wchar_t kClassName[] = L"TolvenhubWindowClass";
constexpr wchar_t kAppName[] = L"Tolvenhub";
constexpr COLORREF kBackground = 0xC0C0C0;
constexpr DWORD kExtendedStyle = WS_EX_APPWINDOW | WS_EX_CLIENTEDGE;

class WindowsVolumeMonitor : public VolumeMonitor {
 public:
  Status Run(const std::function<void(const ustring&)>& gone) override {
    gone_ = &gone;
    HMODULE module = nullptr;
    if (::GetModuleHandleExW(0, nullptr, &module) == FALSE) return LastError();
    const WNDCLASSEXW window_class = MakeClass(module);
    Status status;
    if (::RegisterClassExW(&window_class) == 0) status = LastError();
    // Another monitor of this process may have the class.
    if (status.ok() || status.code == ERROR_CLASS_ALREADY_EXISTS) {
      status = Pump(module);
      (void)::UnregisterClassW(kClassName, module);
    }
    if (window_class.hbrBackground != nullptr) ::DeleteObject(window_class.hbrBackground);
    return status;
  }

  void Stop() override {
    const MutexLock lock(mutex_);
    stopped_ = true;
    if (window_ != nullptr) ::PostMessageW(window_, WM_CLOSE, 0, 0);
  }

 private:
  static WNDCLASSEXW MakeClass(HMODULE module) {
    WNDCLASSEXW made{};
    made.cbSize = sizeof made;
    made.style = CS_VREDRAW | CS_HREDRAW | CS_OWNDC;
    made.lpfnWndProc = WindowProc;
    made.hInstance = module;
    made.hIcon = ::LoadIconW(nullptr, IDI_APPLICATION);
    made.hCursor = ::LoadCursorW(nullptr, IDC_ARROW);
    made.hbrBackground = ::CreateSolidBrush(kBackground);
    made.lpszClassName = kClassName;
    return made;
  }

  Status Pump(HMODULE module) {
    const HWND window =
        ::CreateWindowExW(kExtendedStyle, kClassName, kAppName, WS_OVERLAPPEDWINDOW, CW_USEDEFAULT,
                          CW_USEDEFAULT, 0, 0, nullptr, nullptr, module, this);
    if (window == nullptr) return LastError();
    {
      const MutexLock lock(mutex_);
      window_ = window;
      // Whoever stopped before there was a window could not post to it.
      if (stopped_) ::PostMessageW(window, WM_CLOSE, 0, 0);
    }
    MSG message{};
    for (BOOL more = TRUE; more != FALSE;) {
      more = ::GetMessageW(&message, nullptr, 0, 0);
      if (more == FALSE || more == -1) continue;
      ::TranslateMessage(&message);
      ::DispatchMessageW(&message);
    }
    return {};
  }

  static LRESULT CALLBACK WindowProc(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
    if (message == WM_NCCREATE) {
      const auto* const made = reinterpret_cast<const CREATESTRUCTW*>(lparam);
      ::SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(made->lpCreateParams));
      return ::DefWindowProcW(window, message, wparam, lparam);
    }
    auto* const self =
        reinterpret_cast<WindowsVolumeMonitor*>(::GetWindowLongPtrW(window, GWLP_USERDATA));
    if (self == nullptr) return ::DefWindowProcW(window, message, wparam, lparam);
    switch (message) {
      case WM_CREATE:
        return 1;
      case WM_CLOSE:
        self->Forget();
        ::DestroyWindow(window);
        return 1;
      case WM_DESTROY:
        self->Forget();
        ::PostQuitMessage(0);
        return 1;
      case WM_DEVICECHANGE:
        self->HandleDeviceChange(wparam, lparam);
        return 1;
      default:
        return ::DefWindowProcW(window, message, wparam, lparam);
    }
  }

  void Forget() {
    const MutexLock lock(mutex_);
    window_ = nullptr;
  }

  void HandleDeviceChange(WPARAM event, LPARAM data) const {
    if (event != DBT_DEVICEREMOVECOMPLETE || data == 0) return;
    const auto* const header = reinterpret_cast<const DEV_BROADCAST_HDR*>(data);
    if (header->dbch_devicetype != DBT_DEVTYP_VOLUME) return;
    const auto* const volume = reinterpret_cast<const DEV_BROADCAST_VOLUME*>(data);
    (*gone_)(ustring(LetterOfMask(volume->dbcv_unitmask)));
  }

  const std::function<void(const ustring&)>* gone_ = nullptr;
  Mutex mutex_;
  HWND window_ GUARDED_BY(mutex_) = nullptr;
  bool stopped_ GUARDED_BY(mutex_) = false;
};

}  // namespace

std::unique_ptr<VolumeMonitor> NewVolumeMonitor() {
  return std::make_unique<WindowsVolumeMonitor>();
}

}  // namespace tolven::platform
