// How a host scripts the stand-in spooler, and reads what was asked of it.
//
// The stand-ins are two DLLs that lie beside a program and take the place of the system's: "winspool.drv"
// with printers, drivers and jobs that the host invents, and "spoolss.dll" with the router's Bidi allocator.
// They exist because Wine's own spooler shows no effect of SetJobW and has no Bidi allocator at all. Product
// code does not know them; it calls the platform.
//
// Printers and Router find the control functions of the stand-in that is loaded in this
// process. On a machine with the real spooler there is none and Present() is false. All functions may be
// called from any thread.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace vlm::standin {

struct PrinterDescription {
    const wchar_t* name;
    const wchar_t* port;    // a pooled printer names several, separated by commas
    const wchar_t* share;   // may be null
    DWORD attributes;       // PRINTER_ATTRIBUTE_…
    const wchar_t* driver;  // may be null
    const wchar_t*
        dependentFiles;  // of the driver: names each ended by NUL, the list by one more; may be null
};

// What the next calls of one function do instead of their work.
struct Rule {
    const char* function;  // "GetJobW"
    DWORD error;           // fail with this last error; 0 only delays
    DWORD delay;           // milliseconds to sleep first
    DWORD skip;            // leave that many calls alone before the rule begins
    DWORD times;           // how many calls it then holds for
};

struct RouterCounters {
    LONG64 liveBlocks;
    LONG64 liveBytes;
    LONG64 allocations;  // since the last reset, failed ones included
    LONG64 badFrees;     // frees of what is not, or no longer, a live block
};

// The control functions of winspool.drv.
class Printers {
 public:
    Printers();
    bool Present() const { return reset_ != nullptr; }
    // Forgets printers, jobs, rules and the log. Handles that are still open stay open and keep being
    // counted.
    void Reset() const { reset_(); }
    bool Add(const PrinterDescription& printer) const { return addPrinter_(&printer) != FALSE; }
    // Adds the job if the printer has none of that id; `status` is a set of JOB_STATUS_… bits.
    bool SetJob(const wchar_t* printer, DWORD job, const wchar_t* document, DWORD status) const {
        return setJob_(printer, job, document, status) != FALSE;
    }
    bool AddRule(const Rule& rule) const { return addRule_(&rule) != FALSE; }
    // Printer handles that were opened and not closed.
    LONG OpenHandles() const { return openHandles_(); }
    // One line a call since the last reset, oldest first: "SetJobW(Office, job 7, SENT_TO_PRINTER)".
    std::vector<std::wstring> Log() const;

 private:
    void (*reset_)() = nullptr;
    BOOL (*addPrinter_)(const PrinterDescription*) = nullptr;
    BOOL (*setJob_)(const wchar_t*, DWORD, const wchar_t*, DWORD) = nullptr;
    BOOL (*addRule_)(const Rule*) = nullptr;
    LONG (*openHandles_)() = nullptr;
    DWORD (*readLog_)(wchar_t*, DWORD) = nullptr;
};

// The control functions of spoolss.dll. Each block ends at a page without access, so an overrun faults at
// once; a freed block's pages are given back, so a use after free does too.
class Router {
 public:
    Router();
    bool Present() const { return counters_ != nullptr; }
    RouterCounters Counters() const {
        RouterCounters counters{};
        counters_(&counters);
        return counters;
    }
    // Starts counting allocations at zero; the n-th (1 = the next) and all after it fail when `failFrom` is
    // n, none when it is 0.
    void ResetAllocations(LONG64 failFrom) const { resetAllocations_(failFrom); }
    // Whether the next blocks have guard pages, as they have from the start. Without, they come from the
    // heap, which is what the real router costs: for measurements.
    void GuardBlocks(bool guarded) const { guardBlocks_(guarded ? TRUE : FALSE); }

 private:
    void (*counters_)(RouterCounters*) = nullptr;
    void (*resetAllocations_)(LONG64) = nullptr;
    void (*guardBlocks_)(BOOL) = nullptr;
};

}  // namespace vlm::standin
