// An extension file as its author wrote it: a tree of elements that know their place.
//
// The engine itself reads these files with the DOM, which keeps no lines. This reader is for telling an
// author where something is wrong; it accepts what the engine accepts, within bounds.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/vlmctl/extension_files/findings.h"

namespace vlm::ctl {

// The characters of a file as far as places in it need them. A parser's own position is no help: it stands
// behind a start tag, which may be several lines long, and its column counts differently from parser to
// parser.
class SourceText {
 public:
    explicit SourceText(std::string_view bytes);

    // One for each unit of the encoding. What is ASCII stands for itself and can be markup; nothing else can.
    const std::string& Characters() const { return characters_; }
    size_t Lines() const { return lineStarts_.size(); }
    // Where a line begins; behind the last one, the text's end.
    size_t StartOf(size_t line) const;
    // How many bytes of the file come before the position.
    size_t BytesBefore(size_t position) const;

    int LineOf(size_t position) const;
    Place At(size_t position) const;
    // Where the attribute is written in the start tag at `tag`; that of the tag when it is not found.
    Place OfAttribute(size_t tag, std::wstring_view attribute) const;
    // Where in the attribute the character of that number stands, counted in UTF-16 as the parser gives the
    // value: a reference such as "&lt;" is one character there, and so is a line end.
    Place InAttribute(size_t tag, std::wstring_view attribute, size_t character) const;

 private:
    enum class Units { kUtf8, kUtf16, kBytes };
    struct Attribute {
        size_t name;
        size_t value;  // behind the quote
    };

    // Whether the unit begins a character; how many units of UTF-16 it makes of it.
    bool Begins(size_t position) const;
    size_t Utf16Units(size_t position) const;
    std::optional<Attribute> Find(size_t tag, std::wstring_view attribute) const;

    std::string characters_;
    std::vector<size_t> lineStarts_;
    Units units_ = Units::kUtf8;
};

struct SourceAttribute {
    std::wstring name;  // as written, with its prefix
    std::wstring value;
};

struct SourceElement {
    std::wstring name;  // as written, with its prefix
    std::wstring namespaceUri;
    int line = 0;    // where the start tag begins,
    size_t tag = 0;  // and its position in the text
    // Without namespace declarations, which stand in `declarations`: prefix to URI, of this element alone.
    std::vector<SourceAttribute> attributes;
    std::map<std::wstring, std::wstring> declarations;
    std::wstring text;  // its own, without white space at the ends
    std::vector<SourceElement> children;

    // Null when the element does not carry it.
    const std::wstring* Attribute(std::wstring_view attribute) const;
    // Empty then, too.
    std::wstring Value(std::wstring_view attribute) const;
};

// What a finding is about: an element, one of its attributes, or a character in the attribute's value.
struct Spot {
    const SourceElement& element;
    std::wstring_view attribute = {};
    std::optional<size_t> character = std::nullopt;
};

struct SourceFile {
    std::wstring path;  // as it was given
    std::shared_ptr<const SourceText> text;
    SourceElement root;

    Place PlaceOf(const Spot& spot) const;
};

// Where the bytes of a file are: its own path, or for "-" that of a temporary copy of standard input, which
// is read at the first call and removed with the process. Throws CommandError.
std::wstring PathOfInput(const std::wstring& file);
// `text` with "-" wherever it names that copy.
std::wstring WithNamesOfInput(std::wstring text);

// The bytes of a file, or for "-" of standard input; nothing when it cannot be read or has more than `limit`,
// with the reason in `problem`.
std::optional<std::string> ReadFileBytes(const std::wstring& path, size_t limit, std::wstring& problem);

// Parses `bytes`, whose encoding is told by a byte order mark or the XML declaration. On anything that keeps
// the tree from being built (not well-formed, a DOCTYPE, beyond the engine's bounds) nothing is returned and
// `findings` says what and where. COM must be initialised on the thread.
std::optional<SourceFile> ParseSource(const std::wstring& path, std::string_view bytes,
                                      FindingList& findings);

}  // namespace vlm::ctl
