// The monitor's trace lines, read back: when each was written, what it is about, what it counts. The formats
// are those of util/trace_lines.h.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tools/vlmctl/trace/trace_time.h"
#include "util/trace.h"

namespace vlm::ctl {

enum class TracedEnd { kNone, kJob, kQuery, kRemoteCall, kExchange };

// One line. The counts are 0 where the line has none.
struct TraceLine {
    std::optional<TraceTime> time;  // of a saved line, if it has a date
    std::string text;               // the line itself, without what a saved trace has before it
    TraceLevel level = TraceLevel::kError;
    std::string port;  // empty for a line that is about no port
    std::string host;
    TracedEnd end = TracedEnd::kNone;  // of what the line tells the end
    std::uint64_t bytes = 0;
    std::uint64_t failedWrites = 0;
    std::uint64_t milliseconds = 0;
    std::uint64_t status = 0;  // of an exchange
};

// Takes any line apart. What has no level of its own is an error, as in the monitor.
TraceLine ParseTraceLine(std::string_view line);

}  // namespace vlm::ctl
