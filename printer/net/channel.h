// One accepted connection, with TLS or without. Every wait ends with its limit, with the connection, or when
// the printer stops; the client has kRequestLimit to send its request. For one thread.
#pragma once

#include <openssl/ssl.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string_view>

#include "printer/net/tcp_socket.h"

namespace vlm::printer {

struct FreeSsl {
    void operator()(SSL* ssl) const { SSL_free(ssl); }
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
};
using TlsContext = std::unique_ptr<SSL_CTX, FreeSsl>;

class Channel {
 public:
    static constexpr std::chrono::seconds kRequestLimit{10};

    // `socket` stays the caller's. `tls` is null for a plain connection. `stopFd` becomes readable, and
    // stays so, when the printer stops.
    Channel(int socket, SSL_CTX* tls, int stopFd);

    bool Handshake();  // true at once without TLS

    // The number of bytes read, 0 at the end, negative on failure or after the limit.
    std::ptrdiff_t Read(char* to, std::size_t size);
    bool Write(std::string_view bytes);  // all of it
    // Waits, and reads nothing more, until the client closes; `goesOn` is asked every few milliseconds.
    void HoldWhile(const std::function<bool()>& goesOn);
    bool Pause(std::chrono::milliseconds time);  // false when the connection or the printer ended

    // The client sees the end of the stream, with TLS's close_notify or without. What it still sends is read
    // and discarded for a moment, because unread data would turn the close into a reset.
    void End(bool goodbye);
    void EndWithReset() { SetResetOnClose(socket_, true); }  // once the caller closes the socket

 private:
    Wait WaitForClient() const;
    Wait WaitFor(short events, std::chrono::milliseconds limit) const {
        return vlm::printer::WaitFor(socket_, events, limit, stopFd_);
    }
    // One non-blocking operation at a time until it is done: 1 done, 0 end, -1 failed.
    int TlsStep(const std::function<int()>& step);

    const int socket_;
    const int stopFd_;
    const std::chrono::steady_clock::time_point requestEnd_ =
        std::chrono::steady_clock::now() + kRequestLimit;
    std::unique_ptr<SSL, FreeSsl> ssl_;
};

}  // namespace vlm::printer
