// Loads a language monitor and drives it as the spooler does. For the companion, the demo, tests and benches.
#pragma once

#include <stdexcept>
#include <string>

#include "util/handles.h"
#include "util/spooler_api.h"

namespace vlm::host {

// A sentence in UTF-8 that says what could not be done, and the Win32 code behind it.
class HostError : public std::runtime_error {
 public:
    HostError(const std::string& what, DWORD code) : std::runtime_error(what), code_(code) {}
    DWORD Code() const { return code_; }

 private:
    DWORD code_;
};

// One loaded and initialised monitor. Everything of it has to be over before the destructor, which shuts the
// manager down and unloads the module.
class MonitorHost {
 public:
    // Throws HostError when the DLL is missing, is no monitor, or refuses to start.
    explicit MonitorHost(const std::wstring& dllPath);
    ~MonitorHost();
    MonitorHost(const MonitorHost&) = delete;
    MonitorHost& operator=(const MonitorHost&) = delete;

    const MONITOR2& Table() const { return *table_; }
    HANDLE Manager() const { return manager_; }
    // Another manager of the same module, as a second initialisation makes it. The caller shuts it down.
    HANDLE InitializeAgain();

 private:
    using Initialize = MONITOR2* WINAPI(MONITORINIT*, HANDLE*);

    Module module_;
    Initialize* initialize_ = nullptr;
    MONITORINIT monitorInit_{};
    const MONITOR2* table_ = nullptr;
    HANDLE manager_ = nullptr;
};

// The path of `file` beside the running program.
std::wstring BesideProgram(const wchar_t* file);

}  // namespace vlm::host
