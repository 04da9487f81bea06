#include "lib/tmp-name-gen.h"

#include <algorithm>
#include <random>
#include <string>
#include <utility>

#include "platform/clock.h"

namespace tolven {
namespace {

constexpr std::string_view kAlphabet =
    "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ-_";

}  // namespace

TmpNameGen& TmpNameGen::getInstance() {
  static TmpNameGen* const instance = new TmpNameGen;
  return *instance;
}

TmpNameGen::TmpNameGen() {
  Key key = get_key();
  MutexLock lock(mutex_);
  rc4_init(key);
}

TmpNameGen::Key TmpNameGen::get_key() {
  Key key{};
  const std::string counter = std::to_string(platform::clock().PerformanceCounter());
  std::copy(counter.begin(), counter.end(), key.begin());
  return key;
}

void TmpNameGen::rc4_init(Key& key) {
  for (std::size_t i = 0; i < m_s_box.size(); ++i) m_s_box[i] = static_cast<std::uint8_t>(i);
  if (key[0] == 0) {  // no counter on this machine
    std::minstd_rand random(static_cast<unsigned>(platform::clock().WallSeconds()));
    for (std::uint8_t& byte : key) byte = static_cast<std::uint8_t>(random());
  }
  std::uint8_t j = 0;
  for (std::size_t i = 0; i < m_s_box.size(); ++i) {
    j = static_cast<std::uint8_t>(j + key[i] + m_s_box[i]);
    std::swap(m_s_box[i], m_s_box[j]);
  }
}

// Six bytes of the stream. The indices begin anew at each call, the state goes on.
std::array<std::uint8_t, 6> TmpNameGen::rc4_randomize() {
  std::array<std::uint8_t, 6> bytes{};
  std::uint8_t i = 0, j = 0;
  for (std::uint8_t& byte : bytes) {
    ++i;
    j = static_cast<std::uint8_t>(j + m_s_box[i]);
    std::swap(m_s_box[i], m_s_box[j]);
    byte = m_s_box[static_cast<std::uint8_t>(m_s_box[i] + m_s_box[j])];
  }
  return bytes;
}

ustring TmpNameGen::getTmpName() {
  std::uint64_t bits = 0;
  {
    MutexLock lock(mutex_);
    for (const std::uint8_t byte : rc4_randomize()) bits = bits << 8 | byte;
  }
  std::string name;
  for (int shift = 42; shift >= 0; shift -= 6) name += kAlphabet[bits >> shift & 0x3F];
  return ustring(name);
}

ustring TmpNameGen::getTmpPath(const ustring& prefix) { return prefix + "/" + getTmpName(); }

}  // namespace tolven
