// Mounts that nobody else sees: those of this process and of what it starts. Linux only.
#pragma once

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

#include <string>

#include "support/temp-folder.h"

namespace tolven::test {

class PrivateMounts {
 public:
  // Takes this thread into a namespace of its own. Where that is not allowed, or mounting is not,
  // nothing else may be called.
  PrivateMounts() {
    is_allowed_ = ::unshare(CLONE_NEWNS) == 0 &&
                  ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                  ::mount("none", probe_.path().c_str(), "tmpfs", 0, "size=64k") == 0 &&
                  ::umount(probe_.path().c_str()) == 0;
  }
  bool is_allowed() const { return is_allowed_; }

  // `folder` shows at `point`, which exists.
  static void Bind(const std::string& folder, const std::string& point) {
    EXPECT_EQ(::mount(folder.c_str(), point.c_str(), nullptr, MS_BIND, nullptr), 0) << point;
  }
  // A disk of its own, of that many bytes; empty at first.
  static void Disk(const std::string& point, std::size_t bytes) {
    EXPECT_EQ(::mount("none", point.c_str(), "tmpfs", 0, Size(bytes).c_str()), 0) << point;
  }
  // Lets such a disk have another size, or be written no more.
  static void Change(const std::string& point, std::size_t bytes, bool read_only = false) {
    const unsigned long flags = read_only ? MS_REMOUNT | MS_RDONLY : MS_REMOUNT;
    EXPECT_EQ(::mount("none", point.c_str(), "tmpfs", flags, Size(bytes).c_str()), 0) << point;
  }
  // At once, whatever is open on it.
  static void Away(const std::string& point) {
    EXPECT_EQ(::umount2(point.c_str(), MNT_DETACH), 0) << point;
  }

 private:
  static std::string Size(std::size_t bytes) { return "size=" + std::to_string(bytes); }

  TempFolder probe_;
  bool is_allowed_ = false;
};

}  // namespace tolven::test
