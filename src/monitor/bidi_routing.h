// Bidi routing: answers the spooler's SendRecvBidiDataFromPort from two sources, the Bidi engine with the
// printer's own data and the lower port monitor.
//
// The road of one "Get": RouteBidi refuses what cannot be answered and makes a CBidiReq of the call ->
// CLmMgr::QueryBidi asks both sources about the entries that are still open -> CLmMgr::QueryEngine loads the
// driver's extension files, has the printer's elements fetched from the address that printer_address.cpp
// finds, and lets the engine answer -> MergeAnswers -> back through the request's response to the spooler.
//
// A source that fails, by code or by exception, never costs the other one's answer. Everything runs on the
// spooler's thread, holds no lock while anybody else is called, and keeps nothing between calls. Each refusal
// and each failure leaves a line with its reason in the trace.
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

// One container of both answers: the engine's entries in their order, each replaced by the lower monitor's of
// the same schema (with regard to case) and request number where only that one succeeded, then the lower
// monitor's for what the engine did not answer. Where one answer is null or empty the other is taken over
// into `*merged`, uncopied, and its pointer set to null; otherwise both stay the caller's, and the entries
// are copies. `*merged` is null when both are null or empty. 0, or 14 when memory runs out. The merged
// entries, which are the port's, are added to the tally. May throw bad_alloc.
DWORD MergeAnswers(const CBidiMem& memory, BIDI_RESPONSE_CONTAINER** engine, BIDI_RESPONSE_CONTAINER** lower,
                   DWORD version, DWORD flags, BIDI_RESPONSE_CONTAINER** merged, const LmPort& port,
                   QueryTally& tally);

// The lower monitor's answer; null after a failure. What it throws becomes 1627, and a success without a
// container stays one.
DWORD AskLower(const LmPort& port, DWORD accessBit, const wchar_t* action,
               const BIDI_REQUEST_CONTAINER* request, const CBidiMem& memory,
               BIDI_RESPONSE_CONTAINER** answer) noexcept;

// A Win32 code for an HRESULT: 0 for success, the code that it carries, or 1627.
DWORD Win32FromHresult(HRESULT hr);

}  // namespace vlm
