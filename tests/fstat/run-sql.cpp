// run-sql FILE SQL: another process that uses a database. Exits with SQLite's code.
#include <sqlite3.h>

int main(int argc, char** argv) {
  if (argc != 3) return SQLITE_MISUSE;
  sqlite3* db = nullptr;
  int code = sqlite3_open(argv[1], &db);
  sqlite3_busy_timeout(db, 60000);
  if (code == SQLITE_OK) code = sqlite3_exec(db, argv[2], nullptr, nullptr, nullptr);
  sqlite3_close(db);
  return code;
}
