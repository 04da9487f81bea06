// The server's certificate: made at the first start unless the administrator brings one.
#pragma once

#include <string>

#include "ustring/ustring.h"

namespace tolven::server {

// Makes a key (P-256, PEM, readable by the owner alone) and a certificate that it signs itself, for
// this host's name, "localhost", the loopback addresses and `address`, valid for ten years. What is
// there already stays when both files are. 0 or -1, with a log line.
int EnsureCertificate(const ustring& certificate_path, const ustring& key_path,
                      const std::string& address);

// "AB:CD:...", the SHA-256 of the first certificate of a PEM file; empty when there is none.
std::string Fingerprint(const ustring& certificate_path);

}  // namespace tolven::server
