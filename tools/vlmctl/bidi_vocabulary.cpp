#include "tools/vlmctl/bidi_vocabulary.h"

#include <algorithm>

namespace vlm::ctl {

bool ElementRule::Allows(std::wstring_view attribute) const {
    return std::find(required.begin(), required.end(), attribute) != required.end() ||
           std::find(optional.begin(), optional.end(), attribute) != optional.end();
}

bool ElementRule::Holds(std::wstring_view child) const {
    return std::find(children.begin(), children.end(), child) != children.end();
}

const ElementRule* FindRule(std::wstring_view element) {
    static const std::vector<std::wstring_view> kLevel{L"Property",  L"Parameter", L"Value",
                                                       L"Installed", L"List",      L"Const"};
    static const std::vector<ElementRule> kRules{
        {L"Schema", {}, {L"name"}, {L"Property"}},
        {L"Property", {L"name"}, {L"query"}, kLevel},
        {L"Parameter", {L"parameter", L"filter"}, {L"name", L"query"}, kLevel},
        {L"Value", {L"name", L"filter"}, {L"type", L"query"}, {}, {}, true},
        {L"Installed", {L"name", L"filter"}, {L"type", L"query"}, {}, L"BIDI_BOOL", true},
        {L"List", {L"name", L"filter"}, {L"type", L"query"}, {}, L"BIDI_STRING", true},
        {L"Const", {L"name"}, {L"type"}, {}, {}, true, true}};
    const auto found = std::find_if(kRules.begin(), kRules.end(),
                                    [&](const ElementRule& rule) { return rule.element == element; });
    return found == kRules.end() ? nullptr : &*found;
}

}  // namespace vlm::ctl
