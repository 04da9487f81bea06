// The force-hash-check list: extensions of files whose content is hashed on every look, because
// their programs change them without changing size or time. A file of sections Version (major,
// minor) and File (force_hash_ext) in the grammar of filter/parser.h.
#pragma once

#include "filter/value-types.h"
#include "ustring/ustring.h"

namespace tolven {

struct ForceHashFileSection {
  value_type_string_set force_hash_ext;  // without the dot; "*" stands for all
};

struct ForceHashCheckList {
  VersionSection Version;
  ForceHashFileSection File;
};

void _force_hash_check_list_init(ForceHashCheckList* list);
void _force_hash_check_list_destroy(ForceHashCheckList* list);
// 0, or -1 and an empty list, as _filter_read.
int _force_hash_check_list_read(ForceHashCheckList* list, const ustring& path);

// 1 when the list has the extension of `name`, 0 when not, -1 for a null or empty name. Note that
// the sense is not that of _white_list_test. Allocates nothing.
int _force_hash_extension_test(const ForceHashCheckList* list, const char* name);

}  // namespace tolven
