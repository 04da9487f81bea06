#include "zentproxy/lib/ntlm-message.h"

#include <openssl/rand.h>

#include <algorithm>
#include <limits>

#include "platform/clock.h"
#include "ustring/ustring.h"
#include "zentproxy/lib/proxy-types.h"

namespace tolven {

namespace {

constexpr std::string_view kSignature("NTLMSSP\0", 8);

constexpr std::uint32_t kUnicode = 0x00000001;
constexpr std::uint32_t kRequestTarget = 0x00000004;
constexpr std::uint32_t kNtlm = 0x00000200;
constexpr std::uint32_t kAlwaysSign = 0x00008000;
constexpr std::uint32_t kNtlm2Key = 0x00080000;
constexpr std::uint32_t kHasTargetInfo = 0x00800000;
constexpr std::uint32_t kOffer2 = kUnicode | kRequestTarget | kNtlm | kAlwaysSign | kNtlm2Key;
constexpr std::uint32_t kOffer1 = kUnicode | kNtlm | kAlwaysSign;

constexpr std::size_t kMaxType1 = 2048;
constexpr std::size_t kType1Head = 32;
constexpr std::size_t kType3Head = 64;
constexpr std::size_t kLeastChallenge = 25;  // less is not even looked into
constexpr std::size_t kChallengeHead = 32;
constexpr std::size_t kTargetInfoEnd = 48;

// From 1601 to 1970.
constexpr std::uint64_t kEpochTenths = 116'444'736'000'000'000;

std::uint32_t Get(std::string_view message, std::size_t at, int bytes) {
  std::uint32_t value = 0;
  for (int i = bytes; i-- > 0;) {
    value = value << 8 | static_cast<unsigned char>(message[at + static_cast<std::size_t>(i)]);
  }
  return value;
}

void Put(std::string& message, std::uint32_t value, int bytes) {
  for (int i = 0; i < bytes; ++i, value >>= 8) message += static_cast<char>(value & 0xFF);
}

void PutBuffer(std::string& message, std::size_t length, std::size_t offset) {
  Put(message, static_cast<std::uint32_t>(length), 2);
  Put(message, static_cast<std::uint32_t>(length), 2);
  Put(message, static_cast<std::uint32_t>(offset), 4);
}

// The text of the security buffer at `at`; false when it does not lie within the message.
bool GetBuffer(std::string_view message, std::size_t at, std::string_view& text) {
  const std::size_t length = Get(message, at, 2);
  const std::size_t offset = Get(message, at + 4, 4);
  text = {};
  if (length == 0) return true;
  if (offset > message.size() || length > message.size() - offset) return false;
  text = message.substr(offset, length);
  return true;
}

// UTF-8 of a text in UTF-16.
bool FromUnicode(std::string_view text, std::string& result) {
  if (text.size() % 2 != 0) return false;
  std::u16string units;
  for (std::size_t i = 0; i < text.size(); i += 2) {
    units += static_cast<char16_t>(Get(text, i, 2));
  }
  if (units.find(u'\0') != std::u16string::npos) return false;
  result = ustring(units.c_str()).str();
  return result.empty() == units.empty();
}

// Heads of type 3, and what they point at.
class Type3Writer {
 public:
  Type3Writer() { Put(head_ += kSignature, 3, 4); }
  void Add(std::string_view text) {
    is_too_long_ = is_too_long_ || text.size() > std::numeric_limits<std::uint16_t>::max();
    PutBuffer(head_, text.size(), kType3Head + body_.size());
    body_ += text;
  }
  int Finish(std::uint32_t flags, std::string& message) {
    if (is_too_long_) return kProxyInvalidParameters;
    Put(head_, flags, 4);
    message = head_ + body_;
    return 0;
  }

 private:
  std::string head_, body_;
  bool is_too_long_ = false;
};

template <class Hash>
std::string_view View(const Hash& hash) {
  return {reinterpret_cast<const char*>(hash.data()), hash.size()};
}

struct Responses {
  std::string lm, nt;
};

int Respond2(const ZENT_PROXY_AUTH_DATA& data, const std::string& domain,
             const NtlmChallengeMessage& challenge, Responses& responses) {
  NtlmChallenge nonce;
  if (RAND_bytes(nonce.data(), static_cast<int>(nonce.size())) != 1) return kProxyFailed;
  const NtlmHash key =
      _ntlm2_hash_password(_ntlm_hash_nt_password(data.szUserPasswd), data.szUserName, domain);
  const auto now = static_cast<std::uint64_t>(platform::clock().WallNanoseconds());
  responses.nt = Ntlm2Response(key, challenge.challenge, nonce, now / 100 + kEpochTenths,
                               challenge.target_info);
  responses.lm = View(Lm2Response(key, challenge.challenge, nonce));
  return 0;
}

void Respond1(const ZENT_PROXY_AUTH_DATA& data, const NtlmChallengeMessage& challenge,
              Responses& responses) {
  responses.lm =
      View(_ntlm_calc_resp(_ntlm_hash_lm_password(data.szUserPasswd), challenge.challenge));
  responses.nt =
      View(_ntlm_calc_resp(_ntlm_hash_nt_password(data.szUserPasswd), challenge.challenge));
}

}  // namespace

int ZENTProxyClientPrepareNTLMRequest(ZENT_PROXY_AUTH_DATA& data, std::string& message) {
  if (data.hashntlm2 == 0 && (data.hashnt == 0 || data.hashlm == 0)) {
    return kProxyInvalidParameters;
  }
  const std::string& host = data.szHostName;
  const std::string& domain = data.szDomainName;
  if (kType1Head + host.size() + domain.size() > kMaxType1) return kProxyInvalidParameters;
  data.flags = data.hashntlm2 != 0 ? kOffer2 : kOffer1;
  message = kSignature;
  Put(message, 1, 4);
  Put(message, data.flags, 4);
  PutBuffer(message, domain.size(), kType1Head + host.size());
  PutBuffer(message, host.size(), kType1Head);
  message += host + domain;
  return 0;
}

int ReadNtlmChallenge(std::string_view message, NtlmChallengeMessage& challenge) {
  if (message.size() < kLeastChallenge) return kProxyUnexpected;
  if (message.size() < kChallengeHead || !message.starts_with(kSignature) ||
      Get(message, 8, 4) != 2) {
    return kProxyFailed;
  }
  challenge = {};
  challenge.flags = Get(message, 20, 4);
  std::copy_n(message.data() + 24, challenge.challenge.size(), challenge.challenge.begin());
  std::string_view name, info;
  if (!GetBuffer(message, 12, name)) return kProxyFailed;
  const bool has_info = (challenge.flags & kHasTargetInfo) != 0;
  if (has_info && (message.size() < kTargetInfoEnd || !GetBuffer(message, 40, info))) {
    return kProxyFailed;
  }
  challenge.target_info = info;
  if ((challenge.flags & kUnicode) == 0) {
    challenge.target_name = name;
    return 0;
  }
  return FromUnicode(name, challenge.target_name) ? 0 : kProxyFailed;
}

int ZENTProxyClientNTLMResponseType3Cal(ZENT_PROXY_AUTH_DATA& data, std::string_view challenge,
                                        std::string& message) {
  NtlmChallengeMessage read;
  const int code = ReadNtlmChallenge(challenge, read);
  if (code < 0) return code;
  data.flags = read.flags;
  const std::string& domain = data.szDomainName.empty() ? read.target_name : data.szDomainName;
  Responses responses;
  if (data.hashntlm2 == 0) {
    Respond1(data, read, responses);
  } else if (Respond2(data, domain, read, responses) < 0) {
    return kProxyFailed;
  }
  const bool is_unicode = (read.flags & kUnicode) != 0;
  const auto encoded = [&](const std::string& text) {
    return is_unicode ? StrToUnicode(text) : text;
  };
  Type3Writer writer;
  writer.Add(responses.lm);
  writer.Add(responses.nt);
  writer.Add(encoded(domain));
  writer.Add(encoded(data.szUserName));
  writer.Add(encoded(data.szHostName));
  writer.Add({});
  return writer.Finish(data.flags, message);
}

}  // namespace tolven
