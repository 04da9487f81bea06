// Where a session keeps what is its own.
#pragma once

namespace tolven {

// Inside the synced folder, left alone by everything that looks at it: temporary files of
// transfers, and the recycle bin in it.
inline constexpr char kWorkingDirectory[] = ".ZentrovaWorkingDirectory";
inline constexpr char kRecycleBin[] = "#ZentRecycle";
// In the working directory: a text that tells this folder from every other one.
inline constexpr char kRootIdFile[] = "#RootId";

}  // namespace tolven
