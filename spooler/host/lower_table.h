// The table of a lower monitor that prints. What else it can do, its owner adds.
#pragma once

#include "util/spooler_api.h"

namespace vlm::host {

inline MONITOR2 LowerTable(decltype(MONITOR2::pfnOpenPort) open, decltype(MONITOR2::pfnStartDocPort) start,
                           decltype(MONITOR2::pfnWritePort) write, decltype(MONITOR2::pfnReadPort) read,
                           decltype(MONITOR2::pfnEndDocPort) end, decltype(MONITOR2::pfnClosePort) close) {
    MONITOR2 table{};
    table.cbSize = sizeof table;
    table.pfnOpenPort = open;
    table.pfnStartDocPort = start;
    table.pfnWritePort = write;
    table.pfnReadPort = read;
    table.pfnEndDocPort = end;
    table.pfnClosePort = close;
    return table;
}

}  // namespace vlm::host
