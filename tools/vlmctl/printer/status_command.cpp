// vlmctl status: how a printer is, on one screen, or how many are, a line each.
#include <algorithm>
#include <memory>
#include <set>
#include <sstream>
#include <utility>

#include "tools/vlmctl/console/command.h"
#include "tools/vlmctl/console/console.h"
#include "tools/vlmctl/console/files.h"
#include "tools/vlmctl/exchange/wsd_exchange.h"
#include "tools/vlmctl/printer/fleet.h"
#include "tools/vlmctl/printer/printer_commands.h"
#include "util/com.h"

namespace vlm::ctl {

namespace {

constexpr size_t kMostList = size_t{4} << 20;  // bytes
constexpr size_t kMostPrinters = 10'000;

struct StatusOptions {
    std::vector<std::string> urls;
    std::string list;
    std::string metrics;  // "": standard output
    FleetLimits limits;
    double timeout = 10;  // seconds
    bool json = false;
    bool asMetrics = false;
};

// "[########............]  40%"; a level that is no percentage stands as the printer said it.
std::string Bar(const PrinterReport::Level& level) {
    constexpr int kWidth = 20;
    if (!level.percent)
        return fmt::format("{:<{}}", level.text.empty() ? "level unknown" : level.text, kWidth + 7);
    const auto value = static_cast<int>(*level.percent);
    // A bar is empty only when the level is.
    const int filled = value == 0 ? 0 : std::max(1, value * kWidth / 100);
    return fmt::format("[{}{}] {:3}%", std::string(static_cast<size_t>(filled), '#'),
                       std::string(static_cast<size_t>(kWidth - filled), '.'), value);
}

struct Row {
    std::string name;
    PrinterReport::Level level;
    std::string remark;
};

void PrintLevels(const char* title, const std::vector<Row>& rows) {
    if (rows.empty()) return;
    size_t width = 0;
    for (const Row& row : rows)
        width = std::max(width, Width(row.name));
    PrintLine("{}", title);
    for (const Row& row : rows) {
        std::string line = "  " + Padded(row.name, width) + "  " + Bar(row.level);
        if (!row.remark.empty()) line += "  " + row.remark;
        line.erase(line.find_last_not_of(' ') + 1);
        PrintLine("{}", line);
    }
}

void PrintRow(const char* name, const std::string& text) {
    if (!text.empty()) PrintLine("{:<13}{}", name, text);
}

void PrintReport(const PrinterReport& report) {
    PrintRow("printer", report.name);
    PrintRow("info", report.info);
    PrintRow("location", report.location);
    PrintRow("state", report.state);
    PrintRow("reasons", Joined(report.reasons, ", "));
    const char* title = "conditions";
    for (const auto& condition : report.conditions) {
        PrintLine("{:<13}{}", title, ConditionText(condition));
        title = "";
    }
    PrintRow("queued jobs", report.queuedJobs);
    std::vector<Row> rows;
    for (const auto& one : report.consumables)
        rows.push_back({one.Title(), one.level, Joined({one.type, one.model}, " ")});
    PrintLevels("consumables", rows);
    rows.clear();
    for (const auto& one : report.trays)
        rows.push_back(
            {one.name, one.level,
             Joined({one.mediaSize, one.mediaType, one.capacity.empty() ? "" : "holds " + one.capacity},
                    ", ")});
    PrintLevels("trays", rows);
}

// One address a line; blank lines, and what stands behind a #, do not count.
void AddListed(const std::string& file, std::vector<std::string>& urls) {
    std::istringstream text(DecodeText(ReadInput(file, kMostList)));
    int number = 0;
    for (std::string line; std::getline(text, line);) {
        ++number;
        for (size_t at = line.find('#'); at != std::string::npos; at = line.find('#', at + 1))
            if (at == 0 || line[at - 1] == ' ' || line[at - 1] == '\t') line.resize(at);
        line.erase(line.find_last_not_of(" \t\r") + 1);
        line.erase(0, line.find_first_not_of(" \t"));
        if (line.empty()) continue;
        try {
            ParsePrinterUrl(line);
        } catch (const CommandError& error) {
            throw CommandError(fmt::format("{}:{}: {}", InputName(file), number, error.what()));
        }
        urls.push_back(line);
    }
}

std::vector<std::string> Addresses(StatusOptions& options) {
    std::vector<std::string> urls = options.urls;
    // No file has such a name: "--metrics" stood alone before the first address.
    if (options.metrics.find("://") != std::string::npos)
        urls.insert(urls.begin(), std::exchange(options.metrics, ""));
    for (const std::string& url : urls)
        ParsePrinterUrl(url);
    if (urls.empty() && options.list.empty())
        throw CommandError("an address is required (URL or --list); see --help", kWrongUsage);
    if (!options.list.empty()) AddListed(options.list, urls);
    std::set<std::string> known;
    std::erase_if(urls, [&](const std::string& url) { return !known.insert(url).second; });
    if (urls.empty()) throw CommandError(InputName(options.list) + " lists no printers");
    if (urls.size() > kMostPrinters) throw CommandError(fmt::format("more than {} printers", kMostPrinters));
    return urls;
}

void ShowStatus(StatusOptions options) {
    const std::vector<std::string> urls = Addresses(options);
    if (options.urls.size() == 1 && options.list.empty() && !options.json && !options.asMetrics) {
        const ComApartment apartment(COINIT_MULTITHREADED);
        PrintReport(AskPrinter(urls.front()));
        return;
    }
    options.limits.timeout = std::chrono::milliseconds(static_cast<long long>(options.timeout * 1e3));
    std::vector<FleetPrinter> printers = AskFleet(urls, options.limits);
    if (options.asMetrics) {
        // That a printer is gone is what the numbers say.
        WriteMetrics(FleetMetrics(printers), options.metrics);
        return;
    }
    SortByAttention(printers);
    if (options.json)
        PrintJson(FleetJson(printers));
    else
        PrintFleet(printers);
    const auto gone =
        std::ranges::count_if(printers, [](const FleetPrinter& printer) { return !printer.report; });
    if (gone != 0)
        throw CommandError(fmt::format("{} of {} printer{} did not answer", gone, printers.size(),
                                       printers.size() == 1 ? "" : "s"));
}

}  // namespace

void AddStatusCommand(CLI::App& app) {
    auto options = std::make_shared<StatusOptions>();
    CLI::App* command = app.add_subcommand(
        "status", "Show the state, consumables and trays of a printer, or one line for each of many");
    command->add_option("URL", options->urls, "Print service address: a URL or a host name");
    command->add_option("--list", options->list,
                        "File with one address per line, # starts a comment; - reads standard input");
    CLI::Option* json = command->add_flag("--json", options->json, "Print JSON instead of text");
    CLI::Option* metrics = command
                               ->add_option("--metrics", options->metrics,
                                            "Write Prometheus metrics to this file, or to standard output")
                               ->type_name("[FILE]")
                               ->expected(0, 1)
                               ->excludes(json);
    command->add_option("--timeout", options->timeout, "Time-out per printer in seconds, when many are asked")
        ->check(CLI::Range(0.1, 600.0))
        ->capture_default_str();
    command->add_option("--at-once", options->limits.atOnce, "Number of printers asked at the same time")
        ->check(CLI::Range(1U, 500U))
        ->capture_default_str();
    command->callback([=] {
        options->asMetrics = metrics->count() > 0;
        ShowStatus(*options);
    });
}

}  // namespace vlm::ctl
