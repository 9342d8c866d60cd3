// A call with a time limit of its own, because the platform's time-outs have gaps.
//
// WinINet bounds each receive, but not their sum: a response head that arrives byte by byte, a TLS handshake
// with a silent peer and (in some versions) the connect last as long as the peer likes. The spooler's thread
// must not wait that long.
//
// When the time is up, the call is cancelled. If the platform honours that, the call ends; if it does
// not, the call is abandoned, and only a few such calls are tolerated.
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

// Whether another exchange with that peer may be begun: not while so many abandoned calls to it still run,
// nor while so many do in the process. So a peer that never lets go of a thread holds only a few of them,
// under however many names.
inline constexpr int kMostAbandoned = 4;
inline constexpr int kMostAbandonedInAll = 16;
bool MayCall(const std::wstring& peer);

}  // namespace vlm
