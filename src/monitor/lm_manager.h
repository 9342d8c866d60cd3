// CLmMgr: the object behind the monitor handle. It owns the open ports of one initialisation of the monitor,
// and answers Bidi queries about them: lm_manager.cpp keeps the ports, bidi_routing.cpp routes queries,
// printer_address.cpp finds where a port's printer is.
//
// Threads: the list of ports is under the monitor lock. Bidi queries run on any number of threads at once,
// each about a port that stays open meanwhile, with COM initialised, and hold no lock while they call
// anything; all that they share of the manager does not change as long as it lives.
#pragma once

#include <map>
#include <string>

#include "bidi/bidi_mem.h"
#include "monitor/lm_port.h"
#include "monitor/process_state.h"
#include "util/names.h"
#include "util/outcome.h"
#include "util/spooler_api.h"

namespace vlm {

class CBidiReq;

// How a port's printer is reached.
enum class PortConnectMode {
    kTcp = 0,  // a standard TCP/IP port: the printer's host address is known
    kWsd = 1,  // a WSD port, whose monitor knows the address of the print service
    kUnknown = 2,
};

class CLmMgr {
 public:
    explicit CLmMgr(MONITORINIT* monitorInit) : monitorInit_(monitorInit) {}
    virtual ~CLmMgr() = default;
    CLmMgr(const CLmMgr&) = delete;
    CLmMgr& operator=(const CLmMgr&) = delete;

    // The first port of that name, compared without regard to case, or null. An empty or null name finds
    // nothing.
    LmPort* FindPort(const wchar_t* portName) const VLM_REQUIRES(processState.monitorLock);
    // A new record at the head of the list, or null when memory runs out. `lowerMonitor` is the lower
    // monitor's handle; a null printer name is kept as an empty one. The lower table and the event are the
    // caller's to fill.
    LmPort* CreatePort(HANDLE lowerMonitor, const wchar_t* portName, const wchar_t* printerName)
        VLM_REQUIRES(processState.monitorLock);
    // Unlinks the record and frees it with its names. A record that is not in the list is left alone: false.
    bool RemovePort(LmPort* port) VLM_REQUIRES(processState.monitorLock);
    // Bars every port at the same moment, then frees each with its event and, if open, its printer. Nothing
    // below is called. Waits a bounded time for those who are inside (remote_ports.h); false when somebody
    // still may be, in which case that port's record stays, and the manager has to as well.
    bool CloseAllPorts() VLM_EXCLUDES(processState.monitorLock);
    // Whether the port's printer prints to several ports. A printer that cannot be asked is not pooled.
    bool IsPooledPrinter(const LmPort& port) const;
    // A copy of the port's printer name as it is now.
    std::wstring PrinterNameOf(const LmPort& port) const;

    // Answers the request's open entries: "Get" and "GetAll" from the engine and the lower monitor together,
    // any other action from the lower monitor alone. The answer is put behind the response that the request
    // holds, and its entries are counted. A Win32 code; when both sources fail, the lower monitor's.
    DWORD QueryBidi(const LmPort& port, CBidiReq& request, QueryTally* tally);
    // The engine's own answer, from the printer. A Win32 code: 14 for a null port, 87 for another null
    // argument; a failure without a code of its own is 1627. The answer is router memory, null after a
    // failure.
    DWORD QueryEngine(const LmPort* port, const wchar_t* action, const BIDI_REQUEST_CONTAINER* request,
                      BIDI_RESPONSE_CONTAINER** response);
    // One entry without value (232) for the request's first entry, for a port that has nobody to ask.
    DWORD AnswerLocally(const BIDI_REQUEST_CONTAINER* request, BIDI_RESPONSE_CONTAINER** response) const;

    // Asks the lower monitor what kind of port this is. `text` becomes the host address of a TCP/IP port,
    // and empty for a WSD port. E_FAIL, with `mode` unknown, when it cannot tell.
    Outcome GetConfigInfo(const LmPort& port, PortConnectMode* mode, std::wstring* text) const;
    // Where the printer's print service is: a host address or a URL.
    Outcome GetPrinterAddress(const LmPort& port, std::wstring* address);
    // The value of one schema as text, in a buffer of `capacity` characters, terminator included; from the
    // lower monitor or from the engine. A Win32 code: 232 for no value, 122 when it does not fit, 87 when it
    // is no text.
    DWORD GetBidiString(const LmPort& port, const wchar_t* schema, wchar_t* buffer, size_t capacity,
                        bool viaLower);

 private:
    const CBidiMem bidiMem_;          // every container of a query goes through it
    MONITORINIT* const monitorInit_;  // the spooler's, valid as long as the manager
    LmPort* ports_ VLM_GUARDED_BY(processState.monitorLock) = nullptr;
    // The same records by their names, which they own. Of several with one name the first in the list is last
    // here.
    std::multimap<const wchar_t*, LmPort*, NameLess> byName_ VLM_GUARDED_BY(processState.monitorLock);
};

// Frees a record that is in no list, with its names. Nobody else knows it any more.
VLM_UNCHECKED void FreePortRecord(LmPort* port);

// A zero-terminated copy in a block of the global heap, or null when memory runs out.
wchar_t* DuplicateToGlobalHeap(const wchar_t* text);

}  // namespace vlm
