#include "util/event_provider.h"

#include <windows.h>
// windows.h first.
#include <evntprov.h>

#include <atomic>

namespace vlm {

namespace {

constexpr GUID kProvider = {0xe92224c9, 0x91e3, 0x4045, {0x80, 0xda, 0x1f, 0xd0, 0x3f, 0xf1, 0x56, 0xc3}};
constexpr ULONGLONG kNoKeyword = 0;

constinit std::atomic<REGHANDLE> provider{0};

}  // namespace

void RegisterEventProvider() {
    REGHANDLE registered = 0;
    // Without a callback: the state is asked for where it is needed.
    if (EventRegister(&kProvider, nullptr, nullptr, &registered) == ERROR_SUCCESS)
        provider.store(registered, std::memory_order_relaxed);
}

void UnregisterEventProvider() {
    const REGHANDLE registered = provider.exchange(0, std::memory_order_relaxed);
    if (registered != 0) EventUnregister(registered);
}

bool IsEventRecorded(TraceLevel level) {
    const REGHANDLE registered = provider.load(std::memory_order_relaxed);
    return registered != 0 && EventProviderEnabled(registered, static_cast<UCHAR>(level), kNoKeyword);
}

void RecordEvent(TraceLevel level, const wchar_t* text) {
    EventWriteString(provider.load(std::memory_order_relaxed), static_cast<UCHAR>(level), kNoKeyword, text);
}

}  // namespace vlm
