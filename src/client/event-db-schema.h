// The script that creates the file of the event database, or finds all of it there.
#pragma once

namespace tolven::event_db {

extern const char kSchema[];

}  // namespace tolven::event_db
