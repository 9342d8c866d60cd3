// What the SOAP services' messages have in common, reading and writing.
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

// A request, and what is wrong with it: a line each, none for a sound request. A small message can be wrong
// in a hundred thousand ways and quote itself in each of them, so the lines and their length are limited.
struct SoapRequest {
    std::vector<std::string> findings;
    bool otherVersion = false;  // the message is no SOAP 1.2

    template <typename... Args>
    void Find(fmt::format_string<Args...> format, Args&&... args) {
        Note(fmt::format(format, std::forward<Args>(args)...));
    }
    void Note(const std::string& finding);
};

// The message, whose root is a SOAP 1.2 Envelope; nothing when it is none, and `request` then says why, as it
// does about the content type. There is no document type declaration, and nothing is loaded, expanded or
// printed while the body is parsed. Where it is private the finding names the place and the parser's error by
// its number: the parser's own words may quote it.
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
