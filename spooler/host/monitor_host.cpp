#include "spooler/host/monitor_host.h"

#include <winsock2.h>

#include <array>

#include "monitor/event_window.h"
#include "util/text.h"

namespace vlm::host {

namespace {

constexpr DWORD kThreadEnd = 3'000;  // milliseconds

// The thread of the event window, when this process has it.
KernelHandle ThreadOf(HWND window) {
    DWORD process = 0;
    const DWORD thread = GetWindowThreadProcessId(window, &process);
    if (process != GetCurrentProcessId()) return {};
    return KernelHandle(OpenThread(SYNCHRONIZE, FALSE, thread));
}

}  // namespace

MonitorHost::MonitorHost(const std::wstring& dllPath) {
    const std::string path = ToUtf8(dllPath);
    if (GetFileAttributesW(dllPath.c_str()) == INVALID_FILE_ATTRIBUTES)
        throw HostError(path + " was not found", GetLastError());
    module_ = Module(LoadLibraryW(dllPath.c_str()));
    if (!module_) {
        const DWORD code = GetLastError();
        throw HostError(path + " cannot be loaded: " + ErrorText(code), code);
    }
    initialize_ = FindFunction<Initialize>(module_.Get(), "InitializePrintMonitor2");
    if (initialize_ == nullptr)
        throw HostError(path + " is not a print monitor: it does not export InitializePrintMonitor2",
                        ERROR_PROC_NOT_FOUND);
    monitorInit_.cbSize = sizeof monitorInit_;
    monitorInit_.bLocal = TRUE;
    SetLastError(ERROR_SUCCESS);
    table_ = initialize_(&monitorInit_, &manager_);
    if (table_ == nullptr) {
        const DWORD code = GetLastError();
        // A start that fails for want of the event window sets no code; its reason is in the trace alone.
        throw HostError(
            path + " refused to start: " + (code != ERROR_SUCCESS ? ErrorText(code) : "its trace says why"),
            code);
    }
}

MonitorHost::~MonitorHost() {
    const HWND window = FindWindowW(kEventWindowClass, kEventWindowTitle);
    const KernelHandle thread = ThreadOf(window);
    table_->pfnShutdown(manager_);
    module_ = Module();
    // The thread has left the module by now, but may not have ended. When a process ends, Wine (8.0 and 10.0)
    // signals each of its threads, and one that is ending by itself at that moment crashes.
    if (thread && !IsWindow(window)) WaitForSingleObject(thread.Get(), kThreadEnd);
}

HANDLE MonitorHost::InitializeAgain() {
    HANDLE manager = nullptr;
    return initialize_(&monitorInit_, &manager) == nullptr ? nullptr : manager;
}

std::wstring BesideProgram(const wchar_t* file) {
    std::wstring path(MAX_PATH, L'\0');
    // A truncated path comes back as long as the buffer.
    for (;;) {
        const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
        if (length < path.size()) {
            path.resize(length);
            break;
        }
        path.resize(path.size() * 2);
    }
    return path.substr(0, path.find_last_of(L'\\') + 1) + file;
}

}  // namespace vlm::host
