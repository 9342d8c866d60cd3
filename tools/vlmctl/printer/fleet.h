// Many printers asked at once, and in what order they need somebody's hand.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "tools/vlmctl/console/metrics.h"
#include "tools/vlmctl/console/table.h"
#include "tools/vlmctl/printer/printer_report.h"

namespace vlm::ctl {

// The most urgent first.
enum class Attention {
    kError,        // it does not print
    kUnreachable,  // nothing is known of it
    kWarning,      // it says itself that something is the matter
    kLow,          // it does not say so, but a consumable comes to its end
    kNone,
};

struct FleetPrinter {
    std::string url;
    std::optional<PrinterReport> report;  // empty when it did not answer
    std::string problem;                  // why it did not
    std::chrono::milliseconds time{0};    // that it took to answer, or was waited for

    Attention Needs() const;
};

struct FleetLimits {
    unsigned atOnce = 64;
    std::chrono::milliseconds timeout{10'000};  // for each
};

// In the order of the addresses. A printer that does not answer in its time is given up, and its place goes
// to the next one.
std::vector<FleetPrinter> AskFleet(const std::vector<std::string>& urls, const FleetLimits& limits);

void SortByAttention(std::vector<FleetPrinter>& printers);
void PrintFleet(const std::vector<FleetPrinter>& printers);
Json FleetJson(const std::vector<FleetPrinter>& printers);
Metrics FleetMetrics(const std::vector<FleetPrinter>& printers);

}  // namespace vlm::ctl
