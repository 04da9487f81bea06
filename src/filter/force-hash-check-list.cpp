#include "filter/force-hash-check-list.h"

#include "filter/extension.h"
#include "filter/parser.h"

namespace tolven {

void _force_hash_check_list_init(ForceHashCheckList* list) { *list = ForceHashCheckList(); }
void _force_hash_check_list_destroy(ForceHashCheckList* list) { *list = ForceHashCheckList(); }

int _force_hash_check_list_read(ForceHashCheckList* list, const ustring& path) {
  schema_parser schema;
  schema.sections = {
      {"Version", {{"major", &list->Version.major}, {"minor", &list->Version.minor}}},
      {"File", {{"force_hash_ext", &list->File.force_hash_ext}}},
  };
  const parse_result result = Parser(schema).ParseFile(path);
  if (IsAccepted(schema, list->Version, result)) return 0;
  _force_hash_check_list_destroy(list);
  return -1;
}

int _force_hash_extension_test(const ForceHashCheckList* list, const char* name) {
  if (name == nullptr || *name == '\0') return -1;
  return ListsExtension(list->File.force_hash_ext, name) ? 1 : 0;
}

}  // namespace tolven
