// A spooler with a USB printer that speaks VPCA, for clients in other processes. It loads the monitor, opens
// its ports, and then does what the lines on standard input say, with one line of output for each, until
// their end:
//
//   job                StartDocPort on USB001
//   block STEP         the lower STEP (StartDocPort, WritePort, ReadPort, EndDocPort) waits for "release"
//   fail STEP | throw STEP | raise STEP | release
//   close | shutdown   on a thread of its own; "entered" waits for a STEP that blocks
//   entered | calls    calls: what was asked of the lower port since the last time
//   slow MS | slow     each lower step of USB005 takes so long; what was asked of it since the last time
//   delay MS           the spooler's next enumeration of printers takes so long
//   asked              how often its printers were enumerated so far
//   open | second      the port again; another manager for a moment
//   unload | load      the module, without Shutdown
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <iostream>
#include <map>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "spooler/host/monitor_host.h"
#include "spooler/standin.h"
#include "tests/support/lower_monitor.h"
#include "util/handles.h"
#include "util/spooler_api.h"

namespace {

using Bytes = std::vector<unsigned char>;

void Say(const std::string& line) {
    static std::mutex mutex;
    const std::lock_guard guard(mutex);
    std::cout << line << std::endl;
}

// The lower port and the printer behind it.
struct Printer : vlm::test::LowerMonitor {
    std::mutex mutex;
    std::map<std::string, std::string> trouble;  // the verb, and the step that it is for
    std::wstring opening;
    std::atomic<DWORD> pause{0};  // milliseconds of each step
    vlm::KernelHandle entered{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    vlm::KernelHandle released{CreateEventW(nullptr, TRUE, FALSE, nullptr)};

    Printer() {
        answer = [this](const char* step) { return Enter(step); };
        keepBytes = true;
        table.pfnReadPort = Read;
    }

    void Trouble(const std::string& verb, const std::string& step) {
        const std::lock_guard guard(mutex);
        trouble[verb] = step;
    }
    bool Has(const std::string& verb, const std::string& step) {
        const std::lock_guard guard(mutex);
        return trouble[verb] == step;
    }

    BOOL Enter(const std::string& step) {
        if (step == "OpenPort") return opening != L"USB004";
        Sleep(pause);
        if (Has("block", step)) {
            SetEvent(entered.Get());
            WaitForSingleObject(released.Get(), 20'000);
        }
        if (Has("raise", step)) RaiseException(EXCEPTION_ACCESS_VIOLATION, 0, 0, nullptr);
        if (Has("throw", step)) throw std::runtime_error("the lower monitor");
        if (Has("fail", step)) {
            SetLastError(ERROR_NOT_READY);
            return FALSE;
        }
        if (step == "StartDocPort") written.clear();
        return TRUE;
    }

    static BOOL WINAPI Read(HANDLE port, LPBYTE bytes, DWORD size, LPDWORD read) {
        auto& self = static_cast<Printer&>(*static_cast<LowerMonitor*>(port));
        if (LowerMonitor::ReadPort(port, bytes, size, read) == FALSE) return FALSE;
        const Bytes reply = self.Answer();
        *read = static_cast<DWORD>(std::min<size_t>(reply.size(), size));
        std::copy_n(reply.begin(), *read, bytes);
        return TRUE;
    }

    // The steps since the last time.
    std::string Steps() {
        std::string steps;
        for (const Call& call : ForgetCalls()) {
            const std::string step = call.operation;
            if (step != "OpenPort") steps += (steps.empty() ? "" : " ") + step;
        }
        return steps;
    }

    Bytes Answer() const {
        const Bytes request(written.begin(), written.end());
        if (request.size() < 20) return {};
        // The value of attribute 180, or a data block whose id says how many bytes follow.
        Bytes body = {1, 0, 180, 8, 0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7};
        if (request[5] == 0x31) {
            body.assign(request.begin() + 20, request.begin() + 24);
            for (int i = 0; i < request[23]; ++i)
                body.push_back(static_cast<unsigned char>(i * 7 + 1));
        }
        Bytes frame(request.begin(), request.begin() + 20);
        frame[3] = 5;
        frame[8] = 0;
        frame[9] = static_cast<unsigned char>(body.size());
        frame[19] = 1;
        frame.insert(frame.end(), body.begin(), body.end());
        return frame;
    }
};

Printer printer;
Printer slowPrinter;

std::string Outcome(bool done) {
    return done ? "ok" : "error " + std::to_string(GetLastError());
}

class Host {
 public:
    Host() {
        const DWORD bidi = PRINTER_ATTRIBUTE_ENABLE_BIDI;
        spooler_.Reset();
        spooler_.Add({L"Office", L"USB001", L"office", bidi, nullptr, nullptr});
        spooler_.Add({L"Mute", L"USB002", L"mute", 0, nullptr, nullptr});
        spooler_.Add({L"Closed", L"USB003", L"closed", bidi, nullptr, nullptr});
        spooler_.Add({L"Broken", L"USB004", L"broken", bidi, nullptr, nullptr});
        spooler_.Add({L"Bureau", L"USB001", L"B\u00FCro", bidi, nullptr, nullptr});
        spooler_.Add({L"Slow", L"USB005", L"slow", bidi, nullptr, nullptr});
        spooler_.Add({L"Net", L"IP_office", L"net", bidi, nullptr, nullptr});
        Load();
    }

    // The line that answers.
    std::string Do(const std::string& verb, const std::string& word) {
        if (verb == "job") return Outcome(StartJob());
        if (verb == "block" || verb == "fail" || verb == "throw" || verb == "raise") {
            printer.Trouble(verb, word);
            ResetEvent(printer.released.Get());
            ResetEvent(printer.entered.Get());
            return "ok";
        }
        if (verb == "release") {
            printer.Trouble("block", "");
            return Outcome(SetEvent(printer.released.Get()));
        }
        if (verb == "entered")
            return WaitForSingleObject(printer.entered.Get(), 10'000) == WAIT_OBJECT_0 ? "yes" : "no";
        if (verb == "calls") return printer.Steps();
        if (verb == "open") return Outcome(Open(L"USB001"));
        if (verb == "slow") {
            if (!word.empty()) slowPrinter.pause = std::stoul(word);
            return slowPrinter.Steps();
        }
        if (verb == "delay")
            return Outcome(
                spooler_.AddRule({"EnumPrintersW", 0, static_cast<DWORD>(std::stoul(word)), 0, 1}));
        if (verb == "asked")
            return std::to_string(std::ranges::count_if(
                spooler_.Log(), [](const std::wstring& call) { return call.starts_with(L"EnumPrintersW"); }));
        if (verb == "second") {
            const HANDLE first = std::exchange(manager_, nullptr);
            Initialize();
            const bool made = manager_ != nullptr && manager_ != first;
            table_->pfnShutdown(std::exchange(manager_, first));
            return Outcome(made);
        }
        if (verb == "load") return Outcome(Load());
        FreeLibrary(module_);  // unload
        return GetModuleHandleW(L"vllm3mon.dll") == nullptr ? "gone" : "kept";
    }

    // On a thread of its own, which says at its end how long that took.
    void End(bool all) {
        std::thread([all, table = table_, manager = manager_, port = port_] {
            const ULONGLONG begin = GetTickCount64();
            if (all) {
                table->pfnShutdown(manager);
            } else {
                table->pfnClosePort(port);
            }
            Say("done " + std::to_string(GetTickCount64() - begin));
        }).detach();
    }

 private:
    bool Load() {
        module_ = LoadLibraryW(vlm::host::BesideProgram(L"vllm3mon.dll").c_str());
        Initialize();
        for (const wchar_t* name : {L"USB002", L"USB004", L"IP_office"})
            Open(name);
        Open(L"USB005", slowPrinter);
        return Open(L"USB001");
    }
    void Initialize() {
        using Function = MONITOR2* WINAPI(MONITORINIT*, HANDLE*);
        table_ = vlm::FindFunction<Function>(module_, "InitializePrintMonitor2")(&init_, &manager_);
    }
    bool Open(std::wstring name, Printer& lower = printer) {
        vlm::test::LowerMonitor& below = lower;
        lower.opening = name;
        return table_->pfnOpenPortEx(manager_, &below, name.data(), name.data(), &port_, &below.table) !=
               FALSE;
    }
    bool StartJob() {
        wchar_t name[] = L"Office";
        DOC_INFO_1W document{};
        return table_->pfnStartDocPort(port_, name, 1, 1, reinterpret_cast<LPBYTE>(&document)) != FALSE;
    }

    vlm::standin::Printers spooler_;
    HMODULE module_ = nullptr;
    MONITORINIT init_{};
    MONITOR2* table_ = nullptr;
    HANDLE manager_ = nullptr;
    HANDLE port_ = nullptr;
};

}  // namespace

int main() {
    static Host host;
    Say("ready");
    std::string line;
    while (std::getline(std::cin, line)) {
        std::istringstream in(line);
        std::string verb;
        std::string word;
        in >> verb >> word;
        if (verb == "close" || verb == "shutdown") {
            host.End(verb == "shutdown");
        } else {
            Say(host.Do(verb, word));
        }
    }
    // The process ends as it is, with whatever calls are in flight.
    ExitProcess(0);
}
