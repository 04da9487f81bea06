#include "platform/node-linux.h"

#include <fcntl.h>

#include "platform/errno-linux.h"

namespace tolven::platform {

PathArgument::PathArgument(const ustring& path) : text_(path.c_str_utf8()) {
  const std::string_view whole(text_);
  const std::size_t last = whole.find_last_not_of('/');
  if (last == std::string_view::npos || last + 1 == whole.size()) return;
  copy_ = whole.substr(0, last + 1);
  text_ = copy_.c_str();
}

std::string ParentOf(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return ".";
  return std::string(path.substr(0, slash == 0 ? 1 : slash));
}

std::string_view NameOf(std::string_view path) {
  return path.substr(path.rfind('/') + 1);  // npos + 1 is 0
}

namespace {

NodeKind KindOf(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFDIR:
      return NodeKind::kDirectory;
    case S_IFLNK:
      return NodeKind::kLink;
    case S_IFIFO:
      return NodeKind::kFifo;
    case S_IFSOCK:
      return NodeKind::kSocket;
    case S_IFCHR:
    case S_IFBLK:
      return NodeKind::kDevice;
    default:
      return NodeKind::kFile;
  }
}

}  // namespace

NodeInfo InfoOf(const struct stat& st) {
  NodeInfo info;
  info.kind = KindOf(st.st_mode);
  if (info.kind == NodeKind::kFile) info.size = static_cast<std::uint64_t>(st.st_size);
  info.mtime_ns = std::int64_t{st.st_mtim.tv_sec} * 1'000'000'000 + st.st_mtim.tv_nsec;
  info.volume_id = st.st_dev;
  info.file_id = st.st_ino;
  info.uid = st.st_uid;
  info.gid = st.st_gid;
  info.mode = st.st_mode & 07777;
  info.system = info.kind == NodeKind::kDevice || info.kind == NodeKind::kFifo ||
                info.kind == NodeKind::kSocket;
  return info;
}

int OpenFolder(const char* path, Links links) {
  const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | (links == Links::kRefuse ? O_NOFOLLOW : 0);
  return Retry([path, flags] { return ::open(path, flags); });
}

namespace {

class LinuxDirReader : public DirReader {
 public:
  LinuxDirReader(DIR* dir, bool want_info) : dir_(dir), want_info_(want_info) {}
  ~LinuxDirReader() override { ::closedir(dir_); }

  Status Next(DirItem& item, bool& done) override {
    for (;;) {
      done = false;
      errno = 0;
      const dirent* const entry = ::readdir(dir_);
      if (entry == nullptr) return errno != 0 ? LastError() : AtEnd(done);
      if (!want_info_ && entry->d_type != DT_UNKNOWN) {
        item.info = NodeInfo{};
        item.info.kind = KindOf(static_cast<mode_t>(DTTOIF(entry->d_type)));
      } else {
        struct stat st {};
        if (::fstatat(::dirfd(dir_), entry->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
          if (errno == ENOENT) continue;
          return LastError();
        }
        item.info = InfoOf(st);
      }
      item.name = entry->d_name;
      return {};
    }
  }

 private:
  // The C library tells the removal of the folder itself as a plain end.
  Status AtEnd(bool& done) {
    struct stat st {};
    if (::fstat(::dirfd(dir_), &st) != 0) return LastError();
    if (st.st_nlink == 0) return StatusFromErrno(ENOENT);
    done = true;
    return {};
  }

  DIR* const dir_;
  const bool want_info_;
};

}  // namespace

std::unique_ptr<DirReader> NewDirReader(DIR* dir, bool want_info) {
  return std::make_unique<LinuxDirReader>(dir, want_info);
}

}  // namespace tolven::platform
