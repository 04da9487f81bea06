// What all connections share.
#pragma once

#include <string>

#include "platform/mutex.h"
#include "server/protocol/server.h"
#include "server/protocol/transfers.h"

namespace tolven::server {

// Lets a few at a time through. Deltas go through one: each keeps tens of megabytes while it runs.
class Gate {
 public:
  explicit Gate(unsigned places) : places_(places) {}

  class Pass {
   public:
    explicit Pass(Gate& gate) : gate_(gate) {
      MutexLock lock(gate_.mutex_);
      while (gate_.places_ == 0) gate_.freed_.Wait(gate_.mutex_);
      --gate_.places_;
    }
    ~Pass() {
      MutexLock lock(gate_.mutex_);
      ++gate_.places_;
      gate_.freed_.NotifyOne();
    }
    Pass(const Pass&) = delete;
    Pass& operator=(const Pass&) = delete;

   private:
    Gate& gate_;
  };

 private:
  Mutex mutex_;
  CondVar freed_;
  unsigned places_ GUARDED_BY(mutex_);
};

struct Service {
  Service(const ServeOptions& serve_options, Metadata& metadata_store, ContentStore& content_store,
          std::string id, unsigned deltas_at_once)
      : options(serve_options),
        metadata(metadata_store),
        contents(content_store),
        transfers(serve_options.data_dir + "/transfers"),
        deltas(deltas_at_once),
        server_id(std::move(id)) {}

  const ServeOptions& options;
  Metadata& metadata;
  ContentStore& contents;
  Transfers transfers;
  Gate deltas;
  const std::string server_id;  // tells this server from others, for the test of a connection
};

}  // namespace tolven::server
