// vlmctl print: one file through the monitor to a printer's raw port, the way the spooler would send it.
#include <CLI/CLI.hpp>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <vector>

#include "spooler/host/monitor_host.h"
#include "spooler/host/raw_tcp_monitor.h"
#include "spooler/standin.h"
#include "tools/vlmctl/console/command.h"
#include "tools/vlmctl/console/console.h"
#include "tools/vlmctl/console/interrupt.h"
#include "tools/vlmctl/console/product.h"
#include "tools/vlmctl/exchange/address.h"
#include "tools/vlmctl/printer/printer_commands.h"
#include "util/scope_exit.h"

namespace vlm::ctl {

namespace {

using host::ErrorText;
using host::FromUtf8;

constexpr size_t kPiece = 64 * 1024;  // what the spooler's print processors use
constexpr DWORD kJobId = 1;

struct PrintOptions {
    std::string file;
    std::string to;
    std::string printer = "vlmctl";
    std::string dll;
    double timeout = 10.0;  // seconds
    bool answer = false;
};

std::ifstream OpenDocument(const std::string& file, std::uint64_t& size) {
    const std::filesystem::path path = FromUtf8(file);
    std::error_code error;
    size = std::filesystem::file_size(path, error);
    std::ifstream document(path, std::ios::binary);
    if (error || !document)
        throw CommandError("cannot read " + file + ": " + (error ? error.message() : "no access"));
    return document;
}

// The job as the spooler would keep it. On a machine with the real spooler its own records hold, and ours is
// absent.
void RegisterJob(const standin::Printers& spooler, const std::wstring& printer, const std::string& file) {
    if (!spooler.Present()) return;
    spooler.Reset();
    spooler.Add({printer.c_str(), L"", nullptr, 0, nullptr, nullptr});
    spooler.SetJob(printer.c_str(), kJobId, FromUtf8(file).c_str(), JOB_STATUS_PRINTING);
}

// What the monitor told the spooler about the job.
std::string JobEvents(const standin::Printers& spooler) {
    if (!spooler.Present()) return "kept by this system's spooler";
    std::string events;
    for (const std::wstring& line : spooler.Log()) {
        if (!line.starts_with(L"SetJobW")) continue;
        const char* event = line.find(L"SENT_TO_PRINTER") != std::wstring::npos     ? "sent to printer"
                            : line.find(L"LAST_PAGE_EJECTED") != std::wstring::npos ? "last page ejected"
                                                                                    : "other";
        events += (events.empty() ? "" : ", ") + std::string(event);
    }
    return events.empty() ? "none" : events;
}

// The job as the spooler keeps it when its user deletes it.
void DeleteJob(const standin::Printers& spooler, const std::wstring& printer, const std::string& file) {
    if (spooler.Present())
        spooler.SetJob(printer.c_str(), kJobId, FromUtf8(file).c_str(), JOB_STATUS_DELETING);
}

// Writes the whole document, piece by piece. False when a write fails, with the error in `error`.
bool WriteDocument(const MONITOR2& monitor, HANDLE port, std::ifstream& document, std::uint64_t size,
                   DWORD& error) {
    Progress progress(size);
    std::vector<char> piece(kPiece);
    for (std::uint64_t done = 0;;) {
        document.read(piece.data(), static_cast<std::streamsize>(piece.size()));
        const auto count = static_cast<DWORD>(document.gcount());
        if (count == 0) {
            if (done >= size && !document.bad()) return true;
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
            progress.Update(done);
        }
    }
}

// What the printer says while the document is open, read through the monitor. A Win32 code.
DWORD ReadAnswer(const MONITOR2& monitor, HANDLE port) {
    std::string answer(4096, '\0');
    DWORD count = 0;
    if (!monitor.pfnReadPort(port, reinterpret_cast<LPBYTE>(answer.data()), static_cast<DWORD>(answer.size()),
                             &count))
        return GetLastError();
    answer.resize(count);
    PrintLine("printer says  {}", host::Printable(answer));
    return ERROR_SUCCESS;
}

[[noreturn]] void ThrowLost(const host::DocumentOutcome& outcome, std::uint64_t size, DWORD error) {
    if (error == ERROR_PRINT_CANCELLED)
        throw CommandError(
            fmt::format("interrupted after {} of {} bytes; the connection was broken off, so that "
                        "the printer does not take them for the whole",
                        outcome.bytesSent, size),
            kInterrupted);
    if (error == ERROR_READ_FAULT)
        throw CommandError(
            fmt::format("the file changed while it was read, after {} of {} bytes; the connection "
                        "was broken off",
                        outcome.bytesSent, size));
    const char* what = error == WSAETIMEDOUT ? "the printer stopped reading" : "the connection was lost";
    throw CommandError(
        fmt::format("{} after {} of {} bytes: {}", what, outcome.bytesSent, size, ErrorText(error)));
}

void PrintFile(const PrintOptions& options) {
    const Address address = ParseAddress(options.to);
    std::uint64_t size = 0;
    std::ifstream document = OpenDocument(options.file, size);
    const std::wstring dll = options.dll.empty() ? host::BesideProgram(kMonitorFile) : FromUtf8(options.dll);
    host::MonitorHost monitor(dll);
    const standin::Printers spooler;
    std::wstring printer = FromUtf8(options.printer);
    RegisterJob(spooler, printer, options.file);

    host::RawTcpMonitor lower(address.host, address.port, static_cast<DWORD>(options.timeout * 1000));
    const OnInterrupt interrupt(OnInterrupt::Then::kWait, [&] {
        DeleteJob(spooler, printer, options.file);
        lower.Cancel();
    });
    const std::string target = address.host + ":" + address.port;
    std::wstring portName = L"IP_" + FromUtf8(target);
    HANDLE port = nullptr;
    const MONITOR2& table = monitor.Table();
    if (!table.pfnOpenPortEx(monitor.Manager(), &lower, portName.data(), printer.data(), &port,
                             lower.Table()))
        throw CommandError("the monitor does not open the port: " + ErrorText(GetLastError()));
    const ScopeExit closePort([&] { table.pfnClosePort(port); });

    std::wstring name = FromUtf8(options.file);
    DOC_INFO_1W info{name.data(), nullptr, nullptr};
    const auto begin = std::chrono::steady_clock::now();
    if (!table.pfnStartDocPort(port, printer.data(), kJobId, 1, reinterpret_cast<LPBYTE>(&info))) {
        if (interrupt.Raised()) throw CommandError("interrupted before anything was sent", kInterrupted);
        throw CommandError("no connection to " + target + ": " + ErrorText(GetLastError()));
    }
    DWORD error = ERROR_SUCCESS;
    DWORD answerError = ERROR_SUCCESS;
    bool written = false;
    {
        const ScopeExit endDocument([&] {
            if (!written) lower.Cancel();
            table.pfnEndDocPort(port);
        });
        written = WriteDocument(table, port, document, size, error);
        if (written && options.answer) answerError = ReadAnswer(table, port);
    }
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;

    const host::DocumentOutcome& outcome = lower.Document();
    if (!written) ThrowLost(outcome, size, error);
    if (answerError != ERROR_SUCCESS && !interrupt.Raised())
        throw CommandError("no answer from the printer: " + ErrorText(answerError));
    if (!outcome.closedByPrinter) ThrowLost(outcome, size, outcome.error);
    if (!outcome.backChannel.empty()) PrintLine("printer says  {}", host::Printable(outcome.backChannel));
    PrintLine("job           {} on {}", kJobId, target);
    PrintLine("sent          {} bytes in {:.2f} s", outcome.bytesSent, seconds.count());
    PrintLine("job events    {}", JobEvents(spooler));
}

}  // namespace

void AddPrintCommand(CLI::App& app) {
    auto options = std::make_shared<PrintOptions>();
    CLI::App* command =
        app.add_subcommand("print", "Print a file through the monitor to a printer's raw port");
    command->add_option("FILE", options->file, "The document, in a language that the printer reads")
        ->required();
    command
        ->add_option("--to", options->to, "HOST or HOST:PORT of the printer; the port is 9100 unless given")
        ->required();
    command->add_option("--printer", options->printer, "Name of the printer that the job is for")
        ->capture_default_str();
    command->add_option("--timeout", options->timeout, "Seconds that each step may take")
        ->check(CLI::Range(0.1, 600.0))
        ->capture_default_str();
    command->add_flag("--answer", options->answer,
                      "Wait for an answer of the printer before the document ends");
    command->add_option("--dll", options->dll, "The monitor to load instead of the one beside this program");
    command->callback([options] { PrintFile(*options); });
}

}  // namespace vlm::ctl
