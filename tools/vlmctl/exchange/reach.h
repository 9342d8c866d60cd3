// Whether anybody listens at an address, found out before a library is troubled with it that can neither
// bound nor cancel a connection: calls to the dead that it is left with would be held against the living.
#pragma once

#include <chrono>

#include "soap/service_url.h"

namespace vlm::ctl {

// Connects and leaves again. Throws CommandError when nobody takes the connection in that time. Finding the
// address of a name has no bound of its own.
void CheckReachable(const ServiceUrl& url, std::chrono::milliseconds timeout);

}  // namespace vlm::ctl
