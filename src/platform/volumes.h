// Volumes: what kind of drive a path lies on, and the news that one went away.
#pragma once

#include <functional>
#include <memory>

#include "platform/status.h"
#include "ustring/ustring.h"

namespace tolven::platform {

enum class DriveKind { kUnknown, kFixed, kRemovable, kRemote, kOptical, kRamDisk };

// Watches for volumes that go away. Run and Stop may be called from different threads, Stop also
// before Run; Run then returns at once.
class VolumeMonitor {
 public:
  virtual ~VolumeMonitor() = default;
  // `gone` gets the drive letter (Windows) or the mount point (Linux), on the thread of Run, which
  // returns after Stop or when the system's notification could not be set up.
  virtual Status Run(const std::function<void(const ustring&)>& gone) = 0;
  virtual void Stop() = 0;
};

class Volumes {
 public:
  virtual ~Volumes() = default;
  virtual DriveKind KindOf(const ustring& path) = 0;
  // The file system's name, "NTFS", "ext4", "vfat" and so on.
  virtual Status FileSystemName(const ustring& path, ustring& name) = 0;
  // File systems whose times have a resolution of 2 seconds: vfat, msdos and exfat on Linux,
  // everything but NTFS on Windows.
  virtual Status IsCoarseTimed(const ustring& path, bool& coarse) = 0;
  // Whether the form of `path` can name a volume at all (a drive letter on Windows; an absolute
  // path on Linux).
  virtual bool IsVolumePath(const ustring& path) = 0;
  virtual std::unique_ptr<VolumeMonitor> NewMonitor() = 0;
};

Volumes& volumes();
Volumes* SetVolumes(Volumes* volumes);

}  // namespace tolven::platform
