// What a driver makes of its extension files, judged the way the monitor finds them.
#include <fmt/format.h>

#include <filesystem>
#include <vector>

#include "monitor/module_explorer.h"
#include "spooler/host/monitor_host.h"
#include "tools/vlmctl/console/console.h"
#include "tools/vlmctl/extension_files/check.h"
#include "tools/vlmctl/installation/doctor_checks.h"
#include "util/com.h"
#include "util/scope_exit.h"
#include "util/spooler_api.h"
#include "util/vlutil.h"

namespace vlm::ctl {

namespace {

using host::FromUtf8;
using host::ToUtf8;

constexpr char kWhat[] = "extensions";

CheckResult Wrong(std::string text) {
    return {kWhat, Health::kWrong, std::move(text)};
}

CheckResult CheckFiles(const std::vector<std::wstring>& files) {
    const ComApartment apartment(COINIT_MULTITHREADED);
    const CheckReport report = CheckExtensionFiles(files);
    const char* const advice = "; 'vlmctl bidi check' tells all about a file";
    if (!report.unreadable.empty()) return Wrong(Shown(report.unreadable.front()) + advice);
    for (const Finding& finding : report.findings)
        if (finding.severity == Severity::kError)
            return Wrong(fmt::format("the first of {} errors is in {}, line {}: {}{}",
                                     report.Count(Severity::kError), Shown(finding.file), finding.line,
                                     ToUtf8(finding.text), advice));
    return {kWhat, Health::kOk,
            fmt::format("{} files, {} warnings", files.size(), report.Count(Severity::kWarning))};
}

CheckResult CheckDriver(const DRIVER_INFO_3W& driver, const std::string& source) {
    const auto bidiFiles = CModuleExplorer::FromDriver(&driver, kBidiFilesSection);
    const auto driverFiles = CModuleExplorer::FromDriver(&driver, kDriverFilesSection);
    const std::vector<std::wstring> files = ExtensionFiles(*bidiFiles.Get(), *driverFiles.Get());
    if (files.empty())
        return Wrong(source +
                     " names no extension file: neither BidiWSDFile in [BidiFiles] nor "
                     "UIBidiWSDFile1 in [VelunDriverFiles]; without one the monitor answers no "
                     "query of its own");
    return CheckFiles(files);
}

}  // namespace

CheckResult CheckIniFile(const std::string& iniFile) {
    // The profile functions would look for a bare name in the Windows folder.
    const std::wstring path = std::filesystem::absolute(FromUtf8(iniFile)).wstring();
    if (GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES)
        return Wrong(Shown(path) + ": " + host::ErrorText(GetLastError()));
    std::wstring dependentFiles = path + L'\0';
    DRIVER_INFO_3W driver{};
    driver.pDependentFiles = dependentFiles.data();
    return CheckDriver(driver, Shown(path));
}

CheckResult CheckDriverOf(const std::string& printer) {
    std::wstring name = FromUtf8(printer);
    HANDLE handle = nullptr;
    if (!OpenPrinterW(name.data(), &handle, nullptr))
        return Wrong(Shown(name) + " is no printer of this machine: " + host::ErrorText(GetLastError()));
    const ScopeExit close([&] { ClosePrinter(handle); });
    DWORD needed = 0;
    GetPrinterDriverW(handle, nullptr, 3, nullptr, 0, &needed);
    // Whole records, so that the first is aligned; at least one.
    std::vector<DRIVER_INFO_3W> driver(needed / sizeof(DRIVER_INFO_3W) + 1);
    if (!GetPrinterDriverW(handle, nullptr, 3, reinterpret_cast<BYTE*>(driver.data()), needed, &needed))
        return Wrong("the driver of " + Shown(name) + " cannot be read: " + host::ErrorText(GetLastError()));
    const wchar_t* monitor = driver.front().pMonitorName;
    if (monitor == nullptr || *monitor == L'\0')
        return Wrong("the driver of " + Shown(name) +
                     " names no language monitor; its INF file lacks the LanguageMonitor entry");
    return CheckDriver(driver.front(), "the driver of " + Shown(name));
}

}  // namespace vlm::ctl
