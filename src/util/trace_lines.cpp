#include "util/trace_lines.h"

namespace vlm {

namespace {

long long MillisecondsSince(TraceClock::time_point begin) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(TraceClock::now() - begin).count();
}

}  // namespace

DWORD TraceRefusal(const wchar_t* port, const wchar_t* reason, DWORD code, TraceLevel level) {
    // The reason may hold what came from outside, and has room for less than all of it.
    TraceAt(level, L"%ls: port \"%ls\": %.3000ls, error %lu\r\n",
            level == TraceLevel::kError ? L"Error" : L"Verbose", TraceName(port).c_str(), reason, code);
    return code;
}

void TraceJobStart(const wchar_t* port, DWORD job, const wchar_t* printer) {
    TraceAt(TraceLevel::kVerbose, L"Verbose: port \"%ls\": job %lu started, printer \"%ls\"\r\n",
            TraceName(port).c_str(), job, TraceName(printer).c_str());
}

void TraceJobEnd(const wchar_t* port, DWORD job, const JobMetrics& metrics) {
    if (metrics.failedWrites != 0)
        Trace(L"Error: port \"%ls\": job %lu broke: %u failed writes, the last one with error %lu\r\n",
              TraceName(port).c_str(), job, metrics.failedWrites, metrics.error);
    TraceAt(TraceLevel::kInformation,
            L"Info: port \"%ls\": job %lu ended, %llu bytes, %u failed writes, %lld ms\r\n",
            TraceName(port).c_str(), job, static_cast<unsigned long long>(metrics.bytes),
            metrics.failedWrites, MillisecondsSince(metrics.begin));
}

void CountEntry(const wchar_t* port, const wchar_t* schema, DWORD result, AnsweredBy by,
                QueryMetrics* metrics) {
    const bool engine = by == AnsweredBy::kEngine;
    ++(result != ERROR_SUCCESS ? metrics->unanswered : engine ? metrics->engine : metrics->lower);
    if (!IsTraced(TraceLevel::kVerbose)) return;
    TraceAt(TraceLevel::kVerbose, L"Verbose: port \"%ls\": entry \"%ls\" of the %ls, result %lu\r\n",
            TraceName(port).c_str(), TraceName(schema).c_str(), engine ? L"engine" : L"lower monitor",
            result);
}

void TraceQueryEnd(const wchar_t* port, const wchar_t* action, DWORD code, const QueryMetrics& metrics,
                   TraceClock::time_point begin) {
    TraceAt(TraceLevel::kInformation,
            L"Info: port \"%ls\": query \"%ls\" ended, code %lu, %u entries by the engine, %u by the lower "
            L"monitor, %u unanswered, %lld ms\r\n",
            TraceName(port).c_str(), TraceName(action).c_str(), code, metrics.engine, metrics.lower,
            metrics.unanswered, MillisecondsSince(begin));
}

void TraceExchangeEnd(const wchar_t* host, unsigned port, int status, uint64_t bytes,
                      TraceClock::time_point begin) {
    TraceAt(TraceLevel::kInformation,
            L"Info: host \"%ls:%u\": exchange ended, status %d, %llu bytes, %lld ms\r\n",
            TraceName(host).c_str(), port, status, static_cast<unsigned long long>(bytes),
            MillisecondsSince(begin));
}

void TraceRemoteCallEnd(const wchar_t* port, const wchar_t* procedure, DWORD code, uint64_t bytes,
                        TraceClock::time_point begin) {
    TraceAt(TraceLevel::kInformation,
            L"Info: port \"%ls\": remote %ls ended, code %lu, %llu bytes, %lld ms\r\n",
            TraceName(port).c_str(), procedure, code, static_cast<unsigned long long>(bytes),
            MillisecondsSince(begin));
}

}  // namespace vlm
