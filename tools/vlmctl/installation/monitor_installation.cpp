#include "tools/vlmctl/installation/monitor_installation.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <span>

#include "tools/vlmctl/console/command.h"
#include "tools/vlmctl/console/product.h"
#include "tools/vlmctl/installation/held_file.h"
#include "tools/vlmctl/installation/monitor_image.h"
#include "util/names.h"
#include "util/spooler_api.h"
#include "util/text.h"

namespace vlm::ctl {

namespace {

// The spooler keeps a table for each; x64 is the only one that we build for.
constexpr wchar_t kEnvironment[] = L"Windows x64";
constexpr wchar_t kOldCopySuffix[] = L".removed-";

// The spooler and the file system ignore case.
bool SameName(const std::wstring& a, const std::wstring& b) {
    return vlm::SameName(a.c_str(), b.c_str());
}

const RegisteredMonitor* Find(const std::vector<RegisteredMonitor>& monitors,
                              std::wstring RegisteredMonitor::*field, const std::wstring& value) {
    for (const RegisteredMonitor& one : monitors)
        if (SameName(one.*field, value)) return &one;
    return nullptr;
}

std::wstring FileName(const wchar_t* path) {
    return path != nullptr ? std::filesystem::path(path).filename().wstring() : L"";
}

bool Exists(const std::wstring& path) {
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

void CheckImage(const std::wstring& dll, std::span<const std::uint8_t> bytes) {
    const MonitorImage image = InspectMonitorImage(bytes);
    if (!image.problem.empty()) throw CommandError(ToUtf8(dll) + ": " + image.problem);
    if (!image.exportsEntry)
        throw CommandError(ToUtf8(dll) + " is not a print monitor: it does not export " + kMonitorEntry);
}

// A file that a process has loaded cannot be deleted, but renamed. Its name is free then, so that another
// installation before the next restart does not lose its copy at the restart.
CopyAfterRemoval DeleteCopy(const std::wstring& copy) {
    if (!Exists(copy)) return CopyAfterRemoval::kNoneThere;
    if (DeleteFileW(copy.c_str())) return CopyAfterRemoval::kDeleted;
    const DWORD error = GetLastError();
    const std::wstring aside = copy + kOldCopySuffix + std::to_wstring(GetTickCount64());
    if (MoveFileExW(copy.c_str(), aside.c_str(), 0) &&
        MoveFileExW(aside.c_str(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT))
        return CopyAfterRemoval::kGoesAtRestart;
    throw CommandError("cannot delete " + ToUtf8(copy) + ": " + SpoolerProblem(error));
}

}  // namespace

std::vector<RegisteredMonitor> RegisteredMonitors() {
    DWORD needed = 0;
    DWORD count = 0;
    std::vector<MONITOR_INFO_2W> records;
    // The second time with the size that the first one asked for; more often when entries come in between.
    for (int attempt = 0; attempt < 4; ++attempt) {
        const auto size = static_cast<DWORD>(records.size() * sizeof(MONITOR_INFO_2W));
        if (EnumMonitorsW(nullptr, 2, reinterpret_cast<BYTE*>(records.data()), size, &needed, &count)) {
            std::vector<RegisteredMonitor> monitors;
            for (DWORD i = 0; i < count; ++i)
                monitors.push_back({records[i].pName, FileName(records[i].pDLLName)});
            return monitors;
        }
        if (GetLastError() != ERROR_INSUFFICIENT_BUFFER) break;
        records.resize(needed / sizeof(MONITOR_INFO_2W) + 1);
    }
    throw CommandError("cannot list the spooler's monitors: " + SpoolerProblem(GetLastError()));
}

const RegisteredMonitor* FindOurs(const std::vector<RegisteredMonitor>& monitors) {
    return Find(monitors, &RegisteredMonitor::file, kMonitorFile);
}

std::wstring InSystemFolder(const std::wstring& file) {
    wchar_t folder[MAX_PATH];
    const UINT length = GetSystemDirectoryW(folder, MAX_PATH);
    if (length == 0 || length >= MAX_PATH) throw CommandError("the system's folder cannot be found");
    return std::wstring(folder) + L'\\' + file;
}

std::string SpoolerProblem(DWORD code) {
    struct Problem {
        DWORD code;
        const char* text;
        const char* advice;
    };
    static constexpr char kElevate[] = "; run it from an elevated prompt (Run as administrator)";
    static constexpr Problem kProblems[] = {
        {ERROR_ACCESS_DENIED, "access denied", kElevate},
        {ERROR_PRIVILEGE_NOT_HELD, "access denied", kElevate},
        {ERROR_SHARING_VIOLATION, "another process has it open", "; restart the service 'Spooler'"},
        {RPC_S_SERVER_UNAVAILABLE, "the spooler is not running", "; start the service 'Spooler'"},
        {ERROR_UNKNOWN_PRINT_MONITOR, "no such monitor is installed", ""},
        {ERROR_PRINT_MONITOR_ALREADY_INSTALLED, "it is already installed", ""},
        {ERROR_INVALID_PRINT_MONITOR, "the spooler does not accept it as a monitor", ""},
        {ERROR_PRINT_MONITOR_IN_USE, "a printer still uses it",
         "; remove the printers and drivers that name it first"}};
    for (const Problem& one : kProblems)
        if (one.code == code) return fmt::format("{} ({}){}", one.text, code, one.advice);
    return ErrorText(code);
}

std::wstring InstallMonitor(const std::wstring& dll, const std::wstring& name) {
    const std::vector<RegisteredMonitor> monitors = RegisteredMonitors();
    // Two entries with one file would share a file that either of them may delete.
    const RegisteredMonitor* present = FindOurs(monitors);
    if (present == nullptr) present = Find(monitors, &RegisteredMonitor::name, name);
    if (present != nullptr)
        throw CommandError(
            fmt::format("'{}' is already installed, with {}; 'vlmctl uninstall' removes this monitor",
                        ToUtf8(present->name), ToUtf8(present->file)));
    // What is looked at is what is copied, and what is copied is what the spooler loads: the bytes are read
    // once, and the copy is held from its comparison with them until the spooler has loaded it.
    const HeldFile source(dll, kMostImage);
    CheckImage(dll, source.Bytes());
    const std::wstring copy = InSystemFolder(kMonitorFile);
    const bool wasThere = Exists(copy);
    std::error_code ignored;
    if (!std::filesystem::equivalent(dll, copy, ignored)) {
        const DWORD error = WriteWholeFile(copy, source.Bytes());
        if (error != ERROR_SUCCESS)
            throw CommandError("cannot copy to " + ToUtf8(copy) + ": " + SpoolerProblem(error));
    }
    auto held = std::make_optional<HeldFile>(copy, kMostImage);
    if (!std::ranges::equal(held->Bytes(), source.Bytes()))
        throw CommandError(ToUtf8(copy) + " changed during the installation; another process is writing it");

    std::wstring entryName = name;
    std::wstring environment = kEnvironment;
    std::wstring file = kMonitorFile;
    MONITOR_INFO_2W entry{entryName.data(), environment.data(), file.data()};
    if (!AddMonitorW(nullptr, 2, reinterpret_cast<BYTE*>(&entry))) {
        const DWORD error = GetLastError();
        held.reset();
        if (!wasThere) DeleteFileW(copy.c_str());
        throw CommandError("the spooler rejected the monitor: " + SpoolerProblem(error));
    }
    return copy;
}

CopyAfterRemoval RemoveMonitor(const std::wstring& name) {
    const std::wstring copy = InSystemFolder(kMonitorFile);
    const std::vector<RegisteredMonitor> monitors = RegisteredMonitors();
    const RegisteredMonitor* entry = Find(monitors, &RegisteredMonitor::name, name);
    if (entry == nullptr) {
        if (const RegisteredMonitor* ours = FindOurs(monitors))
            throw CommandError(
                fmt::format("no monitor '{}' is installed; this monitor's name is '{}', pass it with --name",
                            ToUtf8(name), ToUtf8(ours->name)));
        if (!Exists(copy)) throw CommandError(fmt::format("no monitor '{}' is installed", ToUtf8(name)));
        return DeleteCopy(copy);
    }
    // A slip of --name must not take one of the system's monitors away.
    if (!SameName(entry->file, kMonitorFile))
        throw CommandError(
            fmt::format("'{}' is another monitor: its DLL is {}", ToUtf8(entry->name), ToUtf8(entry->file)));
    std::wstring entryName = entry->name;
    std::wstring environment = kEnvironment;
    if (!DeleteMonitorW(nullptr, environment.data(), entryName.data()))
        throw CommandError(fmt::format("the spooler did not remove '{}': {}", ToUtf8(entry->name),
                                       SpoolerProblem(GetLastError())));
    return FindOurs(RegisteredMonitors()) != nullptr ? CopyAfterRemoval::kUsedByAnother : DeleteCopy(copy);
}

}  // namespace vlm::ctl
