// Bidi routing: answers the spooler's SendRecvBidiDataFromPort from two sources, the Bidi engine with the
// printer's own data and the lower port monitor.
//
// The road of one "Get": RouteBidi refuses what cannot be answered and makes a CBidiReq of the call ->
// CLmMgr::QueryBidi asks both sources about the entries that are still open -> CLmMgr::QueryEngine loads the
// driver's extension files, has the printer's elements fetched from the address that printer_address.cpp
// finds, and lets the engine answer -> MergeAnswers -> back through the request's response to the spooler.
//
// A source that fails, by code or by a C++ exception, never costs the other one's answer. Everything runs on
// the spooler's thread, holds no lock while anybody else is called, and keeps nothing between calls. Each
// refusal and each failure leaves a line with its reason in the trace.
#pragma once

#include "bidi/bidi_mem.h"
#include "monitor/lm_port.h"
#include "util/spooler_api.h"

namespace vlm {

// SendRecvBidiDataFromPort for a valid port; returns its Win32 code. An answer is router memory, and the
// caller's. Network ports: 87 for a null argument, 50 for a pooled printer, 232 when there is nothing to
// answer, 14 when memory runs out. USB ports, and ports whose lower monitor knows no Bidi, get one empty
// entry for the request's first entry.
DWORD RouteBidi(LmPort& port, DWORD accessBit, const wchar_t* action, BIDI_REQUEST_CONTAINER* request,
                BIDI_RESPONSE_CONTAINER** response) noexcept;

// The lower monitor's answer; null after a failure. What it throws becomes 1627, and a success without a
// container stays one. `reason`, a literal, says why it failed.
DWORD AskLower(const LmPort& port, DWORD accessBit, const wchar_t* action,
               const BIDI_REQUEST_CONTAINER* request, const CBidiMem& memory,
               BIDI_RESPONSE_CONTAINER** answer, const wchar_t** reason) noexcept;

}  // namespace vlm
