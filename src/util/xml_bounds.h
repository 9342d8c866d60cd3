// Whether an XML text from outside is modest enough to be given to a DOM parser.
//
// A DOM costs a multiple of its text, recursion costs stack, and a document type brings entities that expand
// without bound. One pass over the bytes finds all three before the parser sees them. The pass does not
// decide whether the text is well-formed; that is the parser's work.
//
// Plain standard C++.
#pragma once

#include <cstddef>
#include <span>

namespace vlm {

struct XmlLimits {
    size_t bytes;
    size_t depth;  // of nested elements
    size_t nodes;  // elements and attributes together
};

// A Bidi extension file: a few thousand leaves are a large one.
inline constexpr XmlLimits kExtensionFileLimits{8u << 20, 100, 400'000};
// A printer's answer; every filter of the extension files searches it, so its size is time, too.
inline constexpr XmlLimits kPrinterAnswerLimits{2u << 20, 100, 100'000};

enum class XmlRefusal {
    kNone,
    kTooLarge,
    kDocumentType,  // <!DOCTYPE
    kTooDeep,
    kTooManyNodes,
    kEncoding,  // neither UTF-16 nor one that writes markup in ASCII
};

XmlRefusal CheckXmlBounds(std::span<const std::byte> text, const XmlLimits& limits);

// "is too large", to stand behind the name of what was refused.
const wchar_t* Describe(XmlRefusal refusal);

}  // namespace vlm
