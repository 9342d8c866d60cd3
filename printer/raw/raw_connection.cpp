#include "printer/raw/raw_connection.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "printer/shared/say.h"

namespace vlm::printer {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kReadSize = std::size_t{64} * 1024;
// Half a loopback segment: below a quarter, TCP's silly-window avoidance makes even willing reads take
// seconds.
constexpr int kFaultBuffer = 32 * 1024;
constexpr auto kForever = -1ms;            // until the stop event
constexpr auto kStallCheck = 20ms;         // how soon it notices that the fault was cleared
constexpr auto kAnswerLimit = 5s;          // for a host that does not read the back-channel
constexpr std::uint64_t kSlowSlices = 20;  // reads per second of a slow connection, where the rate allows

}  // namespace

RawConnection::RawConnection(UniqueFd socket, ConnectionOrders orders, const Behaviour& behaviour,
                             VpcaDevice& device, DocumentStore& store, Machine& machine,
                             std::uint64_t documentLimit, int stopFd)
    : socket_(std::move(socket)),
      orders_(std::move(orders)),
      behaviour_(behaviour),
      device_(device),
      store_(store),
      machine_(machine),
      documentLimit_(documentLimit),
      stopFd_(stopFd) {
    // To the host, bytes in the system's receive buffer are delivered. With a small fixed buffer it soon
    // notices a printer that does not read.
    if (orders_.taken.fault) {
        const int size = kFaultBuffer;
        ::setsockopt(socket_.Get(), SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
    }
}

void RawConnection::Serve() {
    SetResetOnClose(socket_.Get(),
                    true);  // unless all goes well: the host must not take a failure for success
    if (orders_.answer.when == AnswerTime::kAtOpen) Send(orders_.answer.text);
    if (!orders_.taken.fault && BeginsDialogue()) return ServeDevice();
    const DocumentEnd end = TakeDocument();
    if (end == DocumentEnd::kComplete) {
        if (orders_.answer.when == AnswerTime::kAfterDocument) Send(orders_.answer.text);
        CloseOrderly();
    }
    socket_.Reset();
}

DocumentEnd RawConnection::TakeDocument() {
    Document document = store_.Open();
    DocumentEnd end{};
    {
        Machine::Job job(machine_);
        end = Receive(document);
        job.SetBytes(document.Bytes());
    }
    store_.Finish(std::move(document), end);
    return end;
}

// Peeks at the first bytes. False also if the connection ends before them: that is an empty or broken
// document.
bool RawConnection::BeginsDialogue() {
    std::array<std::uint8_t, 2> start{};
    for (int least = 1; least <= 2; ++least) {
        ::setsockopt(socket_.Get(), SOL_SOCKET, SO_RCVLOWAT, &least,
                     sizeof least);  // else poll returns at once
        const bool ready = WaitFor(POLLIN, kForever) == Wait::kReady;
        const ssize_t count = ready ? ::recv(socket_.Get(), start.data(), start.size(), MSG_PEEK) : 0;
        if (count == 1 && least == 1 && start[0] == VpcaDevice::kMagic0) continue;
        const int any = 1;
        ::setsockopt(socket_.Get(), SOL_SOCKET, SO_RCVLOWAT, &any, sizeof any);
        return count == 2 && start[0] == VpcaDevice::kMagic0 && start[1] == VpcaDevice::kMagic1;
    }
    return false;
}

void RawConnection::ServeDevice() {
    Bytes pending;  // less than one frame, plus one read
    std::vector<std::uint8_t> buffer(kReadSize);
    for (;;) {
        while (pending.size() >= VpcaDevice::kHeaderSize) {
            const auto size = VpcaDevice::FrameSize(pending);
            if (!size) return Complain("device: not a VPCA request");
            if (pending.size() < *size) break;
            const VpcaReply reply = device_.Answer(std::span(pending).first(*size));
            pending.erase(pending.begin(), pending.begin() + static_cast<std::ptrdiff_t>(*size));
            if (reply.delay.count() > 0 && WaitFor(0, reply.delay) != Wait::kTimeout) return;
            if (!Send({reinterpret_cast<const char*>(reply.bytes.data()), reply.bytes.size()})) return;
            if (reply.close) return CloseOrderly();
        }
        if (WaitFor(POLLIN, kForever) == Wait::kStop) return;
        const ssize_t count = ::recv(socket_.Get(), buffer.data(), buffer.size(), 0);
        if (count < 0 && (errno == EAGAIN || errno == EINTR)) continue;
        if (count < 0) return Complain("device: the connection was lost");
        if (count == 0) {
            if (!pending.empty()) return Complain("device: the request ended after {} bytes", pending.size());
            return CloseOrderly();
        }
        pending.insert(pending.end(), buffer.begin(), buffer.begin() + count);
    }
}

DocumentEnd RawConnection::Receive(Document& document) {
    std::vector<char> buffer(kReadSize);
    auto nextSlowRead = Clock::now();
    for (;;) {
        const bool faultHolds = orders_.taken.fault && behaviour_.FaultHolds(orders_.taken);
        const bool faultDue = faultHolds && FaultDue(document);
        std::uint64_t wanted = buffer.size();
        if (faultHolds && !faultDue) wanted = std::min(wanted, orders_.taken.fault->after - document.Bytes());
        if (faultDue) {
            switch (orders_.taken.fault->mode) {
                case FaultMode::kReset:
                    return DocumentEnd::kFaultReset;
                case FaultMode::kStall:
                    if (const auto end = Stall()) return *end;
                    continue;
                case FaultMode::kSlow:
                    wanted = std::clamp<std::uint64_t>(orders_.taken.fault->rate / kSlowSlices, 1, wanted);
                    break;
                case FaultMode::kRefuse:
                    break;  // accepted just before the port closed
            }
        }

        const auto pause = std::chrono::ceil<std::chrono::milliseconds>(nextSlowRead - Clock::now());
        if (faultDue && pause.count() > 0) {
            const Wait wait = WaitFor(0, pause);
            if (wait == Wait::kStop) return DocumentEnd::kStopped;
        }
        if (WaitFor(POLLIN, kForever) == Wait::kStop) return DocumentEnd::kStopped;

        const ssize_t count = ::recv(socket_.Get(), buffer.data(), wanted, 0);
        if (count == 0) return DocumentEnd::kComplete;
        if (count < 0) {
            if (errno == EAGAIN || errno == EINTR) continue;
            return DocumentEnd::kConnectionLost;
        }
        const auto arrived = static_cast<std::uint64_t>(count);
        const std::uint64_t stored = std::min(arrived, documentLimit_ - document.Bytes());
        if (!document.Write(buffer.data(), stored)) return DocumentEnd::kStoreFailed;
        if (stored < arrived) return DocumentEnd::kTooLarge;
        if (faultDue && orders_.taken.fault->rate > 0)
            nextSlowRead = std::max(nextSlowRead, Clock::now()) +
                           std::chrono::nanoseconds(1'000'000'000 * arrived / orders_.taken.fault->rate);
    }
}

// Reads nothing until the fault is cleared. A broken connection ends the document.
std::optional<DocumentEnd> RawConnection::Stall() {
    while (behaviour_.FaultHolds(orders_.taken)) {
        const Wait wait = WaitFor(0, kStallCheck);
        if (wait == Wait::kStop) return DocumentEnd::kStopped;
        if (wait == Wait::kBroken) return DocumentEnd::kConnectionLost;
    }
    return std::nullopt;
}

// False when the host does not read it; its document is still good.
bool RawConnection::Send(std::string_view left) {
    const auto giveUp = Clock::now() + kAnswerLimit;
    while (!left.empty()) {
        const ssize_t count = ::send(socket_.Get(), left.data(), left.size(), MSG_NOSIGNAL);
        if (count >= 0) {
            left.remove_prefix(static_cast<std::size_t>(count));
            continue;
        }
        if (errno == EINTR) continue;
        const auto time = std::chrono::ceil<std::chrono::milliseconds>(giveUp - Clock::now());
        if (errno != EAGAIN || time.count() <= 0 || WaitFor(POLLOUT, time) != Wait::kReady) {
            Complain("the host did not read {} bytes of the answer", left.size());
            return false;
        }
    }
    return true;
}

bool RawConnection::FaultDue(const Document& document) const {
    const std::optional<Fault>& fault = orders_.taken.fault;
    return fault && document.Bytes() >= fault->after;
}

void RawConnection::CloseOrderly() {
    SetResetOnClose(socket_.Get(), false);
    socket_.Reset();
}

}  // namespace vlm::printer
