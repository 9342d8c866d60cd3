// The port below the monitor with a printer behind it. It takes print jobs as their plans say and
// answers VPCA requests as their keys say. It reports what must never happen: two documents at once, a call
// for a port that is not open. Its base answers Bidi requests and gives the printer's address.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

#include "soak/random.h"
#include "soak/stage.h"
#include "tests/support/bidi_lower_monitor.h"

namespace vlm::soak {

// What the port does with one job, and what arrived.
struct Job {
    DWORD id = 0;
    enum class Fails { kNothing, kStart, kWrite, kEnd } fails = Fails::kNothing;
    DWORD error = 0;
    DWORD pause = 0;  // milliseconds in each write

    std::string arrived;
    unsigned writes = 0;
    unsigned questions = 0;
    bool ended = false;
};

// What the printer does with a VPCA request; the request's key says which.
enum class Reply : uint8_t { kGood, kSlow, kRefused, kGarbage, kSilence, kReadFails, kWriteFails, kThrows };
inline constexpr DWORD kPortError = ERROR_NOT_READY;  // of the two that fail

// The key of a request: its data id, or an attribute request's first value.
struct ReplyKey {
    Reply reply = Reply::kGood;
    uint32_t nonce = 0;  // 10 bits
    uint32_t size = 0;   // of a data block, 14 bits

    uint32_t Pack() const { return static_cast<uint32_t>(reply) << 24 | nonce << 14 | size; }
    static ReplyKey Unpack(uint32_t key) {
        return {static_cast<Reply>(key >> 24), key >> 14 & 0x3FF, key & 0x3FFF};
    }
};
// The bytes that belong to a key, in either direction.
std::string BytesOf(uint64_t key, size_t size);

class PrinterPort : public test::BidiLowerMonitor {
 public:
    PrinterPort(Stage& stage, std::wstring name);

    // `job` stays until Forget.
    void Expect(Job& job);
    void Forget(const Job& job);
    // The manager that had it open was shut down without closing it.
    void Abandon();

    const std::wstring name;
    DWORD openError = 0;        // OpenPort fails with it
    std::atomic<int> opens{0};  // how often OpenPort was called

 private:
    static PrinterPort& Own(HANDLE handle) {
        return static_cast<PrinterPort&>(*static_cast<test::LowerMonitor*>(handle));
    }
    template <typename Work>
    static BOOL Serve(HANDLE port, Work&& work);
    static BOOL WINAPI Open(HANDLE monitor, LPWSTR name, HANDLE* port);
    static BOOL WINAPI Start(HANDLE port, LPWSTR printer, DWORD job, DWORD level, LPBYTE info);
    static BOOL WINAPI Write(HANDLE port, LPBYTE bytes, DWORD size, LPDWORD count);
    static BOOL WINAPI Read(HANDLE port, LPBYTE bytes, DWORD size, LPDWORD read);
    static BOOL WINAPI End(HANDLE port);
    static BOOL WINAPI Close(HANDLE port);
    static BOOL WINAPI PrinterData(HANDLE port, DWORD control, LPWSTR name, LPWSTR input, DWORD inputSize,
                                   LPWSTR output, DWORD outputSize, LPDWORD returned);

    void Violate(const std::string& what) const;
    // The job whose document is open; null, and a violation, when there is none.
    Job* CurrentJob(const char* operation);
    std::string Answer() const;

    Stage& stage_;
    std::mutex mutex_;
    std::map<DWORD, Job*> expected_;
    bool isOpen_ = false;
    Job* current_ = nullptr;
    bool exchange_ = false;  // the document is a VPCA exchange
    std::string request_;
};

}  // namespace vlm::soak
