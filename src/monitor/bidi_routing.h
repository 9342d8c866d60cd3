// Bidi routing: answers the spooler's SendRecvBidiDataFromPort from two sources, the Bidi engine with the
// printer's own data and the lower port monitor.
//
// bidi_routing.cpp reads from top to bottom in the order in which it happens: RouteBidi refuses what cannot
// be answered and makes a CBidiReq of the call -> QueryBidi asks both sources about the entries that are
// still open
// -> QueryEngine has the driver's extension files listed (module_explorer.h), the printer found
// (printer_address.h) and asked, and lets the engine answer -> AskLower (lower_bidi.h) -> MergeAnswers
// (bidi_merge.h) -> back through the request's response to the spooler.
//
// A source that fails, by code or by a C++ exception, never costs the other one's answer. Everything runs on
// the spooler's thread, holds no lock while anybody else is called, and keeps nothing between calls. Each
// refusal and each failure leaves a line with its reason in the trace.
#pragma once

#include <cstddef>

#include "monitor/lm_port.h"
#include "util/spooler_api.h"

namespace vlm {

// SendRecvBidiDataFromPort for a valid port; returns its Win32 code. An answer is router memory, and the
// caller's. Network ports: 87 for a null argument, 50 for a pooled printer, 232 when there is nothing to
// answer, 14 when memory runs out. USB ports, and ports whose lower monitor knows no Bidi, get one empty
// entry for the request's first entry.
DWORD RouteBidi(LmPort& port, DWORD accessBit, const wchar_t* action, BIDI_REQUEST_CONTAINER* request,
                BIDI_RESPONSE_CONTAINER** response) noexcept;

// The value of one schema as text, in a buffer of `capacity` characters, terminator included; from the lower
// monitor or from the engine. A Win32 code: 232 for no value, 122 when it does not fit, 87 when it is no
// text.
DWORD GetBidiString(const LmPort& port, const wchar_t* schema, wchar_t* buffer, size_t capacity,
                    bool viaLower);

}  // namespace vlm
