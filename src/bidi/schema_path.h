// A Bidi schema path in its pieces: "\Printer.Layout:Duplex" is the properties Printer and Layout and the
// leaf Duplex.
//
// Plain standard C++; the pieces point into the path.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

namespace vlm {

struct SchemaPath {
    std::vector<std::wstring_view> properties;
    std::optional<std::wstring_view> leaf;  // what follows the first ":", also when that is empty
};

// Backslashes and dots separate properties; empty ones are dropped. Every text is a path.
SchemaPath ParseSchemaPath(std::wstring_view path);

}  // namespace vlm
