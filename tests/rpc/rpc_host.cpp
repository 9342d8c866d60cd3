// A spooler with a USB printer that speaks VPCA, for clients in other processes. It loads the monitor, opens
// its ports, and then does what the lines on standard input say, with one line of output for each, until
// their end:
//
//   job | endjob       StartDocPort / EndDocPort on USB001
//   block STEP         the lower STEP (StartDocPort, WritePort, ReadPort, EndDocPort) waits for "release"
//   fail STEP | throw STEP | raise STEP | release
//   close | shutdown   on a thread of its own; "entered" waits for a STEP that blocks
//   entered | calls    calls: what was asked of the lower port since the last time
//   request            the last one that was written, in hex
//   slow MS | slow     each lower step of USB005 takes so long; what was asked of it since the last time
//   delay MS           the spooler's next enumeration of printers takes so long
//   asked              how often its printers were enumerated so far
//   open | second      the port again; another manager for a moment
//   unload | load      the module, without Shutdown
//   ping
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <iostream>
#include <memory>
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
    std::string calls;
    std::string blocked, failing, throwing, raising;
    std::wstring opening;
    int documents = 0;
    bool interleaved = false;
    bool closed = false;
    std::atomic<DWORD> pause{0};  // milliseconds of each step
    vlm::KernelHandle entered{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    vlm::KernelHandle released{CreateEventW(nullptr, TRUE, FALSE, nullptr)};

    Printer() {
        answer = [this](const char* step) { return Enter(step); };
        keepBytes = true;
        table.pfnReadPort = Read;
    }

    BOOL Enter(const std::string& step) {
        bool wait = false;
        bool raise = false;
        {
            const std::lock_guard guard(mutex);
            if (step == "OpenPort") {
                closed = false;
                return opening != L"USB004";
            }
            if (step == "EndDocPort") --documents;
            calls += (calls.empty() ? "" : " ") + step + (closed ? "!AFTER-CLOSE" : "");
            wait = blocked == step;
            raise = raising == step;
        }
        Sleep(pause);
        if (wait) {
            SetEvent(entered.Get());
            WaitForSingleObject(released.Get(), 20'000);
        }
        if (raise) RaiseException(EXCEPTION_ACCESS_VIOLATION, 0, 0, nullptr);
        const std::lock_guard guard(mutex);
        if (throwing == step) throw std::runtime_error("the lower monitor");
        if (step == "ClosePort") closed = true;
        if (failing == step) {
            SetLastError(ERROR_NOT_READY);
            return FALSE;
        }
        if (step == "StartDocPort") {
            interleaved = interleaved || documents != 0;
            ++documents;
            written.clear();
        }
        return TRUE;
    }

    static BOOL WINAPI Read(HANDLE port, LPBYTE bytes, DWORD size, LPDWORD read) {
        auto& self = static_cast<Printer&>(*static_cast<LowerMonitor*>(port));
        if (!self.Enter("ReadPort")) return FALSE;
        const std::lock_guard guard(self.mutex);
        const Bytes reply = self.Answer();
        *read = static_cast<DWORD>(std::min<size_t>(reply.size(), size));
        std::copy_n(reply.begin(), *read, bytes);
        return TRUE;
    }

    // What was written last.
    Bytes Request() const { return {written.begin(), written.end()}; }

    Bytes Answer() {
        const Bytes request = Request();
        if (request.size() < 20) return {};
        Bytes body;
        if (request[5] == 0x31) {
            // The data id says how many bytes follow.
            const size_t size = std::min<size_t>(request[22] * 256U + request[23], 8192);
            body.assign(request.begin() + 20, request.begin() + 24);
            for (size_t i = 0; i < size; ++i)
                body.push_back(static_cast<unsigned char>(i * 7 + 1));
        } else {
            // The last id is the attribute.
            const Bytes id(request.end() - 2, request.end());
            const size_t size = id == Bytes{0x09, 0x65} ? 28 : 8;
            body = {1, id[0], id[1], static_cast<unsigned char>(size)};
            for (size_t i = 0; i < size; ++i)
                body.push_back(static_cast<unsigned char>(0xA0 + i));
        }
        Bytes frame(request.begin(), request.begin() + 20);
        frame[3] = 5;
        frame[8] = static_cast<unsigned char>(body.size() >> 8);
        frame[9] = static_cast<unsigned char>(body.size());
        frame[19] = 1;
        frame.insert(frame.end(), body.begin(), body.end());
        return frame;
    }
};

Printer printer;
Printer slowPrinter;

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
        module_ = LoadLibraryW(vlm::host::BesideProgram(L"vllm3mon.dll").c_str());
        Initialize();
        for (const wchar_t* name : {L"USB002", L"USB004", L"IP_office"})
            Open(name);
        Open(L"USB005", slowPrinter);
        Open(L"USB001");
    }

    void Do(const std::string& line) {
        std::istringstream in(line);
        std::string verb;
        std::string word;
        in >> verb >> word;
        if (verb == "job" || verb == "endjob") {
            Job(verb == "job");
        } else if (verb == "block" || verb == "fail" || verb == "throw" || verb == "raise") {
            const std::lock_guard guard(printer.mutex);
            (verb == "block"   ? printer.blocked
             : verb == "fail"  ? printer.failing
             : verb == "throw" ? printer.throwing
                               : printer.raising) = word;
            ResetEvent(printer.released.Get());
            ResetEvent(printer.entered.Get());
            Say("ok");
        } else if (verb == "release") {
            {
                const std::lock_guard guard(printer.mutex);
                printer.blocked.clear();
            }
            SetEvent(printer.released.Get());
            Say("ok");
        } else if (verb == "entered") {
            Say(WaitForSingleObject(printer.entered.Get(), 10'000) == WAIT_OBJECT_0 ? "yes" : "no");
        } else if (verb == "close" || verb == "shutdown") {
            const HANDLE port = port_;
            const HANDLE manager = manager_;
            Timed([=, this] {
                if (line == "close") {
                    table_->pfnClosePort(port);
                } else {
                    table_->pfnShutdown(manager);
                }
            });
        } else if (verb == "calls") {
            const std::lock_guard guard(printer.mutex);
            Say(printer.interleaved ? "INTERLEAVED" : printer.calls);
            printer.calls.clear();
        } else if (verb == "request") {
            const std::lock_guard guard(printer.mutex);
            std::ostringstream hex;
            for (const unsigned char byte : printer.Request())
                hex << std::hex << std::uppercase << byte / 16 << byte % 16;
            Say(hex.str());
        } else if (verb == "open") {
            Open(L"USB001");
            Say(opened_ ? "ok" : "error " + std::to_string(GetLastError()));
        } else if (verb == "slow") {
            if (!word.empty()) slowPrinter.pause = std::stoul(word);
            const std::lock_guard guard(slowPrinter.mutex);
            Say(std::exchange(slowPrinter.calls, ""));
        } else if (verb == "delay") {
            Say(spooler_.AddRule({"EnumPrintersW", 0, static_cast<DWORD>(std::stoul(word)), 0, 1})
                    ? "ok"
                    : "failed");
        } else if (verb == "asked") {
            // How often the spooler was asked for its printers so far.
            const std::vector<std::wstring> log = spooler_.Log();
            Say(std::to_string(std::count_if(log.begin(), log.end(), [](const std::wstring& call) {
                return call.starts_with(L"EnumPrintersW");
            })));
        } else if (verb == "second") {
            // One more manager of the module, for a moment.
            const HANDLE first = std::exchange(manager_, nullptr);
            Initialize();
            const bool made = manager_ != nullptr && manager_ != first;
            table_->pfnShutdown(std::exchange(manager_, first));
            Say(made ? "ok" : "failed");
        } else if (verb == "load") {
            module_ = LoadLibraryW(vlm::host::BesideProgram(L"vllm3mon.dll").c_str());
            Initialize();
            Open(L"USB001");
            Say(opened_ ? "ok" : "failed");
        } else if (verb == "unload") {
            FreeLibrary(module_);
            Say(GetModuleHandleW(L"vllm3mon.dll") == nullptr ? "gone" : "kept");
        } else {
            Say("pong");
        }
    }

 private:
    void Initialize() {
        using Function = MONITOR2* WINAPI(MONITORINIT*, HANDLE*);
        table_ = vlm::FindFunction<Function>(module_, "InitializePrintMonitor2")(&init_, &manager_);
    }
    void Open(std::wstring name, Printer& lower = printer) {
        vlm::test::LowerMonitor& below = lower;
        lower.opening = name;
        opened_ =
            table_->pfnOpenPortEx(manager_, &below, name.data(), name.data(), &port_, &below.table) != FALSE;
    }
    void Job(bool start) {
        if (!start) {
            table_->pfnEndDocPort(port_);
            Say("ok");
            return;
        }
        wchar_t name[] = L"Office";
        DOC_INFO_1W document{};
        const BOOL started = table_->pfnStartDocPort(port_, name, 1, 1, reinterpret_cast<LPBYTE>(&document));
        Say(started ? "ok" : "error " + std::to_string(GetLastError()));
    }
    template <typename Work>
    static void Timed(Work work) {
        std::thread([work] {
            const ULONGLONG begin = GetTickCount64();
            work();
            Say("done " + std::to_string(GetTickCount64() - begin));
        }).detach();
    }

    vlm::standin::Printers spooler_;
    HMODULE module_ = nullptr;
    MONITORINIT init_{};
    MONITOR2* table_ = nullptr;
    HANDLE manager_ = nullptr;
    HANDLE port_ = nullptr;
    bool opened_ = false;
};

}  // namespace

int main() {
    static Host host;
    Say("ready");
    std::string line;
    while (std::getline(std::cin, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        host.Do(line);
    }
    // The process ends as it is, with whatever calls are in flight.
    ExitProcess(0);
}
