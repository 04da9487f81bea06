#include "server/protocol/transfers.h"

#include <openssl/rand.h>

#include <algorithm>
#include <charconv>
#include <memory>
#include <utility>
#include <vector>

#include "lib/log.h"
#include "platform/clock.h"
#include "platform/files.h"

namespace tolven::server {

namespace {

constexpr const char* kCategory = "server";
constexpr std::size_t kMaxTokens = 20000;
constexpr std::int64_t kLifeSeconds = 24 * 3600;
constexpr std::size_t kBlock = 256 * 1024;
constexpr std::size_t kMaxTold = 16;  // more statuses than that never overlap with a reception
constexpr std::string_view kSuffix = ".part";

std::string RandomToken() {
  unsigned char bytes[16];
  if (RAND_bytes(bytes, sizeof bytes) != 1) return {};
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const unsigned char byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

bool TakeNumber(std::string_view& text, char prefix, std::uint64_t& number) {
  if (text.empty() || text.front() != prefix) return false;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data() + 1, end, number);
  if (error != std::errc() || stop == end || *stop != '-') return false;
  text.remove_prefix(static_cast<std::size_t>(stop - text.data()) + 1);
  return true;
}

bool BelongsTo(const Transfers::Owner& owner, const Transfers::Owner& asking) {
  return owner.user == asking.user && (asking.view == 0 || owner.view == asking.view);
}

// Calls `visit` with the name of each file of a folder.
template <class Visit>
platform::Status EachFile(const ustring& folder, Visit visit) {
  std::unique_ptr<platform::DirReader> reader;
  platform::Status status = platform::files().OpenRealDirectory(folder, false, reader);
  bool done = false;
  while (status.ok() && !done) {
    platform::DirItem item;
    status = reader->Next(item, done);
    if (status.ok() && !done && item.info.kind == platform::NodeKind::kFile) visit(item.name);
  }
  return status;
}

// Appends what `source` holds from `offset` on.
bool AppendFrom(const ustring& source, std::uint64_t offset, const ustring& target) {
  platform::Files& files = platform::files();
  platform::ScopedFile in, out;
  bool good = files.Open(source, platform::OpenMode::kRead, *in.receive()).ok() &&
              files.Seek(in.get(), offset).ok() &&
              files.Open(target, platform::OpenMode::kAppend, *out.receive()).ok();
  std::vector<char> block(kBlock);
  for (std::size_t got = 1; good && got > 0;) {
    std::size_t written = 0;
    good = files.Read(in.get(), block.data(), block.size(), got).ok() &&
           files.Write(out.get(), block.data(), got, written).ok();
  }
  return good && files.Close(out.Release()).ok();
}

platform::Status MakeFolder(const ustring& path) {
  const platform::Status made = platform::files().MakeDirectoryMode(path, 0700);
  return made.is(platform::ErrorKind::kExists) ? platform::Status() : made;
}

}  // namespace

int Transfers::Open() {
  platform::Status status = MakeFolder(folder_);
  if (status.ok()) status = MakeFolder(IncomingFolder());
  std::vector<ustring> leftovers, parts;
  if (status.ok()) {
    status = EachFile(IncomingFolder(), [&](const ustring& name) { leftovers.push_back(name); });
  }
  if (status.ok()) status = EachFile(folder_, [&](const ustring& name) { parts.push_back(name); });
  if (!status.ok()) {
    Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] transfers(%d): folder '%s': %s\n", __LINE__,
                   folder_, platform::StatusText(status));
    return -1;
  }
  for (const ustring& name : leftovers) {
    (void)platform::files().RemoveFile(IncomingFolder() + "/" + name);
  }
  for (const ustring& name : parts) Find(name);
  ForgetOld();
  return 0;
}

ustring Transfers::PartPath(const std::string& token, const Owner& owner) const {
  return folder_ + "/u" + std::to_string(owner.user) + "-v" + std::to_string(owner.view) + "-" +
         token + std::string(kSuffix);
}

void Transfers::Find(const ustring& name) {
  std::string_view text = name.view();
  Entry entry;
  platform::NodeInfo info;
  if (!TakeNumber(text, 'u', entry.owner.user) || !TakeNumber(text, 'v', entry.owner.view) ||
      !text.ends_with(kSuffix) || !platform::files().Stat(folder_ + "/" + name, info).ok()) {
    return;
  }
  text.remove_suffix(kSuffix.size());
  entry.last_use = info.mtime_ns / 1'000'000'000;
  entry.told.push_back({0, info.size});
  MutexLock lock(mutex_);
  entries_.insert_or_assign(std::string(text), std::move(entry));
}

std::string Transfers::NewToken(const Owner& owner) {
  std::string token = RandomToken();
  if (token.empty()) return token;
  MutexLock lock(mutex_);
  if (entries_.size() >= kMaxTokens) DropOldest();
  Entry entry;
  entry.owner = owner;
  entry.last_use = platform::clock().WallSeconds();
  entries_.insert_or_assign(token, std::move(entry));
  return token;
}

void Transfers::DropOldest() {
  auto oldest = entries_.end();
  for (auto entry = entries_.begin(); entry != entries_.end(); ++entry) {
    if (entry->second.held) continue;
    if (oldest == entries_.end() || entry->second.last_use < oldest->second.last_use) {
      oldest = entry;
    }
  }
  if (oldest == entries_.end()) return;
  (void)platform::files().RemoveFile(PartPath(oldest->first, oldest->second.owner));
  entries_.erase(oldest);
}

void Transfers::ForgetOld() {
  const std::int64_t limit = platform::clock().WallSeconds() - kLifeSeconds;
  MutexLock lock(mutex_);
  for (auto entry = entries_.begin(); entry != entries_.end();) {
    if (entry->second.held || entry->second.last_use >= limit) {
      ++entry;
      continue;
    }
    (void)platform::files().RemoveFile(PartPath(entry->first, entry->second.owner));
    entry = entries_.erase(entry);
  }
}

std::uint64_t Transfers::NextOrder() {
  MutexLock lock(mutex_);
  return ++order_;
}

std::optional<Transfers::Claim> Transfers::Take(const std::string& token, const Owner& owner,
                                                int wait_ms) {
  const std::int64_t limit = platform::clock().MonotonicMilliseconds() + wait_ms;
  MutexLock lock(mutex_);
  for (;;) {
    const auto entry = entries_.find(token);
    if (entry == entries_.end() || !BelongsTo(entry->second.owner, owner)) return std::nullopt;
    if (!entry->second.held) {
      entry->second.held = true;
      entry->second.last_use = platform::clock().WallSeconds();
      return Claim(*this, token, entry->second.owner);
    }
    const std::int64_t left = limit - platform::clock().MonotonicMilliseconds();
    if (left <= 0) return std::nullopt;
    released_.WaitFor(mutex_, std::chrono::milliseconds(left));
  }
}

void Transfers::Release(const std::string& token, bool forget) {
  MutexLock lock(mutex_);
  const auto entry = entries_.find(token);
  if (forget) {
    (void)platform::files().RemoveFile(PartPath(token, entry->second.owner));
    entries_.erase(entry);
  } else {
    entry->second.held = false;
    entry->second.last_use = platform::clock().WallSeconds();
  }
  released_.NotifyAll();
}

Transfers::Claim::Claim(Claim&& other) noexcept
    : table_(std::exchange(other.table_, nullptr)),
      token_(std::move(other.token_)),
      owner_(other.owner_),
      forget_(other.forget_) {}

Transfers::Claim::~Claim() {
  if (table_ != nullptr) table_->Release(token_, forget_);
}

ustring Transfers::Claim::PartPath() const { return table_->PartPath(token_, owner_); }

std::uint64_t Transfers::Claim::PartSize() const {
  platform::NodeInfo info;
  return platform::files().Stat(PartPath(), info).ok() ? info.size : 0;
}

std::uint64_t Transfers::Claim::TellSize() {
  const std::uint64_t size = PartSize();
  MutexLock lock(table_->mutex_);
  std::vector<Told>& told = table_->entries_.find(token_)->second.told;
  if (told.empty() || told.back().offset != size) told.push_back({++table_->order_, size});
  if (told.size() > kMaxTold) told.erase(told.begin());
  return size;
}

std::uint64_t Transfers::Claim::StartOf(std::uint64_t order) const {
  MutexLock lock(table_->mutex_);
  std::uint64_t start = 0;
  for (const Told& each : table_->entries_.find(token_)->second.told) {
    if (each.order < order) start = each.offset;
  }
  return start;
}

bool Transfers::Claim::Add(const ustring& received, std::uint64_t length, std::uint64_t order) {
  platform::Files& files = platform::files();
  const std::uint64_t size = PartSize(), start = StartOf(order);
  if (size == 0 && start == 0) return files.Rename(received, PartPath()).ok();
  bool good = start <= size;
  if (good && start + length > size) {
    good = AppendFrom(received, size - start, PartPath());
    // Half of it would be bytes at the wrong place for whoever goes on.
    if (!good) (void)files.RemoveFile(PartPath());
  }
  (void)files.RemoveFile(received);
  return good;
}

std::string Transfers::Claim::Source() const {
  MutexLock lock(table_->mutex_);
  return table_->entries_.find(token_)->second.source;
}

void Transfers::Claim::SetSource(const std::string& source) {
  MutexLock lock(table_->mutex_);
  table_->entries_.find(token_)->second.source = source;
}

}  // namespace tolven::server
