// A look over a document from outside before any parser sees it. Plain standard C++.
//
// MSXML has no limits of its own worth the name, and what it does with a document type declaration differs
// between its versions. So the bytes are scanned once, in time linear in their number, for what could make a
// parser expand, recurse or compare without end. Whether the document is well-formed is left to the parser:
// the scan follows the grammar exactly as long as the document does, and a parser stops where it ceases to.
#pragma once

#include <string>
#include <string_view>

namespace vlm {

inline constexpr size_t kDeepestXml = 128;
inline constexpr size_t kMostXmlElements = 100'000;
inline constexpr size_t kLongestXmlTag = 16 * 1024;

// Null when `bytes` may be parsed, else what is wrong with them, in words for the trace. Refused are: a
// declaration ("<!…" other than a comment or CDATA section), elements nested deeper than kDeepestXml, more of
// them than kMostXmlElements, a tag longer than kLongestXmlTag (parsers compare its attributes pairwise),
// markup that does not end, and an encoding that is neither UTF-8, UTF-16 nor a single-byte superset of ASCII
// (another one could hide markup from the scan).
//
// `ready` is the same document, made quick to parse: unless it is UTF-16, with a line end inside each end
// tag, where it says nothing. Some SAX readers look for the beginning of the line at every event, and a
// printer's answer is one line.
const wchar_t* WhyNotParse(std::string_view bytes, std::string* ready);

}  // namespace vlm
