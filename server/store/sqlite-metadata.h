// Metadata in one SQLite file (tables in sqlite-schema.cpp). Changes of all threads share commits,
// each of them synced; lookups use a connection of their own and never wait for a sync.
#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "platform/mutex.h"
#include "server/store/database.h"
#include "server/store/metadata.h"
#include "server/store/write-queue.h"
#include "ustring/ustring.h"

namespace tolven::server {

class SqliteMetadata : public Metadata {
 public:
  static constexpr unsigned kVersions = 32;

  // `versions`: how many older ones of a file are kept.
  explicit SqliteMetadata(unsigned versions = kVersions) : versions_(versions) {}

  // Opens the file, made when missing: 0 or -1.
  int Open(const ustring& path);

  int FindSession(const std::string& token, User& user) override;
  int FindUser(const std::string& name, User& user) override;
  int FindView(std::uint64_t id, View& view) override;
  int FindNode(std::uint64_t view, const std::string& path, Node& node) override;
  int FindVersion(std::uint64_t view, const std::string& path, std::uint64_t sync_id,
                  Node& node) override;
  int ListChanges(std::uint64_t view, const std::string& folder, std::uint64_t after,
                  std::size_t limit, std::vector<Node>& out) override;
  int ListProfiles(std::uint64_t user, std::vector<Profile>& out) override;
  int ListKnownContents(std::uint64_t view, const std::string& md4, std::uint64_t size,
                        const KnownContent& after, std::size_t limit,
                        std::vector<KnownContent>& out) override;
  int FindBytes(const std::string& sha256, std::string& bytes) override;
  std::uint64_t LastSmallContent() override;
  int ListSmallContents(std::size_t limit, std::vector<SmallContent>& out) override;
  Outcome DropBytes(const std::vector<std::uint64_t>& ids) override;
  int UsedBytes(std::uint64_t view, const std::string& path, std::uint64_t& bytes) override;
  Outcome PutNode(std::uint64_t view, const Put& put, Node& made) override;
  Outcome RemoveNode(std::uint64_t view, const std::string& path, std::uint64_t sync_id,
                     std::uint64_t max_id, Node& removed) override;
  int ListRuled(std::uint64_t view, const std::string& folder, std::vector<Node>& out) override;

  // --- for the administrator: 0 or -1, lookups as above ---
  // Sets the id, and a free uid in place of 0; -1 also when the name is taken.
  int AddUser(User& user);
  // A new random token, which is shown now and never again: only its hash is kept.
  int NewSession(const std::string& user, std::string& token);
  int AddView(View& view);  // sets the id and makes the root
  int FindViewByName(const std::string& name, View& view);
  int ListUsers(std::vector<User>& out);
  int ListViews(std::vector<View>& out);
  // Gives an existing object a list of its own, or none when empty, as a change of it.
  Outcome SetAcl(std::uint64_t view, const std::string& path, const std::string& acl);
  int SetProfiles(std::uint64_t user, const std::vector<Profile>& profiles);
  // All versions of a path that are kept, newest first.
  int ListVersions(std::uint64_t view, const std::string& path, std::vector<Node>& out);
  // Makes an older version the current one, as a new change.
  Outcome Restore(std::uint64_t view, const std::string& path, std::uint64_t sync_id, Node& made);
  // Calls `use` for each content that some version has.
  int ListContents(const std::function<void(const Content&)>& use);
  // Counts the contents whose bytes are here although no version has them, and removes these bytes
  // when told to. 0 or -1.
  int ListUnusedBytes(bool remove, std::uint64_t& count);
  // Tells what does not hold together; nothing when all is well.
  int Check(std::vector<std::string>& problems);

 private:
  int FindUserBy(Query& row, User& user, std::string& token_hash) REQUIRES(reader_lock_);
  // Runs a change and gives what it came to; kFailed when it was not made durable.
  Outcome Change(const std::function<Outcome(Database&)>& change);

  const unsigned versions_;
  WriteQueue writer_;
  Mutex reader_lock_;
  Database reader_ GUARDED_BY(reader_lock_);
};

}  // namespace tolven::server
