#include "monitor/lm_port.h"

#include <cstring>
#include <cwchar>
#include <utility>

namespace vlm {

void FreePortRecord(LmPort* port) {
    // A handle that is used after this is refused for as long as the memory is not reused.
    port->signature = 0;
    port->owner = nullptr;
    GlobalFree(port->portName);
    GlobalFree(port->printerName);
    GlobalFree(port);
}

bool TraceEndedJob(LmPort& port) {
    const JobMetrics metrics = std::exchange(port.metrics, {});
    if (metrics.begin == TraceClock::time_point()) return false;
    TraceJobEnd(port.portName, port.jobId, metrics);
    return true;
}

bool IsUsbPort(const LmPort& port) {
    return _wcsnicmp(port.portName, L"USB", 3) == 0;
}

bool IsNetworkPort(const LmPort& port) {
    constexpr size_t kShortestNetworkName = 6;
    return std::wcslen(port.portName) >= kShortestNetworkName && !IsUsbPort(port);
}

wchar_t* DuplicateToGlobalHeap(const wchar_t* text) {
    const size_t size = (std::wcslen(text) + 1) * sizeof(wchar_t);
    auto* copy = static_cast<wchar_t*>(GlobalAlloc(GPTR, size));
    if (copy != nullptr) std::memcpy(copy, text, size);
    return copy;
}

}  // namespace vlm
