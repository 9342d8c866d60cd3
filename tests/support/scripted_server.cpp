#include "tests/support/scripted_server.h"

#include <cstdlib>
#include <stdexcept>

namespace vlm::test {

namespace {

constexpr DWORD kLongestHold = 8000;
// A client that lost a connection has tried another one by then, if it is of that kind.
constexpr DWORD kQuiet = 40;

struct Winsock {
    Winsock() {
        WSADATA data;
        WSAStartup(MAKEWORD(2, 2), &data);
    }
};

size_t AnnouncedLength(const std::string& head) {
    const size_t at = head.find("Content-Length: ");
    return at == std::string::npos ? 0 : std::strtoul(head.c_str() + at + 16, nullptr, 10);
}

}  // namespace

Step ReadRequest() {
    return {Step::kReadRequest, {}, 1, 0};
}

Step Send(std::string bytes, unsigned times, DWORD milliseconds) {
    return {Step::kSend, std::move(bytes), times, milliseconds};
}

Step Hold() {
    return {Step::kHold, {}, 1, 0};
}

Step Reset() {
    return {Step::kReset, {}, 1, 0};
}

std::string Http(const std::string& statusLine, const std::string& body, const std::string& headers) {
    return "HTTP/1.1 " + statusLine + "\r\nContent-Type: application/soap+xml\r\nConnection: close\r\n" +
           headers + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

ScriptedServer::ScriptedServer(Script script) : script_(std::move(script)) {
    static const Winsock winsock;
    listener_ = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int length = sizeof address;
    auto* const plain = reinterpret_cast<sockaddr*>(&address);
    if (bind(listener_, plain, length) != 0 || listen(listener_, 16) != 0 ||
        getsockname(listener_, plain, &length) != 0) {
        throw std::runtime_error("no port to listen on");
    }
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { Run(); });
}

ScriptedServer::~ScriptedServer() {
    stop_ = true;
    thread_.join();
    closesocket(listener_);
}

std::wstring ScriptedServer::Url(const wchar_t* scheme) const {
    return std::wstring(scheme) + L"://127.0.0.1:" + std::to_wstring(port_) + L"/wsd/print/";
}

void ScriptedServer::Play(Script script) {
    const std::lock_guard lock(mutex_);
    script_ = std::move(script);
}

std::string ScriptedServer::LastRequest() {
    const std::lock_guard lock(mutex_);
    return request_;
}

void ScriptedServer::Run() {
    while (!stop_) {
        if (!WaitReadable(listener_, 20)) continue;
        lastBusy_ = ~ULONGLONG{0};
        ++connections_;
        const SOCKET client = accept(listener_, nullptr, nullptr);
        if (client != INVALID_SOCKET) Serve(client);
        lastBusy_ = GetTickCount64();
    }
}

void ScriptedServer::HangUp() {
    hangUp_ = true;
    const ULONGLONG start = GetTickCount64();
    for (;;) {
        const ULONGLONG now = GetTickCount64();
        const ULONGLONG busy = lastBusy_;
        if (now >= start + kQuiet && now >= busy && now - busy >= kQuiet) break;
        Sleep(5);
    }
    hangUp_ = false;
}

void ScriptedServer::Serve(SOCKET client) {
    Script script;
    {
        const std::lock_guard lock(mutex_);
        script = script_;
    }
    for (const Step& step : script) {
        if (step.kind == Step::kReadRequest) Receive(client);
        for (unsigned i = 0; step.kind == Step::kSend && i < step.times && !Ends(); ++i) {
            if (::send(client, step.bytes.data(), static_cast<int>(step.bytes.size()), 0) <= 0) break;
            // Ends early when the client is gone.
            if (step.milliseconds != 0 && WaitReadable(client, step.milliseconds)) break;
        }
        for (DWORD waited = 0; step.kind == Step::kHold && waited < kLongestHold && !Ends(); waited += 20) {
            char ignored[4096];
            if (WaitReadable(client, 20) && recv(client, ignored, sizeof ignored, 0) <= 0) break;
        }
        if (step.kind == Step::kReset) {
            const linger hard{1, 0};
            setsockopt(client, SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&hard), sizeof hard);
        }
    }
    closesocket(client);
}

void ScriptedServer::Receive(SOCKET client) {
    std::string request;
    for (;;) {
        const size_t head = request.find("\r\n\r\n");
        if (head != std::string::npos && request.size() >= head + 4 + AnnouncedLength(request)) break;
        char buffer[4096];
        if (Ends() || !WaitReadable(client, 500)) break;
        const int got = recv(client, buffer, sizeof buffer, 0);
        if (got <= 0) break;
        request.append(buffer, static_cast<size_t>(got));
    }
    const std::lock_guard lock(mutex_);
    request_ = std::move(request);
}

bool ScriptedServer::WaitReadable(SOCKET socket, DWORD milliseconds) const {
    fd_set set;
    FD_ZERO(&set);
    FD_SET(socket, &set);
    timeval wait{static_cast<long>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1000};
    return select(0, &set, nullptr, nullptr, &wait) > 0;
}

}  // namespace vlm::test
