#include "bidi/engine_documents.h"

#include <algorithm>

#include "util/namespaces.h"
#include "util/xml_text.h"

namespace vlm {

namespace {

// A name that can stand as an element without any declaration.
bool IsElementName(std::wstring_view name) {
    const auto isLetter = [](wchar_t c) {
        return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z') || c == L'_';
    };
    return !name.empty() && isLetter(name.front()) && std::all_of(name.begin(), name.end(), [&](wchar_t c) {
        return isLetter(c) || (c >= L'0' && c <= L'9') || c == L'-' || c == L'.';
    });
}

}  // namespace

std::wstring WriteAnswer(std::wstring_view path, const std::optional<std::vector<NamedAnswer>>& answers) {
    std::wstring text = L"<bidi:Get xmlns:bidi='";
    text += ns::kBidi;
    text += L"'><Query schema='" + EscapeXml(path) + L"'>";
    if (!answers) {
        text += L"<Error/>";
    } else {
        for (const NamedAnswer& named : *answers) {
            text += L"<Schema name='" + EscapeXml(named.path) + L"'>";
            const LeafAnswer& answer = *named.answer;
            // A type that could not be an element's name has no value either.
            const bool found = answer.text && IsElementName(answer.type);
            text += found ? L"<" + answer.type + L">" + EscapeXml(*answer.text) + L"</" + answer.type + L">"
                          : L"<Error/>";
            text += L"</Schema>";
        }
    }
    text += L"</Query></bidi:Get>";
    return text;
}

std::wstring WriteQueryElements(const std::vector<NamespaceDeclaration>& prefixes,
                                const std::optional<std::vector<std::wstring>>& names) {
    std::wstring text = L"<EnumQueryElement";
    for (const NamespaceDeclaration& declaration : prefixes) {
        text += L" xmlns:" + declaration.prefix + L"='" + EscapeXml(declaration.uri) + L"'";
    }
    text += L'>';
    if (names) {
        for (const std::wstring& name : *names)
            text += L"<Name>" + EscapeXml(name) + L"</Name>";
    } else {
        text += L"<Error/>";
    }
    return text + L"</EnumQueryElement>";
}

}  // namespace vlm
