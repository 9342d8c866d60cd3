#include "printer/soap/soap_message.h"

#include <fmt/format.h>
#include <openssl/rand.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <stdexcept>
#include <utility>

namespace vlm::printer {
namespace {

constexpr const char* kMediaType = "application/soap+xml";
constexpr int kParseOptions = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;
constexpr std::size_t kMostFindings = 20;
constexpr std::size_t kLongestFinding = 400;

void CheckContentType(std::string_view contentType, SoapRequest& request) {
    std::string type = Trimmed(std::string(contentType.substr(0, contentType.find(';'))));
    std::transform(type.begin(), type.end(), type.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (type == kMediaType) return;
    std::string shown(contentType);  // a header may hold any byte, the answer only text
    for (char& c : shown)
        if (c < ' ' || c > '~') c = '?';
    request.Find("the content type is '{}' instead of {}", shown, kMediaType);
}

std::string FreshMessageId() {
    std::array<unsigned char, 16> b{};
    if (RAND_bytes(b.data(), static_cast<int>(b.size())) != 1)
        throw std::runtime_error("the random number generator failed");
    b[6] = static_cast<unsigned char>((b[6] & 0x0f) | 0x40);
    b[8] = static_cast<unsigned char>((b[8] & 0x3f) | 0x80);
    std::string text = "urn:uuid:";
    for (std::size_t i = 0; i < b.size(); ++i)
        text += fmt::format("{}{:02x}", i == 4 || i == 6 || i == 8 || i == 10 ? "-" : "", b[i]);
    return text;
}

}  // namespace

void SoapRequest::Note(const std::string& finding) {
    if (findings.size() > kMostFindings) return;
    if (findings.size() == kMostFindings) {
        findings.emplace_back("and more");
        return;
    }
    std::size_t size = std::min(finding.size(), kLongestFinding);
    // Do not cut within a UTF-8 character.
    while (size < finding.size() && size > 0 && (static_cast<unsigned char>(finding[size]) & 0xC0) == 0x80)
        --size;
    findings.push_back(finding.substr(0, size));
}

XmlDocument ReadEnvelope(std::string_view contentType, const std::string& body, Privacy privacy,
                         SoapRequest& request) {
    CheckContentType(contentType, request);
    const XmlContext context(xmlNewParserCtxt());
    XmlDocument document(xmlCtxtReadMemory(context.get(), body.data(), static_cast<int>(body.size()), nullptr,
                                           nullptr, kParseOptions));
    if (!document) {
        const xmlError& error = context->lastError;
        const std::string why = privacy == Privacy::kPrivate ? fmt::format("parser error {}", error.code)
                                : error.message != nullptr   ? Trimmed(error.message)
                                                             : "no reason";
        request.Find("the body is not well-formed XML: line {}: {}", error.line, why);
        return nullptr;
    }
    if (document->intSubset != nullptr) {
        request.Find("a SOAP message must not have a document type declaration");
        return nullptr;
    }
    const xmlNode* root = xmlDocGetRootElement(document.get());
    if (IsElement(root, ns::kSoap12, "Envelope")) return document;
    request.otherVersion = FromXml(root->name) == "Envelope";
    request.Find("the root is {} instead of the SOAP 1.2 Envelope", NameOf(root));
    return nullptr;
}

std::string Trimmed(const std::string& text) {
    const char* blanks = " \t\r\n";
    const auto first = text.find_first_not_of(blanks);
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::vector<xmlNode*> Children(const xmlNode* parent) {
    std::vector<xmlNode*> all;
    for (xmlNode* node = parent->children; node != nullptr; node = node->next)
        if (node->type == XML_ELEMENT_NODE) all.push_back(node);
    return all;
}

std::string TextOf(const xmlNode* node) {
    return FromXml(XmlText(xmlNodeGetContent(node)).get());
}

std::string NameOf(const xmlNode* node) {
    return fmt::format("{{{}}}{}", node->ns != nullptr ? FromXml(node->ns->href) : "", FromXml(node->name));
}

Envelope NewEnvelope(const char* soapPrefix) {
    XmlDocument document(xmlNewDoc(ToXml("1.0")));
    const XmlElement root(xmlNewDocNode(document.get(), nullptr, ToXml("Envelope"), nullptr));
    xmlDocSetRootElement(document.get(), root.Node());
    xmlNs* soap = root.Declare(soapPrefix, ns::kSoap12);
    xmlSetNs(root.Node(), soap);
    return {std::move(document), root, soap};
}

void AddAddressing(const Envelope& envelope, const std::string& action, const std::string& relatesTo) {
    xmlNs* wsa = envelope.root.Declare("wsa", ns::kAddressing);
    const XmlElement header = envelope.root.Add("Header", envelope.soap);
    header.Add("To", ns::kAnonymous, wsa);
    header.Add("Action", action, wsa);
    header.Add("MessageID", FreshMessageId(), wsa);
    if (!relatesTo.empty()) header.Add("RelatesTo", relatesTo, wsa);
}

std::string FaultMessage(const std::string& code, const std::string& reason,
                         const std::optional<std::string>& relatesTo) {
    const Envelope envelope = NewEnvelope("soap");
    if (relatesTo) AddAddressing(envelope, std::string(ns::kAddressing) + "/fault", *relatesTo);
    const XmlElement fault = envelope.root.Add("Body", envelope.soap).Add("Fault");
    fault.Add("Code").Add("Value", "soap:" + code);
    fault.Add("Reason").Add("Text", reason).Language("en");
    return Serialize(envelope.document.get());
}

}  // namespace vlm::printer
