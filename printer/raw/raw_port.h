// The raw print port: listens on TCP, serves each connection in a thread of its own, at most kMaxConnections
// at once (further ones wait in the system's queue, as at a busy printer).
//
// While it refuses, nothing listens, so a connect gets ECONNREFUSED. The port number stays reserved for this
// process meanwhile, so that it can listen there again. Every operation may be called from any thread; Stop
// once, at the end.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <list>
#include <mutex>
#include <string>
#include <thread>

#include "printer/net/tcp_socket.h"
#include "printer/net/unique_fd.h"
#include "printer/raw/behaviour.h"
#include "printer/raw/document_store.h"
#include "printer/shared/machine.h"
#include "printer/vpca/vpca_device.h"

namespace vlm::printer {

class RawPort {
 public:
    // Reserves the port (0: a free one). Throws std::runtime_error with one line: bad address, port in use.
    RawPort(const std::string& address, std::uint16_t port, DocumentStore& store, Machine& machine,
            std::uint64_t documentLimit);
    RawPort(const RawPort&) = delete;
    RawPort& operator=(const RawPort&) = delete;
    ~RawPort();

    void Start();  // listens, unless told to refuse. Throws std::runtime_error
    void Stop();   // ends every connection; their documents are recorded as incomplete

    std::uint16_t Port() const;
    std::size_t OpenConnections() const;

    // When these return, the port listens or refuses as asked. They throw std::runtime_error when it cannot.
    void SetFault(const Fault& fault);
    void ClearFault();
    std::optional<Fault> CurrentFault() const { return behaviour_.CurrentFault(); }

    void SetAnswer(Answer answer) { behaviour_.answer.Set(std::move(answer)); }
    Answer CurrentAnswer() const { return behaviour_.answer.Get(); }

    VpcaDevice& Device() { return device_; }  // what answers on the connections that are no documents

    static constexpr std::size_t kMaxConnections = 64;

 private:
    struct Connection {
        std::thread thread;
        std::atomic<bool> ended = false;
    };

    void Listen();
    void AcceptLoop();
    void AcceptOne();
    void ServeConnection(Connection& self, UniqueFd socket, ConnectionOrders orders);
    void JoinEnded();
    void FollowBehaviour();
    void Wake() const;

    DocumentStore& store_;
    Machine& machine_;
    const std::uint64_t documentLimit_;
    Behaviour behaviour_;
    VpcaDevice device_;

    sockaddr_in place_;
    const UniqueFd reservation_;  // bound, never listens
    UniqueFd stop_;               // eventfd, stays readable once it is set
    UniqueFd wake_;               // eventfd: something for the accept loop to look at

    // Opened and closed by the accept loop alone once that runs, so that no thread closes what another one
    // polls.
    UniqueFd listener_;
    std::list<Connection> connections_;  // the accept loop's
    std::atomic<std::size_t> openConnections_ = 0;
    std::thread acceptLoop_;

    // The accept loop's report to SetFault and ClearFault.
    std::mutex mutex_;
    std::condition_variable followed_;
    bool listening_ = false;
    std::string listenError_;
};

}  // namespace vlm::printer
