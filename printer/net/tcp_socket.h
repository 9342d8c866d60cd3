// What both kinds of port need of the system. Each throws std::runtime_error with one line.
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <string>

#include "printer/net/unique_fd.h"

namespace vlm::printer {

sockaddr_in TcpPlace(const std::string& address, std::uint16_t port);  // an IPv4 address
std::string ToString(const sockaddr_in& place);                        // "127.0.0.1:9100"

// Bound and not blocking; a port of 0 in `place` becomes the one that was free. Passes over connections of an
// earlier run in TIME_WAIT, and shares the port with another such socket of ours that does not listen; a port
// on which somebody listens is refused.
UniqueFd BindTcp(sockaddr_in& place);
UniqueFd ListenTcp(sockaddr_in& place);  // the same, listening

// An eventfd: readable, for who polls it, once it is set.
UniqueFd NewEvent();
void SetEvent(const UniqueFd& event);

// The next connection, or none: it is gone again. Out of descriptors `listener` stays readable; this waits a
// moment then, or until `stop` is set, so that the caller's loop is no busy one.
UniqueFd Accept(const UniqueFd& listener, const UniqueFd& stop);

}  // namespace vlm::printer
