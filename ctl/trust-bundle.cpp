#include "ctl/trust-bundle.h"

#include <string_view>

#include "lib/channel.h"
#include "lib/file-op.h"
#include "platform/files.h"

namespace tolven::ctl {
namespace {

constexpr std::string_view kBegin = "-----BEGIN CERTIFICATE-----";
constexpr std::string_view kEnd = "-----END CERTIFICATE-----";

// The blocks of a PEM file.
std::string Certificates(std::string_view text) {
  std::string blocks;
  for (;;) {
    const std::size_t begin = text.find(kBegin);
    const std::size_t end = begin == text.npos ? text.npos : text.find(kEnd, begin);
    if (end == text.npos) return blocks;
    blocks.append(text.substr(begin, end + kEnd.size() - begin)).append("\n");
    text.remove_prefix(end + kEnd.size());
  }
}

std::string CertificatesAt(const ustring& path) {
  std::string text;
  platform::NodeInfo info;
  if (!platform::files().StatTarget(path, info).ok()) return {};
  if (info.kind != platform::NodeKind::kDirectory) {
    return ReadSmallFile(path, text) ? Certificates(text) : std::string();
  }
  std::string blocks;
  DIR_HANDLE folder;
  DIR_ENTRY entry;
  FSOpenDir(path, 0, folder);
  while (FSReadDir(folder, entry) == 1) {
    if (entry.type == FT_FILE && ReadSmallFile(path + "/" + entry.name, text)) {
      blocks += Certificates(text);
    }
  }
  FSCloseDir(folder);
  return blocks;
}

}  // namespace

bool WriteTrustBundle(const Home& home, const std::vector<ustring>& sources, std::string& error) {
  std::string bundle;
  for (const ustring& source : sources) {
    const std::string blocks = CertificatesAt(source);
    if (blocks.empty()) {
      error = "'" + source.str() + "' holds no certificate (PEM)";
      return false;
    }
    bundle += blocks;
  }
  Channel::SetVerifyCAPath(home.trusted);
  return ReplaceFile(home.trusted, bundle, error);
}

}  // namespace tolven::ctl
