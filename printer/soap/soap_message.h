// Reading and writing SOAP messages, for both services.
#pragma once

#include <fmt/format.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "printer/soap/xml.h"

namespace vlm::printer {

inline constexpr const char* kSoapType = "application/soap+xml; charset=utf-8";

// Reading.

// A request and what is wrong with it, one line for each fault. Their number and length are limited, because
// a small message can have a hundred thousand faults.
struct SoapRequest {
    std::vector<std::string> findings;
    bool otherVersion = false;  // not SOAP 1.2

    template <typename... Args>
    void Find(fmt::format_string<Args...> format, Args&&... args) {
        Note(fmt::format(format, std::forward<Args>(args)...));
    }
    void Note(const std::string& finding);
};

// The message, whose root is a SOAP 1.2 Envelope. Otherwise nothing, and `request` says why; it also says
// what is wrong with the content type. Document type declarations are refused, and the parser loads and
// expands nothing. For a private body the finding gives the parser's error number, because its text may quote
// the body.
enum class Privacy { kOpen, kPrivate };
XmlDocument ReadEnvelope(std::string_view contentType, const std::string& body, Privacy privacy,
                         SoapRequest& request);

std::vector<xmlNode*> Children(const xmlNode* parent);  // its elements
std::string TextOf(const xmlNode* node);
std::string NameOf(const xmlNode* node);  // "{namespace}name"
std::string Trimmed(const std::string& text);

// Writing.

struct Envelope {
    XmlDocument document;
    XmlElement root;
    xmlNs* soap;
};

Envelope NewEnvelope(const char* soapPrefix);  // SOAP 1.2, nothing in it
// WS-Addressing's header of an answer to the message with the id `relatesTo`, which may be empty.
void AddAddressing(const Envelope& envelope, const std::string& action, const std::string& relatesTo);
// A message with a fault, code Sender, Receiver or VersionMismatch; with WS-Addressing's header if
// `relatesTo` is given.
std::string FaultMessage(const std::string& code, const std::string& reason,
                         const std::optional<std::string>& relatesTo = std::nullopt);

}  // namespace vlm::printer
