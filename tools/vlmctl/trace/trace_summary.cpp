#include "tools/vlmctl/trace/trace_summary.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "tools/vlmctl/console/console.h"

namespace vlm::ctl {

namespace {

// Those first that most failed on, the others by name.
template <typename Map>
std::vector<const typename Map::value_type*> FailedFirst(const Map& map) {
    std::vector<const typename Map::value_type*> entries;
    for (const auto& entry : map)
        entries.push_back(&entry);
    std::ranges::stable_sort(entries, [](const auto* one, const auto* other) {
        return one->second.Failures() > other->second.Failures();
    });
    return entries;
}

template <typename Map, typename Counts>
void PrintCounts(const char* subject, const Map& map, const Counts& counts) {
    size_t width = std::strlen(subject);
    for (const auto& entry : map)
        width = std::max(width, Width(entry.first));
    std::string line = Padded(subject, width);
    for (const auto& column : counts)
        line += fmt::format("  {:>{}}", column.heading, column.width);
    PrintLine("{}", line);
    for (const auto* entry : FailedFirst(map)) {
        line = Padded(entry->first, width);
        for (const auto& column : counts)
            line += fmt::format("  {:>{}}", entry->second.*column.count, column.width);
        PrintLine("{}", line);
    }
}

template <typename Entry, typename Counts>
Json CountsToJson(const char* subject, const Entry& entry, const Counts& counts) {
    Json json{{subject, entry.first}};
    for (const auto& column : counts)
        json[column.json] = entry.second.*column.count;
    return json;
}

template <typename Map, typename Counts>
void AddCounts(Metrics& metrics, const char* subject, const Map& map, const Counts& counts) {
    for (const auto& column : counts) {
        metrics.Family(column.metric, Metrics::Type::kCounter, column.help);
        for (const auto& [name, subjectCounts] : map)
            metrics.Add({{subject, name}}, static_cast<double>(subjectCounts.*column.count) / column.perUnit);
    }
}

}  // namespace

const std::array<TraceSummary::Count<TraceSummary::Port>, 7> TraceSummary::kPortCounts{
    {{&Port::jobs, "JOBS", 6, "jobs", "vllm3mon_port_jobs_total", "Print jobs that ended."},
     {&Port::bytes, "BYTES", 12, "bytes", "vllm3mon_port_bytes_total",
      "Bytes of print jobs, and of answers to remote calls."},
     {&Port::failedWrites, "FAILED WRITES", 13, "failedWrites", "vllm3mon_port_failed_writes_total",
      "Writes of print jobs that failed or were refused."},
     {&Port::queries, "QUERIES", 7, "queries", "vllm3mon_port_queries_total", "Bidi queries that ended."},
     {&Port::calls, "CALLS", 6, "calls", "vllm3mon_port_remote_calls_total",
      "Remote procedure calls that ended."},
     {&Port::errors, "ERRORS", 6, "errors", "vllm3mon_port_refusals_total",
      "Failures and refusals, one per error line."},
     {&Port::milliseconds, "MS", 9, "milliseconds", "vllm3mon_port_busy_seconds_total",
      "Total time of jobs, queries and remote calls.", 1e3}}};
const std::array<TraceSummary::Count<TraceSummary::Host>, 4> TraceSummary::kHostCounts{
    {{&Host::exchanges, "EXCHANGES", 9, "exchanges", "vllm3mon_host_exchanges_total",
      "HTTP exchanges with printers that ended."},
     {&Host::failed, "FAILED", 6, "failed", "vllm3mon_host_failed_exchanges_total",
      "HTTP exchanges without an answer or with an error status."},
     {&Host::bytes, "BYTES", 12, "bytes", "vllm3mon_host_answer_bytes_total", "Bytes of answer bodies."},
     {&Host::milliseconds, "MS", 9, "milliseconds", "vllm3mon_host_exchange_seconds_total",
      "Total time of the exchanges.", 1e3}}};

void TraceSummary::Add(const TraceLine& line, std::optional<TraceTime> time) {
    if (line.level == TraceLevel::kVerbose) return;
    if (line.level == TraceLevel::kError) {
        if (line.port.empty()) {
            ++otherErrors_;
            return;
        }
        Port& port = ports_[line.port];
        ++port.errors;
        port.lastErrorTime = time;
        port.lastError = line.text;
        return;
    }
    if (line.end == TracedEnd::kExchange) {
        Host& host = hosts_[line.host];
        ++host.exchanges;
        host.failed += line.status < 200 || line.status > 299 ? 1 : 0;
        host.bytes += line.bytes;
        host.milliseconds += line.milliseconds;
        return;
    }
    if (line.end == TracedEnd::kNone) return;
    Port& port = ports_[line.port];
    port.jobs += line.end == TracedEnd::kJob ? 1 : 0;
    port.queries += line.end == TracedEnd::kQuery ? 1 : 0;
    port.calls += line.end == TracedEnd::kRemoteCall ? 1 : 0;
    port.bytes += line.bytes;
    port.failedWrites += line.failedWrites;
    port.milliseconds += line.milliseconds;
}

void TraceSummary::Print() const {
    PrintCounts("PORT", ports_, kPortCounts);
    if (otherErrors_ != 0) PrintLine("errors without a port: {}", otherErrors_);
    const char* title = "\nLAST ERRORS";
    for (const auto* entry : FailedFirst(ports_)) {
        const Port& port = entry->second;
        if (port.errors == 0) continue;
        if (title != nullptr) PrintLine("{}", std::exchange(title, nullptr));
        PrintLine("{}{}", port.lastErrorTime ? TimeText(*port.lastErrorTime) + "  " : "",
                  Shown(port.lastError));
    }
    if (hosts_.empty()) return;
    PrintLine("");
    PrintCounts("HOST", hosts_, kHostCounts);
}

Json TraceSummary::ToJson() const {
    Json ports = Json::array();
    for (const auto* entry : FailedFirst(ports_)) {
        const Port& port = entry->second;
        Json json = CountsToJson("port", *entry, kPortCounts);
        json["lastError"] = nullptr;
        if (port.errors != 0)
            json["lastError"] = {{"time", port.lastErrorTime ? Json(TimeText(*port.lastErrorTime)) : Json()},
                                 {"text", port.lastError}};
        ports.push_back(std::move(json));
    }
    Json hosts = Json::array();
    for (const auto* entry : FailedFirst(hosts_))
        hosts.push_back(CountsToJson("host", *entry, kHostCounts));
    return {{"ports", ports}, {"hosts", hosts}, {"otherErrors", otherErrors_}};
}

Metrics TraceSummary::ToMetrics() const {
    Metrics metrics;
    AddCounts(metrics, "port", ports_, kPortCounts);
    AddCounts(metrics, "host", hosts_, kHostCounts);
    metrics.Family("vllm3mon_other_errors_total", Metrics::Type::kCounter, "Error lines without a port.");
    metrics.Add({}, static_cast<double>(otherErrors_));
    return metrics;
}

}  // namespace vlm::ctl
