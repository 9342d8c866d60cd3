// An extension file as its author wrote it: a tree of elements that know their line.
//
// The engine itself reads these files with the DOM, which keeps no lines. This reader is for telling an
// author where something is wrong; it accepts what the engine accepts, within bounds.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/vlmctl/extension_files/findings.h"

namespace vlm::ctl {

struct SourceAttribute {
    std::wstring name;  // as written, with its prefix
    std::wstring value;
};

struct SourceElement {
    std::wstring name;  // as written, with its prefix
    std::wstring namespaceUri;
    int line = 0;  // where the start tag begins
    // Without namespace declarations, which stand in `declarations`: prefix to URI, of this element alone.
    std::vector<SourceAttribute> attributes;
    std::map<std::wstring, std::wstring> declarations;
    std::wstring text;  // its own, without white space at the ends
    std::vector<SourceElement> children;

    // Null when the element does not carry it.
    const std::wstring* Attribute(std::wstring_view attribute) const;
};

struct SourceFile {
    std::wstring path;  // as it was given
    SourceElement root;
};

// The bytes of a file; nothing when it cannot be read or has more than `limit`, with the reason in `problem`.
std::optional<std::string> ReadFileBytes(const std::wstring& path, size_t limit, std::wstring& problem);

// Parses `bytes`, whose encoding is told by a byte order mark or the XML declaration. On anything that keeps
// the tree from being built (not well-formed, a DOCTYPE, beyond the engine's bounds) nothing is returned and
// `findings` says what and where. COM must be initialised on the thread.
std::optional<SourceFile> ParseSource(const std::wstring& path, std::string_view bytes,
                                      FindingList& findings);

}  // namespace vlm::ctl
