// soak.exe [--seconds N] [--seed N] [--only WORKER]… [--plant FAULT]…: everything that the monitor does,
// at once.
//
// Exit status 0: all results were right and nothing grew; 1: the report gives the first violation; 2: wrong
// usage. Lines that begin with "~" say what each worker is doing; the last ones tell where a run hangs.
#include <windows.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "soak/growth.h"
#include "soak/workers.h"
#include "util/text.h"

namespace vlm::soak {
namespace {

constexpr DWORD kHeartbeat = 1'000;  // milliseconds
// For threads that are still returning to their pools.
constexpr DWORD kSettle = 200;  // milliseconds

// All workers and what they work on.
class Cast {
 public:
    explicit Cast(Stage& ownStage) : stage_(ownStage) {
        for (const wchar_t* port : {L"IP_one", L"IP_two", L"IP_rivals", L"IP_wake", L"IP_turns",
                                    L"USB-shared", L"USB-first", L"USB-second", L"USB-turning"})
            AddPrinter(port);
        const OpenPort shared = OpenOn(AddPort(L"USB-shared"));
        OpenOn(AddPort(L"USB-first"));
        OpenOn(AddPort(L"USB-second"));
        const OpenPort rivals = OpenOn(AddPort(L"IP_rivals"));

        Add<PrintWorker>("print-usb", shared, Rivals::kRemoteCalls);
        for (const char* name : {"rival-1", "rival-2"})
            Add<PrintWorker>(name, rivals, Rivals::kJobs);
        for (const wchar_t* suffix : {L"one", L"two"}) {
            const std::wstring printer = std::wstring(L"IP_") + suffix;
            const OpenPort tcp = OpenOn(AddPort(printer));
            PrinterPort& wsd = AddPort(std::wstring(L"WSD-") + suffix);
            wsd.kind = test::BidiLowerMonitor::kWsd;
            const std::string name = ToUtf8(suffix);
            Add<PrintWorker>("print-" + name, tcp, Rivals::kNone);
            Add<BidiWorker>("bidi-" + name, files_, tcp, OpenOn(wsd, printer), shared);
        }
        Add<FileWorker>("files", files_);
        Add<RemoteWorker>("remote-1", client_, "USB-first");
        Add<RemoteWorker>("remote-2", client_, "USB-second");
        Add<SuspendWorker>("suspend", OpenOn(AddPort(L"IP_wake")));
        Add<TurnoverWorker>("turnover", L"ip_ONE", L"IP_turns");
    }

    bool KnowsAll(const std::set<std::string>& names) const {
        return std::all_of(names.begin(), names.end(), [this](const std::string& name) {
            return std::any_of(workers_.begin(), workers_.end(),
                               [&](const auto& worker) { return worker->name == name; });
        });
    }
    void Start() {
        const auto& only = stage_.options.only;
        for (const auto& worker : workers_)
            if (only.empty() || only.contains(worker->name))
                threads_.emplace_back([&worker] { worker->Run(); });
    }
    // After the stage's end.
    void Finish() {
        for (std::thread& thread : threads_)
            thread.join();
        for (const OpenPort& port : open_)
            if (!stage_.table.pfnClosePort(port.handle))
                stage_.report.Violate("end", 0, "port " + ToUtf8(port.below.name) + " does not close");
    }
    size_t Running() const { return threads_.size(); }
    std::string Progress() const {
        std::string text = "~";
        for (const auto& worker : workers_)
            text += " | " + worker->Progress();
        return text + "\n";
    }

 private:
    template <typename Kind, typename... Arguments>
    void Add(const std::string& name, Arguments&&... arguments) {
        workers_.push_back(std::make_unique<Kind>(stage_, name, static_cast<unsigned>(workers_.size() + 1),
                                                  std::forward<Arguments>(arguments)...));
    }
    // Each printer has its port's name.
    void AddPrinter(const std::wstring& port) {
        stage_.AddPrinter({port, port, L"share-" + port, files_.DependentFiles()});
    }
    PrinterPort& AddPort(const std::wstring& name) {
        return *ports_.emplace_back(std::make_unique<PrinterPort>(stage_, name));
    }
    OpenPort OpenOn(PrinterPort& below, std::wstring printer = {}) {
        if (printer.empty()) printer = below.name;
        return open_.emplace_back(Open(stage_, below, printer));
    }

    Stage& stage_;
    ExtensionSet files_;
    const ctl::RpcClient client_{ctl::RpcRoute::kLocal, ""};
    std::vector<std::unique_ptr<PrinterPort>> ports_;
    std::vector<OpenPort> open_;
    std::vector<std::unique_ptr<Worker>> workers_;
    std::vector<std::thread> threads_;
};

// Prints what the workers do until the end of the scope.
class Heartbeat {
 public:
    explicit Heartbeat(const Cast& cast)
        : stop_(CreateEventW(nullptr, TRUE, FALSE, nullptr)), thread_([this, &cast] {
              while (WaitForSingleObject(stop_.Get(), kHeartbeat) == WAIT_TIMEOUT) {
                  std::fputs(cast.Progress().c_str(), stdout);
                  std::fflush(stdout);
              }
          }) {}
    ~Heartbeat() {
        SetEvent(stop_.Get());
        thread_.join();
    }
    Heartbeat(const Heartbeat&) = delete;
    Heartbeat& operator=(const Heartbeat&) = delete;

 private:
    const KernelHandle stop_;
    std::thread thread_;
};

// The process ends as it is: after a violation a worker may be anywhere.
[[noreturn]] void EndViolated(const Stage& stage) {
    stage.report.PrintOperations();
    stage.report.PrintVerdict(stage.options.seed);
    std::fflush(stdout);
    TerminateProcess(GetCurrentProcess(), 1);
    std::abort();
}

// "urlmon.dll+0x972a", or nothing if the address is not in a module.
std::string PlaceOf(const void* address) {
    HMODULE module = nullptr;
    char path[MAX_PATH] = "";
    if (!GetModuleHandleExW(
            GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
            static_cast<const wchar_t*>(address), &module))
        return {};
    GetModuleFileNameA(module, path, sizeof path);
    const std::string name = path;
    char offset[32];
    std::snprintf(offset, sizeof offset, "+0x%llx",
                  static_cast<unsigned long long>(static_cast<const char*>(address) -
                                                  reinterpret_cast<const char*>(module)));
    return name.substr(name.rfind('\\') + 1) + offset;
}

LONG WINAPI TellCrash(EXCEPTION_POINTERS* crash) {
    std::printf("crash 0x%08lx at %s\n", crash->ExceptionRecord->ExceptionCode,
                PlaceOf(crash->ExceptionRecord->ExceptionAddress).c_str());
    std::fflush(stdout);
    TerminateProcess(GetCurrentProcess(), 3);
    return EXCEPTION_CONTINUE_SEARCH;
}

int Usage() {
    std::fputs("usage: soak [--seconds N] [--seed N] [--only WORKER]... [--plant FAULT]...\n", stderr);
    return 2;
}

int Soak(const Options& options) {
    std::printf("seed %" PRIu64 ", %u s\n", options.seed, options.seconds);
    // Held for the whole run, as other code of the spooler holds it: Wine keeps blocks of each loading.
    const Module crypt32(LoadLibraryW(L"crypt32.dll"));
    static Stage stage(options);
    static Cast cast(stage);
    if (!cast.KnowsAll(options.only)) return Usage();
    Growth growth;
    uint64_t quietPoints = 0;
    {
        const Heartbeat heartbeat(cast);
        cast.Start();
        const ULONGLONG begin = GetTickCount64();
        const ULONGLONG length = ULONGLONG{options.seconds} * 1'000;
        const ULONGLONG interval = std::clamp<ULONGLONG>(length / 25, 500, 10'000);
        for (bool end = false; !end;) {
            for (const ULONGLONG until = GetTickCount64() + interval;
                 GetTickCount64() < until && !stage.report.Violated();)
                Sleep(20);
            if (!stage.Quiet(cast.Running())) EndViolated(stage);
            Sleep(kSettle);
            stage.CheckAtRest(++quietPoints);
            if (stage.report.Violated()) EndViolated(stage);
            const ULONGLONG elapsed = GetTickCount64() - begin;
            if (elapsed > length / 5) growth.Take(stage);
            end = elapsed >= length;
            stage.Resume(end);
        }
        cast.Finish();
    }
    std::printf("%zu workers, %" PRIu64 " quiet points\n", cast.Running(), quietPoints);
    const bool flat = growth.Judge(stage.report);
    if (!flat || stage.report.Violated()) EndViolated(stage);
    stage.report.PrintOperations();
    stage.report.PrintVerdict(options.seed);
    return 0;
}

}  // namespace
}  // namespace vlm::soak

int main(int argc, char** argv) {
    SetUnhandledExceptionFilter(vlm::soak::TellCrash);
    vlm::soak::Options options;
    for (int i = 1; i < argc; i += 2) {
        const std::string option = argv[i];
        if (i + 1 == argc) return vlm::soak::Usage();
        if (option == "--seconds") {
            options.seconds = static_cast<unsigned>(std::strtoul(argv[i + 1], nullptr, 10));
        } else if (option == "--seed") {
            options.seed = std::strtoull(argv[i + 1], nullptr, 10);
        } else if (option == "--plant") {
            options.plants.insert(argv[i + 1]);
        } else if (option == "--only") {
            options.only.insert(argv[i + 1]);
        } else {
            return vlm::soak::Usage();
        }
    }
    return vlm::soak::Soak(options);
}
