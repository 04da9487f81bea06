#include "lib/sf-file.h"

#include "lib/file-op.h"
#include "lib/log.h"

namespace tolven {

ustring SFFile::default_prefix;

void SFFile::initialize(const ustring& prefix) { default_prefix = prefix; }

SFFile::SFFile(const ustring& prefix) : m_prefix(prefix.empty() ? default_prefix : prefix) {}

int SFFile::create() {
  if (m_path.empty()) return FSMktemp(m_prefix, m_path);
  Logger::LogMsg(Logger::L_DEBUG, "utility_debug", L"[DEBUG] utility(%d): keeping SFFile '%s'\n",
                 __LINE__, m_path);
  return 0;
}

int SFFile::remove() {
  const int result = FSRemove(m_path, false);
  m_path.clear();
  return result;
}

std::uint64_t SFFile::getSize() const {
  FILE_INFO info;
  return FSStat(m_path, info, false) == 0 ? info.size : 0;
}

}  // namespace tolven
