#include "client/event-db-functions.h"

#include "lib/file-op.h"

namespace tolven::event_db {

namespace {

void RemoveSignature(sqlite3_context* context, int, sqlite3_value** values) {
  const auto& sign_path = *static_cast<const ustring*>(sqlite3_user_data(context));
  const auto id = static_cast<std::uint64_t>(sqlite3_value_int64(values[0]));
  // A missing file is no error, and one that stays is removed when its name is given out again.
  if (id != 0) FSRemove(sign_path + "/" + path_convert(id), false);
  sqlite3_result_int(context, 0);
}

void BaseNameFunction(sqlite3_context* context, int, sqlite3_value** values) {
  const auto* const text = reinterpret_cast<const char*>(sqlite3_value_text(values[0]));
  const std::string_view name = text == nullptr ? std::string_view("") : BaseName(text);
  sqlite3_result_text64(context, name.data(), name.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
}

}  // namespace

std::string path_convert(std::uint64_t id) {
  constexpr char kDigits[] = "0123456789abcdef";
  int shift = 56;
  while (shift > 0 && id >> shift == 0) shift -= 8;
  std::string path;
  for (; shift >= 0; shift -= 8) {
    if (shift == 0) path += '.';
    path += kDigits[id >> (shift + 4) & 0xF];
    path += kDigits[id >> shift & 0xF];
    if (shift > 0) path += '/';
  }
  return path;
}

std::string_view BaseName(std::string_view path) { return path.substr(path.rfind('/') + 1); }

int CreateFunctions(sqlite3* db, const ustring* sign_path) {
  const int code =
      sqlite3_create_function(db, "remove_signature", 1, SQLITE_UTF8,
                              const_cast<ustring*>(sign_path), RemoveSignature, nullptr, nullptr);
  if (code != SQLITE_OK) return code;
  return sqlite3_create_function(db, "base_name", 1, SQLITE_UTF8, nullptr, BaseNameFunction,
                                 nullptr, nullptr);
}

}  // namespace tolven::event_db
