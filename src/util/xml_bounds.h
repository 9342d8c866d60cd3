// Whether an XML text from outside is modest enough to be given to a parser. Plain standard C++.
//
// A DOM costs a multiple of its text, recursion costs stack, attributes of one tag are compared pairwise, and
// a document type brings entities that expand without bound. MSXML has no useful limits of its own. One
// linear scan finds all of these before a parser sees the text. Whether the text is well-formed is left to
// the parser: the scan is exact as far as it is, and a parser stops at that point.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vlm {

struct XmlLimits {
    size_t bytes;
    size_t depth;  // of nested elements
    size_t nodes;  // elements, attributes, comments and the like together
    size_t tag;    // bytes of one tag
    // Of namespaces, in scope at once: a parser searches them for each name.
    size_t declarations;
};

// A Bidi extension file: a few thousand leaves are a large one.
inline constexpr XmlLimits kExtensionFileLimits{8u << 20, 100, 400'000, 64u << 10, 256};
// What a printer's service sends. Every filter of the extension files searches it, so its size costs time,
// too. A large device with sixty consumables and trays and two hundred conditions in three languages needs a
// third of this.
inline constexpr XmlLimits kPrinterAnswerLimits{2u << 20, 100, 20'000, 16u << 10, 128};

// In the order of their texts.
enum class XmlRefusal {
    kNone,
    kTooLarge,
    kDocumentType,  // or any other declaration: "<!" but for comments and CDATA
    kTooDeep,
    kTooManyNodes,
    kTagTooLong,
    kTooManyDeclarations,
    // Neither UTF-8, UTF-16 nor a single-byte superset of ASCII; another one could hide markup from the scan.
    kEncoding,
};

// `ready`, if not null, receives the same document, made quick to parse: without its byte order mark
// and with a line end inside each tag, where it has no meaning. Some SAX readers search for the beginning of
// the line at every event, and a printer's answer is one line. UTF-16 stays as it is.
XmlRefusal CheckXmlBounds(std::string_view text, const XmlLimits& limits, std::string* ready = nullptr);

// "is too large", to follow the name of the document.
const wchar_t* RefusalText(XmlRefusal refusal);

}  // namespace vlm
