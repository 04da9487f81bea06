#pragma once

namespace tolven {

// What a worker is doing with its event, as the UI is told.
enum WorkingType { W_TYPE_NONE = 0, W_TYPE_UPLOAD = 1, W_TYPE_DOWNLOAD = 2 };

}  // namespace tolven
