#include "client/core/handlers/filter-gate.h"

#include "client/core/handlers/handler-log.h"
#include "client/core/helpers/filter-helper.h"
#include "client/file-event-db.h"
#include "lib/black-list2.h"
#include "lib/profile-set.h"

namespace tolven {

namespace {

constexpr int kSystemOffset = 0x10000;

}  // namespace

FilterGate::FilterGate(const EventContext& context, const char* source)
    : context_(context), source_(source) {}

int FilterGate::BlockBySystem(int filter_type) { return filter_type - kSystemOffset; }

int FilterGate::BlockedBySystem(int filter_type) const {
  if (filter_type == 0 || filter_type == FilterHelper::kNotLookedAt) return filter_type;
  HANDLER_DEBUG("Filtered Event (system): '%s'. (blocked: %d).", context_.GetPath(), filter_type);
  return BlockBySystem(filter_type);
}

int FilterGate::BlockedBySession(int filter_type) const {
  if (filter_type == 0) return 0;
  HANDLER_DEBUG("Filtered Event (session): '%s'. (blocked: %d).", context_.GetPath(), filter_type);
  return filter_type;
}

int FilterGate::TestPath() const {
  if (const int blocked = BlockedBySystem(FilterHelper::TestSystemFilter(context_)); blocked != 0) {
    return blocked;
  }
  return BlockedBySession(FilterHelper::TestCommonFilter(context_));
}

int FilterGate::TestSize(std::uint64_t size) const {
  int blocked = BlockedBySystem(BlackList2::getInstance().TestFileSize(size));
  if (blocked != 0) return blocked;
  blocked = BlockedBySession(context_.GetBlackList().TestFileSize(size));
  if (blocked != 0) return blocked;
  blocked = context_.ServerBlackLists().TestFileSize(size);
  if (blocked != 0) {
    HANDLER_DEBUG("Filtered Event(server profile): '%s'. (blocked: %d)", context_.GetPath(),
                  blocked);
  }
  return blocked;
}

bool FilterGate::CanBeRemembered(int filter_type) const {
  if (filter_type < 1 - kSystemOffset) return false;
  if (FileEventDB::IsValidFilterType(filter_type)) return true;
  HANDLER_DEBUG("filter type %d is not accepted", filter_type);
  return false;
}

}  // namespace tolven
