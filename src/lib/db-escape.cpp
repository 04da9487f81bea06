#include "lib/db-escape.h"

#include <algorithm>

namespace tolven {

namespace {

constexpr std::size_t kFirstSize = 4096;
constexpr char kLikeEscape = '\\';

enum class Placeholder { kText, kLikeText, kInt, kLongInt, kRawText };

struct PlaceholderName {
  std::string_view name;
  Placeholder placeholder;
};

constexpr PlaceholderName kPlaceholders[] = {{"@ZENT:VAR", Placeholder::kText},
                                             {"@ZENT:LVAR", Placeholder::kLikeText},
                                             {"@ZENT:INT", Placeholder::kInt},
                                             {"@ZENT:LLINT", Placeholder::kLongInt},
                                             {"@ZENT:NEVAR", Placeholder::kRawText}};

const PlaceholderName* FindPlaceholder(std::string_view format) {
  for (const PlaceholderName& candidate : kPlaceholders) {
    if (format.starts_with(candidate.name)) return &candidate;
  }
  return nullptr;
}

void AppendText(std::string& sql, std::string_view text, bool like) {
  for (const char c : text) {
    if (like && (c == '%' || c == '_' || c == kLikeEscape)) sql += kLikeEscape;
    if (c == '\'') sql += c;
    sql += c;
  }
}

void AppendArgument(std::string& sql, Placeholder placeholder, const DbArg& arg) {
  const std::string digits = std::to_string(arg.number);
  const std::string_view text = arg.is_number ? std::string_view(digits) : arg.text;
  switch (placeholder) {
    case Placeholder::kText:
      return AppendText(sql, text, false);
    case Placeholder::kLikeText:
      return AppendText(sql, text, true);
    case Placeholder::kRawText:
      sql += text;
      return;
    case Placeholder::kInt:
      sql += std::to_string(static_cast<std::int32_t>(arg.number));
      return;
    case Placeholder::kLongInt:
      sql += digits;
      return;
  }
}

}  // namespace

std::string SQLITEEscapeStringEX3(std::string_view format, std::span<const DbArg> args) {
  std::string sql;
  sql.reserve(kFirstSize);
  std::size_t next = 0;
  while (!format.empty()) {
    const std::size_t plain = std::min(format.find('@'), format.size());
    sql += format.substr(0, plain);
    format.remove_prefix(plain);
    if (const PlaceholderName* const found = FindPlaceholder(format)) {
      AppendArgument(sql, found->placeholder, next < args.size() ? args[next++] : DbArg(""));
      format.remove_prefix(found->name.size());
    } else if (!format.empty()) {
      sql += format.front();
      format.remove_prefix(1);
    }
  }
  return sql;
}

}  // namespace tolven
