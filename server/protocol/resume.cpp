// "resume_get_token" and "resume_get_status".
#include "lib/proto-constants.h"
#include "server/protocol/command.h"

namespace tolven::server {

namespace {

constexpr int kPatienceMs = 5000;  // with a reception of the same token that is just breaking off

}  // namespace

std::optional<Transfers::Claim> TakeToken(Command& command) {
  const std::string token = command.request["resume_token"].asString().str();
  return command.service.transfers.Take(token, command.owner(), kPatienceMs);
}

std::uint32_t ResumeGetToken(Command& command) {
  const std::string token = command.service.transfers.NewToken(command.owner());
  if (token.empty()) return SPROTO_ERR_INTERNAL;
  command.answer["resume_token"] = ustring(token);
  return SPROTO_ERR_OK;
}

std::uint32_t ResumeGetStatus(Command& command) {
  auto claim = TakeToken(command);
  if (!claim) return SPROTO_ERR_RESUME_TOKEN;
  command.answer["file"]["offset"] = claim->TellSize();
  return SPROTO_ERR_OK;
}

}  // namespace tolven::server
