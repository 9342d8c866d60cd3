#include "printer/net/channel.h"

#include <fcntl.h>
#include <openssl/err.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <stdexcept>

namespace vlm::printer {
namespace {

using namespace std::chrono_literals;

constexpr auto kWriteLimit = 10s;  // for a client that stops reading
constexpr auto kHoldCheck = 20ms;
constexpr auto kLinger = 300ms;
constexpr int kMostPerCall = 64 * 1024;

}  // namespace

Channel::Channel(int socket, SSL_CTX* tls, int stopFd) : socket_(socket), stopFd_(stopFd) {
    const int flags = ::fcntl(socket_, F_GETFL);
    if (flags < 0 || ::fcntl(socket_, F_SETFL, flags | O_NONBLOCK) != 0)
        throw std::runtime_error("cannot make a socket non-blocking");
    if (tls == nullptr) return;
    ssl_.reset(SSL_new(tls));
    if (!ssl_ || SSL_set_fd(ssl_.get(), socket_) != 1)
        throw std::runtime_error("cannot create a TLS session");
}

bool Channel::Handshake() {
    return !ssl_ || TlsStep([this] { return SSL_accept(ssl_.get()); }) == 1;
}

std::ptrdiff_t Channel::Read(char* to, std::size_t size) {
    const int most = static_cast<int>(std::min<std::size_t>(size, kMostPerCall));
    if (ssl_) {
        int count = 0;
        const int done = TlsStep([&] { return count = SSL_read(ssl_.get(), to, most); });
        return done == 1 ? count : done;
    }
    for (;;) {
        const ssize_t count = ::recv(socket_, to, static_cast<std::size_t>(most), 0);
        if (count >= 0) return count;
        if (errno == EINTR) continue;
        if (errno != EAGAIN || WaitForClient() != Wait::kReady) return -1;
    }
}

bool Channel::Write(std::string_view bytes) {
    while (!bytes.empty()) {
        const int most = static_cast<int>(std::min<std::size_t>(bytes.size(), kMostPerCall));
        ssize_t count = 0;
        if (ssl_) {
            int written = 0;
            if (TlsStep([&] { return written = SSL_write(ssl_.get(), bytes.data(), most); }) != 1)
                return false;
            count = written;
        } else {
            count = ::send(socket_, bytes.data(), static_cast<std::size_t>(most), MSG_NOSIGNAL);
            if (count < 0) {
                if (errno == EINTR) continue;
                if (errno != EAGAIN || WaitFor(POLLOUT, kWriteLimit) != Wait::kReady) return false;
                continue;
            }
        }
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

void Channel::HoldWhile(const std::function<bool()>& goesOn) {
    while (goesOn()) {
        if (WaitFor(POLLRDHUP, kHoldCheck) != Wait::kTimeout) return;
    }
}

bool Channel::Pause(std::chrono::milliseconds time) {
    return WaitFor(POLLRDHUP, time) == Wait::kTimeout;
}

void Channel::End(bool goodbye) {
    if (ssl_ && goodbye) SSL_shutdown(ssl_.get());
    ::shutdown(socket_, SHUT_WR);
    const auto giveUp = std::chrono::steady_clock::now() + kLinger;
    std::array<char, 4096> scrap{};
    while (std::chrono::steady_clock::now() < giveUp) {
        const Wait wait = WaitFor(POLLIN, kHoldCheck);
        if (wait == Wait::kBroken || wait == Wait::kStop) return;
        if (::recv(socket_, scrap.data(), scrap.size(), 0) == 0) return;
    }
}

Wait Channel::WaitForClient() const {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(requestEnd_ - std::chrono::steady_clock::now());
    return WaitFor(POLLIN, std::max(left, 0ms));
}

int Channel::TlsStep(const std::function<int()>& step) {
    for (;;) {
        ERR_clear_error();
        const int result = step();
        if (result > 0) return 1;
        switch (SSL_get_error(ssl_.get(), result)) {
            case SSL_ERROR_WANT_READ:
                if (WaitForClient() != Wait::kReady) return -1;
                break;
            case SSL_ERROR_WANT_WRITE:
                if (WaitFor(POLLOUT, kWriteLimit) != Wait::kReady) return -1;
                break;
            case SSL_ERROR_ZERO_RETURN:
                return 0;
            default:
                return -1;
        }
    }
}

}  // namespace vlm::printer
