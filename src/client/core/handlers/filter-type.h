// How handlers tell a block by the process's own rules, which is not remembered, from one by the
// rules of a session.
#pragma once

namespace tolven {

inline constexpr int kSystemFilterOffset = 0x10000;

inline void SetSystemFilterType(int& filter_type) { filter_type -= kSystemFilterOffset; }
inline bool IsSystemFilterType(int filter_type) { return filter_type < 1 - kSystemFilterOffset; }

}  // namespace tolven
