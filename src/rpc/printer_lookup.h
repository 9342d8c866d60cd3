// From the printer name of a remote caller to the port that is meant.
#pragma once

#include <windows.h>

#include <string>

namespace vlm::rpc {

// Characters of a caller's printer name, its terminator included.
inline constexpr int kLongestName = 128;

// Finds the port of the printer that `client` names, which must be on a USB port with Bidi enabled. `client`
// is the port's name ("USB001") or the shared printer's network path ("\\server\share"), in the system's code
// page. Returns
//   0    `port` is the name
//   87   the name is longer than kLongestName
//   110  no printer matches
// or the spooler's error when its printers cannot be enumerated. `reason` says why.
DWORD FindPortName(const char* client, std::wstring* port, std::wstring* reason);

}  // namespace vlm::rpc
