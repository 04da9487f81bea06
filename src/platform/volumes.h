// Volumes: what kind of drive a path lies on, and the news that one went away.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/status.h"
#include "ustring/ustring.h"

namespace tolven::platform {

enum class DriveKind { kUnknown, kFixed, kRemovable, kRemote, kOptical, kRamDisk };

// Watches for volumes that go away: Prepare, Run and Release in this order, by one thread. Only
// Stop may be called by others, at any time; a Run that comes later returns at once.
class VolumeMonitor {
 public:
  // What a system tells, on the thread of Run.
  class Listener {
   public:
    virtual ~Listener() = default;
    // The mount point (Linux) of a volume that went away.
    virtual void OnGone(const ustring& volume) = 0;
    // A notification about devices (Windows), whatever it says. `unit_mask` tells the drives of a
    // volume, bit 0 is "A"; other devices have none.
    virtual void OnDeviceChange(std::uint32_t event, bool is_volume, std::uint32_t unit_mask) = 0;
    // Any other message to the window (Windows).
    virtual void OnMessage(std::uint32_t message) = 0;
  };
  enum class Step { kProgram, kRegistration };  // of Prepare

  virtual ~VolumeMonitor() = default;
  // Sets up what Run needs; `step` tells where that failed. `name`: of the window's class
  // (Windows).
  virtual Status Prepare(const ustring& name, Step& step) = 0;
  // Returns after Stop, or when the system's notification could not be set up. `title`: of the
  // window (Windows), which is never shown.
  virtual Status Run(const ustring& title, Listener& listener) = 0;
  virtual Status Release() = 0;
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
