// The system's headers, in the order that they need, for the Windows side of the services only.
#pragma once

// clang-format off
#include <winsock2.h>
#include <ws2tcpip.h>
#include <mswsock.h>
#include <windows.h>
#include <dbt.h>
#include <iphlpapi.h>
#include <lm.h>
#include <objbase.h>
#include <shellapi.h>
#include <shlobj.h>
// clang-format on

// Our own methods have this name.
#undef RemoveDirectory
