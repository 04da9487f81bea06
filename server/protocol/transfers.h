// Transfers that can be taken up again after a break, by the token that a client asked for before
// it began. What came of an upload waits in a file named by its token and outlives the process; of
// a download only what it was made from is remembered, so that its rest is of the same bytes.
//
// A token belongs to one user and one view: to everybody else it does not exist. Tokens are
// forgotten a day after their last use, and the oldest when there are too many.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/mutex.h"
#include "ustring/ustring.h"

namespace tolven::server {

class Transfers {
 public:
  struct Owner {
    std::uint64_t user = 0, view = 0;
  };

  class Claim;

  explicit Transfers(const ustring& folder) : folder_(folder) {}
  Transfers(const Transfers&) = delete;
  Transfers& operator=(const Transfers&) = delete;

  // Makes the folder, removes what is left of receptions that broke and finds the uploads that can
  // go on. 0 or -1.
  int Open();
  // Where contents are received before it is known what they belong to.
  ustring IncomingFolder() const { return folder_ + "/incoming"; }

  std::string NewToken(const Owner& owner);
  // Grows with every call: tells which of two moments was earlier.
  std::uint64_t NextOrder();
  // Takes hold of a token, for at most `wait_ms` waiting for who holds it now. Empty for a token
  // that is unknown, somebody else's, or still held. View 0: any.
  std::optional<Claim> Take(const std::string& token, const Owner& owner, int wait_ms);
  void ForgetOld();

 private:
  // From this moment on data begin at this place.
  struct Told {
    std::uint64_t order = 0, offset = 0;
  };
  struct Entry {
    Owner owner;
    std::int64_t last_use = 0;  // seconds
    std::vector<Told> told;     // in their order
    bool held = false;
    std::string source;  // what a download is made from
  };
  using Entries = std::map<std::string, Entry, std::less<>>;

  ustring PartPath(const std::string& token, const Owner& owner) const;
  void Find(const ustring& name);
  void DropOldest() REQUIRES(mutex_);
  void Release(const std::string& token, bool forget);

  const ustring folder_;
  Mutex mutex_;
  CondVar released_;
  Entries entries_ GUARDED_BY(mutex_);
  std::uint64_t order_ GUARDED_BY(mutex_) = 0;
};

// A token in the hands of one request.
class Transfers::Claim {
 public:
  ~Claim();
  Claim(Claim&& other) noexcept;
  Claim& operator=(Claim&&) = delete;

  // The file that holds what came of an upload, and how much that is (0 without a file).
  ustring PartPath() const;
  std::uint64_t PartSize() const;
  // PartSize, which the client was just told: data whose reception begins from now on continue
  // there.
  std::uint64_t TellSize();
  // Where the data of a reception begin that began at `order`.
  std::uint64_t StartOf(std::uint64_t order) const;
  // Adds what the file `received` has beyond the part, when it was received since `order`. Clients
  // that give a connection up ask anew before the server has read the rest of it: such data
  // overlap. `received` is gone afterwards. False when it fails; the part is then gone or as it
  // was.
  bool Add(const ustring& received, std::uint64_t length, std::uint64_t order);
  // What a download is made from, as its first request noted it.
  std::string Source() const;
  void SetSource(const std::string& source);
  // The transfer is over: the token is unknown from now on, its file gone.
  void Forget() { forget_ = true; }

 private:
  friend class Transfers;
  Claim(Transfers& table, std::string token, const Owner& owner)
      : table_(&table), token_(std::move(token)), owner_(owner) {}

  Transfers* table_;  // null: moved from
  std::string token_;
  Owner owner_;
  bool forget_ = false;
};

}  // namespace tolven::server
