#include "zentproxy/lib/proxy-auth.h"

#include <openssl/evp.h>

#include <algorithm>
#include <charconv>
#include <string>
#include <string_view>

#include "zentproxy/lib/http-header.h"
#include "zentproxy/lib/proxy-log.h"

namespace tolven {

namespace {

constexpr int kSeconds = 10;
constexpr int kConnected = 200;
constexpr int kAuthenticate = 407;
constexpr int kProxyNotSent = kProxyNoMemory;  // of the last message; the two share a code
constexpr std::string_view kNtlmScheme = "NTLM ";

std::string ToBase64(std::string_view bytes) {
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');  // with the NUL that EVP writes
  const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                     reinterpret_cast<const unsigned char*>(bytes.data()),
                                     static_cast<int>(bytes.size()));
  text.resize(static_cast<std::size_t>(length));
  return text;
}

// Empty for what is no base64.
std::string FromBase64(std::string_view text) {
  std::string bytes(text.size() / 4 * 3 + 3, '\0');
  const int length = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                                     reinterpret_cast<const unsigned char*>(text.data()),
                                     static_cast<int>(text.size()));
  if (length < 0) return {};
  const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
  bytes.resize(static_cast<std::size_t>(length));
  bytes.resize(bytes.size() - std::min(padding, bytes.size()));
  return bytes;
}

// What every request begins with.
std::string BeginRequest(const PROXY_TARGET_INFO& target) {
  std::string host = target.szTargetAddress;
  if (host.find(':') != std::string::npos) host = "[" + host + "]";
  const std::string address = host + ":" + std::to_string(target.TargetPort);
  return "CONNECT " + address + " HTTP/1.1\r\nProxy-Connection: Keep-Alive\r\nHost: " + address +
         "\r\nContent-Length: 0\r\n";
}

int SendRequest(const ProxySocket& socket, const std::string& request) {
  if (ZENTProxyClientPacketSend(socket, request.data(), request.size(), kSeconds) == 0) return 0;
  LogProxy(Logger::L_ERR, L"[ERROR] lib/zentproxyauth [%d]Failed to send to proxy\n", __LINE__);
  return -1;
}

int SendAuthorized(const ProxySocket& socket, const PROXY_TARGET_INFO& target,
                   const std::string& credentials) {
  return SendRequest(socket,
                     BeginRequest(target) + "Proxy-Authorization: " + credentials + "\r\n\r\n");
}

// What the answer brings beside its header. A body that does not come, or not to its end, matters
// only to what is still to be read, which then fails by itself.
void ThrowBodyAway(const ProxySocket& socket, const PROXY_HTTP_HEADER_LIST& header) {
  std::string value;
  std::uint64_t length = 0;
  if (ZENTProxyClientHttpHdrListGetValByKey(header, "Content-Length", value)) {
    std::from_chars(value.data(), value.data() + value.size(), length);
    if (length == 0) return;
  } else if (!ZENTProxyClientHttpHdrListGetValByKey(header, "Content-Type", value)) {
    return;
  }
  if (ZENTProxyClientClearHttpContentByLength(socket, length, kSeconds) < 0) {
    LogProxy(Logger::L_WARNING, L"[WARN] lib/zentproxyauth [%d]Body of response not read\n",
             __LINE__);
  }
}

int ReadResponse(const ProxySocket& socket, int& code, PROXY_HTTP_HEADER_LIST& header) {
  if (ZENTProxyGetHttpResponseCode(socket, code) < 0) return kProxyFailed;
  if (ZENTProxyClientParseHttpHeader(socket, header) < 0) return kProxyFailed;
  ThrowBodyAway(socket, header);
  return socket.IsOver() ? kProxyFailed : kProxyOk;
}

int FindChallenge(const PROXY_HTTP_HEADER_LIST& header, std::string& challenge) {
  const PROXY_HTTP_HEADER_ENTRY* entry = nullptr;
  do {
    entry = ZENTProxyClientHttpHdrListGetNextEntryByKey(header, "Proxy-Authenticate", entry);
    if (entry == nullptr) return kProxyWantsOther;
  } while (!entry->szValue.starts_with(kNtlmScheme));
  challenge = FromBase64(std::string_view(entry->szValue).substr(kNtlmScheme.size()));
  return kProxyOk;
}

// From the answer with the challenge on.
int ZENTProxyClientHandleNTLMResponse(const ProxySocket& socket,
                                      const PROXY_HTTP_HEADER_LIST& header,
                                      const PROXY_TARGET_INFO& target, ZENT_PROXY_AUTH_DATA& data) {
  std::string challenge, message;
  int result = FindChallenge(header, challenge);
  if (result == kProxyOk) result = ZENTProxyClientNTLMResponseType3Cal(data, challenge, message);
  if (result < 0) return result;
  if (SendAuthorized(socket, target, "NTLM " + ToBase64(message)) < 0) return kProxyNotSent;
  int code = 0;
  PROXY_HTTP_HEADER_LIST answer;
  result = ReadResponse(socket, code, answer);
  if (result < 0) return result;
  return code == kConnected ? kProxyOk : kProxyResponseFailed;
}

int HandleNTLM(const ProxySocket& socket, PROXY_AUTH_TYPE type, const PROXY_TARGET_INFO& target,
               const PROXY_AUTH_INFO& auth) {
  if (_auth_parameter_valid_check(target, auth) < 0) return kProxyInvalidParameters;
  ZENT_PROXY_AUTH_DATA data{auth.szUserName, auth.szUserPasswd, auth.szUserDomain, auth.szUserHost};
  data.hashntlm2 = type == PROXY_NTLMv2_AUTH ? 1 : 0;
  data.hashnt = data.hashlm = type == PROXY_NTLM_AUTH ? 1 : 0;
  std::string message;
  const int result = ZENTProxyClientPrepareNTLMRequest(data, message);
  if (result < 0) return result;
  if (SendAuthorized(socket, target, "NTLM " + ToBase64(message)) < 0) return kProxyFailed;
  return ZENTProxyClientHandleHttpResponse(socket, type, target, &data);
}

}  // namespace

int _auth_parameter_valid_check(const PROXY_TARGET_INFO& target, const PROXY_AUTH_INFO& auth) {
  const bool is_valid = auth.szUserName != nullptr && auth.szUserPasswd != nullptr &&
                        auth.szUserDomain != nullptr && auth.szUserHost != nullptr &&
                        *auth.szUserName != '\0' && target.szTargetAddress != nullptr &&
                        *target.szTargetAddress != '\0';
  return is_valid ? kProxyOk : kProxyInvalidParameters;
}

int ZENTProxyClientHandleNoAuth(const ProxySocket& socket, const PROXY_TARGET_INFO& target) {
  if (SendRequest(socket, BeginRequest(target) + "\r\n") < 0) return kProxyFailed;
  return ZENTProxyClientHandleHttpResponse(socket, PROXY_NO_AUTH, target, nullptr);
}

int ZENTProxyClientHandleBASICAuth(const ProxySocket& socket, const PROXY_TARGET_INFO& target,
                                   const PROXY_AUTH_INFO& auth) {
  if (_auth_parameter_valid_check(target, auth) < 0) return kProxyInvalidParameters;
  const std::string credentials = std::string(auth.szUserName) + ":" + auth.szUserPasswd;
  if (SendAuthorized(socket, target, "Basic " + ToBase64(credentials)) < 0) return kProxyFailed;
  return ZENTProxyClientHandleHttpResponse(socket, PROXY_BASIC_AUTH, target, nullptr);
}

int ZENTProxyClientHandleNTLMv1Auth(const ProxySocket& socket, const PROXY_TARGET_INFO& target,
                                    const PROXY_AUTH_INFO& auth) {
  return HandleNTLM(socket, PROXY_NTLM_AUTH, target, auth);
}

int ZENTProxyClientHandleNTLMv2Auth(const ProxySocket& socket, const PROXY_TARGET_INFO& target,
                                    const PROXY_AUTH_INFO& auth) {
  return HandleNTLM(socket, PROXY_NTLMv2_AUTH, target, auth);
}

int ZENTProxyClientHandleHttpResponse(const ProxySocket& socket, PROXY_AUTH_TYPE type,
                                      const PROXY_TARGET_INFO& target, ZENT_PROXY_AUTH_DATA* data) {
  int code = 0;
  PROXY_HTTP_HEADER_LIST header;
  if (ReadResponse(socket, code, header) < 0) return kProxyFailed;
  if (code == kConnected) return kProxyOk;
  if (code != kAuthenticate) {
    LogProxy(Logger::L_ERR, L"[ERROR] lib/zentproxyauth [%d]Unhandled response code: %d\n",
             __LINE__, code);
    return kProxyUnexpected;
  }
  if (data == nullptr) return kProxyWantsOther;
  const int result = ZENTProxyClientHandleNTLMResponse(socket, header, target, *data);
  if (result == kProxyOk) return kProxyOk;
  LogProxy(Logger::L_INFO, L"[INFO] lib/zentproxyauth [%d]NTLM failed; rc='%d'; auth_type = '%d'\n",
           __LINE__, result, type);
  return kProxyResponseFailed;
}

}  // namespace tolven
