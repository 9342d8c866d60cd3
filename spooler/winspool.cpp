// Stand-in for the spooler's client library (winspool.drv): printers, drivers and jobs that the host invents,
// each call logged. See standin.h. Only what the monitor and its host call is here.

#include <algorithm>
#include <cwchar>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "spooler/standin.h"
#include "util/locks.h"
#include "util/names.h"
#include "util/spooler_api.h"

namespace {

using vlm::standin::PrinterDescription;
using vlm::standin::Rule;

// Guards all that this spooler knows.
vlm::SlimLock spoolerLock;

struct Job {
    std::wstring document;
    DWORD status = 0;
};

struct Printer {
    std::wstring name, port, share, driver;
    std::wstring dependentFiles;  // with its inner and final NULs
    DWORD attributes = 0;
    std::map<DWORD, Job> jobs VLM_GUARDED_BY(spoolerLock);
};

struct PendingRule {
    std::string function;
    Rule rule;
};

struct Spooler {
    std::vector<std::shared_ptr<Printer>> printers VLM_GUARDED_BY(spoolerLock);
    std::map<HANDLE, std::shared_ptr<Printer>> handles VLM_GUARDED_BY(spoolerLock);
    std::vector<PendingRule> rules VLM_GUARDED_BY(spoolerLock);
    std::wstring log VLM_GUARDED_BY(spoolerLock);
    ULONG_PTR lastHandle VLM_GUARDED_BY(spoolerLock) = 0x1000;
};

Spooler& TheSpooler() {
    static Spooler spooler;
    return spooler;
}

std::wstring TextOrEmpty(const wchar_t* text) {
    return text == nullptr ? std::wstring() : std::wstring(text);
}

// One call: logs it, then does what the first rule for this function says. False when the call has to fail.
// Called without the lock, because a rule may let the call take long.
bool Enter(const char* function, const std::wstring& arguments) {
    Spooler& spooler = TheSpooler();
    DWORD delay = 0;
    DWORD error = ERROR_SUCCESS;
    {
        const vlm::LockGuard exclusive(spoolerLock);
        spooler.log += std::wstring(function, function + std::char_traits<char>::length(function));
        spooler.log += L"(" + arguments + L")\n";
        for (PendingRule& pending : spooler.rules) {
            if (pending.function != function || pending.rule.times == 0) continue;
            if (pending.rule.skip > 0) {
                --pending.rule.skip;
            } else {
                --pending.rule.times;
                delay = pending.rule.delay;
                error = pending.rule.error;
            }
            break;
        }
    }
    if (delay != 0) Sleep(delay);
    if (error == ERROR_SUCCESS) return true;
    SetLastError(error);
    return false;
}

std::shared_ptr<Printer> FindByName(const std::wstring& name) VLM_REQUIRES(spoolerLock) {
    for (const auto& printer : TheSpooler().printers)
        if (vlm::SameName(printer->name.c_str(), name.c_str())) return printer;
    return nullptr;
}

std::shared_ptr<Printer> FindByHandle(HANDLE handle) {
    const vlm::LockGuard exclusive(spoolerLock);
    const auto found = TheSpooler().handles.find(handle);
    if (found != TheSpooler().handles.end()) return found->second;
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
}

std::wstring NameOf(HANDLE handle) {
    const std::shared_ptr<Printer> printer = FindByHandle(handle);
    return printer == nullptr ? L"?" : printer->name;
}

std::wstring JobText(HANDLE handle, DWORD job, const std::wstring& rest) {
    return NameOf(handle) + L", job " + std::to_wstring(job) + L", " + rest;
}

// Lays a structure of type Info and its strings out in the caller's buffer, as the spooler does: structures
// first, strings behind them.
class Packer {
 public:
    Packer(void* buffer, DWORD capacity, size_t structures)
        : buffer_(static_cast<BYTE*>(buffer)), capacity_(capacity), used_(structures) {}

    // A copy of `text` with its terminator; null when the buffer is too small (the size is counted all the
    // same).
    wchar_t* Add(const std::wstring& text) {
        const size_t bytes = (text.size() + 1) * sizeof(wchar_t);
        const size_t at = used_;
        used_ += bytes;
        if (used_ > capacity_) return nullptr;
        std::copy_n(text.c_str(), text.size() + 1, reinterpret_cast<wchar_t*>(buffer_ + at));
        return reinterpret_cast<wchar_t*>(buffer_ + at);
    }

    // Reports the needed size; false with ERROR_INSUFFICIENT_BUFFER when the buffer is smaller.
    bool Finish(DWORD* needed) const {
        *needed = static_cast<DWORD>(used_);
        if (used_ <= capacity_) return true;
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return false;
    }

 private:
    BYTE* buffer_;
    size_t capacity_;
    size_t used_;
};

void FillPrinterInfo(const Printer& printer, Packer& packer, PRINTER_INFO_2W& info) {
    info = {};
    info.pPrinterName = packer.Add(printer.name);
    info.pShareName = packer.Add(printer.share);
    info.pPortName = packer.Add(printer.port);
    info.pDriverName = packer.Add(printer.driver);
    info.Attributes = printer.attributes;
}

const wchar_t* CommandName(DWORD command) {
    switch (command) {
        case JOB_CONTROL_PAUSE:
            return L"PAUSE";
        case JOB_CONTROL_RESUME:
            return L"RESUME";
        case JOB_CONTROL_CANCEL:
            return L"CANCEL";
        case JOB_CONTROL_RESTART:
            return L"RESTART";
        case JOB_CONTROL_DELETE:
            return L"DELETE";
        case JOB_CONTROL_SENT_TO_PRINTER:
            return L"SENT_TO_PRINTER";
        case JOB_CONTROL_LAST_PAGE_EJECTED:
            return L"LAST_PAGE_EJECTED";
        default:
            return L"other command";
    }
}

BOOL CopyDirectory(const wchar_t* directory, BYTE* buffer, DWORD capacity, DWORD* needed) {
    Packer packer(buffer, capacity, 0);
    packer.Add(directory);
    return packer.Finish(needed);
}

}  // namespace

// Nothing is caught here: a stand-in that runs out of memory ends the test.
extern "C" {

BOOL WINAPI OpenPrinterW(LPWSTR name, LPHANDLE handle, LPPRINTER_DEFAULTSW) {
    if (!Enter("OpenPrinterW", TextOrEmpty(name))) return FALSE;
    Spooler& spooler = TheSpooler();
    const vlm::LockGuard exclusive(spoolerLock);
    const std::shared_ptr<Printer> printer = FindByName(TextOrEmpty(name));
    if (printer == nullptr) {
        SetLastError(ERROR_INVALID_PRINTER_NAME);
        return FALSE;
    }
    *handle = reinterpret_cast<HANDLE>(++spooler.lastHandle);
    spooler.handles.emplace(*handle, printer);
    return TRUE;
}

BOOL WINAPI ClosePrinter(HANDLE handle) {
    if (!Enter("ClosePrinter", NameOf(handle))) return FALSE;
    const vlm::LockGuard exclusive(spoolerLock);
    if (TheSpooler().handles.erase(handle) == 1) return TRUE;
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
}

BOOL WINAPI GetPrinterW(HANDLE handle, DWORD level, LPBYTE buffer, DWORD capacity, LPDWORD needed) {
    if (!Enter("GetPrinterW", NameOf(handle))) return FALSE;
    const std::shared_ptr<Printer> printer = FindByHandle(handle);
    if (printer == nullptr) return FALSE;
    if (level != 2) {
        SetLastError(ERROR_INVALID_LEVEL);
        return FALSE;
    }
    Packer packer(buffer, capacity, sizeof(PRINTER_INFO_2W));
    PRINTER_INFO_2W info;
    FillPrinterInfo(*printer, packer, info);
    if (!packer.Finish(needed)) return FALSE;
    *reinterpret_cast<PRINTER_INFO_2W*>(buffer) = info;
    return TRUE;
}

BOOL WINAPI EnumPrintersW(DWORD flags, LPWSTR, DWORD level, LPBYTE buffer, DWORD capacity, LPDWORD needed,
                          LPDWORD returned) {
    if (!Enter("EnumPrintersW", L"flags " + std::to_wstring(flags))) return FALSE;
    *returned = 0;
    if (level != 2) {
        SetLastError(ERROR_INVALID_LEVEL);
        return FALSE;
    }
    const vlm::LockGuard exclusive(spoolerLock);
    const auto& printers = TheSpooler().printers;
    Packer packer(buffer, capacity, printers.size() * sizeof(PRINTER_INFO_2W));
    std::vector<PRINTER_INFO_2W> infos(printers.size());
    for (size_t i = 0; i < printers.size(); ++i)
        FillPrinterInfo(*printers[i], packer, infos[i]);
    if (!packer.Finish(needed)) return FALSE;
    std::copy(infos.begin(), infos.end(), reinterpret_cast<PRINTER_INFO_2W*>(buffer));
    *returned = static_cast<DWORD>(infos.size());
    return TRUE;
}

BOOL WINAPI GetPrinterDriverW(HANDLE handle, LPWSTR, DWORD level, LPBYTE buffer, DWORD capacity,
                              LPDWORD needed) {
    if (!Enter("GetPrinterDriverW", NameOf(handle))) return FALSE;
    const std::shared_ptr<Printer> printer = FindByHandle(handle);
    if (printer == nullptr) return FALSE;
    if (level != 3) {
        SetLastError(ERROR_INVALID_LEVEL);
        return FALSE;
    }
    Packer packer(buffer, capacity, sizeof(DRIVER_INFO_3W));
    DRIVER_INFO_3W info{};
    info.cVersion = 3;
    info.pName = packer.Add(printer->driver);
    if (!printer->dependentFiles.empty()) info.pDependentFiles = packer.Add(printer->dependentFiles);
    if (!packer.Finish(needed)) return FALSE;
    *reinterpret_cast<DRIVER_INFO_3W*>(buffer) = info;
    return TRUE;
}

BOOL WINAPI GetJobW(HANDLE handle, DWORD id, DWORD level, LPBYTE buffer, DWORD capacity, LPDWORD needed) {
    if (!Enter("GetJobW", JobText(handle, id, L"level " + std::to_wstring(level)))) return FALSE;
    const std::shared_ptr<Printer> printer = FindByHandle(handle);
    if (printer == nullptr) return FALSE;
    const vlm::LockGuard exclusive(spoolerLock);
    const auto found = printer->jobs.find(id);
    if (found == printer->jobs.end() || level != 1) {
        SetLastError(level != 1 ? ERROR_INVALID_LEVEL : ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    Packer packer(buffer, capacity, sizeof(JOB_INFO_1W));
    JOB_INFO_1W info{};
    info.JobId = id;
    info.pPrinterName = packer.Add(printer->name);
    info.pDocument = packer.Add(found->second.document);
    info.Status = found->second.status;
    if (!packer.Finish(needed)) return FALSE;
    *reinterpret_cast<JOB_INFO_1W*>(buffer) = info;
    return TRUE;
}

BOOL WINAPI SetJobW(HANDLE handle, DWORD id, DWORD level, LPBYTE, DWORD command) {
    std::wstring what = CommandName(command);
    if (level != 0) what += L", level " + std::to_wstring(level);
    if (!Enter("SetJobW", JobText(handle, id, what))) return FALSE;
    return FindByHandle(handle) != nullptr;
}

BOOL WINAPI GetPrinterDriverDirectoryW(LPWSTR, LPWSTR, DWORD, LPBYTE buffer, DWORD capacity, LPDWORD needed) {
    if (!Enter("GetPrinterDriverDirectoryW", L"")) return FALSE;
    return CopyDirectory(L"C:\\windows\\system32\\spool\\drivers\\x64", buffer, capacity, needed);
}

BOOL WINAPI GetPrintProcessorDirectoryW(LPWSTR, LPWSTR, DWORD, LPBYTE buffer, DWORD capacity,
                                        LPDWORD needed) {
    if (!Enter("GetPrintProcessorDirectoryW", L"")) return FALSE;
    return CopyDirectory(L"C:\\windows\\system32\\spool\\prtprocs\\x64", buffer, capacity, needed);
}

void StandInReset() {
    Spooler& spooler = TheSpooler();
    const vlm::LockGuard exclusive(spoolerLock);
    spooler.printers.clear();
    spooler.rules.clear();
    spooler.log.clear();
}

BOOL StandInAddPrinter(const PrinterDescription* description) {
    auto printer = std::make_shared<Printer>();
    printer->name = TextOrEmpty(description->name);
    printer->port = TextOrEmpty(description->port);
    printer->share = TextOrEmpty(description->share);
    printer->driver = TextOrEmpty(description->driver);
    printer->attributes = description->attributes;
    if (const wchar_t* file = description->dependentFiles; file != nullptr) {
        for (; *file != L'\0'; file += std::wcslen(file) + 1)
            printer->dependentFiles.append(file).push_back(L'\0');
    }
    const vlm::LockGuard exclusive(spoolerLock);
    if (FindByName(printer->name) != nullptr) return FALSE;
    TheSpooler().printers.push_back(std::move(printer));
    return TRUE;
}

BOOL StandInSetJob(const wchar_t* name, DWORD id, const wchar_t* document, DWORD status) {
    const vlm::LockGuard exclusive(spoolerLock);
    const std::shared_ptr<Printer> printer = FindByName(TextOrEmpty(name));
    if (printer == nullptr) return FALSE;
    printer->jobs[id] = Job{TextOrEmpty(document), status};
    return TRUE;
}

BOOL StandInAddRule(const Rule* rule) {
    const vlm::LockGuard exclusive(spoolerLock);
    TheSpooler().rules.push_back({rule->function, *rule});
    return TRUE;
}

LONG StandInOpenHandles() {
    const vlm::LockGuard exclusive(spoolerLock);
    return static_cast<LONG>(TheSpooler().handles.size());
}

// Copies the log, without a terminator, when it fits into `capacity` characters; returns its length either
// way.
DWORD StandInReadLog(wchar_t* buffer, DWORD capacity) {
    const vlm::LockGuard exclusive(spoolerLock);
    const std::wstring& log = TheSpooler().log;
    if (log.size() <= capacity) std::copy(log.begin(), log.end(), buffer);
    return static_cast<DWORD>(log.size());
}
}
