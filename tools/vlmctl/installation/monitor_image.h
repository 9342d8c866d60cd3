// What a DLL file is worth as the monitor, read from its bytes: nothing of it runs.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace vlm::ctl {

inline constexpr char kMonitorEntry[] = "InitializePrintMonitor2";

struct MonitorImage {
    std::string problem;        // why no spooler for x64 can load it as it is; empty when one can
    bool exportsEntry = false;  // code of its own under the entry's name
    std::string version;        // "1.0.0"; empty when the file bears none
};

// `file` is all of it. Every offset and count in it is held against its size; the work is bounded.
MonitorImage InspectMonitorImage(std::span<const std::uint8_t> file);

}  // namespace vlm::ctl
