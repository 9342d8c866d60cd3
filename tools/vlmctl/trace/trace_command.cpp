// vlmctl trace: the monitor's trace, as it is written or from a file, line by line or added up.
#include <windows.h>
// windows.h first.
#include <tlhelp32.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <set>

#include "spooler/host/monitor_host.h"
#include "tools/vlmctl/console/command.h"
#include "tools/vlmctl/console/console.h"
#include "tools/vlmctl/console/product.h"
#include "tools/vlmctl/trace/debug_output.h"
#include "tools/vlmctl/trace/trace_command.h"
#include "tools/vlmctl/trace/trace_line.h"
#include "util/names.h"

namespace vlm::ctl {

namespace {

using namespace std::chrono_literals;

struct TraceOptions {
    std::string file;
    std::string port;
    std::string level = "verbose";
    double seconds = 0;  // 0: until Ctrl+C
    bool summary = false;
    bool all = false;
};

std::atomic<bool> interrupted{false};

BOOL WINAPI Interrupt(DWORD) {
    interrupted.store(true);
    return TRUE;
}

// Which processes have the monitor: those that have written a line about a port or a host, or have the module
// loaded. They are remembered: a process may have ended by the time its last line is read.
class MonitorProcesses {
 public:
    bool Wrote(DWORD process, const TraceLine& line) {
        if (!line.port.empty() || !line.host.empty()) known_.insert(process);
        return known_.contains(process) || Look(process);
    }

 private:
    struct SnapshotTraits {
        using Type = HANDLE;
        static Type Invalid() { return INVALID_HANDLE_VALUE; }
        static void Close(Type snapshot) { CloseHandle(snapshot); }
    };

    bool Look(DWORD process) {
        const Unique<SnapshotTraits> snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, process));
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
    return vlm::SameName(host::FromUtf8(one).c_str(), host::FromUtf8(other).c_str());
}

const std::map<std::string, TraceLevel> kLevels{
    {"error", TraceLevel::kError}, {"info", TraceLevel::kInformation}, {"verbose", TraceLevel::kVerbose}};

bool IsWanted(const TraceOptions& options, const TraceLine& line) {
    return line.level <= kLevels.at(options.level) &&
           (options.port.empty() || SameName(options.port, line.port));
}

std::string TimeOfDay() {
    SYSTEMTIME now;
    GetLocalTime(&now);
    return fmt::format("{:02}:{:02}:{:02}.{:03}", now.wHour, now.wMinute, now.wSecond, now.wMilliseconds);
}

void ReadFile(const TraceOptions& options, TraceSummary& summary) {
    const std::filesystem::path path = host::FromUtf8(options.file);
    std::ifstream file(path);
    if (!file || std::filesystem::is_directory(path)) throw CommandError("cannot read " + options.file);
    for (std::string text; std::getline(file, text);) {
        const TraceLine line = ParseTraceLine(text);
        if (text.empty() || !IsWanted(options, line)) continue;
        summary.Add(line);
        if (!options.summary) PrintLine("{}", text);
    }
}

void Listen(const TraceOptions& options, TraceSummary& summary) {
    SetConsoleCtrlHandler(Interrupt, TRUE);
    DebugOutput output;
    std::fprintf(
        stderr, "listening to the debugger output%s; Ctrl+C ends\n",
        output.HearsServices() ? "" : " of this session, which takes an administrator to hear the spooler");
    std::fflush(stderr);
    MonitorProcesses monitors;
    const auto begin = std::chrono::steady_clock::now();
    const std::chrono::duration<double> duration(options.seconds);
    const auto ends = [&] {
        return interrupted.load() ||
               (options.seconds > 0 && std::chrono::steady_clock::now() - begin >= duration);
    };
    while (!ends()) {
        DebugLine heard;
        if (!output.Next(50ms, &heard)) continue;
        const TraceLine line = ParseTraceLine(heard.text);
        if (!options.all && !monitors.Wrote(heard.process, line)) continue;
        if (!IsWanted(options, line)) continue;
        summary.Add(line);
        if (!options.summary) PrintLine("{} {:>5} {}", TimeOfDay(), heard.process, heard.text);
    }
    if (output.LinesLost() != 0)
        std::fprintf(stderr, "%zu lines came faster than they could be shown\n", output.LinesLost());
}

void FollowTrace(const TraceOptions& options) {
    TraceSummary summary;
    if (options.file.empty())
        Listen(options, summary);
    else
        ReadFile(options, summary);
    if (options.summary) summary.Print();
}

}  // namespace

void AddTraceCommand(CLI::App& app) {
    auto options = std::make_shared<TraceOptions>();
    CLI::App* command = app.add_subcommand("trace", "Show what the monitor traces in any process");
    command->add_flag("--summary", options->summary, "Count by port instead of showing lines");
    command->add_option("--file", options->file, "Read a saved trace instead of listening");
    command->add_option("--port", options->port, "Only lines about this port");
    command
        ->add_option("--level", options->level, "error, info or verbose: only lines of that level or above")
        ->transform(CLI::IsMember(kLevels, CLI::ignore_case));
    command->add_option("--seconds", options->seconds, "End after that time instead of at Ctrl+C")
        ->check(CLI::Range(0.0, 86'400.0));
    command->add_flag("--all", options->all, "Also what programs without the monitor write");
    command->callback([options] { FollowTrace(*options); });
}

}  // namespace vlm::ctl
