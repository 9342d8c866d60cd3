#include "printer/wsd/wsd_answer.h"

#include <fmt/format.h>

#include <set>
#include <string_view>

#include "printer/soap/soap_message.h"
#include "printer/wsd/wsd_elements.h"

namespace vlm::printer {
namespace {

constexpr const char* kVendorPrefix = "vln";
// Stands for the namespace of an element that the machine does not know; declared where it is needed.
constexpr const char* kUnknownPrefix = "q";

std::string Qualified(std::string_view prefix, const std::string& name) {
    return prefix.empty() ? name : fmt::format("{}:{}", prefix, name);
}

}  // namespace

std::optional<std::string> FindFlaw(const WsdStyle& style) {
    std::set<std::string> used{"wsa", kVendorPrefix, kUnknownPrefix};
    const auto claim = [&](const std::string& prefix) {
        return xmlValidateNCName(ToXml(prefix.c_str()), 0) == 0 && !prefix.starts_with("xml") &&
               used.insert(prefix).second;
    };
    const auto refused = [](const std::string& prefix) {
        return fmt::format("'{}' cannot be used as a prefix here", prefix);
    };
    if (!claim(style.soapPrefix)) return refused(style.soapPrefix);
    if (!style.prefix.empty() && !claim(style.prefix)) return refused(style.prefix);
    for (const auto& [prefix, uri] : style.extra)
        if (!claim(prefix) || uri.empty()) return refused(prefix);
    return std::nullopt;
}

std::string WsdAnswer(const WsdRequest& request, const MachineState& machine, const WsdStyle& style) {
    const Envelope envelope = NewEnvelope(style.soapPrefix.c_str());
    AddAddressing(envelope, std::string(ns::kPrint) + "/GetPrinterElementsResponse", request.messageId);
    for (const auto& [prefix, uri] : style.extra)
        envelope.root.Declare(prefix.c_str(), uri.c_str());

    const XmlElement body = envelope.root.Add("Body", envelope.soap);
    const XmlElement response = body.Add("GetPrinterElementsResponse");
    xmlNs* print = (style.nested ? response : envelope.root).Declare(style.prefix.c_str(), ns::kPrint);
    xmlSetNs(response.Node(), print);
    xmlNs* vendor = style.nested ? nullptr : envelope.root.Declare(kVendorPrefix, ns::kVendor);

    const XmlElement elements = response.Add("PrinterElements");
    for (const ElementName& wanted : request.names) {
        const XmlElement data = elements.Add("ElementData");
        std::string_view prefix = style.prefix;
        xmlNs* space = vendor;
        if (wanted.uri == ns::kVendor) {
            prefix = kVendorPrefix;
            if (space == nullptr) space = data.Declare(kVendorPrefix, ns::kVendor);
        } else if (wanted.uri != ns::kPrint) {
            prefix = kUnknownPrefix;
            data.Declare(kUnknownPrefix, wanted.uri.c_str());
        }
        data.Attribute("Name", Qualified(prefix, wanted.name));
        const bool known = AppendPrinterElement(data, wanted.uri, wanted.name, space, machine);
        data.Attribute("Valid", known ? "true" : "false");
    }
    return Serialize(envelope.document.get());
}

}  // namespace vlm::printer
