// Any path: its pieces are those of the path, in order, with nothing but separators between them.
#include "bidi/schema_path.h"

#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::vector<wchar_t> text(data, data + size);  // exactly as large, so that a read behind it is seen
    const std::wstring_view path(text.data(), text.size());
    const vlm::SchemaPath parsed = vlm::ParseSchemaPath(path);

    size_t next = 0;
    for (const std::wstring_view property : parsed.properties) {
        FUZZ_CHECK(!property.empty() && property.find_first_of(L"\\.:") == std::wstring_view::npos);
        next = path.find_first_not_of(L"\\.", next);
        FUZZ_CHECK(path.data() + next == property.data());
        next += property.size();
    }
    const size_t end = path.find_first_not_of(L"\\.", next);
    FUZZ_CHECK(parsed.leaf.has_value() == (end != std::wstring_view::npos));
    if (parsed.leaf) FUZZ_CHECK(path[end] == L':' && *parsed.leaf == path.substr(end + 1));
    return 0;
}
