// vlmctl status: how a printer is, on one screen.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <memory>

#include "spooler/host/monitor_host.h"
#include "tools/vlmctl/console/command.h"
#include "tools/vlmctl/console/console.h"
#include "tools/vlmctl/exchange/element_document.h"
#include "tools/vlmctl/exchange/wsd_exchange.h"
#include "tools/vlmctl/printer/printer_commands.h"

namespace vlm::ctl {

namespace {

// A supply or a tray.
struct Level {
    std::string name;
    std::string percent;
    std::string remark;
};

// "[########............]  40%"; a level that is no percentage stands as the printer said it. -1 is how a
// printer says that it cannot tell.
std::string Bar(const std::string& percent) {
    constexpr int kWidth = 20;
    if (percent.empty() || percent == "-1") return fmt::format("{:<{}}", "level unknown", kWidth + 7);
    int value = -1;
    const char* end = percent.data() + percent.size();
    const auto parsed = std::from_chars(percent.data(), end, value);
    if (parsed.ec != std::errc() || parsed.ptr != end || value < 0 || value > 100)
        return fmt::format("{:<{}}", percent, kWidth + 7);
    // A bar is empty only when the level is.
    const int filled = value == 0 ? 0 : std::max(1, value * kWidth / 100);
    return fmt::format("[{}{}] {:3}%", std::string(static_cast<size_t>(filled), '#'),
                       std::string(static_cast<size_t>(kWidth - filled), '.'), value);
}

void PrintLevels(const char* title, const std::vector<Level>& levels) {
    if (levels.empty()) return;
    size_t width = 0;
    for (const Level& level : levels)
        width = std::max(width, host::FromUtf8(level.name).size());
    PrintLine("{}", title);
    for (const Level& level : levels) {
        const size_t padding = width - host::FromUtf8(level.name).size();
        std::string line = "  " + level.name + std::string(padding, ' ') + "  " + Bar(level.percent);
        if (!level.remark.empty()) line += "  " + level.remark;
        line.erase(line.find_last_not_of(' ') + 1);
        PrintLine("{}", line);
    }
}

std::string Joined(std::initializer_list<std::string> texts, const char* separator) {
    std::string joined;
    for (const std::string& text : texts)
        if (!text.empty()) joined += (joined.empty() ? "" : separator) + text;
    return joined;
}

void PrintRow(const char* name, const std::string& text) {
    if (!text.empty()) PrintLine("{:<13}{}", name, text);
}

std::string Reasons(IXMLDOMNode* status) {
    std::string reasons;
    for (const auto& node : NodesAt(status, L"pri:PrinterStateReasons/pri:PrinterStateReason"))
        reasons = Joined({reasons, TextAt(node.Get(), L".")}, ", ");
    return reasons.empty() ? TextAt(status, L"pri:PrinterPrimaryStateReason") : reasons;
}

// Of an entry: an attribute, or an element as in a part of the published examples.
std::string EntryName(IXMLDOMNode* entry) {
    const std::string name = AttributeAt(entry, L"Name");
    return name.empty() ? TextAt(entry, L"pri:Name") : name;
}

std::vector<Level> Consumables(IXMLDOMNode* configuration) {
    std::vector<Level> levels;
    for (const auto& entry : NodesAt(configuration, L"pri:Consumables/pri:ConsumableEntry")) {
        const std::string colour = TextAt(entry.Get(), L"pri:Color");
        const std::string name = EntryName(entry.Get());
        // What has no colour, such as waste toner, is of the colour Other.
        const bool coloured = !colour.empty() && (colour != "Other" || name.empty());
        levels.push_back(
            {coloured ? colour : name, TextAt(entry.Get(), L"pri:Level"),
             Joined({TextAt(entry.Get(), L"pri:Type"), TextAt(entry.Get(), L"pri:Model")}, " ")});
    }
    return levels;
}

std::vector<Level> Trays(IXMLDOMNode* configuration) {
    std::vector<Level> levels;
    for (const auto& entry : NodesAt(configuration, L"pri:InputBins/pri:InputBinEntry")) {
        const std::string capacity = TextAt(entry.Get(), L"pri:Capacity");
        levels.push_back(
            {EntryName(entry.Get()), TextAt(entry.Get(), L"pri:Level"),
             Joined({TextAt(entry.Get(), L"pri:MediaSize"), TextAt(entry.Get(), L"pri:MediaType"),
                     capacity.empty() ? "" : "holds " + capacity},
                    ", ")});
    }
    return levels;
}

// "InputBin Tray1: MediaEmpty (Warning)". The list of them is published as ActiveCondition; some printers
// write it in the plural, and some name the component in one text.
std::string Condition(IXMLDOMNode* condition) {
    std::string component = Joined(
        {TextAt(condition, L"pri:Component/pri:Group"), TextAt(condition, L"pri:Component/pri:Name")}, " ");
    if (component.empty()) component = TextAt(condition, L"pri:Component");
    const std::string severity = TextAt(condition, L"pri:Severity");
    return Joined({component, TextAt(condition, L"pri:Name")}, ": ") +
           (severity.empty() ? "" : " (" + severity + ")");
}

void PrintConditions(IXMLDOMNode* status) {
    const char* title = "conditions";
    for (const wchar_t* list : {L"pri:ActiveCondition", L"pri:ActiveConditions"}) {
        for (const auto& condition :
             NodesAt(status, (std::wstring(list) + L"/pri:DeviceCondition").c_str())) {
            PrintLine("{:<13}{}", title, Condition(condition.Get()));
            title = "";
        }
    }
}

// Null when the printer did not answer that element.
ComPtr<IXMLDOMNode> Part(const ElementDocument& document, const wchar_t* name) {
    for (const ComPtr<IXMLDOMNode>& part : document.Parts()) {
        const auto found = NodesAt(part.Get(), name);
        if (!found.empty()) return found.front();
    }
    return nullptr;
}

void PrintStatus(const std::string& url) {
    const ComApartment apartment(COINIT_MULTITHREADED);
    const std::wstring query =
        QueryForElements({"PrinterDescription", "PrinterStatus", "PrinterConfiguration"}, {});
    const ElementDocument document(url, FetchCleanAnswer(url, query.c_str()));
    // In this order, whichever the printer answers in.
    const auto description = Part(document, L"pri:PrinterDescription");
    const auto status = Part(document, L"pri:PrinterStatus");
    const auto configuration = Part(document, L"pri:PrinterConfiguration");
    if (!description && !status && !configuration)
        throw CommandError("the printer tells nothing about itself", kNothingFound);
    if (description) {
        PrintRow("printer", TextAt(description.Get(), L"pri:PrinterName"));
        PrintRow("info", TextAt(description.Get(), L"pri:PrinterInfo"));
        PrintRow("location", TextAt(description.Get(), L"pri:PrinterLocation"));
    }
    if (status) {
        PrintRow("state", TextAt(status.Get(), L"pri:PrinterState"));
        PrintRow("reasons", Reasons(status.Get()));
        PrintConditions(status.Get());
        PrintRow("queued jobs", TextAt(status.Get(), L"pri:QueuedJobCount"));
    }
    if (configuration) {
        PrintLevels("consumables", Consumables(configuration.Get()));
        PrintLevels("trays", Trays(configuration.Get()));
    }
}

}  // namespace

void AddStatusCommand(CLI::App& app) {
    auto url = std::make_shared<std::string>();
    CLI::App* command = app.add_subcommand("status", "Show a printer's state, consumables and trays");
    command->add_option("URL", *url, "Address of the print service; a host name will do")->required();
    command->callback([url] { PrintStatus(*url); });
}

}  // namespace vlm::ctl
