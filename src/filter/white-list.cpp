#include "filter/white-list.h"

#include "filter/extension.h"
#include "filter/parser.h"

namespace tolven {

void _white_list_init(WhiteList* list) { *list = WhiteList(); }
void _white_list_destroy(WhiteList* list) { *list = WhiteList(); }

int _white_list_read(WhiteList* list, const ustring& path) {
  schema_parser schema;
  schema.sections = {
      {"Version", {{"major", &list->Version.major}, {"minor", &list->Version.minor}}},
      {"File", {{"white_ext", &list->File.white_ext}}},
  };
  const parse_result result = Parser(schema).ParseFile(path);
  if (IsAccepted(schema, list->Version, result)) return 0;
  _white_list_destroy(list);
  return -1;
}

int _white_list_test(const WhiteList* list, const char* name) {
  if (name == nullptr || *name == '\0') return -1;
  return ListsExtension(list->File.white_ext, name) ? 0 : -1;
}

}  // namespace tolven
