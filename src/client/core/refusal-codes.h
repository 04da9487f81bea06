// What the codes of a server's refusals come to. Messages go to "syncer_debug".
#pragma once

#include <cstdint>

namespace tolven {

// Of an answer in object form, while pulling and in handshakes; 0 for a class that stands for no
// error.
int SyncerResp2ErrorCode(std::uint32_t code);

// Of a refused handshake, where older servers use the codes of the section form: never 0.
int HandshakeErrorCode(std::uint32_t code);

}  // namespace tolven
