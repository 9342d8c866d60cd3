#include "soap/soap_generator.h"

#include "soap/namespaces.h"
#include "soap/xml_text.h"

namespace vlm {

namespace {

std::string Escaped(std::wstring_view text) {
    std::string escaped;
    AppendEscaped(&escaped, text);
    return escaped;
}

// ` name="value"`
std::string Attribute(const char* name, std::wstring_view value) {
    return std::string(" ").append(name).append("=\"").append(Escaped(value)).append("\"");
}

void AppendEndTag(std::wstring_view name, std::string* out) {
    out->append("</").append(Escaped(name)).append(">");
}

}  // namespace

bool CResponseGenerator::Generate(const SoapOperation& operation, const SoapValues& record,
                                  const SoapValues& headers, std::string* out) const {
    if (record.size() != operation.fields.size() || headers.size() != operation.headers.size()) return false;
    out->append("<soap:Envelope").append(Attribute("xmlns:soap", ns::kSoap12));
    out->append(Attribute("xmlns:soapenc", ns::kSoap12Encoding)).append(">");
    if (!AppendHeaders(operation, headers, out)) return false;
    out->append("<soap:Body").append(BodyAttributes()).append(">");
    StartMethod(operation, out);
    for (size_t i = 0; i < record.size(); ++i) {
        const SoapField& field = operation.fields[i];
        if ((field.flags & kSoapIn) == 0) continue;
        if (!AppendField(field, record[i], FieldAttributes(operation), out)) return false;
    }
    EndMethod(operation, out);
    out->append("</soap:Body></soap:Envelope>");
    return true;
}

bool CResponseGenerator::AppendHeaders(const SoapOperation& operation, const SoapValues& headers,
                                       std::string* out) const {
    if (headers.empty()) return true;
    out->append("<soap:Header").append(Attribute("xmlns", operation.uri)).append(">");
    for (size_t i = 0; i < headers.size(); ++i) {
        const SoapField& field = operation.headers[i];
        const bool understand = (field.flags & kSoapMustUnderstand) != 0;
        const std::string attributes = understand ? Attribute("soap:mustUnderstand", L"1") : std::string();
        if (!AppendField(field, headers[i], attributes, out)) return false;
    }
    out->append("</soap:Header>");
    return true;
}

bool CResponseGenerator::AppendField(const SoapField& field, const SoapValue& value,
                                     const std::string& attributes, std::string* out) const {
    out->append("<").append(Escaped(field.name)).append(attributes);
    if (value.IsNull()) {
        if ((field.flags & kSoapNullable) == 0) return false;
        out->append(Attribute("xsi:nil", L"1"))
            .append(Attribute("xmlns:xsi", ns::kSchemaInstance))
            .append("/>");
        return true;
    }
    if ((field.flags & kSoapArray) != 0) {
        const SoapValues* const members = std::get_if<SoapValues>(&value);
        if (members == nullptr) return false;
        out->append(ArrayAttributes(field, members->size())).append(">");
        const SoapField item{L"item", field.type, field.flags & ~kSoapArray, field.userType};
        for (const SoapValue& member : *members) {
            if (!AppendField(item, member, {}, out)) return false;
        }
    } else {
        out->append(">");
        if (!AppendContent(field, value, out)) return false;
    }
    AppendEndTag(field.name, out);
    return true;
}

bool CResponseGenerator::AppendContent(const SoapField& field, const SoapValue& value,
                                       std::string* out) const {
    return field.userType != nullptr ? AppendMembers(field, value, out) : AppendValue(out, field.type, value);
}

bool CResponseGenerator::AppendMembers(const SoapField& field, const SoapValue& value,
                                       std::string* out) const {
    const SoapValues* const members = std::get_if<SoapValues>(&value);
    const auto fields = field.userType->fields;
    if (members == nullptr || members->size() != fields.size()) return false;
    for (size_t i = 0; i < fields.size(); ++i) {
        if (!AppendField(fields[i], (*members)[i], {}, out)) return false;
    }
    return true;
}

std::string CRpcEncodedGenerator::BodyAttributes() const {
    return Attribute("soap:encodingStyle", ns::kSoap12Encoding);
}

void CRpcEncodedGenerator::StartMethod(const SoapOperation& operation, std::string* out) const {
    out->append("<snp:")
        .append(Escaped(operation.name))
        .append(Attribute("xmlns:snp", operation.uri))
        .append(">");
}

void CRpcEncodedGenerator::EndMethod(const SoapOperation& operation, std::string* out) const {
    out->append("</snp:").append(Escaped(operation.name)).append(">");
}

std::string CRpcEncodedGenerator::ArrayAttributes(const SoapField& field, size_t count) const {
    const bool user = field.userType != nullptr;
    const std::wstring type = std::wstring(user ? L"q1:" : L"xsd:")
                                  .append(user ? field.userType->name : NameOf(field.type))
                                  .append(L"[" + std::to_wstring(count) + L"]");
    return Attribute("soapenc:arrayType", type) +
           (user ? Attribute("xmlns:q1", field.userType->uri) : Attribute("xmlns:xsd", ns::kSchema));
}

void CPADGenerator::StartMethod(const SoapOperation& operation, std::string* out) const {
    out->append("<").append(Escaped(operation.name)).append(Attribute("xmlns", operation.uri)).append(">");
}

void CPADGenerator::EndMethod(const SoapOperation& operation, std::string* out) const {
    AppendEndTag(operation.name, out);
}

std::string CPIDGenerator::FieldAttributes(const SoapOperation& operation) const {
    return Attribute("xmlns", operation.uri);
}

}  // namespace vlm
