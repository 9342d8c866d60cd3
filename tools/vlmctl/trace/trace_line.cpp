#include "tools/vlmctl/trace/trace_line.h"

#include <algorithm>
#include <charconv>

#include "spooler/host/monitor_host.h"
#include "tools/vlmctl/console/console.h"

namespace vlm::ctl {

namespace {

struct Mark {
    std::string_view text;
    TraceLevel level;
};
constexpr Mark kMarks[] = {{"Info: ", TraceLevel::kInformation},
                           {"Verbose: ", TraceLevel::kVerbose},
                           {"Error: ", TraceLevel::kError}};

// The number right before `unit`, 0 when there is none.
std::uint64_t NumberBefore(std::string_view text, std::string_view unit) {
    const size_t end = text.find(unit);
    if (end == std::string_view::npos) return 0;
    size_t begin = end;
    while (begin > 0 && text[begin - 1] >= '0' && text[begin - 1] <= '9')
        --begin;
    std::uint64_t number = 0;
    std::from_chars(text.data() + begin, text.data() + end, number);
    return number;
}

// What stands between the quotes behind `subject`, and the rest of the text behind them. False when the text
// does not begin so.
bool TakeSubject(std::string_view& text, std::string_view subject, std::string* name) {
    if (!text.starts_with(subject)) return false;
    const size_t begin = subject.size();
    const size_t end = text.find("\": ", begin);
    if (end == std::string_view::npos) return false;
    *name = text.substr(begin, end - begin);
    text.remove_prefix(end + 3);
    return true;
}

TracedEnd EndOf(std::string_view what) {
    if (what.starts_with("job ")) return TracedEnd::kJob;
    if (what.starts_with("query ")) return TracedEnd::kQuery;
    if (what.starts_with("remote ")) return TracedEnd::kRemoteCall;
    return what.starts_with("exchange ") ? TracedEnd::kExchange : TracedEnd::kNone;
}

size_t WidthOf(const std::string& utf8) {
    return host::FromUtf8(utf8).size();
}

template <typename Map>
size_t NameWidth(const Map& map, size_t least) {
    for (const auto& entry : map)
        least = std::max(least, WidthOf(entry.first));
    return least;
}

std::string Padded(const std::string& name, size_t width) {
    return name + std::string(width - WidthOf(name), ' ');
}

}  // namespace

TraceLine ParseTraceLine(std::string_view line) {
    TraceLine parsed;
    for (const Mark& mark : kMarks) {
        for (const std::string_view subject : {"port \"", "host \""}) {
            const size_t at = line.find(std::string(mark.text).append(subject));
            if (at != std::string_view::npos) line.remove_prefix(at);
        }
    }
    parsed.text = line;
    for (const Mark& mark : kMarks) {
        if (!line.starts_with(mark.text)) continue;
        parsed.level = mark.level;
        line.remove_prefix(mark.text.size());
        break;
    }
    if (!TakeSubject(line, "port \"", &parsed.port) && !TakeSubject(line, "host \"", &parsed.host))
        return parsed;
    const size_t ended = line.rfind(" ended, ");
    if (parsed.level != TraceLevel::kInformation || ended == std::string_view::npos) return parsed;
    parsed.end = EndOf(line);
    const std::string_view counts = line.substr(ended);
    parsed.bytes = NumberBefore(counts, " bytes");
    parsed.failedWrites = NumberBefore(counts, " failed writes");
    parsed.milliseconds = NumberBefore(counts, " ms");
    return parsed;
}

void TraceSummary::Add(const TraceLine& line) {
    const bool onPort = line.level != TraceLevel::kError ? line.host.empty() : !line.port.empty();
    if (line.level == TraceLevel::kError && !onPort) {
        ++otherErrors_;
        return;
    }
    if (line.level == TraceLevel::kVerbose) return;
    Counts& counts = onPort ? ports_[line.port] : hosts_[line.host];
    counts.jobs += line.end == TracedEnd::kJob ? 1 : 0;
    counts.queries += line.end == TracedEnd::kQuery ? 1 : 0;
    counts.calls += line.end == TracedEnd::kRemoteCall ? 1 : 0;
    counts.exchanges += line.end == TracedEnd::kExchange ? 1 : 0;
    counts.errors += line.level == TraceLevel::kError ? 1 : 0;
    counts.bytes += line.bytes;
    counts.failedWrites += line.failedWrites;
    counts.milliseconds += line.milliseconds;
}

void TraceSummary::Print() const {
    size_t width = NameWidth(ports_, 4);
    PrintLine("{}  {:>6}  {:>12}  {:>13}  {:>7}  {:>6}  {:>6}  {:>9}", Padded("PORT", width), "JOBS", "BYTES",
              "FAILED WRITES", "QUERIES", "CALLS", "ERRORS", "MS");
    for (const auto& [name, counts] : ports_) {
        PrintLine("{}  {:>6}  {:>12}  {:>13}  {:>7}  {:>6}  {:>6}  {:>9}", Padded(name, width), counts.jobs,
                  counts.bytes, counts.failedWrites, counts.queries, counts.calls, counts.errors,
                  counts.milliseconds);
    }
    if (otherErrors_ != 0) PrintLine("errors on no port: {}", otherErrors_);
    if (hosts_.empty()) return;
    width = NameWidth(hosts_, 4);
    PrintLine("");
    PrintLine("{}  {:>9}  {:>12}  {:>9}", Padded("HOST", width), "EXCHANGES", "BYTES", "MS");
    for (const auto& [name, counts] : hosts_) {
        PrintLine("{}  {:>9}  {:>12}  {:>9}", Padded(name, width), counts.exchanges, counts.bytes,
                  counts.milliseconds);
    }
}

}  // namespace vlm::ctl
