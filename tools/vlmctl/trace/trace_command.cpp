// vlmctl trace: the monitor's trace, as it is written or from a file, line by line or added up.
#include <windows.h>
// windows.h first.
#include <tlhelp32.h>

#include <algorithm>
#include <map>
#include <memory>
#include <set>

#include "tools/vlmctl/console/command.h"
#include "tools/vlmctl/console/console.h"
#include "tools/vlmctl/console/interrupt.h"
#include "tools/vlmctl/console/product.h"
#include "tools/vlmctl/trace/debug_output.h"
#include "tools/vlmctl/trace/trace_command.h"
#include "tools/vlmctl/trace/trace_file.h"
#include "tools/vlmctl/trace/trace_line.h"
#include "tools/vlmctl/trace/trace_summary.h"
#include "util/handles.h"
#include "util/names.h"
#include "util/text.h"

namespace vlm::ctl {

namespace {

using namespace std::chrono_literals;

constexpr auto kPause = 50ms;
constexpr std::chrono::seconds kMetricsPause(15);

struct TraceOptions {
    std::string file;
    std::string since;
    std::string save;
    std::string metrics;  // "": standard output
    std::string port;
    std::string level = "verbose";
    double seconds = 0;  // 0: until Ctrl+C
    bool follow = false;
    bool summary = false;
    bool json = false;
    bool asMetrics = false;
    bool all = false;
};

// Which processes have the monitor: those that have written a line about a port or a host, or have the module
// loaded. They are remembered: a process may have ended by the time its last line is read.
class MonitorProcesses {
 public:
    bool Wrote(DWORD process, const TraceLine& line) {
        if (!line.port.empty() || !line.host.empty()) known_.insert(process);
        return known_.contains(process) || Look(process);
    }

 private:
    bool Look(DWORD process) {
        const File snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, process));
        MODULEENTRY32W module{};
        module.dwSize = sizeof module;
        for (BOOL more = Module32FirstW(snapshot.Get(), &module); more;
             more = Module32NextW(snapshot.Get(), &module)) {
            if (_wcsicmp(module.szModule, kMonitorFile) != 0) continue;
            known_.insert(process);
            return true;
        }
        return false;
    }

    std::set<DWORD> known_;
};

bool SameName(const std::string& one, const std::string& other) {
    return vlm::SameName(FromUtf8(one).c_str(), FromUtf8(other).c_str());
}

const std::map<std::string, TraceLevel> kLevels{
    {"error", TraceLevel::kError}, {"info", TraceLevel::kInformation}, {"verbose", TraceLevel::kVerbose}};

bool IsWanted(const TraceOptions& options, const TraceLine& line) {
    return line.level <= kLevels.at(options.level) &&
           (options.port.empty() || SameName(options.port, line.port));
}

// Where lines are saved, behind those that are there already.
class SavedTrace {
 public:
    explicit SavedTrace(const std::string& name) : name_(name) {
        if (name.empty()) return;
        file_.Reset(CreateFileW(FromUtf8(name).c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_DELETE,
                                nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
        if (!file_) throw CommandError("cannot write " + Shown(name) + ": " + ErrorText(GetLastError()));
    }

    void Add(std::string line) {
        if (!file_) return;
        line += '\n';
        DWORD written = 0;
        if (!WriteFile(file_.Get(), line.data(), static_cast<DWORD>(line.size()), &written, nullptr) ||
            written != line.size())
            throw CommandError("cannot write " + Shown(name_) + ": " + ErrorText(GetLastError()));
    }

 private:
    std::string name_;
    File file_;
};

// What becomes of the lines.
class Outlet {
 public:
    explicit Outlet(const TraceOptions& options) : options_(options), saved_(options.save) {}

    // `text` is the whole line, with time and process.
    void Take(const TraceLine& line, std::optional<TraceTime> time, const std::string& text) {
        ++taken_;
        summary_.Add(line, time);
        saved_.Add(text);
        if (!options_.summary) Print(text);
    }
    // While it goes on. Who collects metrics from a file looks at it every now and then.
    void Refresh() {
        const auto now = std::chrono::steady_clock::now();
        if (!options_.asMetrics || options_.metrics.empty() || options_.metrics == "-" || now < next_) return;
        WriteMetrics(summary_.ToMetrics(), options_.metrics);
        next_ = now + kMetricsPause;
    }
    void End() const {
        if (options_.asMetrics)
            WriteMetrics(summary_.ToMetrics(), options_.metrics);
        else if (options_.json)
            PrintJson(summary_.ToJson());
        else if (options_.summary)
            summary_.Print();
    }
    bool Empty() const { return taken_ == 0; }

 private:
    const TraceOptions& options_;
    SavedTrace saved_;
    TraceSummary summary_;
    size_t taken_ = 0;
    std::chrono::steady_clock::time_point next_;
};

// Tells, when it is asked, whether what begins now has gone on for long enough.
auto Until(double seconds, const OnInterrupt& interrupt) {
    return [=, &interrupt, begin = std::chrono::steady_clock::now()] {
        return interrupt.Raised() || (seconds > 0 && std::chrono::steady_clock::now() - begin >=
                                                         std::chrono::duration<double>(seconds));
    };
}

// The whole line without what could steer a terminal. Some viewers put tabs between their columns.
std::string Safe(std::string line) {
    std::replace(line.begin(), line.end(), '\t', ' ');
    return ToUtf8(Printable(FromUtf8(line), line.size()));
}

void ReadSaved(const TraceOptions& options, const OnInterrupt& interrupt, Outlet& outlet) {
    std::optional<TraceTime> since;
    if (!options.since.empty()) since = ParseSince(options.since, Now());
    TraceFile file(options.file, options.follow);
    const auto isOver = Until(options.follow ? options.seconds : 0, interrupt);
    std::optional<TraceTime> last;
    size_t undated = 0;
    const auto take = [&](const std::string& text) {
        const TraceLine line = ParseTraceLine(text);
        // A line without a date was written after the one before it.
        if (line.time) last = line.time;
        if (text.empty() || !IsWanted(options, line)) return;
        if (since && !last) ++undated;
        if (since && (!last || *last < *since)) return;
        outlet.Take(line, last, Safe(text));
    };
    std::string text;
    for (TraceFile::Next next; (next = file.Read(&text)) != TraceFile::Next::kEnd && !isOver();) {
        outlet.Refresh();
        if (next == TraceFile::Next::kLine)
            take(text);
        else
            std::this_thread::sleep_for(kPause);
    }
    if (options.follow) take(file.Rest());
    if (undated != 0) {
        std::fprintf(stderr, "%zu line%s left out: no date precedes %s\n", undated,
                     undated == 1 ? " was" : "s were", undated == 1 ? "it" : "them");
    }
}

void Listen(const TraceOptions& options, const OnInterrupt& interrupt, Outlet& outlet) {
    DebugOutput output;
    std::fprintf(stderr, "listening to the debugger output%s; press Ctrl+C to stop\n",
                 output.HearsServices() ? "" : " of this session (the spooler's takes an administrator)");
    std::fflush(stderr);
    MonitorProcesses monitors;
    const auto isOver = Until(options.seconds, interrupt);
    while (!isOver()) {
        outlet.Refresh();
        DebugLine heard;
        if (!output.Next(kPause, &heard)) continue;
        const TraceLine line = ParseTraceLine(heard.text);
        if (!options.all && !monitors.Wrote(heard.process, line)) continue;
        if (!IsWanted(options, line)) continue;
        const TraceTime now = Now();
        outlet.Take(line, now, fmt::format("{} {:>5} {}", TimeText(now), heard.process, heard.text));
    }
    if (output.LinesLost() != 0)
        std::fputs(
            (Counted(output.LinesLost(), "line") + " lost: the output came faster than it could be shown\n")
                .c_str(),
            stderr);
}

void FollowTrace(const TraceOptions& options) {
    // What was seen is still counted.
    const OnInterrupt interrupt(OnInterrupt::Then::kWait, [] {});
    Outlet outlet(options);
    if (options.file.empty())
        Listen(options, interrupt, outlet);
    else
        ReadSaved(options, interrupt, outlet);
    outlet.End();
    if (interrupt.Raised()) throw CommandError("interrupted", kInterrupted);
    if (!options.file.empty() && !options.follow && !options.asMetrics && outlet.Empty())
        throw CommandError("the saved trace has no matching line", kNothingFound);
}

}  // namespace

void AddTraceCommand(CLI::App& app) {
    auto options = std::make_shared<TraceOptions>();
    CLI::App* command = app.add_subcommand("trace", "Show what the monitor traces in any process");
    CLI::Option* summary =
        command->add_flag("--summary", options->summary, "Count by port instead of showing lines");
    CLI::Option* json = command->add_flag("--json", options->json, "The counts as JSON")->needs(summary);
    CLI::Option* metrics =
        command
            ->add_option("--metrics", options->metrics,
                         "Write the counts as Prometheus metrics to this file, or to standard "
                         "output; the file is updated every 15 seconds while lines arrive")
            ->type_name("[FILE]")
            ->expected(0, 1)
            ->needs(summary)
            ->excludes(json);
    CLI::Option* file = command->add_option(
        "--file", options->file, "Read a saved trace instead of listening; - reads standard input");
    command->add_flag("--follow", options->follow, "Keep reading as the file grows")->needs(file);
    command
        ->add_option("--since", options->since,
                     "Only lines since then: 10m, 2h, 17:44, 2026-11-22 or 2026-11-22T17:44:36+01:00")
        ->needs(file);
    command->add_option("--save", options->save, "Also append the lines to this file")->excludes(file);
    command->add_option("--port", options->port, "Only lines about this port");
    command
        ->add_option("--level", options->level, "Only lines of this level or above: error, info or verbose")
        ->transform(CLI::IsMember(kLevels, CLI::ignore_case));
    command->add_option("--seconds", options->seconds, "Stop after this many seconds instead of at Ctrl+C")
        ->check(CLI::Range(0.0, 86'400.0));
    command->add_flag("--all", options->all, "Include programs that do not run the monitor");
    command->callback([options, metrics] {
        options->asMetrics = metrics->count() > 0;
        FollowTrace(*options);
    });
}

}  // namespace vlm::ctl
