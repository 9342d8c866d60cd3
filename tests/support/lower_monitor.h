// A port monitor for tests: one object is one port below. It writes down what it is asked, and does what the
// test says instead of succeeding.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "spooler/host/lower_table.h"
#include "util/handles.h"

namespace vlm::test {

class LowerMonitor {
 public:
    LowerMonitor() { table.pfnGetPrinterDataFromPort = GetPrinterDataFromPort; }
    LowerMonitor(const LowerMonitor&) = delete;
    LowerMonitor& operator=(const LowerMonitor&) = delete;

    struct Call {
        const char* operation;
        const void* buffer;
        DWORD size;
        const void* count;  // where the operation reports its byte count
    };

    std::vector<Call> Calls() const {
        const std::lock_guard guard(mutex_);
        return calls_;
    }
    size_t CountOf(const std::string& operation) const {
        size_t count = 0;
        for (const Call& call : Calls())
            if (operation == call.operation) ++count;
        return count;
    }
    // Gives what it forgets.
    std::vector<Call> ForgetCalls() {
        const std::lock_guard guard(mutex_);
        return std::exchange(calls_, {});
    }

    MONITOR2 table = host::LowerTable(OpenPort, StartDocPort, WritePort, ReadPort, EndDocPort, ClosePort);
    // Answers every operation; the default succeeds without touching the last error. Set before the port is
    // used.
    std::function<BOOL(const char* operation)> answer = [](const char*) { return TRUE; };
    // Makes every operation, or one alone, fail with this last error.
    void Fail(DWORD error, const std::string& operation = "") {
        answer = [error, operation](const char* call) -> BOOL {
            if (!operation.empty() && operation != call) return TRUE;
            SetLastError(error);
            return FALSE;
        };
    }
    // Makes one operation wait until it is let go, for 20 s at most.
    void HoldAt(const std::string& operation) {
        answer = [this, operation](const char* call) {
            if (operation == call) {
                SetEvent(held_.Get());
                WaitForSingleObject(letGo_.Get(), 20'000);
            }
            return TRUE;
        };
    }
    // Whether a call has begun to wait, since the last time that this was so.
    bool Holds(DWORD milliseconds) const {
        return WaitForSingleObject(held_.Get(), milliseconds) == WAIT_OBJECT_0;
    }
    void LetGo() const { SetEvent(letGo_.Get()); }
    // Fills the output of GetPrinterDataFromPort and returns the byte count it claims.
    std::function<DWORD(void* output)> completion = [](void*) { return DWORD{0}; };
    std::string written;  // all bytes, in order, when keepBytes is set
    bool keepBytes = false;
    DWORD most = 0xFFFFFFFF;  // bytes it takes of one write

 protected:
    static BOOL WINAPI ReadPort(HANDLE port, LPBYTE buffer, DWORD size, LPDWORD read) {
        return Self(port).Note("ReadPort", buffer, size, read);
    }

 private:
    static LowerMonitor& Self(HANDLE handle) { return *static_cast<LowerMonitor*>(handle); }

    BOOL Note(const char* operation, const void* buffer = nullptr, DWORD size = 0,
              const void* count = nullptr) {
        {
            const std::lock_guard guard(mutex_);
            calls_.push_back({operation, buffer, size, count});
        }
        return answer(operation);
    }

    static BOOL WINAPI OpenPort(HANDLE monitor, LPWSTR, HANDLE* port) {
        *port = monitor;
        return Self(monitor).Note("OpenPort");
    }
    static BOOL WINAPI StartDocPort(HANDLE port, LPWSTR printer, DWORD, DWORD level, LPBYTE) {
        return Self(port).Note("StartDocPort", printer, level);
    }
    static BOOL WINAPI WritePort(HANDLE port, LPBYTE buffer, DWORD size, LPDWORD written) {
        LowerMonitor& self = Self(port);
        const BOOL result = self.Note("WritePort", buffer, size, written);
        if (written != nullptr) *written = size < self.most ? size : self.most;
        if (self.keepBytes && result) self.written.append(reinterpret_cast<char*>(buffer), *written);
        return result;
    }
    static BOOL WINAPI EndDocPort(HANDLE port) { return Self(port).Note("EndDocPort"); }
    static BOOL WINAPI ClosePort(HANDLE port) { return Self(port).Note("ClosePort"); }
    static BOOL WINAPI GetPrinterDataFromPort(HANDLE port, DWORD, LPWSTR, LPWSTR input, DWORD inputSize,
                                              LPWSTR output, DWORD outputSize, LPDWORD returned) {
        LowerMonitor& self = Self(port);
        const BOOL result =
            self.Note("GetPrinterDataFromPort", input, inputSize * 0x100 + outputSize, returned);
        if (returned != nullptr) *returned = self.completion(output);
        return result;
    }

    const KernelHandle held_{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
    const KernelHandle letGo_{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
    mutable std::mutex mutex_;
    std::vector<Call> calls_;
};

}  // namespace vlm::test
