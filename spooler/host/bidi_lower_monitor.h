// A lower port monitor as a Bidi query meets it: it knows where the printer is, and a little about it.
//
// A TCP/IP port tells the host of its printer (Xcv operation GetConfigInfo). A WSD port says that it is one
// (PnPXID) and answers the address of the print service as a Bidi value. Both answer a few values of their
// own, of type BIDI_ENUM; what they do not have has the result ERROR_NOT_SUPPORTED (50). It prints nothing.
//
// Values and addresses never change, so one object may serve any number of threads. Its address is its
// monitor handle, port handle and Xcv handle.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "util/spooler_api.h"

namespace vlm::host {

class BidiLowerMonitor {
 public:
    enum class Kind { kTcp, kWsd, kUsb };

    // `address` is "host" or "host:port" (at most 48 characters) on a TCP/IP port and a URL on a WSD port; a
    // USB port does without.
    BidiLowerMonitor(Kind kind, std::wstring address);
    BidiLowerMonitor(const BidiLowerMonitor&) = delete;
    BidiLowerMonitor& operator=(const BidiLowerMonitor&) = delete;

    MONITOR2* Table() { return &table_; }
    // The name that the port would have in the spooler.
    std::wstring PortName() const;

    // The longest address that PORT_DATA_1 holds for a TCP/IP port.
    static constexpr size_t kLongestHost = 48;

 private:
    struct Value {
        const wchar_t* path;
        DWORD type;
        std::wstring text;
    };

    static BOOL WINAPI OpenPort(HANDLE monitor, LPWSTR name, HANDLE* port);
    static BOOL WINAPI ClosePort(HANDLE port);
    static BOOL WINAPI XcvOpenPort(HANDLE monitor, LPCWSTR object, ACCESS_MASK access, HANDLE* xcv);
    static DWORD WINAPI XcvDataPort(HANDLE xcv, LPCWSTR name, PBYTE input, DWORD inputSize, PBYTE output,
                                    DWORD outputSize, DWORD* needed);
    static BOOL WINAPI XcvClosePort(HANDLE xcv);
    static DWORD WINAPI SendRecvBidiDataFromPort(HANDLE port, DWORD access, LPCWSTR action,
                                                 BIDI_REQUEST_CONTAINER* request,
                                                 BIDI_RESPONSE_CONTAINER** response);

    DWORD WriteText(std::wstring_view text, size_t offset, size_t size, PBYTE output, DWORD outputSize,
                    DWORD* needed) const;
    DWORD Answer(std::wstring_view action, const BIDI_REQUEST_CONTAINER& request,
                 BIDI_RESPONSE_CONTAINER** response) const;

    const Kind kind_;
    const std::wstring address_;
    std::vector<Value> values_;
    MONITOR2 table_;
};

}  // namespace vlm::host
