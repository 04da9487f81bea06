// Writes filters in the form that the parser reads. All that is not printing ASCII is escaped, so
// that the file survives any editor.
#include <cinttypes>
#include <cstddef>
#include <string>
#include <string_view>

#include "filter/filter.h"
#include "platform/whole-file.h"

namespace tolven {

namespace {

// The reader's limits.
constexpr std::size_t kLongestLine = 10297;
constexpr std::size_t kLongestString = 4096;

void AppendEscaped(std::string& text, char c) {
  static constexpr std::string_view kLetters = R"(abfnrtv'"\?)";
  static constexpr std::string_view kMeanings = "\a\b\f\n\r\t\v'\"\\?";
  static constexpr std::string_view kHex = "0123456789abcdef";
  const std::size_t known = kMeanings.find(c);
  if (known != std::string_view::npos) {
    text.append(1, '\\').append(1, kLetters[known]);
  } else if (c >= 0x20 && c < 0x7F) {
    text.append(1, c);
  } else {
    const unsigned code = static_cast<unsigned char>(c);
    text.append("\\x").append(1, kHex[code >> 4]).append(1, kHex[code & 15]);
  }
}

std::string Quoted(std::string_view value) {
  std::string text = "\"";
  for (const char c : value) AppendEscaped(text, c);
  return text.append("\"");
}

class FilterText {
 public:
  explicit FilterText(const Filter& filter) {
    text_ += "[Version]\n";
    text_ += "major = " + std::to_string(filter.Version.major) + "\n";
    text_ += "minor = " + std::to_string(filter.Version.minor) + "\n";
    Add(filter.Common);
    Add(filter.File);
    Add(filter.Directory);
    text_ += "[EA]\n";
    Add("black_ea_name", filter.EA.black_ea_name);
  }

  const std::string& text() const { return text_; }
  // Whether the parser takes every value of it.
  bool readable() const { return readable_; }

 private:
  void Add(const CommonSection& common) {
    text_ += "[Common]\n";
    Add("black_char", common.black_char);
    Add("black_prefix", common.black_prefix);
    Add("black_suffix", common.black_suffix);
    Add("black_name", common.black_name);
    Add("black_dir_prefix", common.black_dir_prefix);
    Add("max_length", common.max_length);
    Add("max_path", common.max_path);
  }
  void Add(const FileSection& file) {
    text_ += "[File]\n";
    Add("black_char", file.black_char);
    Add("black_prefix", file.black_prefix);
    Add("black_suffix", file.black_suffix);
    Add("black_glob", file.black_glob);
    Add("black_ext", file.black_ext);
    Add("black_name", file.black_name);
    Add("max_size", file.max_size);
  }
  void Add(const DirectorySection& directory) {
    text_ += "[Directory]\n";
    Add("black_char", directory.black_char);
    Add("black_name", directory.black_name);
    Add("black_prefix", directory.black_prefix);
    Add("black_suffix", directory.black_suffix);
  }

  void Add(std::string_view key, std::uint64_t value) {
    if (value != 0) text_.append(key).append(" = ").append(std::to_string(value)).append("\n");
  }
  void Add(std::string_view key, const value_type_string& value) {
    if (value.str.empty()) return;
    Begin(key);
    AddItem(value.str, false);
    text_ += "\n";
  }
  void Add(std::string_view key, const value_type_string_set& values) {
    if (values.set.empty()) return;
    Begin(key);
    for (const std::string& entry : values.set) AddItem(entry, &entry != &values.set.back());
    text_ += "\n";
  }

  void Begin(std::string_view key) {
    line_ = text_.size();
    text_.append(key).append(" = ");
  }
  // A set that is too long for one line goes on in the next: the reader cuts longer lines.
  void AddItem(std::string_view value, bool more) {
    const std::string quoted = Quoted(value);
    const std::size_t size = quoted.size() + 2;  // with a comma and the line end
    if (text_.back() == ',' && text_.size() - line_ + size > kLongestLine) {
      text_ += "\n";
      line_ = text_.size();
    }
    readable_ = readable_ && !value.empty() && value.size() <= kLongestString &&
                text_.size() - line_ + size <= kLongestLine;
    text_ += quoted;
    if (more) text_ += ",";
  }

  std::string text_;
  std::size_t line_ = 0;  // where the line being written begins
  bool readable_ = true;
};

}  // namespace

int _filter_write(const Filter* filter, const ustring& path) {
  const FilterText content(*filter);
  return content.readable() && platform::ReplaceWholeFile(path, content.text()).ok() ? 0 : -1;
}

void _filter_print(const Filter* filter, std::FILE* stream) {
  const FilterText content(*filter);
  std::fwrite(content.text().data(), 1, content.text().size(), stream);
}

}  // namespace tolven
