// Writes an operation's record as a SOAP 1.2 request. Plain standard C++; the text is ASCII (see xml_text.h).
//
//   <soap:Envelope …>
//     <soap:Header xmlns="service">…</soap:Header>     when the operation has headers
//     <soap:Body soap:encodingStyle="…">
//       <snp:Operation xmlns:snp="service">            an element of the service's namespace
//         the in-fields in the table's order, in no namespace
//
// A null is an empty element with xsi:nil="1". Prefixes that the envelope does not declare (xsi, xsd, q1) are
// declared on the elements that use them. An array says what it holds; its members are elements named "item".
#pragma once

#include <string>

#include "soap/soap_record.h"

namespace vlm {

// The style "RPC/encoded".
class CRpcEncodedGenerator {
 public:
    explicit CRpcEncodedGenerator(std::string* out) : out_(*out) {}

    // Appends the whole message. `record` holds a value for each of the operation's fields, `headers` for
    // each of its headers. False when a value does not suit its field: another type, or a null where none may
    // be. The text is then useless.
    bool Generate(const SoapOperation& operation, const SoapValues& record, const SoapValues& headers);

 private:
    bool AppendHeaders(const SoapOperation& operation, const SoapValues& headers);
    bool AppendField(const SoapField& field, const SoapValue& value, const std::string& attributes);
    bool AppendMembers(const SoapField& field, const SoapValues& members);

    std::string& out_;
};

}  // namespace vlm
