// Sections, the older form of a body: an id, then a big-endian value whose width the id tells, or a
// 16-bit length and that many bytes. A reader asks for the sections one by one, in the order that
// the command fixes.
#pragma once

#include <cstdint>
#include <string>

#include "lib/channel.h"
#include "ustring/ustring.h"

namespace tolven::server {

// A text ends with its first NUL, should it hold one. All give 0, -2 when the channel failed, and
// reading also -5 for another section than the one that is due or a text of more than 8,192 bytes.
int ReadSection(Channel& channel, std::uint8_t id, std::uint32_t& value);
int ReadSection(Channel& channel, std::uint8_t id, ustring& text);
int WriteSection(Channel& channel, std::uint8_t id, std::uint8_t value);
int WriteSection(Channel& channel, std::uint8_t id, std::uint32_t value);
int WriteSection(Channel& channel, std::uint8_t id, const std::string& text);

}  // namespace tolven::server
