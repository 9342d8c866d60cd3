#include "bidi/schema_path.h"

namespace vlm {

SchemaPath ParseSchemaPath(std::wstring_view path) {
    SchemaPath parsed;
    const size_t colon = path.find(L':');
    if (colon != std::wstring_view::npos) {
        parsed.leaf = path.substr(colon + 1);
        path = path.substr(0, colon);
    }
    while (!path.empty()) {
        const size_t end = path.find_first_of(L"\\.");
        const std::wstring_view piece = path.substr(0, end);
        if (!piece.empty()) parsed.properties.push_back(piece);
        if (end == std::wstring_view::npos) break;
        path.remove_prefix(end + 1);
    }
    return parsed;
}

}  // namespace vlm
