// spoolhost: acts out, line by line from standard input, what a spooler does with the monitor, and says what
// came of it. One port over raw TCP, one printer of the stand-in spooler.
//
//   printer NAME            invents a printer
//   usb PORT NAME           invents one on a USB port, with Bidi enabled and shared under its name
//   job ID DOCUMENT         gives it a job
//   open PORT HOST TCPPORT [TIMEOUT]  opens a port of that name; the time-out of each step below in ms
//   start ID                StartDocPort for the job
//   write FILE              the file's bytes, in pieces of 64 KiB
//   text WORDS              these words
//   end                     EndDocPort
//   close                   ClosePort
//   log                     what the stand-in spooler was asked since the last log
//   run PROGRAM ARGS…       another process, waited for; a program beside this one needs no path
//
// "spoolhost suspend" tells the monitor's hidden window, in whatever process it is, that the system suspends.

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <vector>

#include "spooler/host/monitor_host.h"
#include "spooler/host/raw_tcp_monitor.h"
#include "spooler/standin.h"
#include "util/text.h"

namespace {

using vlm::ErrorText;
using vlm::FromUtf8;
using vlm::ToUtf8;
using vlm::host::MonitorHost;
using vlm::host::RawTcpMonitor;

constexpr DWORD kStepTimeout = 10'000;     // milliseconds
constexpr DWORD kProcessTimeout = 30'000;  // milliseconds

int SendSuspendNotice() {
    const HWND window = FindWindowW(L"VLLM3MON_LM_CLASS", L"VLLM3MON_LM_WINDOW");
    if (window == nullptr) {
        std::cout << "suspend: no monitor's window is there" << '\n' << std::flush;
        return 1;
    }
    DWORD_PTR answer = 0;
    const LRESULT delivered = SendMessageTimeoutW(window, WM_POWERBROADCAST, PBT_APMSUSPEND, 0,
                                                  SMTO_ABORTIFHUNG, kStepTimeout, &answer);
    std::cout << "suspend: process " << GetCurrentProcessId()
              << (delivered != 0 ? " told the monitor's hidden window" : " got no answer from the window")
              << '\n'
              << std::flush;
    return delivered != 0 ? 0 : 1;
}

class Scene {
 public:
    Scene() : monitor_(vlm::host::BesideProgram(L"vllm3mon.dll")) {
        if (!printers_.Present()) throw vlm::host::HostError("the stand-in winspool.drv is not loaded", 0);
    }

    void Play(const std::string& line) {
        std::istringstream words(line);
        std::string verb;
        words >> verb >> std::ws;
        std::string rest;
        std::getline(words, rest);
        if (verb.empty() || verb[0] == '#') return;
        if (verb == "printer") return AddPrinter(rest, "", 0);
        if (verb == "usb") return AddUsbPrinter(rest);
        if (verb == "job") return AddJob(rest);
        if (verb == "open") return Open(rest);
        if (verb == "start") return Start(rest);
        if (verb == "write") return WriteFileBytes(rest);
        if (verb == "text") return Write("text", rest);
        if (verb == "end") return End();
        if (verb == "close") return Close();
        if (verb == "log") return Log();
        if (verb == "run") return Run(rest);
        throw vlm::host::HostError("unknown verb '" + verb + "'", ERROR_INVALID_FUNCTION);
    }

 private:
    void AddPrinter(const std::string& name, const std::string& port, DWORD attributes) {
        printer_ = FromUtf8(name);
        printers_.Add(
            {printer_.c_str(), FromUtf8(port).c_str(), printer_.c_str(), attributes, nullptr, nullptr});
    }

    void AddUsbPrinter(const std::string& rest) {
        std::istringstream words(rest);
        std::string port, name;
        words >> port >> std::ws;
        std::getline(words, name);
        AddPrinter(name, port, PRINTER_ATTRIBUTE_ENABLE_BIDI | PRINTER_ATTRIBUTE_SHARED);
    }

    void AddJob(const std::string& rest) {
        std::istringstream words(rest);
        DWORD id = 0;
        std::string document;
        words >> id >> std::ws;
        std::getline(words, document);
        printers_.SetJob(printer_.c_str(), id, FromUtf8(document).c_str(), JOB_STATUS_PRINTING);
    }

    void Open(const std::string& rest) {
        std::istringstream words(rest);
        std::string name, host, tcpPort;
        DWORD timeout = 0;
        words >> name >> host >> tcpPort;
        if (!(words >> timeout)) timeout = kStepTimeout;
        lower_ = std::make_unique<RawTcpMonitor>(host, tcpPort, timeout);
        std::wstring portName = FromUtf8(name);
        Say("open " + name, monitor_.Table().pfnOpenPortEx(monitor_.Manager(), lower_.get(), portName.data(),
                                                           printer_.data(), &port_, lower_->Table()));
    }

    void Start(const std::string& rest) {
        wchar_t name[] = L"document";
        DOC_INFO_1W document{name, nullptr, nullptr};
        const DWORD id = static_cast<DWORD>(std::stoul(rest));
        const auto begin = std::chrono::steady_clock::now();
        const BOOL started = monitor_.Table().pfnStartDocPort(port_, printer_.data(), id, 1,
                                                              reinterpret_cast<LPBYTE>(&document));
        const DWORD error = GetLastError();
        const auto time =
            std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin);
        SetLastError(error);
        Say("start " + rest + " after " + std::to_string(time.count()) + " ms", started);
    }

    void WriteFileBytes(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        if (!file) throw vlm::host::HostError("cannot read " + path, ERROR_FILE_NOT_FOUND);
        std::ostringstream bytes;
        bytes << file.rdbuf();
        Write(path, bytes.str());
    }

    void Write(const std::string& what, std::string bytes) {
        constexpr size_t kPiece = 64 * 1024;
        size_t sent = 0;
        BOOL written = TRUE;
        while (written && sent < bytes.size()) {
            DWORD count = 0;
            written = monitor_.Table().pfnWritePort(port_, reinterpret_cast<LPBYTE>(bytes.data() + sent),
                                                    static_cast<DWORD>(std::min(kPiece, bytes.size() - sent)),
                                                    &count);
            sent += count;
        }
        Say("write " + what + ", " + std::to_string(sent) + " of " + std::to_string(bytes.size()) + " bytes",
            written);
    }

    void End() {
        // The monitor's EndDocPort is FALSE in every case; the port below knows how the document ended.
        monitor_.Table().pfnEndDocPort(port_);
        SetLastError(lower_->Document().error);
        Say("end", lower_->Document().closedByPrinter);
    }

    void Close() { Say("close", monitor_.Table().pfnClosePort(port_)); }

    void Log() {
        const std::vector<std::wstring> lines = printers_.Log();
        for (; logged_ < lines.size(); ++logged_)
            std::cout << "  spooler: " << ToUtf8(lines[logged_]) << '\n' << std::flush;
    }

    static void Run(const std::string& command) {
        std::cout << "run " << command << '\n' << std::flush;
        std::wstring line = FromUtf8(command);
        // Its complaints where its results are, so that they stand in order.
        STARTUPINFOW startup{};
        startup.cb = sizeof startup;
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdOutput = startup.hStdError = GetStdHandle(STD_OUTPUT_HANDLE);
        PROCESS_INFORMATION process{};
        if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                            &process))
            throw vlm::host::HostError("cannot run " + command, GetLastError());
        const vlm::KernelHandle handle(process.hProcess);
        const vlm::KernelHandle thread(process.hThread);
        if (WaitForSingleObject(handle.Get(), kProcessTimeout) == WAIT_OBJECT_0) return;
        TerminateProcess(handle.Get(), 1);
        throw vlm::host::HostError(command + " does not end", ERROR_TIMEOUT);
    }

    static void Say(const std::string& what, BOOL result) {
        const DWORD error = GetLastError();
        std::cout << what << (result ? ": ok" : ": refused, " + ErrorText(error)) << '\n' << std::flush;
    }

    // Outlives the monitor, whose Shutdown closes a port that is still open.
    std::unique_ptr<RawTcpMonitor> lower_;
    MonitorHost monitor_;
    vlm::standin::Printers printers_;
    std::wstring printer_;
    HANDLE port_ = nullptr;
    size_t logged_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
    try {
        if (argc == 2 && std::string(argv[1]) == "suspend") return SendSuspendNotice();
        Scene scene;
        for (std::string line; std::getline(std::cin, line);)
            scene.Play(line);
        return 0;
    } catch (const std::exception& error) {
        std::cout << "spoolhost: " << error.what() << '\n' << std::flush;
        return 1;
    }
}
