#include "soap/soap_generator.h"

#include "util/namespaces.h"
#include "util/xml_text.h"

namespace vlm {

namespace {

std::string Escaped(std::wstring_view text) {
    std::string escaped;
    AppendEscapedAscii(&escaped, text);
    return escaped;
}

// ` name="value"`
std::string Attribute(const char* name, std::wstring_view value) {
    return std::string(" ") + name + "=\"" + Escaped(value) + "\"";
}

std::string ArrayAttributes(const SoapField& field, size_t count) {
    const SoapUserType* const user = field.userType;
    std::wstring type = user != nullptr ? L"q1:" : L"xsd:";
    type += user != nullptr ? user->name : NameOf(field.type);
    type += L"[" + std::to_wstring(count) + L"]";
    return Attribute("soapenc:arrayType", type) +
           (user != nullptr ? Attribute("xmlns:q1", user->uri) : Attribute("xmlns:xsd", ns::kSchema));
}

}  // namespace

bool CRpcEncodedGenerator::Generate(const SoapOperation& operation, const SoapValues& record,
                                    const SoapValues& headers) {
    if (record.size() != operation.fields.size() || headers.size() != operation.headers.size()) return false;
    out_ += "<soap:Envelope" + Attribute("xmlns:soap", ns::kSoap12) +
            Attribute("xmlns:soapenc", ns::kSoap12Encoding) + ">";
    if (!AppendHeaders(operation, headers)) return false;
    out_ += "<soap:Body" + Attribute("soap:encodingStyle", ns::kSoap12Encoding) + ">";
    const std::string method = "snp:" + Escaped(operation.name);
    out_ += "<" + method + Attribute("xmlns:snp", operation.uri) + ">";
    for (size_t i = 0; i < record.size(); ++i) {
        const SoapField& field = operation.fields[i];
        if ((field.flags & kSoapIn) != 0 && !AppendField(field, record[i], {})) return false;
    }
    out_ += "</" + method + "></soap:Body></soap:Envelope>";
    return true;
}

bool CRpcEncodedGenerator::AppendHeaders(const SoapOperation& operation, const SoapValues& headers) {
    if (headers.empty()) return true;
    out_ += "<soap:Header" + Attribute("xmlns", operation.uri) + ">";
    for (size_t i = 0; i < headers.size(); ++i) {
        const SoapField& field = operation.headers[i];
        const bool understand = (field.flags & kSoapMustUnderstand) != 0;
        if (!AppendField(field, headers[i], understand ? Attribute("soap:mustUnderstand", L"1") : ""))
            return false;
    }
    out_ += "</soap:Header>";
    return true;
}

bool CRpcEncodedGenerator::AppendField(const SoapField& field, const SoapValue& value,
                                       const std::string& attributes) {
    const std::string name = Escaped(field.name);
    out_ += "<" + name + attributes;
    if (value.IsNull()) {
        out_ += Attribute("xsi:nil", L"1") + Attribute("xmlns:xsi", ns::kSchemaInstance) + "/>";
        return (field.flags & kSoapNullable) != 0;
    }
    const bool isArray = (field.flags & kSoapArray) != 0;
    if (isArray || field.userType != nullptr) {
        const SoapValues* const members = std::get_if<SoapValues>(&value);
        if (members == nullptr) return false;
        out_ += (isArray ? ArrayAttributes(field, members->size()) : "") + ">";
        if (!AppendMembers(field, *members)) return false;
    } else {
        out_ += ">";
        if (!AppendValue(&out_, field.type, value)) return false;
    }
    out_ += "</" + name + ">";
    return true;
}

bool CRpcEncodedGenerator::AppendMembers(const SoapField& field, const SoapValues& members) {
    const bool isArray = (field.flags & kSoapArray) != 0;
    if (!isArray && members.size() != field.userType->fields.size()) return false;
    const SoapField item{L"item", field.type, field.flags & ~kSoapArray, field.userType};
    for (size_t i = 0; i < members.size(); ++i) {
        if (!AppendField(isArray ? item : field.userType->fields[i], members[i], {})) return false;
    }
    return true;
}

}  // namespace vlm
