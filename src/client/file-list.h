// A directory tree in memory: what a walk of the disk found, or what the event database remembers.
// Two of them are compared to find what a missed notification hid, so a whole volume must fit: an
// entry is packed into 24 bytes, and names come from a StringBuffer that both lists share.
//
// A list only grows, and is walked backwards: entries by descending name (in bytes) at each level,
// the content of a directory before the directory itself. Adding ends every walk.
//
// A list and its buffer belong to one thread.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "client/file-set.h"
#include "client/string-buffer.h"
#include "ustring/ustring.h"

namespace tolven {

class FileList {
 public:
  struct Attribute {
    std::uint32_t mtime = 0;  // seconds
    std::uint64_t size = 0;   // bytes
    ustring acl_hash;

    void clear() { *this = Attribute(); }
    bool operator==(const Attribute& other) const {
      return mtime == other.mtime && size == other.size && acl_hash == other.acl_hash;
    }
    bool operator!=(const Attribute& other) const { return !(*this == other); }
    ustring toString() const;
  };

  struct Entry {
    bool is_dir() const { return flag != 0; }
    bool is_file() const { return flag == 0; }

    int flag = 0;  // 0 for a file
    ustring path;  // from the list's root, beginning with "/"; empty for the root itself
    Attribute attr;
  };

  // A directory of the list, which owns it. The list's root has the handle 0.
  struct DirNode {
    StringBuffer::String name;
    DirNode* parent = nullptr;
    std::map<StringBuffer::String, DirNode*> dir;
    FileSet file;
    FileSet::Attr attr;
  };

  class reverse_iterator {
   public:
    const Entry& operator*() const { return ent; }
    const Entry* operator->() const { return &ent; }
    reverse_iterator& operator++();  // no effect at the end
    bool operator==(const reverse_iterator& other) const {
      return flist == other.flist && cur == other.cur && state == other.state;
    }
    bool operator!=(const reverse_iterator& other) const { return !(*this == other); }

   private:
    friend class FileList;
    enum State { PRINT_ME = 0, PRINT_DIR = 1, PRINT_FILE = 2 };
    // Where the walk stands in a directory: both positions move to the front.
    struct stack_entry {
      DirNode* node;
      std::size_t file_it;  // the one before is next
      std::map<StringBuffer::String, DirNode*>::const_iterator dir_it;
      std::size_t path_length;  // of the directory's own path
    };

    reverse_iterator(const FileList* list, DirNode* root) : flist(list), cur(root) {}
    void enter(DirNode* node);
    void get_last();
    void show();

    const FileList* flist;
    DirNode* cur;
    std::vector<stack_entry> stack;
    State state = PRINT_ME;
    std::string path;  // of the directory on top
    Entry ent;
  };

  // `buffer` outlives the list.
  explicit FileList(StringBuffer& buffer);
  ~FileList() = default;
  FileList(const FileList&) = delete;
  FileList& operator=(const FileList&) = delete;

  // AddFile gives 0, AddDirectory the handle of the new directory; both -1 when a file of that name
  // is there (for AddDirectory, a directory, too: the first add stands), for a handle that does not
  // exist, for a path that is empty or ends in "/" or leads through a file, and without memory.
  // Directories missing on the way of a path are made with an empty Attribute.
  int AddFile(DirNode* parent, const ustring& name, const Attribute& attr) {
    return AddFileTo(parent, name.view(), Pack(attr));
  }
  int AddFile(DirNode* parent, const ustring& name, std::uint32_t mtime, std::uint64_t size,
              const ustring& acl_hash) {
    return AddFileTo(parent, name.view(), Pack(mtime, size, acl_hash.view()));
  }
  int AddFile(int parent, const ustring& name, const Attribute& attr) {
    return AddFile(FindNode(parent), name, attr);
  }
  int AddFile(int parent, const ustring& name, std::uint32_t mtime, std::uint64_t size,
              const ustring& acl_hash) {
    return AddFile(FindNode(parent), name, mtime, size, acl_hash);
  }
  int AddFile(const ustring& path, const Attribute& attr) {
    return AddFile(path, attr.mtime, attr.size, attr.acl_hash);
  }
  int AddFile(const ustring& path, std::uint32_t mtime, std::uint64_t size,
              const ustring& acl_hash) {
    return AddFileAt(path.view(), mtime, size, acl_hash.view());
  }
  int AddFileAt(std::string_view path, std::uint32_t mtime, std::uint64_t size,
                std::string_view acl_hash);
  // The same without a look for a file of that name. REQUIRES: there is none, and no directory.
  int AddNewFileAt(std::string_view path, std::uint32_t mtime, std::uint64_t size,
                   std::string_view acl_hash);

  int AddDirectory(DirNode* parent, const ustring& name, const Attribute& attr) {
    return AddDirectoryTo(parent, name.view(), Pack(attr));
  }
  int AddDirectory(DirNode* parent, const ustring& name, std::uint32_t mtime,
                   const ustring& acl_hash) {
    return AddDirectoryTo(parent, name.view(), Pack(mtime, 0, acl_hash.view()));
  }
  int AddDirectory(int parent, const ustring& name, const Attribute& attr) {
    return AddDirectory(FindNode(parent), name, attr);
  }
  int AddDirectory(int parent, const ustring& name, std::uint32_t mtime, const ustring& acl_hash) {
    return AddDirectory(FindNode(parent), name, mtime, acl_hash);
  }
  int AddDirectory(const ustring& path, const Attribute& attr);
  int AddDirectory(const ustring& path, std::uint32_t mtime, const ustring& acl_hash) {
    return AddDirectoryAt(path.view(), mtime, acl_hash.view());
  }
  int AddDirectoryAt(std::string_view path, std::uint32_t mtime, std::string_view acl_hash);

  // Makes room for so many names in the buffer, for a list whose size is known before.
  void Expect(std::size_t entries) { (void)buf_.reserve(buf_.size() + entries); }

  reverse_iterator rbegin() const;
  reverse_iterator rend() const { return reverse_iterator(this, root()); }

  DirNode* root() const { return node_.front().get(); }
  bool empty() const { return node_.size() == 1 && root()->file.empty(); }
  // Whether some add failed for want of memory, so that the list lacks what was found.
  bool incomplete() const { return incomplete_; }

 private:
  FileSet::Attr Pack(const Attribute& attr) {
    return Pack(attr.mtime, attr.size, attr.acl_hash.view());
  }
  FileSet::Attr Pack(std::uint32_t mtime, std::uint64_t size, std::string_view acl_hash);
  void Unpack(const FileSet::Attr& packed, Attribute& attr) const;

  int Intern(std::string_view text, StringBuffer::String& out);
  int AddFileTo(DirNode* parent, std::string_view name, const FileSet::Attr& attr);
  int AddDirectoryTo(DirNode* parent, std::string_view name, const FileSet::Attr& attr);
  int AddPackedDirectory(std::string_view path, const FileSet::Attr& attr);
  DirNode* FindNode(int handle) const;
  // The directory of that path, made when missing; null when it cannot be.
  DirNode* MakeDirectories(std::string_view dir);

  StringBuffer& buf_;
  std::vector<std::unique_ptr<DirNode>> node_;  // in creation order; the index is the handle
  bool incomplete_ = false;
  // Few different ones occur, so entries hold an index.
  std::vector<StringBuffer::String> acl_hash_{1};
  std::unordered_map<const char*, std::uint32_t> acl_index_;
  // The directory of the last path, which is mostly that of the next one.
  std::string last_dir_;
  DirNode* last_node_ = nullptr;
};

}  // namespace tolven
