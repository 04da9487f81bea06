#include "platform/long-path.h"
#include "platform/service-slot.h"
#include "platform/volume-monitor-windows.h"
#include "platform/volumes.h"
#include "platform/wide-windows.h"

namespace tolven::platform {

namespace {

bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

// "C:\" or "\\server\share\", as the volume calls want it; empty for a path that has no such root.
std::wstring RootOf(const ustring& path) {
  const ustring plain = PlainPath(get_extened_path(path));
  const std::size_t length = WindowsRootLength(plain.view());
  if (length == 0) return {};
  std::string root(plain.view().substr(0, length));
  if (root.back() != '\\') root += '\\';
  return ToWide(root);
}

class WindowsVolumes : public Volumes {
 public:
  DriveKind KindOf(const ustring& path) override {
    const std::wstring root = RootOf(path);
    if (root.empty()) return DriveKind::kUnknown;
    switch (::GetDriveTypeW(root.c_str())) {
      case DRIVE_FIXED:
        return DriveKind::kFixed;
      case DRIVE_REMOVABLE:
        return DriveKind::kRemovable;
      case DRIVE_REMOTE:
        return DriveKind::kRemote;
      case DRIVE_CDROM:
        return DriveKind::kOptical;
      case DRIVE_RAMDISK:
        return DriveKind::kRamDisk;
      default:
        return DriveKind::kUnknown;
    }
  }

  Status FileSystemName(const ustring& path, ustring& name) override {
    const std::wstring root = RootOf(path);
    if (root.empty()) return StatusFromError(ERROR_INVALID_NAME);
    wchar_t buffer[MAX_PATH + 1] = {};
    if (::GetVolumeInformationW(root.c_str(), nullptr, 0, nullptr, nullptr, nullptr, buffer,
                                static_cast<DWORD>(std::size(buffer))) == FALSE) {
      return LastError();
    }
    name = FromWide(buffer);
    return {};
  }

  Status IsCoarseTimed(const ustring& path, bool& coarse) override {
    ustring name;
    const Status status = FileSystemName(path, name);
    coarse = status.ok() && ::lstrcmpiW(ToWide(name).c_str(), L"NTFS") != 0;
    return status;
  }

  bool IsVolumePath(const ustring& path) override {
    return path.size() >= 2 && IsLetter(path[0]) && path[1] == ':';
  }

  std::unique_ptr<VolumeMonitor> NewMonitor() override { return NewVolumeMonitor(); }
};

using Slot = ServiceSlot<Volumes, WindowsVolumes>;

}  // namespace

Volumes& volumes() { return Slot::Get(); }
Volumes* SetVolumes(Volumes* volumes) { return Slot::Set(volumes); }

}  // namespace tolven::platform
