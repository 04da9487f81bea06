// The one file of certificates that the daemon and tolvenctl trust: those that the user named for
// each connection, and that of the embedded server. It is read at each TLS handshake.
#pragma once

#include <string>
#include <vector>

#include "ctl/home.h"

namespace tolven::ctl {

// Writes the certificates of all `sources`, files or folders of files, to home.trusted, and has the
// channels of this process trust it, too. Only certificates are copied, never a key beside them. A
// source without any is an error: one line in `error`, and the file stays as it was.
bool WriteTrustBundle(const Home& home, const std::vector<ustring>& sources, std::string& error);

}  // namespace tolven::ctl
