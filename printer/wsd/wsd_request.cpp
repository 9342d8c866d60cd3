#include "printer/wsd/wsd_request.h"

#include <fmt/format.h>

#include <array>

#include "printer/soap/soap_message.h"

namespace vlm::printer {
namespace {

constexpr std::size_t kMostNames = 256;
constexpr std::size_t kLongestName = 1000;  // with its namespace, which a short message may repeat for each

bool IsUuid(std::string_view text) {
    constexpr std::string_view kShape =
        "urn:uuid:hhhhhhhh-hhhh-hhhh-hhhh-hhhhhhhhhhhh";  // h: a lower-case digit
    constexpr std::size_t kStart = 9;
    constexpr std::string_view kDigits = "0123456789abcdef";
    if (text.size() != kShape.size() || !text.starts_with(kShape.substr(0, kStart))) return false;
    for (std::size_t i = kStart; i < text.size(); ++i) {
        const bool fits = kShape[i] == 'h' ? kDigits.find(text[i]) != std::string_view::npos : text[i] == '-';
        if (!fits) return false;
    }
    return true;
}

class WsdReader {
 public:
    explicit WsdReader(WsdRequest& request) : request_(request) {}

    void ReadMessage(const xmlNode* root) {
        const auto parts = Children(root);
        if (parts.size() != 2 || !IsElement(parts[0], ns::kSoap12, "Header") ||
            !IsElement(parts[1], ns::kSoap12, "Body")) {
            request_.Find("the Envelope must hold one Header, then one Body, both SOAP 1.2");
            return;
        }
        ReadHeader(parts[0]);
        ReadBody(parts[1]);
    }

 private:
    void ReadHeader(const xmlNode* header) {
        constexpr std::array<const char*, 5> kOrder{"To", "Action", "MessageID", "ReplyTo", "From"};
        const auto blocks = Children(header);
        for (std::size_t i = 0; i < kOrder.size(); ++i) {
            if (i >= blocks.size())
                request_.Find("header {} is missing: wsa:{}", i + 1, kOrder[i]);
            else if (!IsElement(blocks[i], ns::kAddressing, kOrder[i]))
                request_.Find("header {} is {} instead of wsa:{}", i + 1, NameOf(blocks[i]), kOrder[i]);
        }
        if (blocks.size() > kOrder.size())
            request_.Find("{} headers instead of {}", blocks.size(), kOrder.size());

        // Values are checked in any order, so that one fault does not hide another.
        for (const xmlNode* block : blocks) {
            if (IsElement(block, ns::kAddressing, "To")) {
                request_.to = TextOf(block);
                if (request_.to.empty() || request_.to.find_first_of(" \t\r\n") != std::string::npos)
                    request_.Find("wsa:To is not an address: '{}'", request_.to);
            } else if (IsElement(block, ns::kAddressing, "Action")) {
                request_.action = TextOf(block);
                if (request_.action != std::string(ns::kPrint) + "/GetPrinterElements")
                    request_.Find("wsa:Action is not GetPrinterElements: '{}'", request_.action);
            } else if (IsElement(block, ns::kAddressing, "MessageID")) {
                request_.messageId = TextOf(block);
                if (!IsUuid(request_.messageId))
                    request_.Find("wsa:MessageID is not a urn:uuid: '{}'", request_.messageId);
            } else if (IsElement(block, ns::kAddressing, "ReplyTo")) {
                const std::string replyTo = AddressIn(block);
                if (replyTo != ns::kAnonymous)
                    request_.Find("wsa:ReplyTo is not the anonymous address: '{}'", replyTo);
            } else if (IsElement(block, ns::kAddressing, "From")) {
                request_.from = AddressIn(block);
                if (!IsUuid(request_.from)) request_.Find("wsa:From is not a urn:uuid: '{}'", request_.from);
            }
        }
    }

    std::string AddressIn(const xmlNode* endpoint) {
        const auto parts = Children(endpoint);
        if (parts.size() == 1 && IsElement(parts[0], ns::kAddressing, "Address")) return TextOf(parts[0]);
        request_.Find("wsa:{} must hold one wsa:Address", FromXml(endpoint->name));
        return "";
    }

    void ReadBody(const xmlNode* body) {
        const xmlNode* node = body;
        for (const char* name : {"GetPrinterElementsRequest", "RequestedElements"}) {
            const auto parts = Children(node);
            if (parts.size() != 1 || !IsElement(parts[0], ns::kPrint, name)) {
                request_.Find("{} must hold one print service {}", FromXml(node->name), name);
                return;
            }
            node = parts[0];
        }
        for (xmlNode* wanted : Children(node)) {
            if (request_.names.size() == kMostNames) {
                request_.Find("more than {} elements are requested", kMostNames);
                return;
            }
            if (IsElement(wanted, ns::kPrint, "Name"))
                ReadName(wanted);
            else
                request_.Find("RequestedElements holds {} instead of a print service Name", NameOf(wanted));
        }
    }

    void ReadName(xmlNode* wanted) {
        const std::string text = Trimmed(TextOf(wanted));
        if (xmlValidateQName(ToXml(text.c_str()), 0) != 0) {
            request_.Find("the requested name '{}' is not a qualified name", text);
            return;
        }
        const auto colon = text.find(':');
        const std::string prefix = colon == std::string::npos ? "" : text.substr(0, colon);
        const xmlNs* space =
            xmlSearchNs(wanted->doc, wanted, prefix.empty() ? nullptr : ToXml(prefix.c_str()));
        if (space == nullptr || FromXml(space->href).empty()) {
            request_.Find("the requested name '{}' has {}", text,
                          prefix.empty() ? "no namespace" : "a prefix that is not declared in its scope");
            return;
        }
        if (FromXml(space->href).size() + text.size() > kLongestName) {
            request_.Find("the requested name '{}' is longer than {} bytes with its namespace", text,
                          kLongestName);
            return;
        }
        request_.names.push_back({FromXml(space->href), text.substr(colon + 1)});  // npos + 1 is the start
    }

    WsdRequest& request_;
};

}  // namespace

WsdRequest ReadWsdRequest(std::string_view contentType, const std::string& body) {
    WsdRequest request;
    const XmlDocument document = ReadEnvelope(contentType, body, Privacy::kOpen, request);
    if (document) WsdReader(request).ReadMessage(xmlDocGetRootElement(document.get()));
    return request;
}

}  // namespace vlm::printer
