// What this program belongs to.
#pragma once

namespace vlm::ctl {

inline constexpr wchar_t kMonitorFile[] = L"vllm3mon.dll";

// The version of this program and of its monitor.
const char* OwnVersion();

}  // namespace vlm::ctl
