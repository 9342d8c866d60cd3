#include "tools/vlmctl/trace/trace_summary.h"

#include <algorithm>

#include "tools/vlmctl/console/console.h"

namespace vlm::ctl {

namespace {

// Those first that most failed on, the others by name.
template <typename Map>
std::vector<const typename Map::value_type*> FailedFirst(const Map& map) {
    std::vector<const typename Map::value_type*> entries;
    for (const auto& entry : map)
        entries.push_back(&entry);
    std::stable_sort(entries.begin(), entries.end(), [](const auto* one, const auto* other) {
        return one->second.Failures() > other->second.Failures();
    });
    return entries;
}

template <typename Map>
size_t NameWidth(const Map& map) {
    size_t width = 4;  // of the heading
    for (const auto& entry : map)
        width = std::max(width, Width(entry.first));
    return width;
}

}  // namespace

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
    size_t width = NameWidth(ports_);
    PrintLine("{}  {:>6}  {:>12}  {:>13}  {:>7}  {:>6}  {:>6}  {:>9}", Padded("PORT", width), "JOBS", "BYTES",
              "FAILED WRITES", "QUERIES", "CALLS", "ERRORS", "MS");
    bool anyError = false;
    for (const auto* entry : FailedFirst(ports_)) {
        const Port& port = entry->second;
        PrintLine("{}  {:>6}  {:>12}  {:>13}  {:>7}  {:>6}  {:>6}  {:>9}", Padded(entry->first, width),
                  port.jobs, port.bytes, port.failedWrites, port.queries, port.calls, port.errors,
                  port.milliseconds);
        anyError = anyError || port.errors != 0;
    }
    if (otherErrors_ != 0) PrintLine("errors without a port: {}", otherErrors_);
    if (anyError) {
        PrintLine("");
        PrintLine("LAST ERRORS");
        for (const auto* entry : FailedFirst(ports_)) {
            const Port& port = entry->second;
            if (port.errors == 0) continue;
            PrintLine("{}{}", port.lastErrorTime ? TimeText(*port.lastErrorTime) + "  " : "",
                      Shown(port.lastError));
        }
    }
    if (hosts_.empty()) return;
    width = NameWidth(hosts_);
    PrintLine("");
    PrintLine("{}  {:>9}  {:>6}  {:>12}  {:>9}", Padded("HOST", width), "EXCHANGES", "FAILED", "BYTES", "MS");
    for (const auto* entry : FailedFirst(hosts_)) {
        const Host& host = entry->second;
        PrintLine("{}  {:>9}  {:>6}  {:>12}  {:>9}", Padded(entry->first, width), host.exchanges, host.failed,
                  host.bytes, host.milliseconds);
    }
}

Json TraceSummary::ToJson() const {
    Json ports = Json::array();
    for (const auto* entry : FailedFirst(ports_)) {
        const Port& port = entry->second;
        Json lastError = nullptr;
        if (port.errors != 0)
            lastError = {{"time", port.lastErrorTime ? Json(TimeText(*port.lastErrorTime)) : Json(nullptr)},
                         {"text", port.lastError}};
        ports.push_back({{"port", entry->first},
                         {"jobs", port.jobs},
                         {"bytes", port.bytes},
                         {"failedWrites", port.failedWrites},
                         {"queries", port.queries},
                         {"calls", port.calls},
                         {"errors", port.errors},
                         {"milliseconds", port.milliseconds},
                         {"lastError", lastError}});
    }
    Json hosts = Json::array();
    for (const auto* entry : FailedFirst(hosts_)) {
        const Host& host = entry->second;
        hosts.push_back({{"host", entry->first},
                         {"exchanges", host.exchanges},
                         {"failed", host.failed},
                         {"bytes", host.bytes},
                         {"milliseconds", host.milliseconds}});
    }
    return {{"ports", ports}, {"hosts", hosts}, {"otherErrors", otherErrors_}};
}

Metrics TraceSummary::ToMetrics() const {
    Metrics metrics;
    const auto each = [&metrics](const auto& map, const char* label, const char* name, const char* help,
                                 auto count) {
        metrics.Family(name, Metrics::Type::kCounter, help);
        for (const auto& [subject, counts] : map)
            metrics.Add({{label, subject}}, static_cast<double>(count(counts)));
    };
    const auto ports = [&](const char* name, const char* help, auto count) {
        each(ports_, "port", name, help, count);
    };
    const auto hosts = [&](const char* name, const char* help, auto count) {
        each(hosts_, "host", name, help, count);
    };
    ports("vllm3mon_port_jobs_total", "Print jobs that ended.", [](const Port& p) { return p.jobs; });
    ports("vllm3mon_port_bytes_total", "Bytes of print jobs, and of answers to remote calls.",
          [](const Port& p) { return p.bytes; });
    ports("vllm3mon_port_failed_writes_total", "Writes of print jobs that failed or were refused.",
          [](const Port& p) { return p.failedWrites; });
    ports("vllm3mon_port_queries_total", "Bidi queries that ended.", [](const Port& p) { return p.queries; });
    ports("vllm3mon_port_remote_calls_total", "Remote procedure calls that ended.",
          [](const Port& p) { return p.calls; });
    ports("vllm3mon_port_refusals_total", "Failures and refusals, one per error line.",
          [](const Port& p) { return p.errors; });
    ports("vllm3mon_port_busy_seconds_total", "Total time of jobs, queries and remote calls.",
          [](const Port& p) { return static_cast<double>(p.milliseconds) / 1e3; });
    hosts("vllm3mon_host_exchanges_total", "HTTP exchanges with printers that ended.",
          [](const Host& h) { return h.exchanges; });
    hosts("vllm3mon_host_failed_exchanges_total", "HTTP exchanges without an answer or with an error status.",
          [](const Host& h) { return h.failed; });
    hosts("vllm3mon_host_answer_bytes_total", "Bytes of answer bodies.",
          [](const Host& h) { return h.bytes; });
    hosts("vllm3mon_host_exchange_seconds_total", "Total time of the exchanges.",
          [](const Host& h) { return static_cast<double>(h.milliseconds) / 1e3; });
    metrics.Family("vllm3mon_other_errors_total", Metrics::Type::kCounter, "Error lines without a port.");
    metrics.Add({}, static_cast<double>(otherErrors_));
    return metrics;
}

}  // namespace vlm::ctl
