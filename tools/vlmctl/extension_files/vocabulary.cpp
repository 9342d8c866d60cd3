#include "tools/vlmctl/extension_files/vocabulary.h"

#include <algorithm>

#include "util/namespaces.h"

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
        {L"Value",
         {L"name", L"filter"},
         {L"type", L"query", kDriverEvent, kLocalized, kOptional},
         {},
         {},
         true,
         true},
        {L"Installed", {L"name", L"filter"}, {L"type", L"query", kDriverEvent}, {}, L"BIDI_BOOL", true},
        {L"List", {L"name", L"filter"}, {L"type", L"query", kDriverEvent}, {}, L"BIDI_STRING", true},
        {L"Const", {L"name"}, {L"type"}, {}, {}, true, true}};
    const auto found =
        std::ranges::find_if(kRules, [&](const ElementRule& rule) { return rule.element == element; });
    return found == kRules.end() ? nullptr : &*found;
}

bool IsTcpIpName(std::wstring_view name) {
    static constexpr std::array<std::wstring_view, 9> kNames{
        L"oid",      L"mibName",   L"deviceIndex",     L"refreshInterval", L"value",
        L"InputBin", L"OutputBin", L"IndexedProperty", L"Lookup"};
    return std::find(kNames.begin(), kNames.end(), name) != kNames.end();
}

std::wstring MeantNamespace(std::wstring_view uri) {
    constexpr std::wstring_view kSecure = L"https:";
    // Of the drafts that the pages on the print service's elements are from.
    constexpr std::wstring_view kDraft = L"http://schemas.microsoft.com/windows/2005/05/wdp/print";
    std::wstring meant(uri);
    if (uri.starts_with(kSecure)) meant.erase(kSecure.size() - 2, 1);
    if (meant == kDraft) meant = ns::kWsdPrint;
    const bool known = meant == ns::kBidi || meant == ns::kWsdPrint;
    return known && meant != uri ? meant : std::wstring();
}

}  // namespace vlm::ctl
