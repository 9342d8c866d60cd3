// What the SOAP services' messages have in common, reading and writing.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "xml.h"

namespace vlm::printer {

inline constexpr const char* kSoapType = "application/soap+xml; charset=utf-8";

// Reading.

// A sentence when a request's content type is not SOAP 1.2's.
std::optional<std::string> FindContentTypeFlaw(std::string_view contentType);

// A body without a document type declaration, or why there is none. Nothing is loaded, expanded or printed
// while it parses. `reason` names the place and the parser's error by its number where the body is private:
// the parser's own words may quote it.
enum class Privacy { kOpen, kPrivate };
XmlDocument ParseMessage(const std::string& body, Privacy privacy, std::string* reason);

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
// A body with a fault: code Sender, Receiver or VersionMismatch. The prefix of `envelope` is "soap".
void AddFault(const Envelope& envelope, const std::string& code, const std::string& reason);

}  // namespace vlm::printer
