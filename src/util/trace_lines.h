// The lines by which the monitor's work can be followed: every format stands here, or is an error of the
// place that reports it. `vlmctl trace` reads them back, and docs/trace.md lists them.
//
// Each of them names its subject, a port or a host, in double quotes, says what ended in words that stay the
// same, and then gives numbers, each with its unit: `Info: port "IP_1": job 12 ended, 1589486 bytes, ...`.
// Lines of the two higher levels begin with "Info: " or "Verbose: ", errors with anything else.
//
// As the trace itself they allocate nothing, throw nothing and keep the last error. None takes a password,
// a user's name or a document's content.
#pragma once

#include <chrono>
#include <cstdint>

#include "util/trace.h"

namespace vlm {

using TraceClock = std::chrono::steady_clock;

// What a job has done so far.
struct JobTally {
    TraceClock::time_point begin;  // zero: there is no job
    uint64_t bytes;                // that the lower monitor took
    uint32_t failedWrites;         // refused ones included
    DWORD error;                   // of the last of them
};

// How many entries of an answer have a value, by who gave it, and how many have none.
struct QueryTally {
    unsigned engine = 0;
    unsigned lower = 0;
    unsigned nobody = 0;
};

enum class AnsweredBy { kEngine, kLowerMonitor };

// What was refused or failed on a port, and the Win32 code that says so. What is asked and refused in
// everyday work is verbose.
void TraceRefusal(const wchar_t* port, const wchar_t* reason, DWORD code,
                  TraceLevel level = TraceLevel::kError);

void TraceJobStart(const wchar_t* port, DWORD job, const wchar_t* printer);
// Also a line of an error, if writes failed.
void TraceJobEnd(const wchar_t* port, DWORD job, const JobTally& tally);

// One entry of an answer: counts it, and traces who gave it. An entry with a result other than 0 has no
// value.
void TallyEntry(const wchar_t* port, const wchar_t* schema, DWORD result, AnsweredBy by, QueryTally* tally);
void TraceQueryEnd(const wchar_t* port, const wchar_t* action, DWORD code, const QueryTally& tally,
                   TraceClock::time_point begin);

// `status` is HTTP's, 0 when none came.
void TraceExchangeEnd(const wchar_t* host, unsigned port, int status, uint64_t bytes,
                      TraceClock::time_point begin);

// `procedure` is "query" or "command". Without a name the caller's printer was not found.
void TraceRemoteCallEnd(const wchar_t* port, const wchar_t* procedure, DWORD code, uint64_t bytes,
                        TraceClock::time_point begin);

}  // namespace vlm
