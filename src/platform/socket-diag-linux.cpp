#include "platform/socket-diag-linux.h"

#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include "platform/errno-linux.h"

namespace tolven::platform {

namespace {

struct Question {
  nlmsghdr header;
  inet_diag_req_v2 request;
};

// Its answer comes at once or, where it is filtered away, never.
constexpr timeval kPatience{1, 0};

class DiagSocket {
 public:
  DiagSocket() : fd_(::socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_SOCK_DIAG)) {}
  ~DiagSocket() {
    if (fd_ >= 0) ::close(fd_);
  }
  DiagSocket(const DiagSocket&) = delete;
  DiagSocket& operator=(const DiagSocket&) = delete;

  Status Ask(const Question& question, void* answer, std::size_t size, std::size_t& got) const {
    if (fd_ < 0 || ::setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &kPatience, sizeof kPatience) != 0) {
      return LastError();
    }
    const ssize_t sent = Retry([&] { return ::send(fd_, &question, sizeof question, 0); });
    if (sent < 0) return LastError();
    const ssize_t received = Retry([&] { return ::recv(fd_, answer, size, 0); });
    if (received < 0) return LastError();
    got = static_cast<std::size_t>(received);
    return {};
  }

 private:
  const int fd_;
};

void Put(const sockaddr_storage& address, __be16& port, __be32 (&bytes)[4]) {
  if (address.ss_family == AF_INET) {
    const auto& in = reinterpret_cast<const sockaddr_in&>(address);
    port = in.sin_port;
    bytes[0] = in.sin_addr.s_addr;
  } else {
    const auto& in = reinterpret_cast<const sockaddr_in6&>(address);
    port = in.sin6_port;
    std::memcpy(bytes, &in.sin6_addr, sizeof bytes);
  }
}

Question Ask(const sockaddr_storage& local, const sockaddr_storage& remote) {
  Question question{};
  question.header.nlmsg_len = sizeof question;
  question.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
  question.header.nlmsg_flags = NLM_F_REQUEST;
  question.request.sdiag_family = static_cast<std::uint8_t>(local.ss_family);
  question.request.sdiag_protocol = IPPROTO_TCP;
  question.request.idiag_states = ~0U;
  inet_diag_sockid& id = question.request.id;
  Put(local, id.idiag_sport, id.idiag_src);
  Put(remote, id.idiag_dport, id.idiag_dst);
  std::fill(std::begin(id.idiag_cookie), std::end(id.idiag_cookie), INET_DIAG_NOCOOKIE);
  return question;
}

// The kernel finds a listener where there is no such connection.
bool IsAbout(const inet_diag_sockid& found, const inet_diag_sockid& wanted) {
  return found.idiag_sport == wanted.idiag_sport && found.idiag_dport == wanted.idiag_dport &&
         std::memcmp(found.idiag_src, wanted.idiag_src, sizeof found.idiag_src) == 0 &&
         std::memcmp(found.idiag_dst, wanted.idiag_dst, sizeof found.idiag_dst) == 0;
}

}  // namespace

Status QueryHolder(const sockaddr_storage& local, const sockaddr_storage& remote, uid_t& user) {
  if (local.ss_family != AF_INET && local.ss_family != AF_INET6) {
    return StatusFromErrno(EAFNOSUPPORT);
  }
  const Question question = Ask(local, remote);
  alignas(nlmsghdr) std::array<char, 4096> answer{};
  std::size_t got = 0;
  const Status status = DiagSocket().Ask(question, answer.data(), answer.size(), got);
  if (!status.ok()) return status;
  const auto* const header = reinterpret_cast<const nlmsghdr*>(answer.data());
  if (got >= NLMSG_LENGTH(sizeof(nlmsgerr)) && header->nlmsg_type == NLMSG_ERROR) {
    return StatusFromErrno(-static_cast<const nlmsgerr*>(NLMSG_DATA(header))->error);
  }
  if (got < NLMSG_LENGTH(sizeof(inet_diag_msg)) || header->nlmsg_type != SOCK_DIAG_BY_FAMILY) {
    return StatusFromErrno(EPROTO);
  }
  const auto* const found = static_cast<const inet_diag_msg*>(NLMSG_DATA(header));
  // An end that nobody holds any more has no object and the user 0.
  if (!IsAbout(found->id, question.request.id) || found->idiag_inode == 0) {
    return StatusFromErrno(ENOENT);
  }
  user = found->idiag_uid;
  return {};
}

}  // namespace tolven::platform
