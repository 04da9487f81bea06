// Names for a local object that has to step aside: it stays where it is, under a name that tells
// on which computer, when and why. Messages go to "conflict_rename_debug". Any thread may call.
#pragma once

#include "ustring/ustring.h"

namespace tolven {

// `path` is absolute; `tag` is "Conflict", "TailCharacterConflict" or "WhiteSpaceConflict". 0, or
// negative as from FSRename; nothing that exists is ever replaced.
int ConflictRename(const ustring& path, const ustring& computer_name, const ustring& tag);

// Takes the blanks at the end off a name; where that name is taken, it becomes one of the tag
// "WhiteSpaceConflict". With another `tag`, the result is put aside once more under that tag. A
// name of blanks only is put aside at once.
int WhiteSpaceConflictRename(const ustring& path, const ustring& computer_name, const ustring& tag);

// dir/report.txt becomes dir/report_pc1_Mar-05-143007-2014_Conflict.txt, in local time, and the
// next one in the same second dir/report_pc1_Mar-05-143007-2014_Conflict_1.txt. A name too long for
// a file system is shortened in front of the suffix.
ustring GenerateNewFileName(const ustring& path, const ustring& computer_name, const ustring& tag);

}  // namespace tolven
