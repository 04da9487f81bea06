#include "ctl/home-claim.h"

namespace tolven::ctl {

// A transaction that stays open.
bool HomeClaim::Take(const Home& home) {
  database_ = std::make_unique<server::Database>();
  return database_->Open(home.claim) &&
         database_->Execute("PRAGMA busy_timeout = 0; BEGIN IMMEDIATE;");
}

}  // namespace tolven::ctl
