#include "spooler/host/bidi_lower_monitor.h"

#include <algorithm>
#include <cstring>

#include "bidi/bidi_mem.h"
#include "spooler/host/lower_table.h"
#include "util/splssmgr.h"

namespace vlm::host {

namespace {

// PORT_DATA_1 of the standard TCP/IP port monitor, and its member sztHostAddress.
constexpr size_t kPortDataSize = 964;
constexpr size_t kHostAddressOffset = 144;
constexpr wchar_t kPnpXId[] = L"urn:uuid:7c0de5f4-3b52-4e0a-9d1c-00a0b1c2d3e4";

BidiLowerMonitor& Self(HANDLE handle) {
    return *static_cast<BidiLowerMonitor*>(handle);
}

// A monitor above refuses a port that cannot print, so the operations are there.
template <typename... Arguments>
BOOL WINAPI PrintsNothing(Arguments...) {
    SetLastError(ERROR_NOT_SUPPORTED);
    return FALSE;
}

// Whether `path` lies in the tree below `root`, or is it.
bool IsBelow(std::wstring_view path, std::wstring_view root) {
    if (root == L"\\") return true;
    if (!path.starts_with(root)) return false;
    return path.size() == root.size() || path[root.size()] == L'.' || path[root.size()] == L':';
}

}  // namespace

BidiLowerMonitor::BidiLowerMonitor(Kind kind, std::wstring address)
    : kind_(kind),
      address_(std::move(address)),
      values_({{L"\\Printer.Status.Summary:State", BIDI_ENUM, L"Idle"},
               {L"\\Printer.Status.Summary:StateReason", BIDI_ENUM, L"None"}}),
      table_(LowerTable(OpenPort, PrintsNothing, PrintsNothing, PrintsNothing, PrintsNothing, ClosePort)) {
    if (kind_ == Kind::kWsd) {
        values_.push_back(
            {L"\\Printer.Velun.OIP.Service.WSDPrintServices:WSDPrintServiceURL", BIDI_STRING, address_});
    }
    table_.pfnXcvOpenPort = XcvOpenPort;
    table_.pfnXcvDataPort = XcvDataPort;
    table_.pfnXcvClosePort = XcvClosePort;
    table_.pfnSendRecvBidiDataFromPort = SendRecvBidiDataFromPort;
}

std::wstring BidiLowerMonitor::PortName() const {
    switch (kind_) {
        case Kind::kTcp:
            return L"IP_" + address_;
        case Kind::kWsd:
            return L"WSD-7c0de5f4-3b52-4e0a-9d1c-00a0b1c2d3e4";
        default:
            return L"USB001";
    }
}

BOOL WINAPI BidiLowerMonitor::OpenPort(HANDLE monitor, LPWSTR, HANDLE* port) {
    *port = monitor;
    return TRUE;
}

BOOL WINAPI BidiLowerMonitor::ClosePort(HANDLE) {
    return TRUE;
}

BOOL WINAPI BidiLowerMonitor::XcvOpenPort(HANDLE monitor, LPCWSTR, ACCESS_MASK, HANDLE* xcv) {
    *xcv = monitor;
    return TRUE;
}

DWORD WINAPI BidiLowerMonitor::XcvDataPort(HANDLE xcv, LPCWSTR name, PBYTE, DWORD, PBYTE output,
                                           DWORD outputSize, DWORD* needed) {
    const BidiLowerMonitor& self = Self(xcv);
    const std::wstring_view operation(name);
    if (operation == L"PnPXID" && self.kind_ == Kind::kWsd)
        return self.WriteText(kPnpXId, 0, sizeof kPnpXId, output, outputSize, needed);
    if (operation == L"GetConfigInfo" && self.kind_ == Kind::kTcp)
        return self.WriteText(self.address_, kHostAddressOffset, kPortDataSize, output, outputSize, needed);
    return ERROR_INVALID_PARAMETER;
}

BOOL WINAPI BidiLowerMonitor::XcvClosePort(HANDLE) {
    return TRUE;
}

// A record of `size` bytes, zero but for the text at `offset`.
DWORD BidiLowerMonitor::WriteText(std::wstring_view text, size_t offset, size_t size, PBYTE output,
                                  DWORD outputSize, DWORD* needed) const {
    *needed = static_cast<DWORD>(size);
    if (outputSize < size) return ERROR_INSUFFICIENT_BUFFER;
    std::memset(output, 0, size);
    std::memcpy(output + offset, text.data(), text.size() * sizeof(wchar_t));
    return ERROR_SUCCESS;
}

DWORD WINAPI BidiLowerMonitor::SendRecvBidiDataFromPort(HANDLE port, DWORD, LPCWSTR action,
                                                        BIDI_REQUEST_CONTAINER* request,
                                                        BIDI_RESPONSE_CONTAINER** response) {
    if (action == nullptr || request == nullptr || response == nullptr) return ERROR_INVALID_PARAMETER;
    *response = nullptr;
    return Self(port).Answer(action, *request, response);
}

DWORD BidiLowerMonitor::Answer(std::wstring_view action, const BIDI_REQUEST_CONTAINER& request,
                               BIDI_RESPONSE_CONTAINER** response) const {
    struct Entry {
        DWORD number;
        const wchar_t* path;
        const Value* value;  // null: not supported
    };
    const bool all = action == BIDI_ACTION_GET_ALL;
    if (!all && action != BIDI_ACTION_GET) return ERROR_NOT_SUPPORTED;
    std::vector<Entry> entries;
    for (DWORD i = 0; i < request.Count; ++i) {
        const BIDI_REQUEST_DATA& asked = request.aData[i];
        if (asked.pSchema == nullptr) return ERROR_INVALID_PARAMETER;
        const size_t before = entries.size();
        for (const Value& value : values_) {
            if (all ? IsBelow(value.path, asked.pSchema) : value.path == std::wstring_view(asked.pSchema))
                entries.push_back({asked.dwReqNumber, value.path, &value});
        }
        if (!all && entries.size() == before) entries.push_back({asked.dwReqNumber, asked.pSchema, nullptr});
    }
    if (entries.empty()) return ERROR_NOT_SUPPORTED;

    CSplssMgr router;
    if (!router.Load()) return GetLastError();
    BIDI_RESPONSE_CONTAINER* container =
        router.AllocBidiResponseContainer(static_cast<DWORD>(entries.size()));
    router.Unload();
    if (container == nullptr) return ERROR_OUTOFMEMORY;
    InitialiseContainer(*container, static_cast<DWORD>(entries.size()), request.Version, request.Flags);
    const CBidiMem memory;
    bool complete = true;
    for (size_t i = 0; i < entries.size(); ++i) {
        BIDI_RESPONSE_DATA& entry = container->aData[i];
        entry.dwReqNumber = entries[i].number;
        entry.dwResult = entries[i].value != nullptr ? ERROR_SUCCESS : ERROR_NOT_SUPPORTED;
        entry.pSchema = memory.DuplicateString(entries[i].path);
        complete = complete && entry.pSchema != nullptr;
        if (entries[i].value == nullptr) continue;
        entry.data.dwBidiType = entries[i].value->type;
        entry.data.u.sData = memory.DuplicateString(entries[i].value->text.c_str());
        complete = complete && entry.data.u.sData != nullptr;
    }
    if (!complete) {
        memory.FreeContainer(container);
        return ERROR_OUTOFMEMORY;
    }
    *response = container;
    return ERROR_SUCCESS;
}

}  // namespace vlm::host
