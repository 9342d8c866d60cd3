// The monitor's trace lines, read back: what each is about, and how much was done by all of them together.
// The formats are those of util/trace_lines.h.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "util/vlutil.h"

namespace vlm::ctl {

enum class TracedEnd { kNone, kJob, kQuery, kRemoteCall, kExchange };

// One line. The counts are 0 where the line has none.
struct TraceLine {
    std::string text;  // the line itself, without what a saved trace has before it
    TraceLevel level = TraceLevel::kError;
    std::string port;  // empty for a line that is about no port
    std::string host;
    TracedEnd end = TracedEnd::kNone;  // of what the line tells the end
    std::uint64_t bytes = 0;
    std::uint64_t failedWrites = 0;
    std::uint64_t milliseconds = 0;
};

// Takes any line apart. What has no level of its own is an error, as in the monitor.
TraceLine ParseTraceLine(std::string_view line);

// Adds up lines and prints one table of ports, and one of hosts that were asked over HTTP.
class TraceSummary {
 public:
    void Add(const TraceLine& line);
    void Print() const;

 private:
    struct Counts {
        std::uint64_t jobs = 0;
        std::uint64_t bytes = 0;
        std::uint64_t failedWrites = 0;
        std::uint64_t queries = 0;
        std::uint64_t calls = 0;
        std::uint64_t exchanges = 0;
        std::uint64_t errors = 0;
        std::uint64_t milliseconds = 0;
    };
    std::map<std::string, Counts> ports_;
    std::map<std::string, Counts> hosts_;
    std::uint64_t otherErrors_ = 0;
};

}  // namespace vlm::ctl
