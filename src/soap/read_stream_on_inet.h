// The body of an HTTP answer as a stream.
#pragma once

#include <windows.h>
// windows.h first.
#include <objidl.h>
#include <wininet.h>

#include <memory>
#include <string>

namespace vlm {

// Reads the body of `request`, whose answer's head has arrived, once from its start to its end; everything
// but reading is E_NOTIMPL. Does not own the request, which must stay open meanwhile. One reference for the
// caller.
//
// Each Read() is one InternetReadFile() of the bytes at hand: a body that trickles in takes many Reads
// instead of blocking one without end. E_FAIL for
//  - a failed read, such as one that WinINet gave up after the receive time-out,
//  - a Read() after `deadline` (GetTickCount64), which bounds the sum of all of them,
//  - an end before the length that the answer announced: WinINet reports a closed connection as a plain end.
// Bytes behind the announced length are not part of the answer and are not read. `reason`, if not null, then
// says which it was.
IStream* NewReadStreamOnInet(HINTERNET request, ULONGLONG deadline,
                             std::shared_ptr<std::wstring> reason = nullptr);

}  // namespace vlm
