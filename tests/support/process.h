// Other programs of the build, run by a test.
#pragma once

#include <windows.h>

#include <string>

#include "spooler/host/monitor_host.h"
#include "util/handles.h"

namespace vlm::test {

// Runs "PROGRAM ARGS" from the folder of this program; its exit status, or 0xFFFFFFFF when it does not start
// or does not end within 20 s.
inline DWORD RunProgram(const std::wstring& command) {
    constexpr DWORD kTimeout = 20'000;
    std::wstring line = host::BesideProgram(command.c_str());
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &process))
        return 0xFFFFFFFF;
    const KernelHandle handle(process.hProcess);
    const KernelHandle thread(process.hThread);
    DWORD status = 0xFFFFFFFF;
    if (WaitForSingleObject(handle.Get(), kTimeout) != WAIT_OBJECT_0) {
        TerminateProcess(handle.Get(), status);
    } else {
        GetExitCodeProcess(handle.Get(), &status);
    }
    return status;
}

}  // namespace vlm::test
