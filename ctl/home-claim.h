// Keeps two processes of one user from changing the configuration at the same time, or from running
// two daemons.
#pragma once

#include <memory>

#include "ctl/home.h"
#include "server/store/database.h"

namespace tolven::ctl {

class HomeClaim {
 public:
  // False while another process has the claim. It ends with the object, or with the process,
  // however that ends.
  bool Take(const Home& home);

 private:
  std::unique_ptr<server::Database> database_;
};

}  // namespace tolven::ctl
