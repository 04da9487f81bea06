#include "client/db-file-info.h"

#include "client/event-db-columns.h"

namespace tolven {

PObject DBFileInfo::ToPObject() const {
  PObject object;
  object["isExist"] = isExist;
  event_db::VisitRecord(*this,
                        [&object](const char* name, const auto& field) { object[name] = field; });
  object["signaturePath"] = signaturePath;
  return object;
}

}  // namespace tolven
