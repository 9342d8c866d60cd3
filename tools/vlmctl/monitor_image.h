// What a DLL file is worth as the monitor, found out by loading it as the spooler would.
#pragma once

#include <string>

namespace vlm::ctl {

inline constexpr wchar_t kMonitorFile[] = L"vllm3mon.dll";

struct MonitorImage {
    std::string problem;  // why it is not there or cannot be loaded; empty when it can
    std::string version;  // "1.0.0"; empty when the file bears none
    bool exportsEntry = false;
};

// Runs the DLL's own initialisation, but not the monitor's.
MonitorImage InspectMonitorImage(const std::wstring& path);

// The version of this program and of the monitor that it belongs to.
const char* OwnVersion();

}  // namespace vlm::ctl
