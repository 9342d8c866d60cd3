#include "tools/vlmctl/exchange/wsd_exchange.h"

#include <algorithm>

#include "bidi/engine_documents.h"
#include "soap/printer_elements.h"
#include "tools/vlmctl/console/command.h"
#include "tools/vlmctl/console/console.h"
#include "tools/vlmctl/exchange/failure.h"
#include "util/namespaces.h"
#include "util/text.h"

namespace vlm::ctl {

namespace {

// "pri:PrinterStatus" for both "PrinterStatus" and itself.
std::string WithPrefix(const std::string& name, const std::vector<NamespaceDeclaration>& declarations) {
    const size_t colon = name.find(':');
    if (colon == std::string::npos) return "pri:" + name;
    const std::string prefix = name.substr(0, colon);
    const auto declares = [wide = FromUtf8(prefix)](const NamespaceDeclaration& one) {
        return one.prefix == wide;
    };
    const bool declared = prefix == "pri" || std::ranges::any_of(declarations, declares);
    if (!declared) {
        throw CommandError("the prefix of '" + Shown(name) + "' is not declared; declare it with --ns " +
                               Shown(prefix) + "=URI",
                           kWrongUsage);
    }
    return name;
}

}  // namespace

std::wstring QueryForElements(const std::vector<std::string>& names,
                              const std::vector<NamespaceDeclaration>& declarations) {
    std::vector<NamespaceDeclaration> prefixes = {{L"pri", ns::kWsdPrint}};
    prefixes.insert(prefixes.end(), declarations.begin(), declarations.end());
    std::vector<std::wstring> qualified;
    for (const std::string& name : names)
        qualified.push_back(FromUtf8(WithPrefix(name, declarations)));
    return WriteQueryElements(prefixes, qualified);
}

ServiceUrl ParsePrinterUrl(const std::string& url) {
    const auto refuse = [&](const std::string& why) {
        throw CommandError("'" + Shown(url) + "' is not a printer address" + why, kWrongUsage);
    };
    ServiceUrl parsed;
    if (!ParseServiceUrl(FromUtf8(url), L"/", &parsed)) refuse("");
    const size_t end = url.find("://");
    const std::string scheme = end < url.find_first_of("/?") ? url.substr(0, end) : "http";
    if (_stricmp(scheme.c_str(), "http") != 0 && _stricmp(scheme.c_str(), "https") != 0)
        refuse(": the scheme must be http or https, not " + Shown(scheme));
    return parsed;
}

std::string FetchAnswer(const std::string& url, const wchar_t* query, int* status) {
    ParsePrinterUrl(url);
    std::string answer;
    const Outcome fetched = FetchPrinterElements(FromUtf8(url).c_str(), query, &answer, status);
    if (FAILED(fetched)) ThrowFailure(Shown(url), fetched);
    return answer;
}

std::string FetchCleanAnswer(const std::string& url, const wchar_t* query, std::string* received) {
    int status = 0;
    const std::string answer = FetchAnswer(url, query, &status);
    if (received != nullptr) *received = answer;
    std::string clean;
    const Outcome cleaned = CleanPrinterElements(answer, query, &clean, status);
    if (FAILED(cleaned)) ThrowFailure(Shown(url) + " is not a WSD print service", cleaned);
    return clean;
}

}  // namespace vlm::ctl
