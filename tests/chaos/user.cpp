#include "chaos/user.h"

#include <algorithm>
#include <chrono>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "platform/files.h"
#include "support/temp-folder.h"

namespace tolven::test {

namespace {

namespace fs = std::filesystem;
using platform::files;

constexpr char kOwnFolder[] = ".ZentrovaWorkingDirectory";

std::string ReadAll(platform::NativeFile file) {
  std::string content, block(1 << 16, '\0');
  std::size_t got = 0;
  while (files().Read(file, block.data(), block.size(), got).ok() && got > 0) {
    content.append(block, 0, got);
  }
  return content;
}

bool WriteAll(platform::NativeFile file, std::string_view content) {
  std::size_t written = 0;
  return files().Write(file, content.data(), content.size(), written).ok();
}

}  // namespace

User::User(std::string name, std::string root, std::string aside, Ledger& ledger)
    : name_(std::move(name)), root_(std::move(root)), aside_(std::move(aside)), ledger_(ledger) {}

Operation User::Resolve(const Operation& operation) const {
  const Action action = operation.action;
  const bool wants_file =
      action == Action::kEdit || action == Action::kEditTwice || action == Action::kTouch;
  const bool wants_any =
      action == Action::kRemove || action == Action::kRename || action == Action::kChangeKind;
  std::error_code error;
  const std::string full = Full(operation.path);
  if (!wants_file && !wants_any) return operation;
  if (wants_file ? fs::is_regular_file(full, error) : fs::exists(full, error)) return operation;
  std::vector<std::string> paths;
  for (fs::recursive_directory_iterator at(root_, error), end; !error && at != end;
       at.increment(error)) {
    if (at->path().filename() == kOwnFolder) {
      at.disable_recursion_pending();
    } else if (wants_any || at->is_regular_file(error)) {
      paths.push_back(at->path().string().substr(root_.size() + 1));
    }
  }
  if (paths.empty()) return operation;
  std::sort(paths.begin(), paths.end());
  Operation resolved = operation;
  resolved.path = paths[operation.size % paths.size()];
  return resolved;
}

std::string User::Do(const Operation& planned) {
  const Operation operation = Resolve(planned);
  const std::string done = Apply(operation);
  return operation.path == planned.path ? done : "'" + operation.path + "' " + done;
}

std::string User::Apply(const Operation& operation) {
  switch (operation.action) {
    case Action::kWrite:
      return Write(operation, false, false);
    case Action::kWriteSlow:
      return Write(operation, false, true);
    case Action::kEdit:
      return Write(operation, true, false);
    case Action::kEditTwice: {
      const std::string first = Write(operation, true, false);
      std::this_thread::sleep_for(std::chrono::milliseconds(operation.size % 400));
      return first + ", " + Write(operation, true, false);
    }
    case Action::kSave:
      return Save(operation);
    case Action::kTouch:
      return Touch(operation);
    case Action::kRemove:
      return Remove(operation.path);
    case Action::kRename:
      return Rename(operation);
    case Action::kMakeFolder: {
      std::error_code error;
      return fs::create_directories(Full(operation.path), error) ? "made" : "nothing made";
    }
    case Action::kChangeKind:
      return ChangeKind(operation);
    case Action::kTidy:
      return Tidy();
    default:
      return "not a user's";
  }
}

bool User::MakeParents(const std::string& path) const {
  std::error_code error;
  const fs::path parent = fs::path(Full(path)).parent_path();
  // The root itself is not the user's to make.
  if (parent.string() == root_) return fs::is_directory(root_, error);
  return fs::is_directory(root_, error) &&
         (fs::is_directory(parent, error) || fs::create_directories(parent, error));
}

bool User::IsReachable(const std::string& path, std::uint64_t file_id) const {
  platform::NodeInfo at_path;
  if (files().Stat(ustring(Full(path)), at_path).ok() && at_path.file_id == file_id) return true;
  std::error_code error;
  for (fs::recursive_directory_iterator at(root_, error), end; !error && at != end;
       at.increment(error)) {
    platform::NodeInfo info;
    if (files().Stat(ustring(at->path().string()), info).ok() && info.file_id == file_id) {
      return true;
    }
  }
  return false;
}

bool User::Create(const std::string& path, const std::string& content) {
  platform::ScopedFile file;
  if (!MakeParents(path) ||
      !files()
           .Open(ustring(Full(path)), platform::OpenMode::kCreateExclusive, *file.receive())
           .ok() ||
      !WriteAll(file.get(), content)) {
    return false;
  }
  platform::NodeInfo info;
  const bool is_known = files().StatFile(file.get(), info).ok();
  file.Reset();
  if (is_known && IsReachable(path, info.file_id)) ledger_.Written(content, Where(path));
  return true;
}

// All that is seen and replaced is seen and replaced through one handle, whatever the name leads to
// meanwhile. What is written into an object that has lost its last name was never whole anywhere.
std::string User::Write(const Operation& operation, bool keep_size, bool slowly) {
  platform::ScopedFile file;
  if (!files()
           .Open(ustring(Full(operation.path)), platform::OpenMode::kModify, *file.receive())
           .ok()) {
    const std::string content = ledger_.Make(operation.size, "");
    return Create(operation.path, content) ? "made " + content.substr(0, content.find(' '))
                                           : "nothing made";
  }
  const std::string seen = ReadAll(file.get());
  const std::string content = ledger_.Make(keep_size ? seen.size() : operation.size, seen);
  const std::string number = content.substr(0, content.find(' '));
  ledger_.Destroyed(seen);
  const std::size_t half = slowly ? content.size() / 2 : content.size();
  bool is_whole = files().Seek(file.get(), 0).ok() &&
                  WriteAll(file.get(), std::string_view(content).substr(0, half));
  if (slowly) {
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    is_whole = is_whole && WriteAll(file.get(), std::string_view(content).substr(half));
  }
  platform::NodeInfo info;
  is_whole = is_whole && files().Truncate(file.get(), content.size()).ok() &&
             files().StatFile(file.get(), info).ok();
  file.Reset();
  if (!is_whole) return "failed";
  if (!IsReachable(operation.path, info.file_id))
    return "wrote " + number + " into what was replaced";
  ledger_.Written(content, Where(operation.path));
  return "wrote " + number + " over " + seen.substr(0, seen.find(' '));
}

std::string User::Save(const Operation& operation) {
  const std::string full = Full(operation.path);
  std::error_code error;
  if (!MakeParents(operation.path) || fs::is_directory(full, error)) return "nothing saved";
  const std::string seen = ReadFile(ustring(full));
  const std::string content = ledger_.Make(operation.size, seen);
  const std::string draft = aside_ + "/draft" + std::to_string(++saved_);
  WriteFile(ustring(draft), content);
  if (!files().RenameUnsynced(ustring(draft), ustring(full)).ok()) return "nothing saved";
  ledger_.Destroyed(seen);
  ledger_.Written(content, Where(operation.path));
  return "saved " + content.substr(0, content.find(' ')) + " over " +
         seen.substr(0, seen.find(' '));
}

std::string User::Touch(const Operation& operation) {
  const ustring full(Full(operation.path));
  platform::NodeInfo info;
  if (!files().Stat(full, info).ok() || info.kind != platform::NodeKind::kFile) return "nothing";
  const auto back = static_cast<std::int64_t>(operation.size) * 1'000'000'000;
  return files().SetModifiedTime(full, info.mtime_ns - back).ok() ? "touched" : "nothing";
}

// A folder's members one after the other, like any program does.
std::string User::Remove(const std::string& path) {
  const std::string full = Full(path);
  std::error_code error;
  if (!fs::is_directory(full, error)) {
    if (!fs::exists(full, error)) return "nothing";
    const std::string seen = ReadFile(ustring(full));
    if (!files().RemoveFile(ustring(full)).ok()) return "nothing";
    ledger_.Destroyed(seen);
    return "removed " + seen.substr(0, seen.find(' '));
  }
  std::vector<std::string> names;
  for (const auto& member : fs::directory_iterator(full, error)) {
    names.push_back(member.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  std::string done;
  for (const std::string& name : names) done += Remove(path + "/" + name) + ", ";
  return done + (files().RemoveDirectory(ustring(full)).ok() ? "removed folder" : "folder stays");
}

std::string User::Rename(const Operation& operation) {
  const std::string from = Full(operation.path), to = Full(operation.other);
  std::error_code error;
  if (from == to || !fs::exists(from, error) || !MakeParents(operation.other)) return "nothing";
  const std::string seen = fs::is_directory(to, error) ? "" : ReadFile(ustring(to));
  if (!files().RenameUnsynced(ustring(from), ustring(to)).ok()) return "nothing";
  ledger_.Destroyed(seen);
  return "renamed" + (seen.empty() ? "" : " over " + seen.substr(0, seen.find(' ')));
}

std::string User::ChangeKind(const Operation& operation) {
  std::error_code error;
  const std::string full = Full(operation.path);
  if (!fs::exists(full, error)) return "nothing";
  const bool was_folder = fs::is_directory(full, error);
  const std::string removed = Remove(operation.path);
  const std::string content = ledger_.Make(operation.size, "");
  const std::string path = was_folder ? operation.path : operation.path + "/b";
  return removed + ", " +
         (Create(path, content) ? "made " + content.substr(0, content.find(' ')) : "nothing made");
}

std::string User::Tidy() {
  std::vector<std::string> paths;
  std::error_code error;
  for (fs::recursive_directory_iterator at(root_, error), end; !error && at != end;
       at.increment(error)) {
    const std::string name = at->path().filename().string();
    if (name == kOwnFolder) {
      at.disable_recursion_pending();
    } else if (name.find("_Conflict") != std::string::npos) {
      paths.push_back(at->path().string().substr(root_.size() + 1));
      at.disable_recursion_pending();
    }
  }
  std::string done;
  for (const std::string& path : paths) done += path + " " + Remove(path) + ", ";
  return done;
}

}  // namespace tolven::test
