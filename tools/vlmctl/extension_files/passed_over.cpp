#include "tools/vlmctl/extension_files/passed_over.h"

#include <cwchar>
#include <utility>

#include "tools/vlmctl/extension_files/vocabulary.h"

namespace vlm::ctl {

namespace {

bool IsSet(const SourceElement& element, std::wstring_view attribute) {
    const std::wstring value = element.Value(attribute);
    return !value.empty() && value != L"0" && _wcsicmp(value.c_str(), L"false") != 0;
}

}  // namespace

void PassedOver::LookAt(const SourceElement& element) {
    const ElementRule* rule = FindRule(element.name);
    const auto has = [&](std::wstring_view attribute) {
        return rule != nullptr && rule->Allows(attribute) && IsSet(element, attribute);
    };
    if (element.name == kPortStatus) {
        Add({element}, kPortStatus,
            L"PortStatus is not read: the port monitor below alone sets the port's status");
    }
    if (has(kDriverEvent)) {
        Add({element, kDriverEvent}, kDriverEvent,
            L"drvPrinterEvent has no effect: changes of a value are not reported; ask again to see them");
    }
    if (has(kLocalized)) {
        Add({element, kLocalized}, kLocalized,
            L"xmllang has no effect: of a text in several languages the answer is the first that the printer "
            L"sends");
    }
    // With or without "optional", it is a default or nothing.
    if (rule != nullptr && rule->Allows(kOptional) && !element.text.empty()) {
        Add({element}, kOptional,
            L"the default text " + Quoted(element.text) +
                L" is not used: for a value that the printer does not send the answer is 232, no value");
    }
}

void PassedOver::Say(const SourceFile& file, FindingList& findings) {
    for (auto& [what, seen] : seen_) {
        if (seen.places > 1)
            seen.text += L" (here and in " + std::to_wstring(seen.places - 1) +
                         (seen.places == 2 ? L" more place)" : L" more places)");
        findings.Add(file.path, file.PlaceOf(seen.first), Rule::kPassedOver, std::move(seen.text));
    }
    seen_.clear();
}

void PassedOver::Add(const Spot& spot, std::wstring_view what, std::wstring text) {
    const auto [seen, added] = seen_.try_emplace(what, Seen{spot, 1, std::move(text)});
    if (!added) ++seen->second.places;
}

}  // namespace vlm::ctl
