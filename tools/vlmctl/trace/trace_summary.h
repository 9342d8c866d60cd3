// What a trace comes to, by port and by host: for a person, with those first that something failed on, for a
// program, and for a monitoring system.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "tools/vlmctl/console/metrics.h"
#include "tools/vlmctl/console/table.h"
#include "tools/vlmctl/trace/trace_line.h"

namespace vlm::ctl {

class TraceSummary {
 public:
    // `time` is when the line was written, if that is known.
    void Add(const TraceLine& line, std::optional<TraceTime> time);

    void Print() const;
    Json ToJson() const;
    Metrics ToMetrics() const;

 private:
    struct Port {
        std::uint64_t jobs = 0;
        std::uint64_t bytes = 0;
        std::uint64_t failedWrites = 0;
        std::uint64_t queries = 0;
        std::uint64_t calls = 0;
        std::uint64_t errors = 0;
        std::uint64_t milliseconds = 0;
        std::optional<TraceTime> lastErrorTime;
        std::string lastError;

        std::uint64_t Failures() const { return errors + failedWrites; }
    };
    struct Host {
        std::uint64_t exchanges = 0;
        std::uint64_t failed = 0;
        std::uint64_t bytes = 0;
        std::uint64_t milliseconds = 0;

        std::uint64_t Failures() const { return failed; }
    };
    // One count as it is shown to a person, in JSON and as a metric.
    template <typename Subject>
    struct Count {
        std::uint64_t Subject::*count;
        const char* heading;
        size_t width;
        const char* json;
        const char* metric;
        const char* help;
        double perUnit = 1;  // of the metric
    };
    static const std::array<Count<Port>, 7> kPortCounts;
    static const std::array<Count<Host>, 4> kHostCounts;

    std::map<std::string, Port> ports_;
    std::map<std::string, Host> hosts_;
    std::uint64_t otherErrors_ = 0;
};

}  // namespace vlm::ctl
