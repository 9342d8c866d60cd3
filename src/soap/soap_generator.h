// Writes an operation's record as a SOAP 1.2 request. Plain standard C++; the text is ASCII (see xml_text.h).
//
// One class per style of operation; all write
//   <soap:Envelope …>
//     <soap:Header xmlns="service">…</soap:Header>     when the operation has headers
//     <soap:Body …>
//       the in-fields in the table's order, in the style's form
//     </soap:Body>
//   </soap:Envelope>
//
// A null is an empty element with xsi:nil="1". Prefixes that the envelope does not declare (xsi, xsd, q1) are
// declared on the elements that use them. The members of an array are elements named "item".
#pragma once

#include <string>

#include "soap/soap_record.h"

namespace vlm {

class CResponseGenerator {
 public:
    virtual ~CResponseGenerator() = default;

    // Appends the whole message. `record` holds a value for each of the operation's fields, `headers` for
    // each of its headers. False when a value does not suit its field: another kind, text outside its type's
    // lexical form, or a null where none may be. What is in `out` is then of no use.
    bool Generate(const SoapOperation& operation, const SoapValues& record, const SoapValues& headers,
                  std::string* out) const;

 protected:
    // The attributes of soap:Body, if any, each with a leading blank.
    virtual std::string BodyAttributes() const { return {}; }
    virtual void StartMethod(const SoapOperation& operation, std::string* out) const = 0;
    virtual void EndMethod(const SoapOperation& operation, std::string* out) const = 0;
    // The attributes of a field's element, and of an array's.
    virtual std::string FieldAttributes(const SoapOperation&) const { return {}; }
    virtual std::string ArrayAttributes(const SoapField&, size_t) const { return {}; }

 private:
    bool AppendHeaders(const SoapOperation& operation, const SoapValues& headers, std::string* out) const;
    bool AppendField(const SoapField& field, const SoapValue& value, const std::string& attributes,
                     std::string* out) const;
    bool AppendContent(const SoapField& field, const SoapValue& value, std::string* out) const;
    bool AppendMembers(const SoapField& field, const SoapValue& value, std::string* out) const;
};

// The method is an element of the service's namespace, its fields are in none, SOAP's encoding is stated, and
// arrays say what they hold.
class CRpcEncodedGenerator : public CResponseGenerator {
 protected:
    std::string BodyAttributes() const override;
    void StartMethod(const SoapOperation& operation, std::string* out) const override;
    void EndMethod(const SoapOperation& operation, std::string* out) const override;
    std::string ArrayAttributes(const SoapField& field, size_t count) const override;
};

// Documents as a schema describes them: no encoding is stated.
class CDocLiteralGenerator : public CResponseGenerator {};

// Parameters as the document: one element named after the operation holds them, all in the service's
// namespace.
class CPADGenerator : public CDocLiteralGenerator {
 protected:
    void StartMethod(const SoapOperation& operation, std::string* out) const override;
    void EndMethod(const SoapOperation& operation, std::string* out) const override;
};

// Parameters in the document: each is an element of the service's namespace directly in the body.
class CPIDGenerator : public CDocLiteralGenerator {
 protected:
    void StartMethod(const SoapOperation&, std::string*) const override {}
    void EndMethod(const SoapOperation&, std::string*) const override {}
    std::string FieldAttributes(const SoapOperation& operation) const override;
};

}  // namespace vlm
