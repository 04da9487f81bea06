#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <optional>
#include <string_view>

#include "platform/errno-linux.h"
#include "platform/mount-table-linux.h"
#include "platform/node-linux.h"
#include "platform/service-slot.h"
#include "platform/system-file-linux.h"
#include "platform/volume-monitor-linux.h"
#include "platform/volumes.h"

namespace tolven::platform {

namespace {

constexpr std::string_view kRemoteTypes[] = {"nfs",   "nfs4",  "cifs",      "smb3",
                                             "smbfs", "sshfs", "fuse.sshfs"};
constexpr std::string_view kOpticalTypes[] = {"iso9660", "udf"};
constexpr std::string_view kCoarseTypes[] = {"vfat", "msdos", "exfat"};

template <class List>
bool Contains(const List& list, std::string_view type) {
  return std::find(std::begin(list), std::end(list), type) != std::end(list);
}

// `path`, or the nearest folder above it that exists, without links. A path whose file does not
// exist yet lies on a volume, too.
Status Existing(const ustring& path, std::string& real) {
  if (!path.view().starts_with('/')) return StatusFromErrno(EINVAL);
  std::string text(PathArgument(path).view());
  for (;;) {
    const std::unique_ptr<char, decltype(&::free)> found(::realpath(text.c_str(), nullptr), ::free);
    if (found != nullptr) {
      real = found.get();
      return {};
    }
    if ((errno != ENOENT && errno != ENOTDIR) || text == "/") return LastError();
    text = ParentOf(text);
    const std::size_t last = text.find_last_not_of('/');
    text.resize(last == std::string::npos ? 1 : last + 1);
  }
}

// The kernel's number of the mount that holds a path: right also where one file system hides
// another. Older kernels do not tell it.
std::optional<int> MountNumber(const std::string& path) {
  struct statx info {};
  if (::statx(AT_FDCWD, path.c_str(), 0, STATX_MNT_ID, &info) != 0) return std::nullopt;
  if ((info.stx_mask & STATX_MNT_ID) == 0) return std::nullopt;
  return static_cast<int>(info.stx_mnt_id);
}

Status MountOf(const ustring& path, Mount& mount) {
  std::string real, text;
  Status status = Existing(path, real);
  if (status.ok()) status = ReadSystemFile("/proc/self/mountinfo", text);
  if (!status.ok()) return status;
  const std::vector<Mount> mounts = ParseMounts(text);
  const std::optional<int> number = MountNumber(real);
  const auto exact = std::find_if(mounts.begin(), mounts.end(),
                                  [&](const Mount& each) { return number && each.id == *number; });
  const Mount* const found = exact != mounts.end() ? &*exact : FindMount(mounts, real);
  if (found == nullptr) return StatusFromErrno(ENOENT);
  mount = *found;
  return {};
}

bool IsFlagSet(const std::string& path) {
  std::string text;
  return ReadSystemFile(path.c_str(), text).ok() && text.starts_with('1');
}

// The flag stands in the folder of the whole drive, which is around that of a partition.
bool IsRemovable(const std::string& device) {
  const std::string folder = "/sys/dev/block/" + device;
  return IsFlagSet(folder + "/removable") || IsFlagSet(folder + "/../removable");
}

class LinuxVolumes : public Volumes {
 public:
  DriveKind KindOf(const ustring& path) override {
    Mount mount;
    if (!MountOf(path, mount).ok()) return DriveKind::kUnknown;
    if (Contains(kRemoteTypes, mount.type)) return DriveKind::kRemote;
    if (Contains(kOpticalTypes, mount.type)) return DriveKind::kOptical;
    return IsRemovable(mount.device) ? DriveKind::kRemovable : DriveKind::kFixed;
  }

  Status FileSystemName(const ustring& path, ustring& name) override {
    Mount mount;
    const Status status = MountOf(path, mount);
    if (status.ok()) name = mount.type;
    return status;
  }

  Status IsCoarseTimed(const ustring& path, bool& coarse) override {
    Mount mount;
    const Status status = MountOf(path, mount);
    coarse = status.ok() && Contains(kCoarseTypes, mount.type);
    return status;
  }

  bool IsVolumePath(const ustring& path) override { return path.view().starts_with('/'); }

  std::unique_ptr<VolumeMonitor> NewMonitor() override { return NewVolumeMonitor(); }
};

using Slot = ServiceSlot<Volumes, LinuxVolumes>;

}  // namespace

Volumes& volumes() { return Slot::Get(); }
Volumes* SetVolumes(Volumes* volumes) { return Slot::Set(volumes); }

}  // namespace tolven::platform
