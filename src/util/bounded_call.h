// A call with an end, for a platform whose time-outs have holes.
//
// WinINet bounds each receive, not what a peer can string together out of them: a response head that arrives
// byte by byte, a TLS handshake with a mute peer, and (in some versions) the connect itself last as long as
// the other side likes. The spooler's thread must not.
//
// Who gives up cancels. Where the platform honours that, the call ends and nothing is left; where it does
// not, the call is left behind, and few such calls are borne.
#pragma once

#include <windows.h>

#include <functional>
#include <string>

namespace vlm {

// Runs `work` on another thread and waits for its end, at most `milliseconds`. True when it has ended by
// then.
//
// When the time is up `cancel`, if there is one, is called on this thread, and the end is waited for `grace`
// milliseconds more. Work that has not begun by then never begins, so that it cannot use what `cancel`
// closed.
//
// False after that, and when no thread could be had. The work may then still be running, for as long as the
// platform keeps it: everything it touches must belong to it (values, shared ownership). The module stays
// loaded until it has ended. `peer` is whatever name the caller has for the other side. `work` reports
// through what it shares with the caller; an exception out of it is swallowed.
bool RunBounded(const std::wstring& peer, std::function<void()> work, DWORD milliseconds,
                const std::function<void()>& cancel = nullptr, DWORD grace = 0);

// Whether another exchange with that peer may be begun: not while so many calls that were left behind still
// run to it, nor while so many do in the process. So a peer that holds threads for ever holds few, under
// however many names.
inline constexpr int kMostLeftBehind = 4;
inline constexpr int kMostLeftBehindInAll = 16;
bool MayCall(const std::wstring& peer);

}  // namespace vlm
