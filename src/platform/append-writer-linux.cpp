// Large blocks are written by a thread of the writer's own, so that the caller fills its next
// buffer meanwhile. For a small one waking the thread costs more than the write.
#include <fcntl.h>
#include <unistd.h>

#include <thread>

#include "platform/errno-linux.h"
#include "platform/mutex.h"
#include "platform/node-linux.h"

namespace tolven::platform {

namespace {

constexpr std::size_t kWorthAThread = 256 * 1024;

struct Job {
  int file = -1;
  const char* data = nullptr;
  std::size_t size = 0;
};

Status WriteAtEnd(const Job& job, std::size_t& written) {
  written = 0;
  if (::lseek(job.file, 0, SEEK_END) < 0) return LastError();
  while (written < job.size) {
    const ssize_t count =
        Retry([&] { return ::write(job.file, job.data + written, job.size - written); });
    if (count < 0) return LastError();
    if (count == 0) return StatusFromErrno(EIO);
    written += static_cast<std::size_t>(count);
  }
  return {};
}

class LinuxAppendWriter : public AppendWriter {
 public:
  ~LinuxAppendWriter() override {
    if (!thread_.joinable()) return;
    {
      MutexLock lock(mutex_);
      quit_ = true;
      changed_.NotifyAll();
    }
    thread_.join();
  }

  Status Begin(NativeFile file, const void* data, std::size_t size) override {
    MutexLock lock(mutex_);
    if (state_ != State::kIdle) return StatusFromErrno(EINVAL);
    job_ = {static_cast<int>(file), static_cast<const char*>(data), size};
    if (size < kWorthAThread || !StartThread()) {
      result_ = WriteAtEnd(job_, written_);
      state_ = State::kDone;
    } else {
      state_ = State::kQueued;
      changed_.NotifyAll();
    }
    return {};
  }

  Status Wait(std::size_t& written) override {
    MutexLock lock(mutex_);
    written = 0;
    if (state_ == State::kIdle) return StatusFromErrno(EINVAL);
    while (state_ != State::kDone) changed_.Wait(mutex_);
    state_ = State::kIdle;
    written = written_;
    return result_;
  }

 private:
  enum class State { kIdle, kQueued, kDone };

  bool StartThread() {
    if (thread_.joinable()) return true;
    try {
      thread_ = std::thread([this] { Loop(); });
      return true;
    } catch (const std::system_error&) {
      return false;
    }
  }

  void Loop() {
    MutexLock lock(mutex_);
    for (;;) {
      while (state_ != State::kQueued && !quit_) changed_.Wait(mutex_);
      // A queued write is carried out even when the writer is being destroyed.
      if (state_ != State::kQueued) return;
      const Job job = job_;
      mutex_.unlock();
      std::size_t written = 0;
      const Status result = WriteAtEnd(job, written);
      mutex_.lock();
      result_ = result;
      written_ = written;
      state_ = State::kDone;
      changed_.NotifyAll();
    }
  }

  Mutex mutex_;
  CondVar changed_;
  State state_ GUARDED_BY(mutex_) = State::kIdle;
  bool quit_ GUARDED_BY(mutex_) = false;
  Job job_ GUARDED_BY(mutex_);
  Status result_ GUARDED_BY(mutex_);
  std::size_t written_ GUARDED_BY(mutex_) = 0;
  std::thread thread_;
};

}  // namespace

std::unique_ptr<AppendWriter> NewLinuxAppendWriter() {
  return std::make_unique<LinuxAppendWriter>();
}

}  // namespace tolven::platform
