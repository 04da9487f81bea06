// One authentication on a connection to a proxy, from the request for the target on to the answer
// that the connection now leads there. All results are those of ProxyResult.
#pragma once

#include "zentproxy/lib/ntlm-message.h"
#include "zentproxy/lib/proxy-socket.h"
#include "zentproxy/lib/proxy-types.h"

namespace tolven {

int ZENTProxyClientHandleNoAuth(const ProxySocket& socket, const PROXY_TARGET_INFO& target);
int ZENTProxyClientHandleBASICAuth(const ProxySocket& socket, const PROXY_TARGET_INFO& target,
                                   const PROXY_AUTH_INFO& auth);
int ZENTProxyClientHandleNTLMv1Auth(const ProxySocket& socket, const PROXY_TARGET_INFO& target,
                                    const PROXY_AUTH_INFO& auth);
int ZENTProxyClientHandleNTLMv2Auth(const ProxySocket& socket, const PROXY_TARGET_INFO& target,
                                    const PROXY_AUTH_INFO& auth);

// Reads the answer to a request of a type, and goes on with the negotiation where one follows.
// `data` is that of the NTLM types; null for others.
int ZENTProxyClientHandleHttpResponse(const ProxySocket& socket, PROXY_AUTH_TYPE type,
                                      const PROXY_TARGET_INFO& target, ZENT_PROXY_AUTH_DATA* data);

// Whether there is all that an authentication needs: 0 or kProxyInvalidParameters.
int _auth_parameter_valid_check(const PROXY_TARGET_INFO& target, const PROXY_AUTH_INFO& auth);

}  // namespace tolven
