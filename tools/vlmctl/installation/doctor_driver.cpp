// What a driver makes of its extension files, judged the way the monitor finds them.
#include <fmt/format.h>

#include <algorithm>
#include <cwchar>
#include <filesystem>
#include <string_view>
#include <vector>

#include "monitor/module_explorer.h"
#include "tools/vlmctl/console/console.h"
#include "tools/vlmctl/extension_files/check.h"
#include "tools/vlmctl/installation/doctor_checks.h"
#include "util/com.h"
#include "util/names.h"
#include "util/spooler_api.h"
#include "util/text.h"
#include "util/trace.h"

namespace vlm::ctl {

namespace {

constexpr char kWhat[] = "extensions";

CheckResult Wrong(std::string text) {
    return {kWhat, Health::kWrong, std::move(text)};
}

CheckResult CheckFiles(const std::vector<std::wstring>& files) {
    const ComApartment apartment(COINIT_MULTITHREADED);
    const CheckReport report = CheckExtensionFiles(files);
    const char* const advice = "; run 'vlmctl bidi check' for the details";
    if (!report.unreadable.empty()) return Wrong(Shown(report.unreadable.front()) + advice);
    for (const Finding& finding : report.findings)
        if (finding.HowBad() == Severity::kError)
            return Wrong(fmt::format("the first of {} is in {}, line {}: {}{}",
                                     Counted(report.Count(Severity::kError), "error"), Shown(finding.file),
                                     finding.place.line, ToUtf8(finding.text), advice));
    return {kWhat, Health::kOk,
            Counted(files.size(), "file") + ", " + Counted(report.Count(Severity::kWarning), "warning")};
}

// The keys of a section that have a value.
std::vector<std::wstring> Keys(const std::wstring& iniFile, const wchar_t* section) {
    std::vector<wchar_t> lines(32'768);
    GetPrivateProfileSectionW(section, lines.data(), static_cast<DWORD>(lines.size()), iniFile.c_str());
    std::vector<std::wstring> keys;
    for (const wchar_t* line = lines.data(); *line != L'\0'; line += std::wcslen(line) + 1) {
        const std::wstring_view text(line);
        const size_t equals = text.find(L'=');
        if (equals == std::wstring_view::npos || text.find_first_not_of(L' ', equals + 1) == text.npos)
            continue;
        const std::wstring_view key = text.substr(0, equals);
        keys.emplace_back(key.substr(0, key.find_last_not_of(L' ') + 1));
    }
    return keys;
}

// Entries of the INI file that look like extension files, and that no loader reaches: behind a gap in the
// numbers, with a number that is written otherwise, in the other one's section.
std::vector<std::wstring> Unreached(const std::wstring& iniFile) {
    constexpr std::wstring_view kFirst = L"BidiWSDFile";
    constexpr std::wstring_view kNumbered = L"UIBidiWSDFile";
    const auto entry = [](std::wstring_view key, const wchar_t* section) {
        return std::wstring(key) + L" in [" + section + L"]";
    };
    const auto holds = [](const std::vector<std::wstring>& names, const std::wstring& wanted) {
        return std::ranges::any_of(
            names, [&](const std::wstring& name) { return SameName(name.c_str(), wanted.c_str()); });
    };
    const auto startsWith = [](const std::wstring& key, std::wstring_view begin) {
        return _wcsnicmp(key.c_str(), begin.data(), begin.size()) == 0;
    };
    const std::vector<std::wstring> numbered = Keys(iniFile, kDriverFilesSection);
    std::vector<std::wstring> reached{entry(kFirst, kBidiFilesSection)};
    for (int n = 1; n <= kMostNumberedFiles; ++n) {
        const std::wstring key = kNumbered.data() + std::to_wstring(n);
        if (!holds(numbered, key)) break;
        reached.push_back(entry(key, kDriverFilesSection));
    }
    std::vector<std::wstring> unreached;
    for (const wchar_t* section : {kBidiFilesSection, kDriverFilesSection}) {
        for (const std::wstring& key : Keys(iniFile, section)) {
            if (!startsWith(key, kFirst) && !startsWith(key, kNumbered)) continue;
            if (!holds(reached, entry(key, section))) unreached.push_back(entry(key, section));
        }
    }
    return unreached;
}

CheckResult CheckDriver(const DRIVER_INFO_3W& driver, const std::string& source) {
    const auto bidiFiles = CModuleExplorer::FromDriver(&driver, kBidiFilesSection);
    const auto driverFiles = CModuleExplorer::FromDriver(&driver, kDriverFilesSection);
    const std::vector<std::wstring> files = ExtensionFiles(*bidiFiles.Get(), *driverFiles.Get());
    const std::vector<std::wstring> unreached = Unreached(bidiFiles->IniPath());
    if (!unreached.empty())
        return Wrong(
            fmt::format("{}: {} is never loaded: the monitor reads BidiWSDFile in [BidiFiles], and in "
                        "[VelunDriverFiles] UIBidiWSDFile1, UIBidiWSDFile2 and so on up to the first "
                        "gap{}",
                        source, Shown(unreached.front()),
                        unreached.size() == 1 ? "" : fmt::format(" ({} such entries)", unreached.size())));
    if (files.empty())
        return Wrong(source +
                     " names no extension file: neither BidiWSDFile in [BidiFiles] nor "
                     "UIBidiWSDFile1 in [VelunDriverFiles]; without one the monitor has no "
                     "answers of its own");
    return CheckFiles(files);
}

}  // namespace

CheckResult CheckIniFile(const std::string& iniFile) {
    // The profile functions would look for a bare name in the Windows folder.
    const std::wstring path = std::filesystem::absolute(FromUtf8(iniFile)).wstring();
    if (GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES)
        return Wrong(Shown(path) + ": " + ErrorText(GetLastError()));
    std::wstring dependentFiles = path + L'\0';
    DRIVER_INFO_3W driver{};
    driver.pDependentFiles = dependentFiles.data();
    return CheckDriver(driver, Shown(path));
}

CheckResult CheckDriverOf(const std::string& printer) {
    std::wstring name = FromUtf8(printer);
    PrinterHandle handle;
    if (!OpenPrinterW(name.data(), handle.Receive(), nullptr))
        return Wrong(Shown(name) + " is not a printer on this machine: " + ErrorText(GetLastError()));
    DWORD needed = 0;
    GetPrinterDriverW(handle.Get(), nullptr, 3, nullptr, 0, &needed);
    // Whole records, so that the first is aligned; at least one.
    std::vector<DRIVER_INFO_3W> driver(needed / sizeof(DRIVER_INFO_3W) + 1);
    if (!GetPrinterDriverW(handle.Get(), nullptr, 3, reinterpret_cast<BYTE*>(driver.data()), needed, &needed))
        return Wrong("the driver of " + Shown(name) + " cannot be read: " + ErrorText(GetLastError()));
    const wchar_t* monitor = driver.front().pMonitorName;
    if (monitor == nullptr || *monitor == L'\0')
        return Wrong("the driver of " + Shown(name) +
                     " names no language monitor; its INF file lacks the LanguageMonitor entry");
    return CheckDriver(driver.front(), "the driver of " + Shown(name));
}

}  // namespace vlm::ctl
