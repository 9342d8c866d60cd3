#include "bidi/xml_text.h"

#include <algorithm>

namespace vlm {

namespace {

constexpr wchar_t kReplacement = 0xFFFD;

// What stands for markup, and for white space that a parser would turn into blanks or line feeds.
constexpr std::wstring_view kSpecial = L"&<>\"'\t\n\r";
constexpr const wchar_t* kReferences[] = {L"&amp;",  L"&lt;", L"&gt;",  L"&quot;",
                                          L"&apos;", L"&#9;", L"&#10;", L"&#13;"};

bool IsHighSurrogate(wchar_t c) {
    return c >= 0xD800 && c <= 0xDBFF;
}

bool IsLowSurrogate(wchar_t c) {
    return c >= 0xDC00 && c <= 0xDFFF;
}

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

std::wstring EscapeXml(std::wstring_view text) {
    std::wstring escaped;
    escaped.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        const wchar_t c = text[i];
        const size_t special = kSpecial.find(c);
        if (special != std::wstring_view::npos) {
            escaped += kReferences[special];
        } else if (IsHighSurrogate(c) && i + 1 < text.size() && IsLowSurrogate(text[i + 1])) {
            escaped += text.substr(i++, 2);
        } else {
            const bool allowed =
                c >= 0x20 && !IsHighSurrogate(c) && !IsLowSurrogate(c) && c != 0xFFFE && c != 0xFFFF;
            escaped += allowed ? c : kReplacement;
        }
    }
    return escaped;
}

std::wstring WriteAnswer(std::wstring_view path, const std::optional<std::vector<NamedAnswer>>& answers) {
    std::wstring text = L"<bidi:Get xmlns:bidi='";
    text += kBidiNamespace;
    text += L"'><Query schema='" + EscapeXml(path) + L"'>";
    if (!answers) {
        text += L"<Error/>";
    } else {
        for (const NamedAnswer& named : *answers) {
            text += L"<Schema name='" + EscapeXml(named.path) + L"'>";
            const LeafAnswer& answer = *named.answer;
            // A type that could not be an element's name has no value either.
            if (answer.text && IsElementName(answer.type)) {
                text += L"<" + answer.type + L">" + EscapeXml(*answer.text) + L"</" + answer.type + L">";
            } else {
                text += L"<Error/>";
            }
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
