// A call with an end, for a platform whose time-outs have holes.
//
// WinINet bounds each receive, not what a peer can string together out of them: a response head that arrives
// byte by byte, a TLS handshake with a mute peer, and (in some versions) the connect itself last as long as
// the other side likes. The spooler's thread must not.
#pragma once

#include <windows.h>

#include <functional>
#include <string>

namespace vlm {

// Runs `work` on another thread and waits for its end, at most `milliseconds`. True when it has ended.
//
// False when the time is up or no thread could be had. The work may then still be running, for as long as the
// platform keeps it: everything it touches must belong to it (values, shared ownership), and nobody may close
// what it uses. The module stays loaded until it has ended.
//
// Calls that were left behind are counted. While there are kMostLeftBehind of them to one `peer` (whatever
// name the caller has for it) no further one is begun, so that a peer that holds threads for ever holds few
// of them and fails at once.
//
// `work` reports through what it shares with the caller; an exception out of it is swallowed.
inline constexpr int kMostLeftBehind = 4;
bool RunBounded(const std::wstring& peer, std::function<void()> work, DWORD milliseconds);

}  // namespace vlm
