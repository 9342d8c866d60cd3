#include "util/xml_markup.h"

#include <algorithm>
#include <iterator>

namespace vlm {

namespace {

using std::string_view;

bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

bool DeclaresNamespace(string_view attribute) {
    constexpr string_view kDeclaration = "xmlns";
    if (!attribute.starts_with(kDeclaration)) return false;
    attribute.remove_prefix(kDeclaration.size());
    return !attribute.empty() &&
           (attribute.front() == ':' || attribute.front() == '=' || IsBlank(attribute.front()));
}

// Markup between two delimiters. A declaration's end is not looked for.
constexpr struct {
    string_view begin;
    string_view end;
    MarkupKind kind;
} kDelimited[] = {{"<!--", "-->", MarkupKind::kComment},
                  {"<![CDATA[", "]]>", MarkupKind::kCData},
                  {"<!", "", MarkupKind::kDeclaration},
                  {"<?", "?>", MarkupKind::kInstruction}};

}  // namespace

string_view Markup::Name() const {
    const string_view name = text.substr(kind == MarkupKind::kEndTag ? 2 : 1);
    return name.substr(0, name.find_first_of(" \t\r\n/>"));
}

string_view Markup::LocalName() const {
    const string_view name = Name();
    const size_t colon = name.find(':');
    return colon == string_view::npos ? name : name.substr(colon + 1);
}

std::optional<Markup> MarkupReader::Next() {
    const size_t at = rest_.find('<');
    if (at == string_view::npos) return std::nullopt;
    const string_view text = rest_.substr(at);
    Markup markup{MarkupKind::kStartTag, rest_.substr(0, at), {}};
    const auto* const delimited =
        std::find_if(std::begin(kDelimited), std::end(kDelimited),
                     [&](const auto& candidate) { return text.starts_with(candidate.begin); });
    if (delimited != std::end(kDelimited)) {
        const size_t end = text.find(delimited->end, delimited->begin.size());
        if (end == string_view::npos) return std::nullopt;
        markup.kind = delimited->kind;
        markup.text = text.substr(0, end + delimited->end.size());
    } else if (!ReadTag(text.substr(0, longestTag_), markup)) {
        tagTooLong_ = text.size() > longestTag_;
        return std::nullopt;
    }
    rest_ = text.substr(markup.text.size());
    return markup;
}

// The tag at the front of `text`, up to the first '>' that no quotes enclose. False when there is none.
bool MarkupReader::ReadTag(string_view text, Markup& markup) {
    for (size_t i = 1; i < text.size(); ++i) {
        if (text[i] == '>') {
            markup.text = text.substr(0, i + 1);
            if (text[1] == '/') {
                markup.kind = MarkupKind::kEndTag;
            } else if (text[i - 1] == '/') {
                markup.kind = MarkupKind::kEmptyTag;
            }
            return true;
        }
        if (text[i] == '"' || text[i] == '\'') {
            i = text.find(text[i], i + 1);
            if (i == string_view::npos) return false;
            ++markup.attributes;
        } else if (IsBlank(text[i]) && DeclaresNamespace(text.substr(i + 1))) {
            ++markup.declarations;
        }
    }
    return false;
}

}  // namespace vlm
