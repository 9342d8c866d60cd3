// The trace lines of jobs, queries, exchanges and remote calls. `vlmctl trace` parses them, and docs/trace.md
// lists them. Errors are formatted where they are found.
//
// Each line names its subject, a port or a host, in double quotes, says in fixed words what ended, and then
// gives numbers with their units: `Info: port "IP_1": job 12 ended, 1589486 bytes, ...`. Lines of the two
// higher levels begin with "Info: " or "Verbose: ", errors with anything else.
//
// Like the trace itself, these functions allocate nothing, throw nothing and keep the last error. No line
// holds a password, a user's name or a document's content.
#pragma once

#include <chrono>
#include <cstdint>

#include "util/trace.h"

namespace vlm {

using TraceClock = std::chrono::steady_clock;

// What a job has done so far.
struct JobMetrics {
    TraceClock::time_point begin;  // zero: there is no job
    uint64_t bytes;                // accepted by the lower monitor
    uint32_t failedWrites;         // including refused ones
    DWORD error;                   // of the last failed write
};

// The entries of an answer: how many got a value from whom, and how many have none.
struct QueryMetrics {
    unsigned engine = 0;
    unsigned lower = 0;
    unsigned unanswered = 0;
};

enum class AnsweredBy { kEngine, kLowerMonitor };

// What was refused or failed on a port, with its Win32 code. Refusals that are part of normal operation are
// verbose. Returns the code.
DWORD TraceRefusal(const wchar_t* port, const wchar_t* reason, DWORD code,
                   TraceLevel level = TraceLevel::kError);

void TraceJobStart(const wchar_t* port, DWORD job, const wchar_t* printer);
// With an error line as well if writes failed.
void TraceJobEnd(const wchar_t* port, DWORD job, const JobMetrics& metrics);

// Counts one entry of an answer and traces where it came from. An entry with a result other than 0 has no
// value.
void CountEntry(const wchar_t* port, const wchar_t* schema, DWORD result, AnsweredBy by,
                QueryMetrics* metrics);
void TraceQueryEnd(const wchar_t* port, const wchar_t* action, DWORD code, const QueryMetrics& metrics,
                   TraceClock::time_point begin);

// `status` is the HTTP status, 0 if there was no response.
void TraceExchangeEnd(const wchar_t* host, unsigned port, int status, uint64_t bytes,
                      TraceClock::time_point begin);

// `procedure` is "query" or "command"; `port` is empty if the caller's printer was not found.
void TraceRemoteCallEnd(const wchar_t* port, const wchar_t* procedure, DWORD code, uint64_t bytes,
                        TraceClock::time_point begin);

}  // namespace vlm
