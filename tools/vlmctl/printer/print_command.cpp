// vlmctl print: one file through the monitor to a printer's raw port, the way the spooler would send it.
#include <fcntl.h>
#include <io.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <vector>

#include "spooler/host/monitor_host.h"
#include "spooler/host/raw_tcp_monitor.h"
#include "spooler/standin.h"
#include "tools/vlmctl/console/command.h"
#include "tools/vlmctl/console/console.h"
#include "tools/vlmctl/console/files.h"
#include "tools/vlmctl/console/interrupt.h"
#include "tools/vlmctl/console/product.h"
#include "tools/vlmctl/console/table.h"
#include "tools/vlmctl/exchange/address.h"
#include "tools/vlmctl/printer/printer_commands.h"
#include "util/scope_exit.h"
#include "util/text.h"

namespace vlm::ctl {

namespace {

constexpr size_t kPiece = 64 * 1024;  // what the spooler's print processors use
constexpr DWORD kJobId = 1;

struct PrintOptions {
    std::string file;
    std::string to;
    std::string printer = "vlmctl";
    std::string dll;
    double timeout = 10.0;  // seconds
    bool answer = false;
    bool json = false;
};

// A file, or standard input, whose size nobody knows before its end.
class Document {
 public:
    explicit Document(const std::string& name) {
        if (name == "-") {
            _setmode(_fileno(stdin), _O_BINARY);
            return;
        }
        const std::filesystem::path path = FromUtf8(name);
        std::error_code error;
        size_ = std::filesystem::file_size(path, error);
        file_.open(path, std::ios::binary);
        if (error || !file_)
            throw CommandError("cannot read " + name + ": " + (error ? error.message() : "no access"));
    }

    std::istream& Stream() { return size_ ? file_ : std::cin; }
    std::optional<std::uint64_t> Size() const { return size_; }

    // "100 of 1000 bytes"
    std::string Part(std::uint64_t bytes) const {
        return size_ ? fmt::format("{} of {} bytes", bytes, *size_) : fmt::format("{} bytes", bytes);
    }

 private:
    std::ifstream file_;
    std::optional<std::uint64_t> size_;
};

// The job as the spooler would keep it. On a machine with the real spooler its own records hold, and ours is
// absent.
void RegisterJob(const standin::Printers& spooler, const std::wstring& printer, const std::string& file) {
    if (!spooler.Present()) return;
    spooler.Reset();
    spooler.Add({printer.c_str(), L"", nullptr, 0, nullptr, nullptr});
    spooler.SetJob(printer.c_str(), kJobId, FromUtf8(file).c_str(), JOB_STATUS_PRINTING);
}

// What the monitor told the spooler about the job; nothing where this system's own spooler keeps that.
std::optional<std::vector<std::string>> JobEvents(const standin::Printers& spooler) {
    if (!spooler.Present()) return std::nullopt;
    std::vector<std::string> events;
    for (const std::wstring& line : spooler.Log()) {
        if (!line.starts_with(L"SetJobW")) continue;
        events.emplace_back(line.find(L"SENT_TO_PRINTER") != std::wstring::npos     ? "sent to printer"
                            : line.find(L"LAST_PAGE_EJECTED") != std::wstring::npos ? "last page ejected"
                                                                                    : "other");
    }
    return events;
}

std::string EventsText(const std::optional<std::vector<std::string>>& events) {
    if (!events) return "kept by this system's spooler";
    return events->empty() ? "none" : fmt::format("{}", fmt::join(*events, ", "));
}

// Writes the whole document, piece by piece. False when a write fails, with the error in `error`.
bool WriteDocument(const MONITOR2& monitor, HANDLE port, Document& document, bool quiet, DWORD& error) {
    std::optional<Progress> progress;
    if (document.Size() && !quiet) progress.emplace(*document.Size());
    std::istream& stream = document.Stream();
    std::vector<char> piece(kPiece);
    for (std::uint64_t done = 0;;) {
        stream.read(piece.data(), static_cast<std::streamsize>(piece.size()));
        const auto count = static_cast<DWORD>(stream.gcount());
        if (count == 0) {
            if (done >= document.Size().value_or(0) && !stream.bad()) return true;
            error = ERROR_READ_FAULT;
            return false;
        }
        // A lower monitor may take less than it is given.
        for (DWORD sent = 0; sent < count;) {
            DWORD written = 0;
            if (!monitor.pfnWritePort(port, reinterpret_cast<LPBYTE>(piece.data() + sent), count - sent,
                                      &written)) {
                error = GetLastError();
                return false;
            }
            sent += written;
            done += written;
            if (progress) progress->Update(done);
        }
    }
}

// What a printer says, with everything but printable ASCII replaced, for a line on a terminal.
std::string PrintableAscii(std::string text) {
    for (char& c : text)
        if (c < 0x20 || c > 0x7E) c = '?';
    return text;
}

// What the printer says while the document is open, read through the monitor. A Win32 code.
DWORD ReadAnswer(const MONITOR2& monitor, HANDLE port, std::string& text) {
    std::string answer(4096, '\0');
    DWORD count = 0;
    if (!monitor.pfnReadPort(port, reinterpret_cast<LPBYTE>(answer.data()), static_cast<DWORD>(answer.size()),
                             &count))
        return GetLastError();
    answer.resize(count);
    text = PrintableAscii(std::move(answer));
    return ERROR_SUCCESS;
}

[[noreturn]] void ThrowLost(const Document& document, std::uint64_t sent, DWORD error) {
    const std::string part = document.Part(sent);
    if (error == ERROR_PRINT_CANCELLED)
        throw CommandError(
            "interrupted after " + part +
                "; the connection was reset, so that the printer does not take the part for the "
                "whole document",
            kInterrupted);
    if (error == ERROR_READ_FAULT)
        throw CommandError("the file changed while it was being read, after " + part +
                           "; the connection was reset");
    const char* what = error == WSAETIMEDOUT ? "the printer stopped reading" : "the connection was lost";
    throw CommandError(fmt::format("{} after {}: {}", what, part, ErrorText(error)));
}

HANDLE OpenPort(const host::MonitorHost& monitor, host::RawTcpMonitor& lower, const std::string& target,
                std::wstring printer) {
    std::wstring name = L"IP_" + FromUtf8(target);
    HANDLE port = nullptr;
    if (!monitor.Table().pfnOpenPortEx(monitor.Manager(), &lower, name.data(), printer.data(), &port,
                                       lower.Table()))
        throw CommandError("the monitor could not open the port: " + ErrorText(GetLastError()));
    return port;
}

struct Printed {
    std::string target;
    std::uint64_t bytes;
    double seconds;
    std::string answer;  // read through the monitor
    std::string later;   // after the document
    std::optional<std::vector<std::string>> events;
};

void ShowPrinted(const Printed& printed, bool json) {
    if (json) {
        PrintJson({{"job", kJobId},
                   {"target", printed.target},
                   {"bytes", printed.bytes},
                   {"seconds", printed.seconds},
                   {"events", OrNull(printed.events)},
                   {"answer", OrNull(printed.answer + printed.later)}});
        return;
    }
    for (const std::string& text : {printed.answer, printed.later})
        if (!text.empty()) PrintLine("printer says  {}", text);
    PrintLine("job           {} on {}", kJobId, printed.target);
    PrintLine("sent          {} bytes in {:.2f} s", printed.bytes, printed.seconds);
    PrintLine("job events    {}", EventsText(printed.events));
}

void PrintFile(const PrintOptions& options) {
    const Address address = ParseAddress(options.to);
    Document document(options.file);
    const std::wstring dll = options.dll.empty() ? host::BesideProgram(kMonitorFile) : FromUtf8(options.dll);
    host::MonitorHost monitor(dll);
    const standin::Printers spooler;
    std::wstring printer = FromUtf8(options.printer);
    RegisterJob(spooler, printer, options.file);

    host::RawTcpMonitor lower(address.host, address.port, static_cast<DWORD>(options.timeout * 1000));
    const OnInterrupt interrupt(OnInterrupt::Then::kWait, [&] {
        // As the spooler keeps a job that its user deletes.
        if (spooler.Present())
            spooler.SetJob(printer.c_str(), kJobId, FromUtf8(options.file).c_str(), JOB_STATUS_DELETING);
        lower.Cancel();
    });
    const std::string target = address.host + ":" + address.port;
    const MONITOR2& table = monitor.Table();
    const HANDLE port = OpenPort(monitor, lower, target, printer);
    const ScopeExit closePort([&] { table.pfnClosePort(port); });

    std::wstring name = FromUtf8(options.file == "-" ? InputName(options.file) : options.file);
    DOC_INFO_1W info{name.data(), nullptr, nullptr};
    const auto begin = std::chrono::steady_clock::now();
    if (!table.pfnStartDocPort(port, printer.data(), kJobId, 1, reinterpret_cast<LPBYTE>(&info))) {
        if (interrupt.Raised()) throw CommandError("interrupted before anything was sent", kInterrupted);
        throw CommandError("no connection to " + target + ": " + ErrorText(GetLastError()));
    }
    DWORD error = ERROR_SUCCESS;
    DWORD answerError = ERROR_SUCCESS;
    bool written = false;
    std::string answer;
    {
        const ScopeExit endDocument([&] {
            if (!written) lower.Cancel();
            table.pfnEndDocPort(port);
        });
        written = WriteDocument(table, port, document, options.json, error);
        if (written && options.answer) answerError = ReadAnswer(table, port, answer);
    }
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;

    const host::DocumentOutcome& outcome = lower.Document();
    if (!written) ThrowLost(document, outcome.bytesSent, error);
    if (answerError != ERROR_SUCCESS && !interrupt.Raised())
        throw CommandError("no answer from the printer: " + ErrorText(answerError));
    if (!outcome.closedByPrinter) ThrowLost(document, outcome.bytesSent, outcome.error);
    ShowPrinted({target, outcome.bytesSent, seconds.count(), answer, PrintableAscii(outcome.backChannel),
                 JobEvents(spooler)},
                options.json);
}

}  // namespace

void AddPrintCommand(CLI::App& app) {
    auto options = std::make_shared<PrintOptions>();
    CLI::App* command =
        app.add_subcommand("print", "Print a file through the monitor to a printer's raw port");
    command
        ->add_option("FILE", options->file,
                     "Document in a language that the printer understands; - reads standard input")
        ->required();
    command->add_option("--to", options->to, "Printer as HOST or HOST:PORT (default port: 9100)")->required();
    command->add_option("--printer", options->printer, "Printer name for the job")->capture_default_str();
    command->add_option("--timeout", options->timeout, "Time-out of each step in seconds")
        ->check(CLI::Range(0.1, 600.0))
        ->capture_default_str();
    command->add_flag("--answer", options->answer,
                      "Wait for the printer's answer before ending the document");
    command->add_flag("--json", options->json, "Print JSON instead of text");
    command->add_option("--dll", options->dll, "Monitor DLL to load (default: the one next to this program)");
    command->callback([options] { PrintFile(*options); });
}

}  // namespace vlm::ctl
