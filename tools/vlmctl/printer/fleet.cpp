#include "tools/vlmctl/printer/fleet.h"

#include <algorithm>
#include <array>
#include <condition_variable>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <utility>

#include "tools/vlmctl/console/console.h"
#include "tools/vlmctl/exchange/reach.h"
#include "tools/vlmctl/exchange/wsd_exchange.h"
#include "util/com.h"

namespace vlm::ctl {

namespace {

using Clock = std::chrono::steady_clock;

// What the threads share. One that was given up may end long after its fleet.
struct Asked {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::optional<FleetPrinter>> answers;  // by the number of the printer
};

// For the connection: who listens at all takes it at once.
constexpr std::chrono::milliseconds kConnectTimeout(3'000);

FleetPrinter Ask(const std::string& url) {
    FleetPrinter printer;
    printer.url = url;
    const Clock::time_point begin = Clock::now();
    try {
        CheckReachable(ParsePrinterUrl(url), kConnectTimeout);
        const ComApartment apartment(COINIT_MULTITHREADED);
        printer.report = AskPrinter(url);
    } catch (const _com_error& error) {
        printer.problem = fmt::format("failed (0x{:08X})", static_cast<unsigned long>(error.Error()));
    } catch (const std::exception& error) {
        printer.problem = error.what();
    }
    printer.time = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin);
    // The address stands beside it wherever it is shown.
    const std::string address = Shown(url);
    if (printer.problem.starts_with(address + ": ")) printer.problem.erase(0, address.size() + 2);
    return printer;
}

const char* Word(Attention attention) {
    static constexpr std::array kWords{"error", "unreachable", "warning", "low", "none"};
    return kWords[static_cast<size_t>(attention)];
}

bool Is(const std::string& text, const char* word) {
    return _stricmp(text.c_str(), word) == 0;
}

bool IsLow(const PrinterReport::Consumable& consumable) {
    return consumable.level.percent && *consumable.level.percent < kLowPercent;
}

// What somebody has to know before going there.
std::string Matter(const FleetPrinter& printer) {
    if (!printer.report) return printer.problem;
    const PrinterReport& report = *printer.report;
    std::vector<std::string> matters;
    for (const auto& condition : report.conditions)
        if (!Is(condition.severity, "Informational")) matters.push_back(ConditionText(condition));
    if (matters.empty() && Is(report.state, "Stopped")) matters = report.reasons;
    for (const auto& consumable : report.consumables)
        if (IsLow(consumable))
            matters.push_back(fmt::format("{} {}%", consumable.Title(), *consumable.level.percent));
    return Joined(matters, ", ");
}

const PrinterReport::Consumable* Lowest(const PrinterReport& report) {
    const PrinterReport::Consumable* lowest = nullptr;
    for (const auto& consumable : report.consumables)
        if (consumable.level.percent &&
            (lowest == nullptr || *consumable.level.percent < *lowest->level.percent))
            lowest = &consumable;
    return lowest;
}

std::string OrDash(const std::string& text) {
    return text.empty() ? "-" : text;
}

// Two of the same name are told apart by number, since no two samples may have the same labels.
std::string Unique(std::set<std::string>& taken, const std::string& name) {
    std::string unique = name;
    for (int number = 2; !taken.insert(unique).second; ++number)
        unique = fmt::format("{} {}", name, number);
    return unique;
}

}  // namespace

Attention FleetPrinter::Needs() const {
    if (!report) return Attention::kUnreachable;
    const auto any = [this](const char* severity) {
        return std::ranges::any_of(report->conditions,
                                   [&](const auto& condition) { return Is(condition.severity, severity); });
    };
    if (Is(report->state, "Stopped") || any("Critical") || any("Error")) return Attention::kError;
    if (any("Warning")) return Attention::kWarning;
    return std::ranges::any_of(report->consumables, IsLow) ? Attention::kLow : Attention::kNone;
}

std::vector<FleetPrinter> AskFleet(const std::vector<std::string>& urls, const FleetLimits& limits) {
    const auto asked = std::make_shared<Asked>();
    asked->answers.resize(urls.size());
    struct Waiting {
        size_t number;
        Clock::time_point giveUp;
    };
    std::list<Waiting> waiting;  // those begun first stand first, and are given up first
    std::vector<FleetPrinter> printers(urls.size());
    std::unique_lock lock(asked->mutex);
    for (size_t next = 0; next < urls.size() || !waiting.empty();) {
        while (next < urls.size() && waiting.size() < limits.atOnce) {
            waiting.push_back({next, Clock::now() + limits.timeout});
            std::thread([asked, number = next, url = urls[next]] {
                FleetPrinter answer = Ask(url);
                const std::lock_guard guard(asked->mutex);
                asked->answers[number] = std::move(answer);
                asked->changed.notify_one();
            }).detach();
            ++next;
        }
        asked->changed.wait_until(lock, waiting.front().giveUp);
        const Clock::time_point now = Clock::now();
        waiting.remove_if([&](const Waiting& one) {
            FleetPrinter& printer = printers[one.number];
            if (auto answer = std::exchange(asked->answers[one.number], std::nullopt)) {
                printer = std::move(*answer);
                return true;
            }
            if (now < one.giveUp) return false;
            printer.url = urls[one.number];
            printer.time = limits.timeout;
            printer.problem =
                fmt::format("no answer within {:g} s", std::chrono::duration<double>(limits.timeout).count());
            return true;
        });
    }
    return printers;
}

void SortByAttention(std::vector<FleetPrinter>& printers) {
    std::ranges::stable_sort(printers, [](const FleetPrinter& one, const FleetPrinter& other) {
        return one.Needs() < other.Needs();
    });
}

void PrintFleet(const std::vector<FleetPrinter>& printers) {
    Rows rows{{"NEEDS", "PRINTER", "NAME", "STATE", "JOBS", "LOWEST", "TIME", "DETAILS"}};
    for (const FleetPrinter& printer : printers) {
        const PrinterReport report = printer.report.value_or(PrinterReport());
        const PrinterReport::Consumable* lowest = Lowest(report);
        const Attention needs = printer.Needs();
        rows.push_back(
            {needs == Attention::kNone ? "-" : Word(needs), Shown(printer.url), OrDash(report.name),
             OrDash(report.state), OrDash(report.queuedJobs),
             lowest == nullptr ? "-" : fmt::format("{} {}%", lowest->Title(), *lowest->level.percent),
             fmt::format("{} ms", printer.time.count()), OrDash(Matter(printer))});
    }
    PrintTable(rows);
}

Json FleetJson(const std::vector<FleetPrinter>& printers) {
    Json list = Json::array();
    for (const FleetPrinter& printer : printers) {
        Json json{{"url", printer.url},
                  {"up", printer.report.has_value()},
                  {"needs", Word(printer.Needs())},
                  {"milliseconds", printer.time.count()}};
        if (printer.report)
            AddToJson(*printer.report, json);
        else
            json["problem"] = printer.problem;
        list.push_back(std::move(json));
    }
    return list;
}

namespace {

// Adds a sample of the printer that the report is of.
using AddSample = std::function<void(Metrics::Labels, double)>;

void AddInfo(const PrinterReport& report, const AddSample& add) {
    add({{"name", report.name}, {"location", report.location}}, 1);
}

void AddStates(const PrinterReport& report, const AddSample& add) {
    if (report.state.empty()) return;
    bool known = false;
    for (const char* state : {"Idle", "Processing", "Stopped"}) {
        const bool is = Is(report.state, state);
        known = known || is;
        add({{"state", state}}, is ? 1 : 0);
    }
    add({{"state", "Other"}}, known ? 0 : 1);
}

void AddConditions(const PrinterReport& report, const AddSample& add) {
    std::map<std::array<std::string, 3>, int> counts;
    for (const auto& [component, name, severity] : report.conditions)
        ++counts[{component, name, severity}];
    for (const auto& [key, count] : counts)
        add({{"component", key[0]}, {"condition", key[1]}, {"severity", key[2]}}, count);
}

void AddQueuedJobs(const PrinterReport& report, const AddSample& add) {
    if (const auto count = NumberIn(report.queuedJobs)) add({}, *count);
}

void AddConsumables(const PrinterReport& report, const AddSample& add) {
    std::set<std::string> names;
    for (const auto& one : report.consumables)
        if (const std::string name = Unique(names, one.name.empty() ? one.Title() : one.name);
            one.level.percent)
            add({{"consumable", name}, {"color", one.colour}, {"type", one.type}},
                *one.level.percent / 100.0);
}

void AddTrays(const PrinterReport& report, const AddSample& add) {
    std::set<std::string> names;
    for (const auto& tray : report.trays)
        if (const std::string name = Unique(names, tray.name); tray.level.percent)
            add({{"tray", name}}, *tray.level.percent / 100.0);
}

// Of the printers that answered.
constexpr struct {
    const char* name;
    const char* help;
    void (*addSamples)(const PrinterReport& report, const AddSample& add);
} kReportFamilies[] = {
    {"vllm3mon_printer_info", "The printer's name and location as labels, always 1.", AddInfo},
    {"vllm3mon_printer_state", "1 for the printer's current state, 0 for the others.", AddStates},
    {"vllm3mon_printer_conditions", "Number of active conditions of this kind.", AddConditions},
    {"vllm3mon_printer_queued_jobs", "Number of jobs queued in the printer.", AddQueuedJobs},
    {"vllm3mon_printer_consumable_level_ratio", "Remaining level of a consumable, 0 to 1.", AddConsumables},
    {"vllm3mon_printer_tray_level_ratio", "Fill level of an input tray, 0 to 1.", AddTrays},
};

}  // namespace

Metrics FleetMetrics(const std::vector<FleetPrinter>& printers) {
    constexpr auto kGauge = Metrics::Type::kGauge;
    Metrics metrics;
    metrics.Family("vllm3mon_printer_up", kGauge, "1 if the printer answered, 0 if not.");
    for (const FleetPrinter& printer : printers)
        metrics.Add({{"printer", printer.url}}, printer.report ? 1 : 0);
    metrics.Family("vllm3mon_printer_answer_duration_seconds", kGauge,
                   "How long the printer took to answer.");
    for (const FleetPrinter& printer : printers)
        if (printer.report)
            metrics.Add({{"printer", printer.url}}, static_cast<double>(printer.time.count()) / 1e3);
    for (const auto& family : kReportFamilies) {
        metrics.Family(family.name, kGauge, family.help);
        for (const FleetPrinter& printer : printers) {
            if (!printer.report) continue;
            family.addSamples(*printer.report, [&](Metrics::Labels labels, double value) {
                labels.insert(labels.begin(), {"printer", printer.url});
                metrics.Add(labels, value);
            });
        }
    }
    metrics.Family("vllm3mon_printers_asked_timestamp_seconds", kGauge,
                   "When these printers were asked, as Unix time.");
    metrics.Add({}, static_cast<double>(std::chrono::duration_cast<std::chrono::seconds>(
                                            std::chrono::system_clock::now().time_since_epoch())
                                            .count()));
    return metrics;
}

}  // namespace vlm::ctl
