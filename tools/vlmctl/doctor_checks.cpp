#include "tools/vlmctl/doctor_checks.h"

#include <winsock2.h>
// winsock2.h before windows.h.
#include <windows.h>

#include <fmt/format.h>

#include <memory>

#include "monitor/event_window.h"
#include "soap/bounded_call.h"
#include "spooler/host/monitor_host.h"
#include "spooler/host/raw_tcp_monitor.h"
#include "tools/vlmctl/address.h"
#include "tools/vlmctl/command.h"
#include "tools/vlmctl/monitor_image.h"
#include "tools/vlmctl/monitor_installation.h"
#include "tools/vlmctl/rpc_client.h"
#include "tools/vlmctl/trace_keeper.h"
#include "tools/vlmctl/wsd_exchange.h"
#include "util/com.h"
#include "util/spooler_api.h"

namespace vlm::ctl {

namespace {

using host::FromUtf8;
using host::ToUtf8;

constexpr DWORD kConnectTimeout = 5'000;  // milliseconds
constexpr DWORD kCallTimeout = 5'000;     // milliseconds

CheckResult Ok(const std::string& what, std::string text) {
    return {what, Health::kOk, std::move(text)};
}

CheckResult Wrong(const std::string& what, std::string text) {
    return {what, Health::kWrong, std::move(text)};
}

CheckResult CheckEndpoint(const std::string& what, RpcRoute route) {
    // Owned by the call: one that is given up goes on.
    const auto client = std::make_shared<const RpcClient>(route, "");
    const auto reply = std::make_shared<RpcReply>();
    // No printer has this name: the procedure's refusal is the sign of life, and no printer is asked.
    if (!RunBounded(
            FromUtf8(what), [client, reply] { *reply = client->Query("", 0, 0); }, kCallTimeout))
        return Wrong(what, "takes the call and does not answer; another program may have this endpoint");
    if (reply->status != 0)
        return Wrong(what, fmt::format("nobody serves there (RPC status {}); once the monitor is registered, "
                                       "restart the service 'Spooler'",
                                       reply->status));
    return Ok(what, fmt::format("answers ({} for a printer without a name)", reply->result));
}

CheckResult CheckPrintService(const std::string& url) {
    const ComApartment apartment(COINIT_MULTITHREADED);
    const TraceKeeper traceKeeper;
    FetchCleanAnswer(url, QueryForElements({"PrinterStatus"}, {}).c_str());
    return Ok("printer", "the print service of " + url + " answers");
}

CheckResult CheckRawPort(const std::string& text) {
    const Address address = ParseAddress(text);
    host::RawTcpMonitor monitor(address.host, address.port, kConnectTimeout);
    // A document without a byte: no printer prints one.
    const BOOL connected = monitor.Table()->pfnStartDocPort(&monitor, nullptr, 0, 0, nullptr);
    const std::string target = address.host + ":" + address.port;
    if (!connected)
        return Wrong("printer", fmt::format("no connection to {}: {}; is it on, and is this its address?",
                                            target, host::ErrorText(GetLastError())));
    return Ok("printer", target + " takes connections");
}

}  // namespace

CheckResult CheckRegistration() {
    const char* what = "registered";
    try {
        const std::vector<RegisteredMonitor> monitors = RegisteredMonitors();
        const auto ours = FindOurs(monitors);
        if (ours) return Ok(what, ToUtf8(ours->name) + ", " + ToUtf8(ours->file));
        return Wrong(what, ToUtf8(kMonitorFile) +
                               " is not among the spooler's monitors; 'vlmctl install' or "
                               "the driver's installation registers it");
    } catch (const CommandError& error) {
        return Wrong(what, error.what());
    }
}

CheckResult CheckImage() {
    const char* what = "file";
    const std::wstring path = InSystemFolder(kMonitorFile);
    const std::string shown = ToUtf8(path);
    const MonitorImage image = InspectMonitorImage(path);
    if (!image.problem.empty()) return Wrong(what, shown + ": " + image.problem + "; install it again");
    if (!image.exportsEntry)
        return Wrong(what, shown +
                               " does not export InitializePrintMonitor2: it is something else; "
                               "install ours again");
    if (image.version != OwnVersion())
        return Wrong(what, fmt::format("{} is of version {}, this vlmctl of {}; install the two together",
                                       shown, image.version.empty() ? "none" : image.version, OwnVersion()));
    return Ok(what, shown + ", version " + image.version);
}

CheckResult CheckEventWindow() {
    const char* what = "window";
    if (FindWindowW(kEventWindowClass, kEventWindowTitle) != nullptr)
        return Ok(what, "a process of this session runs the monitor");
    DWORD session = 0;
    if (ProcessIdToSessionId(GetCurrentProcessId(), &session) && session != 0)
        return {what, Health::kUnknown,
                fmt::format("none in session {}; that of the spooler's session cannot be seen from here",
                            session)};
    return Wrong(what, "no process of the spooler's session runs the monitor; restart the service 'Spooler'");
}

std::vector<CheckResult> CheckRpc() {
    return {CheckEndpoint("rpc local", RpcRoute::kLocal), CheckEndpoint("rpc pipe", RpcRoute::kPipe),
            CheckEndpoint("rpc tcp", RpcRoute::kTcp)};
}

CheckResult CheckPrinter(const std::string& address) {
    try {
        return address.find("://") != std::string::npos ? CheckPrintService(address) : CheckRawPort(address);
    } catch (const CommandError& error) {
        if (error.Status() == kWrongUsage) throw;
        return Wrong("printer", std::string(error.what()) + "; is it on, and is this its address?");
    }
}

}  // namespace vlm::ctl
