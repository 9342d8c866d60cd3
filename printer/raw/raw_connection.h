// One connection to the raw port, from accept to close. It carries one document, or, when it begins with
// VPCA's magic and has no fault, a dialogue with the device.
//
// A document is complete when the host shuts down its sending side. It is recorded and printed before the
// host can see the end of the connection. A complete document ends in an orderly close, any other in a reset.
// A dialogue leaves no record; it ends in a reset when the host sends something other than a request.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

#include "printer/net/tcp_socket.h"
#include "printer/net/unique_fd.h"
#include "printer/raw/behaviour.h"
#include "printer/raw/document_store.h"
#include "printer/shared/machine.h"
#include "printer/vpca/vpca_device.h"

namespace vlm::printer {

class RawConnection {
 public:
    // The socket is non-blocking. stopFd becomes readable, and stays so, when the printer stops; it ends
    // every wait.
    RawConnection(UniqueFd socket, ConnectionOrders orders, const Behaviour& behaviour, VpcaDevice& device,
                  DocumentStore& store, Machine& machine, std::uint64_t documentLimit, int stopFd);

    void Serve();  // throws std::exception when the document cannot be opened or recorded

 private:
    DocumentEnd TakeDocument();
    bool BeginsDialogue();
    void ServeDevice();
    DocumentEnd Receive(Document& document);
    std::optional<DocumentEnd> Stall();
    bool Send(std::string_view bytes);
    bool FaultDue(const Document& document) const;
    void CloseOrderly();
    Wait WaitFor(short events, std::chrono::milliseconds limit) const {
        return vlm::printer::WaitFor(socket_.Get(), events, limit, stopFd_);
    }

    UniqueFd socket_;
    const ConnectionOrders orders_;
    const Behaviour& behaviour_;
    VpcaDevice& device_;
    DocumentStore& store_;
    Machine& machine_;
    const std::uint64_t documentLimit_;
    const int stopFd_;
};

}  // namespace vlm::printer
