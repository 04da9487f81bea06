// The white list: extensions of files that may pass the filter. A file of sections Version (major,
// minor) and File (white_ext) in the grammar of filter/parser.h.
#pragma once

#include "filter/value-types.h"
#include "ustring/ustring.h"

namespace tolven {

struct WhiteFileSection {
  value_type_string_set white_ext;  // without the dot; "*" stands for all
};

struct WhiteList {
  VersionSection Version;
  WhiteFileSection File;
};

void _white_list_init(WhiteList* list);
void _white_list_destroy(WhiteList* list);
// 0, or -1 and an empty list, as _filter_read.
int _white_list_read(WhiteList* list, const ustring& path);

// 0 when the list allows the extension of `name`, -1 when not and for a null or empty name.
// Allocates nothing.
int _white_list_test(const WhiteList* list, const char* name);

}  // namespace tolven
