#include "filter/filter.h"

#include "filter/parser.h"

namespace tolven {

namespace {

schema_parser MakeSchema(Filter* filter) {
  CommonSection& common = filter->Common;
  FileSection& file = filter->File;
  DirectorySection& directory = filter->Directory;
  schema_parser schema;
  schema.sections = {
      {"Version", {{"major", &filter->Version.major}, {"minor", &filter->Version.minor}}},
      {"Common",
       {{"black_char", &common.black_char},
        {"black_prefix", &common.black_prefix},
        {"black_suffix", &common.black_suffix},
        {"black_name", &common.black_name},
        {"black_dir_prefix", &common.black_dir_prefix},
        {"black_path_prefix_selective_sync", &common.black_dir_prefix},
        {"max_length", &common.max_length},
        {"max_path", &common.max_path}}},
      {"File",
       {{"black_char", &file.black_char},
        {"black_prefix", &file.black_prefix},
        {"black_suffix", &file.black_suffix},
        {"black_glob", &file.black_glob},
        {"black_ext", &file.black_ext},
        {"black_name", &file.black_name},
        {"black_ext_selective_sync", &file.black_ext},
        {"black_name_selective_sync", &file.black_name},
        {"max_size", &file.max_size},
        {"max_size_selective_sync", &file.max_size}}},
      {"Directory",
       {{"black_char", &directory.black_char},
        {"black_name", &directory.black_name},
        {"black_prefix", &directory.black_prefix},
        {"black_suffix", &directory.black_suffix}}},
      {"EA", {{"black_ea_name", &filter->EA.black_ea_name}}},
  };
  return schema;
}

template <class Parse>
int ReadBy(Filter* filter, Parse parse) {
  const schema_parser schema = MakeSchema(filter);
  Parser parser(schema);
  const parse_result result = parse(parser);
  if (IsAccepted(schema, filter->Version, result)) return 0;
  _filter_destroy(filter);
  return -1;
}

}  // namespace

void _filter_init(Filter* filter) { *filter = Filter(); }
void _filter_copy(Filter* to, const Filter* from) { *to = *from; }
void _filter_destroy(Filter* filter) { *filter = Filter(); }

int _filter_read(Filter* filter, const ustring& path) {
  return ReadBy(filter, [&path](Parser& parser) { return parser.ParseFile(path); });
}

int _filter_parse(Filter* filter, std::string_view text) {
  return ReadBy(filter, [text](Parser& parser) { return parser.ParseText(text); });
}

}  // namespace tolven
