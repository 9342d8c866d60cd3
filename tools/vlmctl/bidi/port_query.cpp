#include "tools/vlmctl/bidi/port_query.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "spooler/host/monitor_host.h"
#include "spooler/standin.h"
#include "tools/vlmctl/bidi/engine.h"
#include "tools/vlmctl/console/command.h"
#include "tools/vlmctl/console/interrupt.h"
#include "tools/vlmctl/console/product.h"
#include "tools/vlmctl/exchange/wsd_exchange.h"
#include "util/com.h"
#include "util/scope_exit.h"
#include "util/text.h"
#include "util/trace.h"

namespace vlm::ctl {

namespace {

using host::BidiLowerMonitor;
using Kind = BidiLowerMonitor::Kind;

constexpr wchar_t kPrinter[] = L"vlmctl";
// What the monitor asks for where a port tells it nothing but a host.
constexpr wchar_t kPathAtAHost[] = L"/wsd/print/";

// A folder of our own, which goes with the object or with Ctrl+C.
class TemporaryFolder {
 public:
    TemporaryFolder() {
        if (!std::filesystem::create_directory(path_)) throw CommandError("cannot make a temporary folder");
    }
    ~TemporaryFolder() { Remove(); }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& Path() const { return path_; }

 private:
    void Remove() const {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    const std::filesystem::path path_ = std::filesystem::temp_directory_path() /
                                        fmt::format("vlmctl-{}-{}", GetCurrentProcessId(), GetTickCount64());
    const OnInterrupt interrupt_{OnInterrupt::Then::kEnd, [this] { Remove(); }};
};

// Writes a driver as far as the monitor looks at one: an INI file that names the extension files. Those are
// copies under plain names, because an INI entry can hold neither every file name nor every length. Returns
// the driver's dependent files as the spooler lists them: names each ended by NUL, the list by one more.
std::wstring WriteDriver(const std::filesystem::path& folder, const std::vector<std::string>& extensions) {
    const std::filesystem::path path = folder / L"driver.ini";
    std::ofstream ini(path, std::ios::binary);
    for (size_t i = 0; i < extensions.size(); ++i) {
        const std::string name = fmt::format("extension{}.xml", i + 1);
        std::filesystem::copy_file(FullPath(extensions[i]), folder / name);
        // The first is the platform's, all others are numbered from 1.
        if (i == 0) ini << "[BidiFiles]\r\nBidiWSDFile=" << name << "\r\n[VelunDriverFiles]\r\n";
        if (i > 0) ini << "UIBidiWSDFile" << i << '=' << name << "\r\n";
    }
    ini.close();
    if (!ini) throw CommandError("cannot write the temporary driver");
    return path.wstring() + L'\0' + L'\0';
}

// What the port knows of the printer.
std::wstring PortAddress(const PortQuery& query) {
    const std::wstring url = FromUtf8(query.printerUrl);
    const ServiceUrl parsed = ParsePrinterUrl(query.printerUrl);
    if (query.port != Kind::kTcp) return url;
    if (parsed.secure) throw CommandError("a TCP/IP port has a host, not an https address", kWrongUsage);
    if (parsed.path != L"/" && parsed.path != kPathAtAHost)
        throw CommandError("a TCP/IP port has only a host: the monitor asks it for " + ToUtf8(kPathAtAHost) +
                               ", not for " + ToUtf8(Printable(parsed.path)),
                           kWrongUsage);
    std::wstring address = parsed.host;
    if (parsed.port != 80) address += L':' + std::to_wstring(parsed.port);
    if (address.size() > BidiLowerMonitor::kLongestHost)
        throw CommandError("the host name is too long for a TCP/IP port", kWrongUsage);
    return address;
}

std::vector<BidiAnswer> Ask(const MONITOR2& table, HANDLE port, const wchar_t* action, BidiRequest& request,
                            DWORD& error) {
    BIDI_RESPONSE_CONTAINER* response = nullptr;
    error =
        table.pfnSendRecvBidiDataFromPort(port, PRINTER_ACCESS_USE, action, request.Container(), &response);
    return error == ERROR_SUCCESS ? TakeAnswers(response) : std::vector<BidiAnswer>();
}

}  // namespace

std::vector<BidiAnswer> AskThroughPort(const PortQuery& query, const wchar_t* action,
                                       const std::vector<std::string>& paths) {
    const ComApartment apartment(COINIT_MULTITHREADED);
    BidiLowerMonitor lower(query.port, PortAddress(query));
    CheckUsable(query.extensions);
    const standin::Printers spooler;
    if (!spooler.Present())
        throw CommandError("--port needs the stand-in spooler, winspool.drv, next to this program");
    const TemporaryFolder folder;
    const std::wstring dependentFiles = WriteDriver(folder.Path(), query.extensions);
    std::wstring portName = lower.PortName();
    std::wstring printer = kPrinter;
    spooler.Reset();
    spooler.Add({kPrinter, portName.c_str(), nullptr, 0, L"Velun", dependentFiles.c_str()});

    host::MonitorHost monitor(query.dll.empty() ? host::BesideProgram(kMonitorFile) : FromUtf8(query.dll));
    const MONITOR2& table = monitor.Table();
    if (table.pfnSendRecvBidiDataFromPort == nullptr)
        throw CommandError("this monitor does not answer Bidi queries");
    HANDLE port = nullptr;
    if (!table.pfnOpenPortEx(monitor.Manager(), &lower, portName.data(), printer.data(), &port,
                             lower.Table()))
        throw CommandError("the monitor could not open the port: " + ErrorText(GetLastError()));
    const ScopeExit closePort([&] { table.pfnClosePort(port); });

    BidiRequest request(paths);
    DWORD error = ERROR_SUCCESS;
    std::vector<BidiAnswer> answers = Ask(table, port, action, request, error);
    if (error != ERROR_SUCCESS)
        throw CommandError("the monitor returned " + ErrorText(error) + "; --trace shows why");
    const std::vector<BidiAnswer> lowers = Ask(*lower.Table(), &lower, action, request, error);
    for (BidiAnswer& answer : answers) {
        const bool ofLower = std::find(lowers.begin(), lowers.end(), answer) != lowers.end();
        answer.source = query.port == Kind::kUsb ? "monitor" : ofLower ? "lower monitor" : "engine";
    }
    return answers;
}

}  // namespace vlm::ctl
