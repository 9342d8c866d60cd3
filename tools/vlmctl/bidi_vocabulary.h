// The elements of a Bidi extension file and what each may carry. packaging/bidi-extension.xsd says the same
// to editors.
#pragma once

#include <array>
#include <string_view>
#include <vector>

namespace vlm::ctl {

// As the engine writes them into its answers; it matches them with regard to case.
inline constexpr std::array<std::wstring_view, 5> kTypeNames{L"BIDI_INT", L"BIDI_STRING", L"BIDI_BOOL",
                                                             L"BIDI_FLOAT", L"BIDI_BLOB"};

inline constexpr wchar_t kSchemaInstanceNamespace[] = L"http://www.w3.org/2001/XMLSchema-instance";

struct ElementRule {
    std::wstring_view element;
    std::vector<std::wstring_view> required;  // attributes
    std::vector<std::wstring_view> optional;
    std::vector<std::wstring_view> children;
    std::wstring_view fixedType = {};  // what "type" must be when it is given
    bool isLeaf = false;
    bool holdsText = false;

    bool Allows(std::wstring_view attribute) const;
    bool Holds(std::wstring_view child) const;
};

// Null for a name that is not in the vocabulary.
const ElementRule* FindRule(std::wstring_view element);

}  // namespace vlm::ctl
