#include "platform/attributes.h"

#include <limits>

namespace tolven::platform {

namespace {

constexpr std::uint32_t kHidden = 0x2;
constexpr std::uint32_t kSystem = 0x4;
constexpr std::uint32_t kDirectory = 0x10;
constexpr std::uint32_t kDevice = 0x40;
constexpr std::uint32_t kTemporary = 0x100;
constexpr std::uint32_t kReparsePoint = 0x400;
constexpr std::uint32_t kOffline = 0x1000;

constexpr std::int64_t kTicksTo1970 = 116444736000000000;
constexpr std::int64_t kNanosecondsInTick = 100;

NodeKind KindOf(std::uint32_t attributes) {
  if ((attributes & kDevice) != 0) return NodeKind::kDevice;
  if ((attributes & kReparsePoint) != 0) return NodeKind::kLink;
  return (attributes & kDirectory) != 0 ? NodeKind::kDirectory : NodeKind::kFile;
}

}  // namespace

NodeInfo InfoFromAttributes(std::uint32_t attributes) {
  NodeInfo info;
  info.kind = KindOf(attributes);
  info.hidden = (attributes & kHidden) != 0;
  info.system = (attributes & kSystem) != 0;
  info.offline = (attributes & kOffline) != 0;
  info.temporary = (attributes & kTemporary) != 0;
  info.read_only = (attributes & kReadOnlyAttribute) != 0;
  // Of a folder the attribute says nothing about what may be done in it.
  const bool locked = info.read_only && info.kind != NodeKind::kDirectory;
  info.mode = locked ? 0444 : info.kind == NodeKind::kDirectory ? 0777 : 0666;
  return info;
}

std::int64_t FromFileTime(std::uint32_t high, std::uint32_t low) {
  constexpr std::uint64_t kLargest = std::numeric_limits<std::int64_t>::max() / kNanosecondsInTick;
  const std::uint64_t ticks = std::uint64_t{high} << 32 | low;
  if (ticks > kLargest + kTicksTo1970) return std::numeric_limits<std::int64_t>::max();
  const std::int64_t since = static_cast<std::int64_t>(ticks) - kTicksTo1970;
  if (since < -static_cast<std::int64_t>(kLargest)) return std::numeric_limits<std::int64_t>::min();
  return since * kNanosecondsInTick;
}

std::uint64_t ToFileTime(std::int64_t ns) {
  std::int64_t ticks = ns / kNanosecondsInTick;
  if (ns % kNanosecondsInTick < 0) --ticks;
  return ticks <= -kTicksTo1970 ? 0 : static_cast<std::uint64_t>(ticks + kTicksTo1970);
}

}  // namespace tolven::platform
