// Sockets for both kinds of port. Each function throws std::runtime_error with one line.
#pragma once

#include <netinet/in.h>

#include <chrono>
#include <cstdint>
#include <string>

#include "printer/net/unique_fd.h"

namespace vlm::printer {

sockaddr_in TcpPlace(const std::string& address, std::uint16_t port);  // an IPv4 address
std::string ToString(const sockaddr_in& place);                        // "127.0.0.1:9100"

// Bound and non-blocking; a port of 0 in `place` becomes a free one. Ignores connections of an earlier run in
// TIME_WAIT, and shares the port with another such socket of ours that does not listen. Fails if another
// program listens on the port.
UniqueFd BindTcp(sockaddr_in& place);
UniqueFd ListenTcp(sockaddr_in& place);  // the same, listening

enum class Wait { kReady, kTimeout, kBroken, kStop };
// Until `socket` has one of `events` (none: until it breaks), for at most `limit` (negative: for ever), or
// until `stopFd` is readable.
Wait WaitFor(int socket, short events, std::chrono::milliseconds limit, int stopFd);
// Whether closing `socket` resets the connection.
void SetResetOnClose(int socket, bool reset);

// An eventfd: polls as readable once it is set.
UniqueFd NewEvent();
void SetEvent(const UniqueFd& event);

// The next connection, or none when it is gone again. When descriptors run out `listener` stays readable, so
// this waits a moment, or until `stop` is set, to keep the caller from spinning.
UniqueFd Accept(const UniqueFd& listener, const UniqueFd& stop);

}  // namespace vlm::printer
