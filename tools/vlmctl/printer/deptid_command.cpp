// vlmctl deptid: asks a printer's department-ID service.
#include <memory>

#include "soap/check_user_password_service.h"
#include "tools/vlmctl/console/command.h"
#include "tools/vlmctl/console/console.h"
#include "tools/vlmctl/exchange/failure.h"
#include "tools/vlmctl/exchange/wsd_exchange.h"
#include "tools/vlmctl/printer/password_input.h"
#include "tools/vlmctl/printer/printer_commands.h"
#include "util/scope_exit.h"
#include "util/text.h"
#include "util/trace.h"

namespace vlm::ctl {

namespace {

struct CheckOptions {
    std::string url;
    std::string user;
    std::string domain;
    std::string type;
};

constexpr int kHttpOk = 200;

using Proxy = CheckUserPasswordService::CCheckUserPasswordServiceT<CVlSoapWininetClient>;

[[noreturn]] void ThrowCause(const std::string& printer, const Proxy& proxy, HRESULT result) {
    const SoapFault& fault = proxy.GetFault();
    switch (proxy.GetClientError()) {
        case SoapClientError::kSoapFault:
            throw CommandError(fmt::format("{}: fault {}: {}", printer, ToUtf8(Printable(fault.code)),
                                           ToUtf8(Printable(fault.string))));
        case SoapClientError::kParseFault:
            throw CommandError(printer + ": answered with status 500 and no readable SOAP fault");
        case SoapClientError::kParse:
            if (proxy.Status() != kHttpOk)
                throw CommandError(
                    fmt::format("{}: HTTP status {}; the answer is not from a department-ID service", printer,
                                proxy.Status()));
            throw CommandError(printer + ": the answer is not from a department-ID service");
        default:
            ThrowFailure(printer, {result, proxy.Reason()});
    }
}

void Check(const CheckOptions& options) {
    const ComApartment apartment(COINIT_MULTITHREADED);
    const std::string printer = Shown(options.url);
    ParsePrinterUrl(options.url);
    Proxy proxy;
    proxy.SetUrl(FromUtf8(options.url));
    proxy.SetTimeout(CheckUserPasswordService::kTimeout);
    std::wstring password = ReadPassword();
    const ScopeExit wipe([&password] { Wipe(&password); });
    bool allowed = false;
    const HRESULT result =
        proxy.CheckUserPassword(SoapValue(FromUtf8(options.user)), SoapValue(FromUtf8(options.domain)),
                                SoapValue(FromUtf8(options.type)), SoapValue(password), &allowed);
    if (FAILED(result)) ThrowCause(printer, proxy, result);
    Print(allowed ? "allowed" : "refused");
    if (!allowed) throw CLI::RuntimeError(kFailed);
}

}  // namespace

void AddDeptIdCommand(CLI::App& app) {
    CLI::App* deptId = app.add_subcommand("deptid", "Ask a printer's department-ID service");
    deptId->require_subcommand(1);
    auto options = std::make_shared<CheckOptions>();
    CLI::App* check = deptId->add_subcommand(
        "check",
        "Check whether the printer accepts this user and password; the password is typed at a prompt, or "
        "read from standard input");
    check->add_option("URL", options->url, "Printer address: a URL or a host name")->required();
    check->add_option("--user", options->user, "Department ID or user name")->required();
    check->add_option("--domain", options->domain, "Domain (default: none)");
    check->add_option("--type", options->type, "Account type, in the printer's own terms (default: none)");
    check->callback([options] { Check(*options); });
}

}  // namespace vlm::ctl
