// Moves the bytes of small contents, which come with the metadata so that one sync makes both
// durable, to the content store: a few at a time while more of them arrive, without a pause
// otherwise.
#pragma once

#include <cstddef>
#include <thread>

#include "platform/mutex.h"
#include "server/store/content-store.h"
#include "server/store/metadata.h"
#include "ustring/ustring.h"

namespace tolven::server {

class SmallContentMover {
 public:
  // Works in a thread of its own until it is destroyed. `folder` is for files on their way, on the
  // disk of the content store. The stores have to outlive it.
  SmallContentMover(Metadata& metadata, ContentStore& contents, ustring folder);
  ~SmallContentMover();
  SmallContentMover(const SmallContentMover&) = delete;
  SmallContentMover& operator=(const SmallContentMover&) = delete;

  // Moves some: whether there are more, and it can go on. For the thread, and for tests.
  bool MoveSome();

 private:
  void Run();
  bool Move(const SmallContent& small);
  // Whether it is to go on.
  bool Pause();

  Metadata& metadata_;
  ContentStore& contents_;
  const ustring folder_;
  Mutex mutex_;
  CondVar ending_;
  bool is_ending_ GUARDED_BY(mutex_) = false;
  std::thread thread_;
};

}  // namespace tolven::server
