#pragma once

#include <memory>

namespace tolven {

template <class T>
using shared_pointer = std::shared_ptr<T>;

}  // namespace tolven
