// A lower port monitor over raw TCP, like the system's standard one: a document is one connection, made by
// StartDocPort and closed by EndDocPort. One object is one port; its address is its monitor handle and port
// handle.
//
// A document that is not finished resets its connection, also when the program ends in the middle of it, so
// that the printer does not take the part it has for the whole.
//
// Every step has the same time-out. Failures are FALSE with the Winsock code as last error; what became of
// the last document stays readable in Document() afterwards, because the monitor above reports nothing about
// its end.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "spooler/host/socket.h"
#include "util/spooler_api.h"

namespace vlm::host {

struct DocumentOutcome {
    std::uint64_t bytesSent = 0;   // taken by the network stack
    std::string backChannel;       // what the printer said, up to 64 KiB of it
    DWORD error = ERROR_SUCCESS;   // of the step that failed
    bool closedByPrinter = false;  // the printer closed after our end of data: it has read everything
};

class RawTcpMonitor {
 public:
    // `host` is a name or an address, `timeout` milliseconds for each step.
    RawTcpMonitor(std::string host, std::string port, DWORD timeout);
    ~RawTcpMonitor();
    RawTcpMonitor(const RawTcpMonitor&) = delete;
    RawTcpMonitor& operator=(const RawTcpMonitor&) = delete;

    MONITOR2* Table() { return &table_; }
    const DocumentOutcome& Document() const { return document_; }
    // From any thread: whatever the port is doing, and all it is asked to do from now on, fails with
    // ERROR_PRINT_CANCELLED, and the document breaks.
    void Cancel() { cancelled_.store(true); }

 private:
    static BOOL WINAPI OpenPort(HANDLE monitor, LPWSTR name, HANDLE* port);
    static BOOL WINAPI StartDocPort(HANDLE port, LPWSTR printer, DWORD job, DWORD level, LPBYTE info);
    static BOOL WINAPI WritePort(HANDLE port, LPBYTE buffer, DWORD size, LPDWORD written);
    static BOOL WINAPI ReadPort(HANDLE port, LPBYTE buffer, DWORD size, LPDWORD read);
    static BOOL WINAPI EndDocPort(HANDLE port);
    static BOOL WINAPI ClosePort(HANDLE port);

    bool Connect();
    bool ConnectTo(const sockaddr* address, int length);
    // Calls `ready(milliseconds)` in short turns until it returns something else than 0, for as long as the
    // time-out. Its result, or -1 with WSAETIMEDOUT or ERROR_PRINT_CANCELLED.
    template <typename Ready>
    int AwaitInTurns(Ready ready) const;
    // Waits until the socket can be read or written.
    bool Await(short events) const;
    // What the printer sees when the connection is closed: its regular end, or that it broke.
    void EndRegularly(bool regular) const;
    // recv, with a reset connection as WSAECONNRESET.
    int Receive(void* buffer, size_t size);
    bool Send(const BYTE* data, DWORD size, DWORD& sent);
    // Reads what the printer says until it closes.
    void DrainUntilClosed();
    BOOL Fail();

    const std::string host_;
    const std::string port_;
    const DWORD timeout_;
    MONITOR2 table_;
    Socket socket_;
    DocumentOutcome document_;
    std::atomic<bool> cancelled_{false};
};

}  // namespace vlm::host
