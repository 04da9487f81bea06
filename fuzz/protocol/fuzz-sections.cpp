// Any bytes as sections and records: refused, or read into what goes out and comes back the same.
// The first byte says as what the rest is read.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "lib/proto-client.h"
#include "lib/proto-common.h"
#include "lib/proto-section.h"
#include "support/memory-channel.h"

namespace {

using namespace tolven;  // NOLINT: a program of its own
using test::MemoryChannel;

void Require(bool held) {
  if (!held) std::abort();
}

// Reads one section of the kind that `Value` has. What was read is written and read once more.
template <class Value>
void ReadSection(MemoryChannel& in, int sec) {
  Value value{}, again{};
  const int size = ProtoReadSection(in, sec, value);
  if (size < 0) return;
  MemoryChannel out;
  Require(ProtoWriteSection(out, sec, value) == 0);
  Require(out.output().size() <= static_cast<std::size_t>(size));
  MemoryChannel copy(out.output());
  Require(ProtoReadSection(copy, sec, again) == static_cast<int>(out.output().size()));
  Require(again == value);
}

void ReadSections(MemoryChannel& in, std::string_view ids) {
  for (const char id : ids) {
    const int sec = static_cast<std::uint8_t>(id) % 64;
    const SYNC_SECTION_ATTR_tag* const attr = ProtoGetSecAttr(sec);
    if (attr == nullptr || attr->hasLen) {
      ReadSection<ustring>(in, sec);
    } else if (attr->len == 1) {
      ReadSection<std::uint8_t>(in, sec);
    } else if (attr->len == 2) {
      ReadSection<std::uint16_t>(in, sec);
    } else if (attr->len == 4) {
      ReadSection<std::uint32_t>(in, sec);
    } else {
      ReadSection<std::uint64_t>(in, sec);
    }
  }
}

void ReadRecords(MemoryChannel& in) {
  ObjectID id;
  ObjectMetadata metadata;
  View view;
  ProtocolVersion version;
  ustring password;
  (void)ProtoReadObjectId(in, id);
  (void)ProtoReadObjectMetadata(in, metadata);
  (void)ProtoReadView(in, view);
  (void)ProtoReadDecSection(in, SPROTO_ID_PASSWD, password);
  if (ProtoReadProtocolVersion(in, version) < 0) return;
  MemoryChannel out;
  ProtocolVersion again;
  Require(ProtoWriteProtocolVersion(out, version) == 0);
  MemoryChannel copy(out.output());
  Require(ProtoReadProtocolVersion(copy, again) == 0 && again.build == version.build);
}

void ReadAnswers(MemoryChannel& in) {
  std::uint8_t version = 0;
  ustring serial, server;
  (void)ProtoTestConnection(in, version, serial, server);
  SSLServiceResponse response;
  (void)ProtoWriteSSLServiceRequest2OLD(in, SSLServiceReq(), response);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  const std::size_t head = data[0] / 3;
  switch (data[0] % 3) {
    case 0: {  // as many ids as the first byte says, then the sections
      if (head > bytes.size()) return 0;
      MemoryChannel in(bytes.substr(head));
      ReadSections(in, bytes.substr(0, head));
      return 0;
    }
    case 1: {
      MemoryChannel in(bytes);
      ReadRecords(in);
      return 0;
    }
    default: {
      MemoryChannel in(bytes);
      ReadAnswers(in);
      return 0;
    }
  }
}
