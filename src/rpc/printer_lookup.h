// From the printer name of a remote caller to the port that is meant.
#pragma once

#include <windows.h>

#include <string>

namespace vlm::rpc {

// Characters of a caller's printer name, its terminator included.
inline constexpr int kLongestName = 128;

// Finds the port of the printer that `client` names, which has to be reached through a USB port with Bidi
// enabled. The caller says the port's own name ("USB001") or the shared printer's network path
// ("\\server\share"). `client` is in the system's code page. Returns
//   0    `port` is the name
//   87   the name is longer than kLongestName
//   110  no printer fits
// or what the spooler says to the enumeration of its printers; `reason` then says why.
DWORD FindPortName(const char* client, std::wstring* port, std::wstring* reason);

}  // namespace vlm::rpc
