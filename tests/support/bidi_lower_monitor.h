// A port monitor for tests that also answers Bidi requests and tells where its printer is.
#pragma once

#include <atomic>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "bidi/bidi_mem.h"
#include "tests/support/lower_monitor.h"

namespace vlm::test {

// An entry as the lower monitor answers it: a text value, or none with a code.
struct LowerEntry {
    DWORD number;
    DWORD result;
    std::wstring schema;
    std::wstring text;
};

class BidiLowerMonitor : public LowerMonitor {
 public:
    enum Kind { kTcp, kWsd };

    BidiLowerMonitor() {
        table.pfnXcvOpenPort = XcvOpenPort;
        table.pfnXcvDataPort = XcvDataPort;
        table.pfnXcvClosePort = XcvClosePort;
        table.pfnSendRecvBidiDataFromPort = SendRecvBidi;
    }

    // A response of router memory; null when the router has none.
    BIDI_RESPONSE_CONTAINER* Make(const std::vector<LowerEntry>& wanted) const {
        BIDI_RESPONSE_CONTAINER* made = nullptr;
        for (const LowerEntry& entry : wanted) {
            BIDI_RESPONSE_DATA data{};
            std::wstring schema = entry.schema;
            std::wstring text = entry.text;
            data.dwReqNumber = entry.number;
            data.dwResult = entry.result;
            data.pSchema = schema.data();
            if (entry.result == 0) {
                data.data.dwBidiType = BIDI_STRING;
                data.data.u.sData = text.data();
            }
            BIDI_RESPONSE_CONTAINER* longer = memory_.Append(made, data, 1, 0);
            memory_.FreeContainer(made);
            made = longer;
            if (made == nullptr) return nullptr;
        }
        return made;
    }

    // Set before the port is used.
    Kind kind = kTcp;
    std::wstring address;  // the host address, or the print service's URL
    std::vector<LowerEntry> entries;
    DWORD bidiCode = 0;  // of everything but the question for the URL
    BIDI_TYPE urlType = BIDI_STRING;
    DWORD urlCode = 0;
    DWORD configCode = 0;  // of the channel's data call
    bool throws = false;   // instead of answering a Bidi request
    bool channelThrows = false;

    std::atomic<int> openChannels{0};
    std::atomic<int> bidiCalls{0};  // without those for the URL
    std::atomic<int> urlCalls{0};
    BIDI_RESPONSE_CONTAINER** lastResponse = nullptr;
    BIDI_REQUEST_CONTAINER* lastRequest = nullptr;
    DWORD lastAccess = 0;

 private:
    static BidiLowerMonitor& Own(HANDLE handle) {
        return static_cast<BidiLowerMonitor&>(*static_cast<LowerMonitor*>(handle));
    }

    static BOOL WINAPI XcvOpenPort(HANDLE monitor, LPCWSTR, ACCESS_MASK, HANDLE* channel) {
        BidiLowerMonitor& self = Own(monitor);
        if (!self.answer("XcvOpenPort")) return FALSE;
        *channel = monitor;
        ++self.openChannels;
        return TRUE;
    }
    static DWORD WINAPI XcvDataPort(HANDLE channel, LPCWSTR name, PBYTE input, DWORD inputSize, PBYTE output,
                                    DWORD outputSize, PDWORD needed) {
        BidiLowerMonitor& self = Own(channel);
        if (self.channelThrows) throw std::runtime_error("below");
        *needed = 0;
        if (self.configCode != 0) return self.configCode;
        if (std::wstring(name) == L"PnPXID")
            return self.kind == kWsd && input == nullptr && inputSize == 0 ? 0 : ERROR_NOT_SUPPORTED;
        DWORD version = 0;
        if (std::wstring(name) != L"GetConfigInfo" || inputSize != 132 || outputSize != 964) return 87;
        std::memcpy(&version, input + 128, sizeof version);
        if (version != 1) return ERROR_INVALID_LEVEL;
        std::memcpy(output + 144, self.address.c_str(), (self.address.size() + 1) * sizeof(wchar_t));
        return 0;
    }
    static BOOL WINAPI XcvClosePort(HANDLE channel) {
        --Own(channel).openChannels;
        return TRUE;
    }
    static DWORD WINAPI SendRecvBidi(HANDLE port, DWORD access, LPCWSTR, PBIDI_REQUEST_CONTAINER request,
                                     PBIDI_RESPONSE_CONTAINER* response) {
        BidiLowerMonitor& self = Own(port);
        const wchar_t* schema = request->Count != 0 ? request->aData[0].pSchema : nullptr;
        const std::wstring url = L"\\Printer.Velun.OIP.Service.WSDPrintServices:WSDPrintServiceURL";
        if (schema != nullptr && url == schema) {
            ++self.urlCalls;
            if (self.urlCode != 0) return self.urlCode;
            *response = self.Make({{0, 0, url, self.address}});
            if (*response == nullptr) return ERROR_OUTOFMEMORY;
            if (self.urlType != BIDI_STRING) {
                self.memory_.FreeValue((*response)->aData[0].data);
                (*response)->aData[0].data.dwBidiType = static_cast<DWORD>(self.urlType);
                (*response)->aData[0].data.u.iData = 80;
            }
            return 0;
        }
        ++self.bidiCalls;
        self.lastAccess = access;
        self.lastRequest = request;
        self.lastResponse = response;
        if (self.throws) throw std::runtime_error("below");
        if (self.bidiCode != 0) return self.bidiCode;
        if (self.entries.empty()) return 0;
        *response = self.Make(self.entries);
        return *response != nullptr ? ERROR_SUCCESS : DWORD{ERROR_OUTOFMEMORY};
    }

    CBidiMem memory_;
};

}  // namespace vlm::test
