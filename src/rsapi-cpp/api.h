// The delta engine: signatures, deltas and patched files, each made in one pass over its source.
#pragma once

#include "rsapi-cpp/delta-file-reader.h"
#include "rsapi-cpp/file-reader.h"
#include "rsapi-cpp/rs-constant.h"
#include "rsapi-cpp/simple-file-reader.h"
