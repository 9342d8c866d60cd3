// A call with an end, for a platform whose time-outs have holes.
//
// WinINet bounds each receive, not what a peer can string together out of them: a response head that arrives
// byte by byte, a TLS handshake with a mute peer, and (in some versions) the connect itself last as long as
// the other side likes. The spooler's thread must not.
#pragma once

#include <windows.h>

#include <functional>

namespace vlm {

// Runs `work` on another thread and waits for its end, at most `milliseconds`. True when it has ended.
//
// False when the time is up or no thread could be had. The work may then still be running, for as long as the
// platform keeps it: everything it touches must belong to it (shared ownership, values), and the caller
// should take away what it waits for, such as a handle, so that it ends soon. The module stays loaded until
// it has ended. Such left behind calls are counted; while there are kMostLeftBehind of them no new work is
// begun.
//
// `work` reports through what it shares with the caller; an exception out of it is swallowed.
inline constexpr long kMostLeftBehind = 64;
bool RunBounded(std::function<void()> work, DWORD milliseconds);

}  // namespace vlm
