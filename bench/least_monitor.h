// The least that a lower monitor can do, but for its WritePort and ReadPort.
#pragma once

#include "spooler/host/lower_table.h"

namespace vlm::bench {

inline BOOL WINAPI Open(HANDLE monitor, LPWSTR, HANDLE* port) {
    *port = monitor;
    return TRUE;
}
inline BOOL WINAPI Start(HANDLE, LPWSTR, DWORD, DWORD, LPBYTE) {
    return TRUE;
}
inline BOOL WINAPI End(HANDLE) {
    return TRUE;
}

inline MONITOR2 LeastMonitor(decltype(MONITOR2::pfnWritePort) write, decltype(MONITOR2::pfnReadPort) read) {
    return host::LowerTable(Open, Start, write, read, End, End);
}

}  // namespace vlm::bench
