// Where the elements that the engine works on stand in the extension files. The engine knows the file and
// counts the elements in it; this reads the files once more, as a checker does.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "bidi/schema_tree.h"
#include "tools/vlmctl/extension_files/source.h"

namespace vlm::ctl {

struct Declared;

class SourcePlaces {
 public:
    // COM must be initialised on the thread. A file that cannot be read has no places.
    explicit SourcePlaces(const std::vector<std::string>& extensions);
    // It points into itself.
    SourcePlaces(const SourcePlaces&) = delete;
    SourcePlaces& operator=(const SourcePlaces&) = delete;

    Declared Of(const SchemaElement& declared) const;
    struct Source {
        const SourceFile& file;
        const SourceElement& element;
    };
    // Empty when the file has no such element.
    std::optional<Source> Find(const SchemaElement& declared) const;

 private:
    struct Read {
        SourceFile file;
        std::vector<const SourceElement*> elements;  // in document order
    };

    std::map<std::wstring, Read> files_;  // by the path that the engine knows
};

}  // namespace vlm::ctl
