#include "soap/printer_elements_request.h"

#include "util/namespaces.h"
#include "util/xml_text.h"

namespace vlm {

namespace {

void AppendElement(std::string* out, const char* name, std::wstring_view text) {
    out->append("<").append(name).append(">");
    AppendEscapedAscii(out, text);
    out->append("</").append(name).append(">");
}

void AppendEndpoint(std::string* out, const char* name, std::wstring_view address) {
    out->append("<").append(name).append(">");
    AppendElement(out, "wsa:Address", address);
    out->append("</").append(name).append(">");
}

void AppendDeclaration(std::string* out, std::wstring_view prefix, std::wstring_view uri) {
    *out += " xmlns:";
    AppendEscapedAscii(out, prefix);
    *out += "=\"";
    AppendEscapedAscii(out, uri);
    *out += '"';
}

// "pri1", "pri2", …: the first that the query does not use.
std::wstring UnusedPrefix(const PrinterElementsQuery& query) {
    for (unsigned number = 1;; ++number) {
        std::wstring candidate = L"pri" + std::to_wstring(number);
        if (FindPrefix(query.namespaces, candidate) == nullptr) return candidate;
    }
}

void AppendRequestedElements(std::string* out, const PrinterElementsQuery& query) {
    std::wstring standInForPri;
    *out += "<pri:RequestedElements";
    for (const NamespaceDeclaration& entry : query.namespaces) {
        if (entry.prefix != L"pri") {
            AppendDeclaration(out, entry.prefix, entry.uri);
        } else if (entry.uri != ns::kWsdPrint) {
            standInForPri = UnusedPrefix(query);
            AppendDeclaration(out, standInForPri, entry.uri);
        }
    }
    *out += ">";
    for (const std::wstring& name : query.names) {
        const bool renamed = !standInForPri.empty() && name.starts_with(L"pri:");
        AppendElement(out, "pri:Name", renamed ? standInForPri + name.substr(3) : name);
    }
    *out += "</pri:RequestedElements>";
}

}  // namespace

std::string BuildPrinterElementsRequest(const PrinterElementsQuery& query, std::wstring_view to,
                                        std::wstring_view messageId, std::wstring_view from) {
    std::string out = "<?xml version='1.0' encoding='utf-8'?><soap:Envelope";
    AppendDeclaration(&out, L"soap", ns::kSoap12);
    AppendDeclaration(&out, L"wsa", ns::kAddressing);
    AppendDeclaration(&out, L"pri", ns::kWsdPrint);
    out += "><soap:Header>";
    AppendElement(&out, "wsa:To", to);
    AppendElement(&out, "wsa:Action", ns::kGetPrinterElementsAction);
    AppendElement(&out, "wsa:MessageID", messageId);
    AppendEndpoint(&out, "wsa:ReplyTo", ns::kAddressingAnonymous);
    AppendEndpoint(&out, "wsa:From", from);
    out += "</soap:Header><soap:Body><pri:GetPrinterElementsRequest>";
    AppendRequestedElements(&out, query);
    out += "</pri:GetPrinterElementsRequest></soap:Body></soap:Envelope>";
    return out;
}

}  // namespace vlm
