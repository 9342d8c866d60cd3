// The monitor's entry and end, as the spooler sees them: the initialisation that hands out the table of
// operations, and Shutdown, which takes a manager back.
#pragma once

#include "util/spooler_api.h"

namespace vlm {

// Makes one more manager, stores it in *phMonitor, and returns the table of operations, which is the same for
// all and lives as long as the module. Null with a last error: 87 for a null argument, 8 when memory runs
// out; null with whatever error stands when the event window cannot be had.
MONITOR2* InitializeMonitor(MONITORINIT* pMonitorInit, HANDLE* phMonitor) noexcept;

}  // namespace vlm
