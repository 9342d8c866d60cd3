// The monitor's place in the system: its file in the folder from which the spooler loads it, and its entry
// among the spooler's monitors.
//
// What fails throws a CommandError that says what to do about it.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace vlm::ctl {

// Larger than any monitor, and small enough to read at once.
inline constexpr size_t kMostImage = size_t{64} << 20;

// Under this name drivers ask for the monitor, unless it is installed under another one.
inline constexpr char kMonitorName[] = "Velun Language Monitor";

struct RegisteredMonitor {
    std::wstring name;
    std::wstring file;  // without a folder
};

std::vector<RegisteredMonitor> RegisteredMonitors();
// The one whose DLL is the monitor's, whatever it is called; null without one.
const RegisteredMonitor* FindOurs(const std::vector<RegisteredMonitor>& monitors);

// Where the spooler loads the file from.
std::wstring InSystemFolder(const std::wstring& file);

// "access denied (5); …": a failure of the spooler and what to do about it.
std::string SpoolerProblem(DWORD code);

// Looks at the DLL without running it, copies exactly what it looked at into the system's folder, and has the
// spooler load it. A failure leaves no copy behind.
// Returns the path of the copy.
std::wstring InstallMonitor(const std::wstring& dll, const std::wstring& name);

// What became of the copy.
enum class CopyAfterRemoval {
    kDeleted,
    kNoneThere,
    kUsedByAnother,  // another entry names it
    kGoesAtRestart,  // some process still has it loaded
};

// Takes the entry back and deletes the copy. Without an entry it deletes a copy that was left behind.
CopyAfterRemoval RemoveMonitor(const std::wstring& name);

}  // namespace vlm::ctl
