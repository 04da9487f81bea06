#pragma once

#include <cstdint>

namespace tolven {

// Which work is to be interrupted: that of a session, of a connection, or of either. Nothing until
// one is set; the id 0 stands for all.
class AbortFilter {
 public:
  void SetSession(std::uint64_t id) {
    sess_id_ = id;
    sess_id_set_ = true;
  }
  void SetConnection(std::uint64_t id) {
    conn_id_ = id;
    conn_id_set_ = true;
  }
  bool MatchSession(std::uint64_t id) const {
    return sess_id_set_ && (sess_id_ == 0 || sess_id_ == id);
  }
  bool MatchConnection(std::uint64_t id) const {
    return conn_id_set_ && (conn_id_ == 0 || conn_id_ == id);
  }

 private:
  std::uint64_t sess_id_ = 0;
  std::uint64_t conn_id_ = 0;
  bool sess_id_set_ = false;
  bool conn_id_set_ = false;
};

}  // namespace tolven
