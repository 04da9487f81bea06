#include "platform/volume-monitor-windows.h"

#include <string>

#include "platform/mutex.h"
#include "platform/wide-windows.h"

namespace tolven::platform {

namespace {

constexpr COLORREF kBackground = 0xC0C0C0;
constexpr DWORD kExtendedStyle = WS_EX_APPWINDOW | WS_EX_CLIENTEDGE;

class WindowsVolumeMonitor final : public VolumeMonitor {
 public:
  ~WindowsVolumeMonitor() override { (void)Release(); }

  Status Prepare(const ustring& name, Step& step) override {
    step = Step::kProgram;
    if (::GetModuleHandleExW(0, nullptr, &module_) == FALSE) return LastError();
    step = Step::kRegistration;
    class_name_ = ToWide(name);
    background_ = ::CreateSolidBrush(kBackground);
    const WNDCLASSEXW window_class = MakeClass();
    if (::RegisterClassExW(&window_class) != 0) return {};
    const Status status = LastError();
    // Another monitor of this process may have the class.
    if (status.code == ERROR_CLASS_ALREADY_EXISTS) return {};
    (void)Release();
    return status;
  }

  Status Release() override {
    if (class_name_.empty()) return {};
    const BOOL released = ::UnregisterClassW(class_name_.c_str(), module_);
    const Status status = released != FALSE ? Status() : LastError();
    class_name_.clear();
    if (background_ != nullptr) ::DeleteObject(background_);
    background_ = nullptr;
    return status;
  }

  Status Run(const ustring& title, Listener& listener) override {
    listener_ = &listener;
    const HWND window = ::CreateWindowExW(kExtendedStyle, class_name_.c_str(),
                                          ToWide(title).c_str(), WS_OVERLAPPEDWINDOW, CW_USEDEFAULT,
                                          CW_USEDEFAULT, 0, 0, nullptr, nullptr, module_, this);
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

  void Stop() override {
    const MutexLock lock(mutex_);
    stopped_ = true;
    if (window_ != nullptr) ::PostMessageW(window_, WM_CLOSE, 0, 0);
  }

 private:
  WNDCLASSEXW MakeClass() const {
    WNDCLASSEXW made{};
    made.cbSize = sizeof made;
    made.style = CS_VREDRAW | CS_HREDRAW | CS_OWNDC;
    made.lpfnWndProc = WindowProc;
    made.hInstance = module_;
    made.hIcon = ::LoadIconW(nullptr, IDI_APPLICATION);
    made.hCursor = ::LoadCursorW(nullptr, IDC_ARROW);
    made.hbrBackground = background_;
    made.lpszClassName = class_name_.c_str();
    return made;
  }

  static LRESULT CALLBACK WindowProc(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
    if (message == WM_NCCREATE) {
      const auto* const made = reinterpret_cast<const CREATESTRUCTW*>(lparam);
      ::SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(made->lpCreateParams));
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
        self->listener_->OnMessage(message);
        return ::DefWindowProcW(window, message, wparam, lparam);
    }
  }

  void Forget() {
    const MutexLock lock(mutex_);
    window_ = nullptr;
  }

  void HandleDeviceChange(WPARAM event, LPARAM data) const {
    const auto* const header = reinterpret_cast<const DEV_BROADCAST_HDR*>(data);
    // Only some events have a record.
    const bool is_volume = event == DBT_DEVICEREMOVECOMPLETE && header != nullptr &&
                           header->dbch_devicetype == DBT_DEVTYP_VOLUME;
    const auto* const volume = reinterpret_cast<const DEV_BROADCAST_VOLUME*>(data);
    listener_->OnDeviceChange(static_cast<std::uint32_t>(event), is_volume,
                              is_volume ? volume->dbcv_unitmask : 0);
  }

  HMODULE module_ = nullptr;
  HBRUSH background_ = nullptr;
  std::wstring class_name_;  // empty while there is no class
  Listener* listener_ = nullptr;
  Mutex mutex_;
  HWND window_ GUARDED_BY(mutex_) = nullptr;
  bool stopped_ GUARDED_BY(mutex_) = false;
};

}  // namespace

std::unique_ptr<VolumeMonitor> NewVolumeMonitor() {
  return std::make_unique<WindowsVolumeMonitor>();
}

}  // namespace tolven::platform
