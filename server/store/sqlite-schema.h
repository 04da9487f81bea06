#pragma once

namespace tolven::server {

// Makes what is missing; runs at each start.
extern const char kServerSchema[];

}  // namespace tolven::server
