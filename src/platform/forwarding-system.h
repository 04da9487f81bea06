// See forwarding.h: clock, identity, volumes, trash.
#pragma once

#include "platform/clock.h"
#include "platform/forwarding.h"
#include "platform/identity.h"
#include "platform/trash.h"
#include "platform/volumes.h"

namespace tolven::platform {

// Time cannot fail; the hook sees the calls.
class ForwardingClock : public Clock, protected Forwarding {
 public:
  explicit ForwardingClock(Clock& base, CallHook hook = {})
      : Forwarding(std::move(hook)), base_(base) {}

  std::int64_t WallSeconds() override {
    (void)Ask("WallSeconds");
    return base_.WallSeconds();
  }
  std::int64_t WallNanoseconds() override {
    (void)Ask("WallNanoseconds");
    return base_.WallNanoseconds();
  }
  std::int64_t MonotonicMilliseconds() override {
    (void)Ask("MonotonicMilliseconds");
    return base_.MonotonicMilliseconds();
  }
  std::uint64_t PerformanceCounter() override {
    (void)Ask("PerformanceCounter");
    return base_.PerformanceCounter();
  }
  void Sleep(std::chrono::milliseconds time) override {
    (void)Ask("Sleep");
    base_.Sleep(time);
  }

 private:
  Clock& base_;
};

class ForwardingIdentity : public Identity, protected Forwarding {
 public:
  explicit ForwardingIdentity(Identity& base, CallHook hook = {})
      : Forwarding(std::move(hook)), base_(base) {}

  Status HostName(ustring& name, int& platform_id) override {
    return Do("HostName", [&] { return base_.HostName(name, platform_id); });
  }
  Status UserName(ustring& name) override {
    return Do("UserName", [&] { return base_.UserName(name); });
  }
  Status LocalAppData(ustring& path) override {
    return Do("LocalAppData", [&] { return base_.LocalAppData(path); });
  }
  Status HomeDirectory(ustring& path) override {
    return Do("HomeDirectory", [&] { return base_.HomeDirectory(path); });
  }
  Status TempDirectory(ustring& path) override {
    return Do("TempDirectory", [&] { return base_.TempDirectory(path); });
  }
  PeerOwner OwnerOfPeer(NativeSocket socket) override {
    return Allows("OwnerOfPeer") ? base_.OwnerOfPeer(socket) : PeerOwner::kUnknown;
  }

 private:
  Identity& base_;
};

class ForwardingVolumeMonitor : public VolumeMonitor, protected Forwarding {
 public:
  ForwardingVolumeMonitor(std::unique_ptr<VolumeMonitor> base, CallHook hook)
      : Forwarding(std::move(hook)), base_(std::move(base)) {}

  Status Prepare(const ustring& name, Step& step) override {
    return Do("Prepare", [&] { return base_->Prepare(name, step); });
  }
  Status Run(const ustring& title, Listener& listener) override {
    return Do("Run", [&] { return base_->Run(title, listener); });
  }
  Status Release() override {
    return Do("Release", [&] { return base_->Release(); });
  }
  void Stop() override {
    (void)Ask("Stop");
    base_->Stop();
  }

 private:
  const std::unique_ptr<VolumeMonitor> base_;
};

class ForwardingVolumes : public Volumes, protected Forwarding {
 public:
  explicit ForwardingVolumes(Volumes& base, CallHook hook = {})
      : Forwarding(std::move(hook)), base_(base) {}

  DriveKind KindOf(const ustring& path) override {
    return Allows("KindOf") ? base_.KindOf(path) : DriveKind::kUnknown;
  }
  Status FileSystemName(const ustring& path, ustring& name) override {
    return Do("FileSystemName", [&] { return base_.FileSystemName(path, name); });
  }
  Status IsCoarseTimed(const ustring& path, bool& coarse) override {
    return Do("IsCoarseTimed", [&] { return base_.IsCoarseTimed(path, coarse); });
  }
  bool IsVolumePath(const ustring& path) override {
    return Allows("IsVolumePath") && base_.IsVolumePath(path);
  }
  std::unique_ptr<VolumeMonitor> NewMonitor() override {
    return std::make_unique<ForwardingVolumeMonitor>(base_.NewMonitor(), hook());
  }

 private:
  Volumes& base_;
};

class ForwardingTrash : public Trash, protected Forwarding {
 public:
  explicit ForwardingTrash(Trash& base, CallHook hook = {})
      : Forwarding(std::move(hook)), base_(base) {}

  Status MoveToTrash(const ustring& path) override {
    return Do("MoveToTrash", [&] { return base_.MoveToTrash(path); });
  }

 private:
  Trash& base_;
};

}  // namespace tolven::platform
