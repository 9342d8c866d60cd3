// An HTTP server that does to each connection exactly what a script says, byte by byte, right or wrong.
#pragma once

#include <winsock2.h>
// winsock2.h before windows.h.
#include <windows.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace vlm::test {

struct Step {
    enum Kind { kReadRequest, kSend, kHold, kReset } kind;
    std::string bytes;
    unsigned times;
    DWORD milliseconds;
};
using Script = std::vector<Step>;

// The request's head, and as much of its body as the head announces.
Step ReadRequest();
// `bytes`, `times` over, with a pause of `milliseconds` after each.
Step Send(std::string bytes, unsigned times = 1, DWORD milliseconds = 0);
// Says nothing until the client closes, or for a few seconds.
Step Hold();
// The connection ends with a reset; without this, it is closed.
Step Reset();

// Reads the request, does the steps and closes.
template <typename... Steps>
Script AfterRequest(Steps... steps) {
    return {ReadRequest(), std::move(steps)...};
}
inline Script Answer(std::string bytes) {
    return AfterRequest(Send(std::move(bytes)));
}
// A whole answer with a body of the right length.
std::string Http(const std::string& statusLine, const std::string& body, const std::string& headers = "");

// Listens on a free loopback port from construction to destruction; one connection after the other.
class ScriptedServer {
 public:
    explicit ScriptedServer(Script script);
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    std::wstring Url(const wchar_t* scheme = L"http") const;
    unsigned short Port() const { return port_; }
    // For the connections from now on.
    void Play(Script script);
    unsigned Connections() const { return connections_; }
    // Cuts short what goes on and what follows from it, and returns when no client is left.
    void HangUp();
    // The last request, head and body.
    std::string LastRequest();

 private:
    void Run();
    void Serve(SOCKET client);
    void Receive(SOCKET client);
    bool Ends() const { return stop_ || hangUp_; }
    bool WaitReadable(SOCKET socket, DWORD milliseconds) const;

    Script script_;
    SOCKET listener_ = INVALID_SOCKET;
    unsigned short port_ = 0;
    std::atomic<bool> stop_{false};
    std::atomic<bool> hangUp_{false};
    std::atomic<ULONGLONG> lastBusy_{0};  // GetTickCount64
    std::atomic<unsigned> connections_{0};
    std::mutex mutex_;
    std::string request_;
    std::thread thread_;
};

}  // namespace vlm::test
