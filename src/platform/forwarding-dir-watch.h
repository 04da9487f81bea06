// See forwarding.h. The calls of a watch are "Read"; one that is made to fail is told as kFailed.
#pragma once

#include "platform/dir-watch.h"
#include "platform/forwarding.h"

namespace tolven::platform {

class ForwardingDirWatch : public DirWatch, protected Forwarding {
 public:
  ForwardingDirWatch(std::shared_ptr<DirWatch> base, CallHook hook)
      : Forwarding(std::move(hook)), base_(std::move(base)) {}

  WatchResult Read(std::vector<WatchRecord>& records, Status& status) override {
    status = Ask("Read");
    return status.ok() ? base_->Read(records, status) : WatchResult::kFailed;
  }

  const std::shared_ptr<DirWatch>& base() const { return base_; }

 private:
  const std::shared_ptr<DirWatch> base_;
};

class ForwardingDirWatchService : public DirWatchService, protected Forwarding {
 public:
  explicit ForwardingDirWatchService(DirWatchService& base, CallHook hook = {})
      : Forwarding(std::move(hook)), base_(base) {}

  Status Open(const ustring& root, const ustring& skip_name,
              std::shared_ptr<DirWatch>& watch) override {
    watch.reset();
    const Status status = Do("Open", [&] { return base_.Open(root, skip_name, watch); });
    if (watch != nullptr) watch = std::make_shared<ForwardingDirWatch>(std::move(watch), hook());
    return status;
  }

  int Wait(const std::vector<std::shared_ptr<DirWatch>>& watches, int timeout_ms,
           Status& status) override {
    status = Ask("Wait");
    if (!status.ok()) return -2;
    std::vector<std::shared_ptr<DirWatch>> inner;
    for (const auto& watch : watches) {
      const auto* const wrapper = dynamic_cast<const ForwardingDirWatch*>(watch.get());
      inner.push_back(wrapper != nullptr ? wrapper->base() : watch);
    }
    return base_.Wait(inner, timeout_ms, status);
  }

  ustring LimitHint() override { return base_.LimitHint(); }

 private:
  DirWatchService& base_;
};

}  // namespace tolven::platform
