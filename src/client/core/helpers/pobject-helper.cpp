#include "client/core/helpers/pobject-helper.h"

#include "lib/file-op.h"

namespace tolven {

namespace {

bool IsBelow(const ustring& path, const ustring& folder) {
  const std::string_view text = path.view();
  return !folder.empty() && text.size() > folder.size() + 1 && text.starts_with(folder.view()) &&
         text[folder.size()] == '/';
}

}  // namespace

void PObjectHelper::ClearPObject(PObject& object, const ustring& prefix) {
  const PObject& tree = object;
  const PObject::binary_type& data = tree["file"]["data"].asBinary();
  if (!data.empty() && IsBelow(data.path, prefix)) (void)FSRemove(data.path, false);
  const PObject::binary_type& attribute = tree["mac_attribute"]["data"].asBinary();
  if (!attribute.empty()) (void)FSRemove(attribute.path, false);
  object.clear();
}

PObject PObjectHelper::MergeIfNotExist(const PObject& a, const PObject& b) {
  PObject merged = a;
  for (const auto& [key, value] : b.asMap()) {
    if (!a.hasMember(key)) merged[key] = value;
  }
  return merged;
}

}  // namespace tolven
