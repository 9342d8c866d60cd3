// Cuts XML text into its pieces of markup, without a parser. Plain standard C++.
//
// Exact as far as the text is well-formed. Beyond that point a parser stops, while this reader goes on to the
// end. Bytes of UTF-8 or of any other superset of ASCII.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace vlm {

enum class MarkupKind {
    kStartTag,
    kEmptyTag,  // <a/>
    kEndTag,
    kComment,
    kCData,
    kInstruction,  // also the XML declaration
    kDeclaration,  // "<!" but for comments and CDATA
};

struct Markup {
    MarkupKind kind;
    std::string_view before;  // the text between the markup before it and this one
    std::string_view text;    // from '<' to '>'; of a declaration, just what makes it one
    // Of a start tag or an empty one.
    size_t attributes = 0;    // namespace declarations among them
    size_t declarations = 0;  // of namespaces

    // A tag's qualified name.
    std::string_view Name() const;
    // That name without its prefix.
    std::string_view LocalName() const;
};

class MarkupReader {
 public:
    // A tag may have `longestTag` bytes.
    MarkupReader(std::string_view text, size_t longestTag) : rest_(text), longestTag_(longestTag) {}

    // The next piece, or nothing where there is no further whole one.
    std::optional<Markup> Next();
    // What no piece has covered yet.
    std::string_view Rest() const { return rest_; }
    // Whether reading ended at a tag that is too long.
    bool TagTooLong() const { return tagTooLong_; }

 private:
    bool ReadTag(std::string_view text, Markup& markup);

    std::string_view rest_;
    size_t longestTag_;
    bool tagTooLong_ = false;
};

}  // namespace vlm
