// Other programs of the build, run by a test or a bench.
#pragma once

#include <windows.h>

#include <string>

#include "spooler/host/monitor_host.h"
#include "util/handles.h"

namespace vlm::test {

// Starts "PROGRAM ARGS" from the folder of this program; holds nothing when it does not start.
inline KernelHandle StartProgram(const std::wstring& command) {
    std::wstring line = host::BesideProgram(command.c_str());
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &process))
        return {};
    const KernelHandle thread(process.hThread);
    return KernelHandle(process.hProcess);
}

// Runs it; its exit status, or 0xFFFFFFFF when it does not start or does not end within 20 s.
inline DWORD RunProgram(const std::wstring& command) {
    constexpr DWORD kTimeout = 20'000;
    DWORD status = 0xFFFFFFFF;
    const KernelHandle handle = StartProgram(command);
    if (!handle) return status;
    if (WaitForSingleObject(handle.Get(), kTimeout) != WAIT_OBJECT_0) {
        TerminateProcess(handle.Get(), status);
    } else {
        GetExitCodeProcess(handle.Get(), &status);
    }
    return status;
}

}  // namespace vlm::test
