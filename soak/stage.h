// What the workers of a soak share: the loaded monitor, the stand-in spooler, the report, and the quiet
// points at which all of them pause.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <shared_mutex>
#include <string>
#include <vector>

#include "soak/report.h"
#include "spooler/host/monitor_host.h"
#include "spooler/standin.h"

namespace vlm::soak {

struct Options {
    uint64_t seed = 1;
    unsigned seconds = 120;
    std::set<std::string> plants;  // faults to plant, for the test of the checks
    std::set<std::string> only;    // the workers to run; empty for all
};

class Stage {
 public:
    explicit Stage(Options wanted) : options(std::move(wanted)) {}

    bool Planted(const char* fault) const { return options.plants.contains(fault); }

    // A printer of the stand-in spooler. `port` and `share` are given to the remote procedures; `files` are
    // the driver's dependent files, ended as PrinterDescription wants them.
    struct Printer {
        std::wstring name, port, share, files;
    };
    void AddPrinter(Printer printer);

    // What the monitor has to tell the spooler about a job that has ended, by SetJobW.
    void ExpectJobEvents(DWORD job, const std::string& events);

    // For a worker between two steps: waits until a quiet point is over. False when the soak ends.
    bool Continue();
    // Waits until all workers have come to rest, or until something was violated; then false.
    bool Quiet(size_t workers);
    void Resume(bool end);

    // At a quiet point: checks what must hold when nothing is under way.
    void CheckAtRest(uint64_t quietPoint);

    const Options options;
    Report report;
    // Held shared around each StartDocPort, which lowers the suspend flag; exclusively to keep the flag up.
    std::shared_mutex starting;
    std::atomic<unsigned> noticesBegun{0};  // suspend notices
    std::atomic<unsigned> noticesEnded{0};
    std::atomic<unsigned> suspensions{0};  // odd while the suspend flag must be up
    host::MonitorHost host{host::BesideProgram(L"vllm3mon.dll")};
    const MONITOR2& table = host.Table();
    const standin::Printers spooler;
    const standin::Router router;

 private:
    // The stand-in's log as events of each job.
    std::map<DWORD, std::string> LoggedJobEvents() const;

    std::mutex mutex_;
    std::condition_variable changed_;
    bool quiet_ = false;
    bool ended_ = false;
    size_t resting_ = 0;
    std::vector<Printer> printers_;
    std::map<DWORD, std::string> expectedEvents_;
};

}  // namespace vlm::soak
