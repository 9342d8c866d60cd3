#include "tools/vlmctl/printer/printer_report.h"

#include <charconv>
#include <initializer_list>

#include "tools/vlmctl/console/command.h"
#include "tools/vlmctl/console/console.h"
#include "tools/vlmctl/exchange/element_document.h"
#include "tools/vlmctl/exchange/wsd_exchange.h"

namespace vlm::ctl {

namespace {

// Of an entry: an attribute, or an element as in a part of the published examples.
std::string EntryName(IXMLDOMNode* entry) {
    std::string name = AttributeAt(entry, L"Name");
    return name.empty() ? TextAt(entry, L"pri:Name") : name;
}

// -1 is how a printer says that it cannot tell.
PrinterReport::Level LevelOf(IXMLDOMNode* entry) {
    PrinterReport::Level level{TextAt(entry, L"pri:Level"), {}};
    if (level.text == "-1") level.text.clear();
    const auto value = NumberIn(level.text);
    if (value && *value <= 100) level.percent = value;
    return level;
}

std::vector<std::string> ReasonsOf(IXMLDOMNode* status) {
    std::vector<std::string> reasons;
    for (const auto& node : NodesAt(status, L"pri:PrinterStateReasons/pri:PrinterStateReason"))
        if (std::string reason = TextAt(node.Get(), L"."); !reason.empty())
            reasons.push_back(std::move(reason));
    if (reasons.empty())
        if (std::string reason = TextAt(status, L"pri:PrinterPrimaryStateReason"); !reason.empty())
            reasons.push_back(std::move(reason));
    return reasons;
}

// The list of them is published as ActiveCondition; some printers write it in the plural, and some name the
// component in one text.
std::vector<PrinterReport::Condition> ConditionsOf(IXMLDOMNode* status) {
    std::vector<PrinterReport::Condition> conditions;
    for (const wchar_t* list : {L"pri:ActiveCondition", L"pri:ActiveConditions"}) {
        for (const auto& node : NodesAt(status, (std::wstring(list) + L"/pri:DeviceCondition").c_str())) {
            std::string component = Joined({TextAt(node.Get(), L"pri:Component/pri:Group"),
                                            TextAt(node.Get(), L"pri:Component/pri:Name")},
                                           " ");
            if (component.empty()) component = TextAt(node.Get(), L"pri:Component");
            conditions.push_back(
                {component, TextAt(node.Get(), L"pri:Name"), TextAt(node.Get(), L"pri:Severity")});
        }
    }
    return conditions;
}

// Null when the printer did not answer that element.
ComPtr<IXMLDOMNode> Part(const ElementDocument& document, const wchar_t* name) {
    for (const ComPtr<IXMLDOMNode>& part : document.Parts()) {
        const auto found = NodesAt(part.Get(), name);
        if (!found.empty()) return found.front();
    }
    return nullptr;
}

void AddLevel(const PrinterReport::Level& level, Json& json) {
    json["level"] = OrNull(level.text);
    json["percent"] = OrNull(level.percent);
}

}  // namespace

const std::string& PrinterReport::Consumable::Title() const {
    // What has no colour, such as waste toner, is of the colour Other.
    const bool coloured = !colour.empty() && (colour != "Other" || name.empty());
    return coloured ? colour : name;
}

std::optional<unsigned> NumberIn(const std::string& text) {
    unsigned value = 0;
    const char* end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, value);
    return parsed.ec == std::errc() && parsed.ptr == end ? std::optional(value) : std::nullopt;
}

PrinterReport AskPrinter(const std::string& url) {
    const std::wstring query =
        QueryForElements({"PrinterDescription", "PrinterStatus", "PrinterConfiguration"}, {});
    const ElementDocument document(url, FetchCleanAnswer(url, query.c_str()));
    const auto description = Part(document, L"pri:PrinterDescription");
    const auto status = Part(document, L"pri:PrinterStatus");
    const auto configuration = Part(document, L"pri:PrinterConfiguration");
    if (!description && !status && !configuration)
        throw CommandError("the printer reports nothing about itself", kNothingFound);
    PrinterReport report;
    if (description) {
        report.name = TextAt(description.Get(), L"pri:PrinterName");
        report.info = TextAt(description.Get(), L"pri:PrinterInfo");
        report.location = TextAt(description.Get(), L"pri:PrinterLocation");
    }
    if (status) {
        report.state = TextAt(status.Get(), L"pri:PrinterState");
        report.reasons = ReasonsOf(status.Get());
        report.conditions = ConditionsOf(status.Get());
        report.queuedJobs = TextAt(status.Get(), L"pri:QueuedJobCount");
    }
    if (!configuration) return report;
    for (const auto& entry : NodesAt(configuration.Get(), L"pri:Consumables/pri:ConsumableEntry"))
        report.consumables.push_back({EntryName(entry.Get()), TextAt(entry.Get(), L"pri:Color"),
                                      TextAt(entry.Get(), L"pri:Type"), TextAt(entry.Get(), L"pri:Model"),
                                      LevelOf(entry.Get())});
    for (const auto& entry : NodesAt(configuration.Get(), L"pri:InputBins/pri:InputBinEntry"))
        report.trays.push_back({EntryName(entry.Get()), TextAt(entry.Get(), L"pri:MediaSize"),
                                TextAt(entry.Get(), L"pri:MediaType"), TextAt(entry.Get(), L"pri:Capacity"),
                                LevelOf(entry.Get())});
    return report;
}

std::string ConditionText(const PrinterReport::Condition& condition) {
    const std::string text = Joined({condition.component, condition.name}, ": ");
    return condition.severity.empty() ? text : text + " (" + condition.severity + ")";
}

void AddToJson(const PrinterReport& report, Json& json) {
    json["name"] = OrNull(report.name);
    json["info"] = OrNull(report.info);
    json["location"] = OrNull(report.location);
    json["state"] = OrNull(report.state);
    json["reasons"] = report.reasons;
    json["conditions"] = Json::array();
    for (const auto& condition : report.conditions)
        json["conditions"].push_back({{"component", OrNull(condition.component)},
                                      {"name", OrNull(condition.name)},
                                      {"severity", OrNull(condition.severity)}});
    json["queuedJobs"] = OrNull(report.queuedJobs);
    json["consumables"] = Json::array();
    for (const auto& consumable : report.consumables) {
        Json entry{{"name", OrNull(consumable.name)},
                   {"color", OrNull(consumable.colour)},
                   {"type", OrNull(consumable.type)},
                   {"model", OrNull(consumable.model)}};
        AddLevel(consumable.level, entry);
        json["consumables"].push_back(entry);
    }
    json["trays"] = Json::array();
    for (const auto& tray : report.trays) {
        Json entry{{"name", OrNull(tray.name)},
                   {"mediaSize", OrNull(tray.mediaSize)},
                   {"mediaType", OrNull(tray.mediaType)},
                   {"capacity", OrNull(tray.capacity)}};
        AddLevel(tray.level, entry);
        json["trays"].push_back(entry);
    }
}

}  // namespace vlm::ctl
