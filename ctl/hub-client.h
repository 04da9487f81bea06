// How a tolvenctl command talks to the resident tolvenctl of the same user.
#pragma once

#include <string>

#include "ctl/home.h"
#include "protocol/object.h"

namespace tolven::ctl {

class HubClient {
 public:
  explicit HubClient(Home home) : home_(std::move(home)) {}

  // Whether a resident answers.
  bool IsRunning() const;
  // One command and its answer. False with one line in `error` when there is no resident, or when
  // it could not carry the command out.
  bool Call(const PObject& command, PObject& answer, std::string& error) const;
  // One verb of the daemon and its reply.
  bool Verb(const PObject& request, PObject& reply, std::string& error) const;

 private:
  const Home home_;
};

}  // namespace tolven::ctl
