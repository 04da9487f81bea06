// The walk of a FileList from its last entry to its first.

#include <iterator>

#include "client/file-list.h"

namespace tolven {

FileList::reverse_iterator FileList::rbegin() const {
  reverse_iterator first = rend();
  first.enter(root());
  first.get_last();
  return first;
}

FileList::reverse_iterator& FileList::reverse_iterator::operator++() {
  if (state == PRINT_FILE) {
    --stack.back().file_it;
  } else if (stack.size() > 1) {
    stack.pop_back();
    --stack.back().dir_it;
    path.resize(stack.back().path_length);
  } else {
    return *this;
  }
  get_last();
  return *this;
}

void FileList::reverse_iterator::enter(DirNode* node) {
  if (!stack.empty()) path.append("/").append(node->name.ptr);
  stack.push_back({node, node->file.Sorted().size(), node->dir.end(), path.size()});
}

// Goes down to what is last among the files and directories that are left; a file and a directory
// of one name come as the directory first.
void FileList::reverse_iterator::get_last() {
  for (;;) {
    const stack_entry& top = stack.back();
    const bool has_file = top.file_it > 0;
    const bool has_dir = top.dir_it != top.node->dir.begin();
    state = has_file ? PRINT_FILE : PRINT_ME;
    if (!has_dir) break;
    const auto& [name, directory] = *std::prev(top.dir_it);
    if (has_file && name < top.node->file.Sorted()[top.file_it - 1].name) break;
    enter(directory);
  }
  show();
}

void FileList::reverse_iterator::show() {
  const stack_entry& top = stack.back();
  cur = top.node;
  ent.flag = state == PRINT_FILE ? 0 : 1;
  ent.path.assign(std::string_view(path));
  if (state == PRINT_ME) {
    flist->Unpack(cur->attr, ent.attr);
    return;
  }
  const FileSet::FileNode& file = cur->file.Sorted()[top.file_it - 1];
  ent.path.append("/").append(file.name.ptr);
  flist->Unpack(file.attr, ent.attr);
}

}  // namespace tolven
