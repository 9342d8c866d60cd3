#include "util/xml_bounds.h"

#include <algorithm>
#include <cstdint>
#include <string_view>

namespace vlm {

namespace {

// The text as a sequence of code units. Markup is ASCII in every encoding that is let through, so that units
// wider than a byte need no decoding here; what is not ASCII is just not markup.
class Units {
 public:
    enum class Width { kByte, kLittleEndian16, kBigEndian16 };

    Units(std::span<const std::byte> text, Width width)
        : text_(text), width_(width), size_(width == Width::kByte ? text.size() : text.size() / 2) {}

    bool AtEnd() const { return position_ >= size_; }
    void Advance(size_t count = 1) { position_ += std::min(count, size_ - position_); }
    // 0 beyond the end.
    uint16_t Peek(size_t ahead = 0) const {
        const size_t index = position_ + ahead;
        if (index >= size_) return 0;
        if (width_ == Width::kByte) return Byte(index);
        const uint16_t first = Byte(2 * index);
        const uint16_t second = Byte(2 * index + 1);
        return width_ == Width::kLittleEndian16 ? static_cast<uint16_t>(second << 8 | first)
                                                : static_cast<uint16_t>(first << 8 | second);
    }
    bool StartsWith(std::string_view ascii) const {
        for (size_t i = 0; i < ascii.size(); ++i) {
            if (Peek(i) != static_cast<unsigned char>(ascii[i])) return false;
        }
        return true;
    }
    // To just behind the next occurrence, or to the end.
    void SkipBehind(std::string_view ascii) {
        while (!AtEnd() && !StartsWith(ascii))
            Advance();
        Advance(ascii.size());
    }

 private:
    uint16_t Byte(size_t index) const { return std::to_integer<uint16_t>(text_[index]); }

    std::span<const std::byte> text_;
    Width width_;
    size_t size_;
    size_t position_ = 0;
};

bool BeginsWith(std::span<const std::byte> text, std::initializer_list<unsigned> bytes) {
    return text.size() >= bytes.size() &&
           std::equal(bytes.begin(), bytes.end(), text.begin(),
                      [](unsigned expected, std::byte actual) { return std::byte(expected) == actual; });
}

// Past the start tag at the position: counts its attributes, and reports whether it is an empty element.
bool SkipStartTag(Units& units, size_t& nodes) {
    uint16_t last = 0;
    while (!units.AtEnd()) {
        const uint16_t unit = units.Peek();
        units.Advance();
        if (unit == '>') return last == '/';
        if (unit == '"' || unit == '\'') {
            ++nodes;
            while (!units.AtEnd() && units.Peek() != unit)
                units.Advance();
            units.Advance();
        }
        last = unit;
    }
    return false;
}

XmlRefusal Walk(Units units, const XmlLimits& limits) {
    size_t depth = 0;
    size_t nodes = 0;
    while (!units.AtEnd()) {
        if (units.Peek() != '<') {
            units.Advance();
        } else if (units.StartsWith("<!--")) {
            units.SkipBehind("-->");
        } else if (units.StartsWith("<![CDATA[")) {
            units.SkipBehind("]]>");
        } else if (units.StartsWith("<?")) {
            units.SkipBehind("?>");
        } else if (units.StartsWith("<!DOCTYPE")) {
            return XmlRefusal::kDocumentType;
        } else if (units.StartsWith("</")) {
            if (depth > 0) --depth;
            units.SkipBehind(">");
        } else {
            ++nodes;
            if (!SkipStartTag(units, nodes)) ++depth;
            if (depth > limits.depth) return XmlRefusal::kTooDeep;
            if (nodes > limits.nodes) return XmlRefusal::kTooManyNodes;
        }
    }
    return XmlRefusal::kNone;
}

}  // namespace

XmlRefusal CheckXmlBounds(std::span<const std::byte> text, const XmlLimits& limits) {
    if (text.size() > limits.bytes) return XmlRefusal::kTooLarge;
    if (BeginsWith(text, {0xEF, 0xBB, 0xBF})) text = text.subspan(3);

    using enum Units::Width;
    const bool utf32 = BeginsWith(text, {0xFF, 0xFE, 0, 0}) || BeginsWith(text, {0, 0, 0xFE, 0xFF}) ||
                       BeginsWith(text, {'<', 0, 0, 0}) || BeginsWith(text, {0, 0, 0, '<'});
    if (utf32) return XmlRefusal::kEncoding;
    if (BeginsWith(text, {0xFF, 0xFE}) || BeginsWith(text, {'<', 0}))
        return Walk({text, kLittleEndian16}, limits);
    if (BeginsWith(text, {0xFE, 0xFF}) || BeginsWith(text, {0, '<'}))
        return Walk({text, kBigEndian16}, limits);
    // EBCDIC's '<': a parser that knows that code would see markup where this one sees none.
    if (BeginsWith(text, {0x4C})) return XmlRefusal::kEncoding;
    return Walk({text, kByte}, limits);
}

const wchar_t* Describe(XmlRefusal refusal) {
    switch (refusal) {
        case XmlRefusal::kNone:
            break;
        case XmlRefusal::kTooLarge:
            return L"is too large";
        case XmlRefusal::kDocumentType:
            return L"has a document type declaration";
        case XmlRefusal::kTooDeep:
            return L"nests its elements too deeply";
        case XmlRefusal::kTooManyNodes:
            return L"has too many elements and attributes";
        case XmlRefusal::kEncoding:
            return L"is in an encoding that is not supported";
    }
    return L"is acceptable";
}

}  // namespace vlm
