// One answer of two: what the engine and the lower monitor said to the same request.
#pragma once

#include "bidi/bidi_mem.h"
#include "monitor/lm_port.h"
#include "util/spooler_api.h"

namespace vlm {

// One container of both answers: the engine's entries in their order, each replaced by the lower monitor's of
// the same schema (with regard to case) and request number where only that one succeeded, then the lower
// monitor's for what the engine did not answer. Where one answer is null or empty the other is taken over
// into `*merged`, uncopied, and its pointer set to null; otherwise the entries are copies. `*merged` is null
// when both are null or empty. 0, or 14 when memory runs out. The merged entries are counted.
DWORD MergeAnswers(const CBidiMem& memory, BIDI_RESPONSE_CONTAINER** engine, BIDI_RESPONSE_CONTAINER** lower,
                   DWORD version, DWORD flags, BIDI_RESPONSE_CONTAINER** merged, const LmPort& port,
                   QueryMetrics& metrics);

// Counts the entries of an answer from one source, which may be null.
void CountAll(const LmPort& port, const BIDI_RESPONSE_CONTAINER* answer, AnsweredBy by,
              QueryMetrics& metrics);

}  // namespace vlm
