#include "tools/vlmctl/installation/doctor_checks.h"

#include <winsock2.h>
// winsock2.h before windows.h.
#include <windows.h>

#include <fmt/format.h>

#include <memory>

#include "monitor/event_window.h"
#include "rpc/codes.h"
#include "spooler/host/raw_tcp_monitor.h"
#include "tools/vlmctl/console/command.h"
#include "tools/vlmctl/console/product.h"
#include "tools/vlmctl/exchange/address.h"
#include "tools/vlmctl/exchange/rpc_client.h"
#include "tools/vlmctl/exchange/rpc_wait.h"
#include "tools/vlmctl/exchange/wsd_exchange.h"
#include "tools/vlmctl/installation/held_file.h"
#include "tools/vlmctl/installation/monitor_image.h"
#include "tools/vlmctl/installation/monitor_installation.h"
#include "util/com.h"
#include "util/spooler_api.h"
#include "util/text.h"

namespace vlm::ctl {

namespace {

constexpr DWORD kConnectTimeout = 5'000;  // milliseconds
constexpr DWORD kCallTimeout = 5'000;     // milliseconds
constexpr size_t kMostGrowth = size_t{16} << 20;

CheckResult Ok(const std::string& what, std::string text) {
    return {what, Health::kOk, std::move(text)};
}

CheckResult Wrong(const std::string& what, std::string text) {
    return {what, Health::kWrong, std::move(text)};
}

// Both procedures once, so that no printer is asked: for one without a name, which no printer has, and with
// more arguments than fit. The monitor's service refuses each in its own way.
struct Probe {
    RpcReply query;
    RpcReply command;
};
constexpr std::uint32_t kRefusedQuery = rpc::kNoSuchPrinter;
constexpr std::uint32_t kRefusedCommand = rpc::kBadArguments;

Probe MakeProbe(const RpcClient& client) {
    RpcCommand tooMany;
    tooMany.longs.resize(65);
    Probe probe;
    probe.query = client.Query("", 0, 0);
    if (probe.query.status == 0) probe.command = client.Command("", tooMany, 0);
    return probe;
}

// What is wrong with one of the replies; empty when it is the monitor's.
std::string Impostor(const RpcReply& reply, const char* call, std::uint32_t expected) {
    if (!reply.problem.empty()) return reply.problem;
    if (reply.result == expected) return {};
    return fmt::format("{} for {} instead of {}", reply.result, call, expected);
}

CheckResult CheckEndpoint(const std::string& what, RpcRoute route) {
    // Owned by the call: one that is given up goes on.
    const auto client = std::make_shared<const RpcClient>(route, "");
    const auto probe = std::make_shared<Probe>();
    const char* const taken = "; another program may be using this endpoint";
    switch (RunWatched([client, probe] { *probe = MakeProbe(*client); }, kCallTimeout, kMostGrowth)) {
        case WaitEnd::kDone:
            break;
        case WaitEnd::kTimeUp:
            return Wrong(what, std::string("accepts the call but does not answer") + taken);
        case WaitEnd::kTooMuch:
            return Wrong(what, std::string("sends an endless reply") + taken);
    }
    if (const DWORD status = probe->query.status != 0 ? probe->query.status : probe->command.status) {
        const char* const meaning = StatusMeaning(status);
        return Wrong(what,
                     fmt::format("{} (RPC status {}); once the monitor is registered, restart the "
                                 "service 'Spooler'",
                                 meaning != nullptr ? meaning : "the call fails", StatusNumber(status)));
    }
    std::string impostor = Impostor(probe->query, "a printer without a name", kRefusedQuery);
    if (impostor.empty())
        impostor = Impostor(probe->command, "a command with too many arguments", kRefusedCommand);
    if (!impostor.empty())
        return Wrong(what, "something other than the monitor answers: " + impostor + taken);
    return Ok(what, fmt::format("answers ({} for a printer without a name)", kRefusedQuery));
}

CheckResult CheckPrintService(const std::string& url) {
    const ComApartment apartment(COINIT_MULTITHREADED);
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
        return Wrong("printer",
                     fmt::format("no connection to {}: {}; check that it is on and that the address is right",
                                 target, ErrorText(GetLastError())));
    return Ok("printer", target + " accepts connections");
}

}  // namespace

CheckResult CheckRegistration() {
    const char* what = "registered";
    try {
        const std::vector<RegisteredMonitor> monitors = RegisteredMonitors();
        if (const RegisteredMonitor* ours = FindOurs(monitors))
            return Ok(what, ToUtf8(ours->name) + ", " + ToUtf8(ours->file));
        return Wrong(what, ToUtf8(kMonitorFile) +
                               " is not registered with the spooler; run 'vlmctl install', or "
                               "install the driver");
    } catch (const CommandError& error) {
        return Wrong(what, error.what());
    }
}

CheckResult CheckImage() {
    const char* what = "file";
    const std::wstring path = InSystemFolder(kMonitorFile);
    const std::string shown = ToUtf8(path);
    MonitorImage image;
    try {
        image = InspectMonitorImage(HeldFile(path, kMostImage).Bytes());
    } catch (const CommandError& error) {
        return Wrong(what, std::string(error.what()) + "; reinstall it");
    }
    if (!image.problem.empty()) return Wrong(what, shown + ": " + image.problem + "; reinstall it");
    if (!image.exportsEntry)
        return Wrong(
            what, shown + " does not export " + kMonitorEntry + ", so it is not the monitor; reinstall it");
    if (image.version != OwnVersion())
        return Wrong(what, fmt::format("{} has version {}, this vlmctl {}; install the two together", shown,
                                       image.version.empty() ? "none" : image.version, OwnVersion()));
    return Ok(what, shown + ", version " + image.version);
}

CheckResult CheckEventWindow() {
    const char* what = "window";
    if (FindWindowW(kEventWindowClass, kEventWindowTitle) != nullptr)
        return Ok(what, "a process in this session runs the monitor");
    DWORD session = 0;
    if (ProcessIdToSessionId(GetCurrentProcessId(), &session) && session != 0)
        return {what, Health::kUnknown,
                fmt::format("none in session {}; the spooler's session cannot be seen from here", session)};
    return Wrong(what, "no process in the spooler's session runs the monitor; restart the service 'Spooler'");
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
        return Wrong("printer",
                     std::string(error.what()) + "; check that it is on and that the address is right");
    }
}

}  // namespace vlm::ctl
