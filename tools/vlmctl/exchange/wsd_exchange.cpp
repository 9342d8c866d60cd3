#include "tools/vlmctl/exchange/wsd_exchange.h"

#include <algorithm>

#include "bidi/xml_text.h"
#include "soap/namespaces.h"
#include "soap/printer_elements.h"
#include "soap/service_url.h"
#include "spooler/host/monitor_host.h"
#include "tools/vlmctl/console/command.h"
#include "tools/vlmctl/console/console.h"
#include "tools/vlmctl/exchange/trace_keeper.h"
#include "util/vlutil.h"

namespace vlm::ctl {

namespace {

using host::FromUtf8;
using host::ToUtf8;

void CheckAddress(const std::string& url) {
    ServiceUrl parsed;
    if (!ParseServiceUrl(FromUtf8(url), L"/", &parsed))
        throw CommandError("'" + Shown(url) + "' is no address of a printer", kWrongUsage);
}

// "pri:PrinterStatus" for both "PrinterStatus" and itself.
std::string WithPrefix(const std::string& name, const std::vector<PrefixDeclaration>& declarations) {
    const size_t colon = name.find(':');
    if (colon == std::string::npos) return "pri:" + name;
    const std::string prefix = name.substr(0, colon);
    const bool declared =
        prefix == "pri" || std::any_of(declarations.begin(), declarations.end(),
                                       [&](const PrefixDeclaration& one) { return one.prefix == prefix; });
    if (!declared) {
        throw CommandError("the prefix of '" + Shown(name) + "' is not declared; declare it with --ns " +
                               Shown(prefix) + "=URI",
                           kWrongUsage);
    }
    return name;
}

}  // namespace

std::wstring QueryForElements(const std::vector<std::string>& names,
                              const std::vector<PrefixDeclaration>& declarations) {
    std::vector<NamespaceDeclaration> prefixes = {{L"pri", std::wstring(ns::kWsdPrint)}};
    for (const PrefixDeclaration& one : declarations)
        prefixes.push_back({FromUtf8(one.prefix), FromUtf8(one.uri)});
    std::vector<std::wstring> qualified;
    for (const std::string& name : names)
        qualified.push_back(FromUtf8(WithPrefix(name, declarations)));
    return WriteQueryElements(prefixes, qualified);
}

std::string FetchAnswer(const std::string& url, const wchar_t* query) {
    CheckAddress(url);
    std::string answer;
    const HRESULT result = FetchPrinterElements(FromUtf8(url).c_str(), query, &answer);
    if (FAILED(result)) ThrowTraced(Shown(url), result);
    return answer;
}

std::string FetchCleanAnswer(const std::string& url, const wchar_t* query) {
    std::string clean;
    const HRESULT result = CleanPrinterElements(FetchAnswer(url, query), query, &clean);
    if (FAILED(result)) ThrowTraced(Shown(url) + " is no WSD print service", result);
    return clean;
}

}  // namespace vlm::ctl
