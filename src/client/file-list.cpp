#include "client/file-list.h"

#include "client/event-path.h"

namespace tolven {

ustring FileList::Attribute::toString() const {
  return ustring("mtime: " + std::to_string(mtime) + ", size: " + std::to_string(size) +
                 ", acl_hash: '" + acl_hash.str() + "'");
}

FileList::FileList(StringBuffer& buffer) : buf_(buffer) {
  node_.push_back(std::make_unique<DirNode>());
  node_.front()->name.ptr = "/";
}

int FileList::AddFileAt(std::string_view path, std::uint32_t mtime, std::uint64_t size,
                        std::string_view acl_hash) {
  SplitPath split;
  if (!BaseName(path, split)) return -1;
  return AddFileTo(MakeDirectories(split.dir), split.name, Pack(mtime, size, acl_hash));
}

int FileList::AddNewFileAt(std::string_view path, std::uint32_t mtime, std::uint64_t size,
                           std::string_view acl_hash) {
  SplitPath split;
  if (!BaseName(path, split)) return -1;
  DirNode* const parent = MakeDirectories(split.dir);
  StringBuffer::String name;
  if (parent == nullptr || Intern(split.name, name) != 0) return -1;
  parent->file.Append(name, Pack(mtime, size, acl_hash));
  return 0;
}

int FileList::AddDirectory(const ustring& path, const Attribute& attr) {
  return AddPackedDirectory(path.view(), Pack(attr));
}

int FileList::AddDirectoryAt(std::string_view path, std::uint32_t mtime,
                             std::string_view acl_hash) {
  return AddPackedDirectory(path, Pack(mtime, 0, acl_hash));
}

FileSet::Attr FileList::Pack(std::uint32_t mtime, std::uint64_t size, std::string_view acl_hash) {
  FileSet::Attr packed{size, mtime, 0};
  StringBuffer::String text;
  if (acl_hash.empty() || Intern(acl_hash, text) != 0) return packed;
  const auto found = acl_index_.try_emplace(text.ptr, static_cast<std::uint32_t>(acl_hash_.size()));
  if (found.second) acl_hash_.push_back(text);
  packed.acl = found.first->second;
  return packed;
}

void FileList::Unpack(const FileSet::Attr& packed, Attribute& attr) const {
  attr.mtime = packed.mtime;
  attr.size = packed.size;
  attr.acl_hash = acl_hash_[packed.acl].ptr;
}

int FileList::Intern(std::string_view text, StringBuffer::String& out) {
  if (buf_.insert(text, out) == 0) return 0;
  incomplete_ = true;
  return -1;
}

int FileList::AddFileTo(DirNode* parent, std::string_view name, const FileSet::Attr& attr) {
  StringBuffer::String text;
  if (parent == nullptr || Intern(name, text) != 0) return -1;
  return parent->file.Add(text, attr) ? 0 : -1;
}

int FileList::AddDirectoryTo(DirNode* parent, std::string_view name, const FileSet::Attr& attr) {
  StringBuffer::String text;
  if (parent == nullptr || Intern(name, text) != 0) return -1;
  if (parent->file.Contains(text) || parent->dir.contains(text)) return -1;
  node_.push_back(std::make_unique<DirNode>());
  DirNode* const made = node_.back().get();
  made->name = text;
  made->parent = parent;
  made->attr = attr;
  parent->dir.emplace(text, made);
  return static_cast<int>(node_.size() - 1);
}

int FileList::AddPackedDirectory(std::string_view path, const FileSet::Attr& attr) {
  SplitPath split;
  if (!BaseName(path, split)) return -1;
  return AddDirectoryTo(MakeDirectories(split.dir), split.name, attr);
}

FileList::DirNode* FileList::FindNode(int handle) const {
  const auto index = static_cast<std::size_t>(handle);
  return handle < 0 || index >= node_.size() ? nullptr : node_[index].get();
}

FileList::DirNode* FileList::MakeDirectories(std::string_view dir) {
  if (last_node_ != nullptr && dir == last_dir_) return last_node_;
  DirNode* node = root();
  PathWalker walker(dir);
  for (std::string_view name = walker.Next(); !name.empty(); name = walker.Next()) {
    StringBuffer::String text;
    if (Intern(name, text) != 0) return nullptr;
    const auto found = node->dir.find(text);
    if (found != node->dir.end()) {
      node = found->second;
      continue;
    }
    const int made = AddDirectoryTo(node, name, {});
    if (made < 0) return nullptr;
    node = FindNode(made);
  }
  last_dir_ = dir;
  last_node_ = node;
  return node;
}

}  // namespace tolven
