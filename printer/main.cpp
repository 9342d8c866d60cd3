// The virtual printer's start, run and stop. Each service has a folder: raw/ the raw port with its documents,
// vpca/ the device that answers there, wsd/ the WSD print service, deptid/ the department-ID service,
// control/ the control API. They stand on soap/ (the ports of the two SOAP services, and what goes wrong
// there on request), net/ (sockets, TLS, HTTP) and shared/ (the machine that prints).
//
// Exit status: 0 after an orderly stop, 1 when it cannot start, 2 for a wrong command line.
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "printer/command_line.h"
#include "printer/control/control_api.h"
#include "printer/deptid/deptid_service.h"
#include "printer/net/http_listener.h"
#include "printer/raw/document_store.h"
#include "printer/raw/raw_port.h"
#include "printer/shared/machine.h"
#include "printer/shared/say.h"
#include "printer/soap/soap_ports.h"
#include "printer/wsd/wsd_service.h"

namespace {

using namespace vlm::printer;

constexpr std::size_t kControlBodyLimit = std::size_t{64} * 1024;
constexpr std::size_t kControlThreads = 8;

// Written under another name and renamed, so that readers see all of it. It exists as long as the printer
// runs.
class ReadyFile {
 public:
    ReadyFile(const std::string& path, const nlohmann::json& content) : path_(path) {
        if (path.empty()) return;
        const std::string draft = fmt::format("{}.{}", path, ::getpid());
        std::ofstream file(draft, std::ios::trunc);
        file << content.dump() << "\n";
        file.close();
        if (!file || std::rename(draft.c_str(), path.c_str()) != 0) {
            const std::string reason = std::strerror(errno);
            ::unlink(draft.c_str());
            throw std::runtime_error(fmt::format("cannot write {}: {}", path, reason));
        }
    }
    ReadyFile(const ReadyFile&) = delete;
    ReadyFile& operator=(const ReadyFile&) = delete;
    ~ReadyFile() {
        if (!path_.empty()) ::unlink(path_.c_str());
    }

 private:
    const std::string path_;
};

void StopWhenParentEnds() {
    const pid_t parent = ::getppid();
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (::getppid() != parent) throw std::runtime_error("the parent has already ended");
}

void Run(const Options& options) {
    // Blocked in every thread and received by sigwait below: one way to stop for signals and the control API.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGINT);
    ::pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    ::signal(SIGPIPE, SIG_IGN);
    if (options.exitWithParent) StopWhenParentEnds();

    DocumentStore store(options.store);
    Machine machine;
    RawPort rawPort(options.address, options.rawPort, store, machine, options.documentLimit);
    if (options.fault) rawPort.SetFault(*options.fault);
    rawPort.SetAnswer(options.answer);
    WsdService wsd(machine);
    DeptIdService deptId(options.accounts.empty() ? Accounts() : Accounts(options.accounts));
    // The rest of the fleet has only the WSD print service.
    std::vector<std::unique_ptr<Machine>> machines;
    std::vector<std::unique_ptr<WsdService>> services;
    for (unsigned number = 2; number <= options.printers; ++number) {
        machines.push_back(std::make_unique<Machine>(number));
        services.push_back(std::make_unique<WsdService>(*machines.back()));
    }
    SoapPorts soap(options.address, options.wsdPort, options.wsdsPort);
    soap.Serve(kWsdPath, wsd);
    for (unsigned number = 2; const auto& service : services)
        soap.Serve(fmt::format("{}{}/", kWsdPath, number++), *service);
    soap.Serve(kDeptIdPath, deptId);
    HttpListener control("127.0.0.1", options.controlPort, kControlThreads,
                         std::make_unique<HttpServer>(kControlBodyLimit));
    AddControlApi(control, rawPort, soap, wsd, deptId, machine, store, [] { ::kill(::getpid(), SIGTERM); });

    rawPort.Start();
    soap.Start();
    control.Start();
    const ReadyFile ready(options.readyFile, {{"pid", ::getpid()},
                                              {"address", options.address},
                                              {"rawPort", rawPort.Port()},
                                              {"controlPort", control.Port()},
                                              {"wsdPort", soap.Port()},
                                              {"wsdsPort", soap.TlsPort()}});
    Say("ready: raw port {0}:{1}, control http://127.0.0.1:{2}, WSD http://{0}:{3}{5} and https://{0}:{4}{5}",
        options.address, rawPort.Port(), control.Port(), soap.Port(), soap.TlsPort(), kWsdPath);

    int signal = 0;
    sigwait(&stopSignals, &signal);

    control.Stop();
    soap.Stop();
    rawPort.Stop();
    Say("stopped");
}

}  // namespace

int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    try {
        if (const auto options = ParseCommandLine(argc, argv)) Run(*options);
        return 0;
    } catch (const UsageError& e) {
        Complain("{} (see vprinter --help)", e.what());
        return 2;
    } catch (const std::exception& e) {
        Complain("{}", e.what());
        return 1;
    }
}
