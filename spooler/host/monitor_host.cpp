#include "spooler/host/monitor_host.h"

#include <winsock2.h>

#include <array>

#include "monitor/event_window.h"

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
        throw HostError("there is no " + path, GetLastError());
    module_ = Module(LoadLibraryW(dllPath.c_str()));
    if (!module_) {
        const DWORD code = GetLastError();
        throw HostError(path + " cannot be loaded: " + ErrorText(code), code);
    }
    initialize_ = FindFunction<Initialize>(module_.Get(), "InitializePrintMonitor2");
    if (initialize_ == nullptr)
        throw HostError(path + " is no print monitor: it does not export InitializePrintMonitor2",
                        ERROR_PROC_NOT_FOUND);
    monitorInit_.cbSize = sizeof monitorInit_;
    monitorInit_.bLocal = TRUE;
    table_ = initialize_(&monitorInit_, &manager_);
    if (table_ == nullptr) {
        const DWORD code = GetLastError();
        throw HostError(path + " refused to start: " + ErrorText(code), code);
    }
}

MonitorHost::~MonitorHost() {
    const HWND window = FindWindowW(kEventWindowClass, kEventWindowTitle);
    const KernelHandle thread = ThreadOf(window);
    table_->pfnShutdown(manager_);
    module_ = Module();
    // It has left the module by now, but not ended. Wine (8.0 and 10.0) sends each thread of a process that
    // ends a signal, and what gets it while it ends by itself, its thread data gone, crashes.
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

std::wstring FromUtf8(const std::string& text) {
    const int length = static_cast<int>(text.size());
    std::wstring wide(static_cast<size_t>(MultiByteToWideChar(CP_UTF8, 0, text.data(), length, nullptr, 0)),
                      L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), length, wide.data(), static_cast<int>(wide.size()));
    return wide;
}

std::string ErrorText(DWORD code) {
    struct Entry {
        DWORD code;
        const char* text;
    };
    static constexpr std::array kEntries = {
        Entry{ERROR_FILE_NOT_FOUND, "file not found"},
        Entry{ERROR_ACCESS_DENIED, "access denied"},
        Entry{ERROR_NOT_ENOUGH_MEMORY, "out of memory"},
        Entry{63, "the system has suspended since the job began"},
        Entry{ERROR_INVALID_PARAMETER, "invalid parameter"},
        Entry{ERROR_MOD_NOT_FOUND, "it or a DLL that it needs was not found"},
        Entry{ERROR_BUSY, "busy"},
        Entry{ERROR_BAD_EXE_FORMAT, "not a DLL for this processor"},
        Entry{WSAECONNREFUSED, "connection refused"},
        Entry{WSAECONNRESET, "connection reset by the printer"},
        Entry{WSAECONNABORTED, "connection aborted"},
        Entry{WSAETIMEDOUT, "timed out"},
        Entry{WSAENETUNREACH, "network unreachable"},
        Entry{WSAEHOSTUNREACH, "host unreachable"},
        Entry{WSAHOST_NOT_FOUND, "unknown host"},
    };
    for (const Entry& entry : kEntries)
        if (entry.code == code) return std::string(entry.text) + " (" + std::to_string(code) + ")";
    return "error " + std::to_string(code);
}

std::string Printable(const std::string& text) {
    std::string printable = text;
    for (char& c : printable)
        if (c < 0x20 || c > 0x7E) c = '?';
    return printable;
}

}  // namespace vlm::host
