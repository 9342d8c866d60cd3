#include "util/xml_bounds.h"

#include <optional>
#include <vector>

#include "util/xml_markup.h"

namespace vlm {

namespace {

using std::string_view;

// UTF-16 reduced to its ASCII characters, everything else to one character that no markup has: the scan looks
// at nothing else.
std::string AsciiOfUtf16(string_view bytes, size_t lowByte) {
    std::string ascii(bytes.size() / 2, '\x7F');
    for (size_t i = 0; i < ascii.size(); ++i) {
        const char low = bytes[2 * i + lowByte];
        if (bytes[2 * i + 1 - lowByte] == 0 && static_cast<unsigned char>(low) < 0x80) ascii[i] = low;
    }
    return ascii;
}

bool IsScannableEncoding(string_view declaration) {
    const size_t keyword = declaration.find("encoding");
    if (keyword == string_view::npos) return true;
    const size_t quote = declaration.find_first_of("\"'", keyword);
    if (quote == string_view::npos) return false;
    const string_view rest = declaration.substr(quote + 1);
    std::string name(rest.substr(0, rest.find(declaration[quote])));
    for (char& c : name)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return name == "utf-8" || name == "utf-16" || name == "us-ascii" || name == "ascii" ||
           name.starts_with("iso-8859-") || name.starts_with("windows-125");
}

// Counts what a document's markup adds up to, and says which limit it passes.
class Bounds {
 public:
    explicit Bounds(const XmlLimits& limits) : limits_(limits) {}

    XmlRefusal Take(const Markup& markup) {
        if (markup.kind == MarkupKind::kDeclaration) return XmlRefusal::kDocumentType;
        if (markup.kind == MarkupKind::kEndTag) {
            EndElement();
            return XmlRefusal::kNone;
        }
        nodes_ += 1 + markup.attributes;
        if (nodes_ > limits_.nodes) return XmlRefusal::kTooManyNodes;
        const bool isEmpty = markup.kind == MarkupKind::kEmptyTag;
        if (!isEmpty && markup.kind != MarkupKind::kStartTag) return XmlRefusal::kNone;
        open_.push_back(markup.declarations);
        declarations_ += markup.declarations;
        if (open_.size() > limits_.depth) return XmlRefusal::kTooDeep;
        if (declarations_ > limits_.declarations) return XmlRefusal::kTooManyDeclarations;
        if (isEmpty) EndElement();
        return XmlRefusal::kNone;
    }

 private:
    void EndElement() {
        if (open_.empty()) return;
        declarations_ -= open_.back();
        open_.pop_back();
    }

    const XmlLimits& limits_;
    std::vector<size_t> open_;  // for each open element, how many namespaces it declares
    size_t declarations_ = 0;   // in scope
    size_t nodes_ = 0;
};

// `ready`, if not null, receives the text with a line end in each tag.
XmlRefusal Scan(string_view text, const XmlLimits& limits, std::string* ready) {
    // In the encodings that are let through, NUL is no character of a document.
    if (text.find('\0') != string_view::npos) return XmlRefusal::kEncoding;
    if (text.starts_with("<?xml") && !IsScannableEncoding(text.substr(0, text.find("?>")))) {
        return XmlRefusal::kEncoding;
    }
    Bounds bounds(limits);
    MarkupReader reader(text, limits.tag);
    while (const std::optional<Markup> markup = reader.Next()) {
        const XmlRefusal refusal = bounds.Take(*markup);
        if (refusal != XmlRefusal::kNone) return refusal;
        if (ready == nullptr) continue;
        *ready += markup->before;
        const bool isTag = markup->kind <= MarkupKind::kEndTag;
        const size_t tail = !isTag ? 0 : markup->kind == MarkupKind::kEmptyTag ? 2 : 1;
        *ready += markup->text.substr(0, markup->text.size() - tail);
        if (isTag) *ready += '\n';
        *ready += markup->text.substr(markup->text.size() - tail);
    }
    if (reader.TagTooLong()) return XmlRefusal::kTagTooLong;
    // Inside unfinished markup no parser gets further either.
    if (ready != nullptr) *ready += reader.Rest();
    return XmlRefusal::kNone;
}

}  // namespace

XmlRefusal CheckXmlBounds(string_view text, const XmlLimits& limits, std::string* ready) {
    if (text.size() > limits.bytes) return XmlRefusal::kTooLarge;
    const auto scanWide = [&](string_view units, size_t lowByte) {
        if (ready != nullptr) *ready = text;
        return Scan(AsciiOfUtf16(units, lowByte), limits, nullptr);
    };
    if (text.starts_with("\xFF\xFE")) return scanWide(text.substr(2), 0);
    if (text.starts_with("\xFE\xFF")) return scanWide(text.substr(2), 1);
    if (text.starts_with(string_view("<\0", 2))) return scanWide(text, 0);
    if (text.starts_with(string_view("\0<", 2))) return scanWide(text, 1);
    constexpr string_view kUtf8Mark = "\xEF\xBB\xBF";
    if (text.starts_with(kUtf8Mark)) text.remove_prefix(kUtf8Mark.size());
    // After any of these, EBCDIC's '<' among them, a parser would assume another encoding and see markup
    // where this scan sees none.
    for (const string_view beginning :
         {string_view("\x4C"), kUtf8Mark, string_view("\xFF\xFE"), string_view("\xFE\xFF")})
        if (text.starts_with(beginning)) return XmlRefusal::kEncoding;
    if (ready != nullptr) ready->clear();
    return Scan(text, limits, ready);
}

const wchar_t* RefusalText(XmlRefusal refusal) {
    static constexpr const wchar_t* kTexts[] = {L"is acceptable",
                                                L"is too large",
                                                L"has a document type declaration",
                                                L"nests its elements too deeply",
                                                L"has too many elements and attributes",
                                                L"has a tag that is too long",
                                                L"declares too many namespaces",
                                                L"is in an encoding that is not supported"};
    return kTexts[static_cast<size_t>(refusal)];
}

}  // namespace vlm
