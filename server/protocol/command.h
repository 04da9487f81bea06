// The commands of the object form: a request tree in, an answer tree out.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "lib/temp-file.h"
#include "protocol/object.h"
#include "server/protocol/long-work.h"
#include "server/protocol/received-contents.h"
#include "server/protocol/service.h"
#include "server/store/metadata.h"

namespace tolven::server {

// One request on its way. What the handler fills in is sent as it is; files that the answer, or the
// handler's own work, needs until then are removed afterwards.
struct Command {
  Command(Service& shared, LongWork& work, const ReceivedContents& contents, const PObject& tree,
          std::uint64_t order_of_request)
      : service(shared),
        long_work(work),
        received(contents),
        request(tree),
        order(order_of_request) {}

  Service& service;
  LongWork& long_work;
  const ReceivedContents& received;  // with the request
  const PObject& request;
  std::uint64_t order;  // Transfers::NextOrder of the moment before the request was received

  User user;         // of the session
  View view;         // of commands that name one
  std::string path;  // the same; a place in the view

  PObject answer;
  std::vector<TempFile> temporary;
  bool start_tls = false;  // both sides begin TLS behind the answer

  Transfers::Owner owner() const { return {user.id, view.id}; }
  // An empty file that goes in the end; an empty path when there is no room for it.
  ustring NewTemporary();
  // The same with these bytes.
  ustring NewTemporary(const std::string& bytes);
  // A file that holds the content until the end, not to be changed; an empty path when that fails.
  ustring FileOf(const Content& content);
};

// Whether requests under this command byte are trees.
bool IsObjectCommand(std::uint8_t command_byte);

// Answers a request: SPROTO_ERR_OK with `command.answer` filled, or the code of a refusal.
std::uint32_t RunCommand(std::uint8_t command_byte, Command& command);

// What a refusal tells beside its code.
const char* RefusalReason(std::uint32_t code);

// The handlers, by area.
std::uint32_t Connect(Command& command);
std::uint32_t EncryptChannel(Command& command);
std::uint32_t PullEvent(Command& command);
std::uint32_t GetProfile(Command& command);
// The part of an answer that tells which profiles the user has.
std::uint32_t AddProfileHash(Command& command);
std::uint32_t Upload(Command& command);
std::uint32_t ResumeUpload(Command& command);
std::uint32_t Remove(Command& command);
std::uint32_t Download(Command& command);
std::uint32_t ResumeDownload(Command& command);
std::uint32_t ResumeGetToken(Command& command);
std::uint32_t ResumeGetStatus(Command& command);
// The token of the request; empty when it is nobody's, somebody else's or in use elsewhere.
std::optional<Transfers::Claim> TakeToken(Command& command);

}  // namespace tolven::server
