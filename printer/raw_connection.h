// One connection to the raw port, from accept to close: one document, with what the printer was told to do to
// it.
//
// The document is complete when the host shuts down its sending side. Its record is made, and the machine has
// printed it, before the host can see the end of the connection, so whoever waited for that end finds both. A
// complete document ends in an orderly close, every other one in a reset.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "behaviour.h"
#include "document_store.h"
#include "machine.h"
#include "unique_fd.h"

namespace vlm::printer {

class RawConnection {
 public:
    // The socket is non-blocking. stopFd turns readable for good when the printer ends; every wait here ends
    // with it.
    RawConnection(UniqueFd socket, ConnectionOrders orders, const Behaviour& behaviour, DocumentStore& store,
                  Machine& machine, std::uint64_t documentLimit, int stopFd);

    void Serve();  // throws std::exception when the document cannot be opened or recorded

 private:
    enum class Wait { kReady, kTimeout, kBroken, kStop };

    DocumentEnd TakeDocument();
    DocumentEnd Receive(Document& document);
    std::optional<DocumentEnd> Stall();
    void SendAnswer();
    bool FaultDue(const Document& document) const;
    void PrepareReset();
    Wait WaitFor(short events, std::chrono::milliseconds limit);

    UniqueFd socket_;
    const ConnectionOrders orders_;
    const Behaviour& behaviour_;
    DocumentStore& store_;
    Machine& machine_;
    const std::uint64_t documentLimit_;
    const int stopFd_;
};

}  // namespace vlm::printer
