// vlmctl bidi: for the author of extension files. Checks them, and tries them on a saved answer of a printer.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <memory>
#include <nlohmann/json.hpp>

#include "spooler/host/monitor_host.h"
#include "tools/vlmctl/bidi_check.h"
#include "tools/vlmctl/bidi_offline.h"
#include "tools/vlmctl/command.h"
#include "tools/vlmctl/console.h"
#include "util/com.h"
#include "util/vlutil.h"

namespace vlm::ctl {

namespace {

using host::FromUtf8;
using host::ToUtf8;
using Json = nlohmann::ordered_json;

// Exit status of "check".
constexpr int kOnlyWarnings = 1;
constexpr int kErrors = 2;
constexpr int kUnreadable = 3;

// Values wider than this do not widen their column.
constexpr size_t kWidestColumn = 60;

struct BidiOptions {
    BidiFiles files;
    std::vector<std::string> paths;
    bool json = false;
};

// Nothing of what a file or a printer holds may steer a terminal.
std::string Shown(const std::string& text) {
    return ToUtf8(Printable(FromUtf8(text)));
}

size_t Width(const std::string& utf8) {
    return static_cast<size_t>(std::count_if(
        utf8.begin(), utf8.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

void PrintTable(const std::vector<std::array<std::string, 4>>& rows) {
    std::array<size_t, 4> widths{};
    for (const auto& row : rows) {
        for (size_t i = 0; i < row.size(); ++i) {
            const size_t width = Width(row[i]);
            if (width <= kWidestColumn) widths[i] = std::max(widths[i], width);
        }
    }
    for (const auto& row : rows) {
        std::string line;
        for (size_t i = 0; i < row.size(); ++i) {
            line += row[i];
            if (i + 1 == row.size()) break;
            const size_t width = Width(row[i]);
            line.append((width < widths[i] ? widths[i] - width : 0) + 2, ' ');
        }
        PrintLine("{}", line);
    }
}

// Invalid UTF-16 of a printer arrives here as replacement characters already.
std::string Dump(const Json& json) {
    return json.dump(2, ' ', false, Json::error_handler_t::replace);
}

void Ask(const BidiOptions& options, const wchar_t* action) {
    const std::vector<BidiAnswer> answers = AskOffline(options.files, action, options.paths);
    if (options.json) {
        Json list = Json::array();
        for (const BidiAnswer& answer : answers) {
            list.push_back({{"path", answer.path},
                            {"type", answer.type},
                            {"value", answer.hasValue ? Json(answer.value) : Json(nullptr)},
                            {"result", answer.result}});
        }
        PrintLine("{}", Dump(list));
        return;
    }
    std::vector<std::array<std::string, 4>> rows{{"PATH", "TYPE", "VALUE", "RESULT"}};
    for (const BidiAnswer& answer : answers) {
        rows.push_back({Shown(answer.path), answer.type, answer.hasValue ? Shown(answer.value) : "-",
                        fmt::format("{} {}", answer.result, ResultText(answer.result))});
    }
    PrintTable(rows);
}

void Enumerate(const BidiOptions& options) {
    const std::vector<std::string> names = NeededElements(options.files, options.paths);
    if (options.json) {
        PrintLine("{}", Dump(names));
        return;
    }
    for (const std::string& name : names)
        PrintLine("{}", Shown(name));
}

std::string Number(int count, const char* what) {
    return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

void Check(const std::vector<std::string>& files) {
    const ComApartment apartment(COINIT_MULTITHREADED);
    std::vector<std::wstring> paths;
    paths.reserve(files.size());
    for (const std::string& file : files)
        paths.push_back(FromUtf8(file));
    const CheckReport report = CheckExtensionFiles(paths);
    for (const Finding& finding : report.findings) {
        PrintLine("{}:{}: {}: {}", ToUtf8(Printable(finding.file, 1024)), finding.line,
                  finding.severity == Severity::kError ? "error" : "warning", ToUtf8(finding.text));
    }
    if (!report.unreadable.empty()) throw CommandError(ToUtf8(report.unreadable.front()), kUnreadable);
    const int errors = report.Count(Severity::kError);
    const int warnings = report.Count(Severity::kWarning);
    const std::string summary = Number(errors, "error") + ", " + Number(warnings, "warning");
    if (errors > 0) throw CommandError(summary, kErrors);
    if (warnings > 0) throw CommandError(summary, kOnlyWarnings);
}

CLI::App* AddQuery(CLI::App& bidi, const char* name, const char* what,
                   const std::shared_ptr<BidiOptions>& options) {
    CLI::App* command = bidi.add_subcommand(name, what);
    command
        ->add_option("--ext", options->files.extensions, "Extension file; several are merged in this order")
        ->required()
        ->allow_extra_args(false);  // each stands behind an --ext of its own, so that paths may follow
    command->add_flag("--json", options->json, "Print JSON instead of text");
    return command;
}

void AddAsk(CLI::App& bidi, const char* name, const char* what, const wchar_t* action) {
    auto options = std::make_shared<BidiOptions>();
    CLI::App* command = AddQuery(bidi, name, what, options);
    command
        ->add_option("--wsd", options->files.printerAnswer,
                     "The printer's GetPrinterElements answer, saved in a file")
        ->required();
    command->add_option("PATH", options->paths, "Schema path, such as \\Printer.Consumables.Black:Level")
        ->required();
    command->callback([options, action] { Ask(*options, action); });
}

}  // namespace

void AddBidiCommands(CLI::App& app) {
    CLI::App* bidi =
        app.add_subcommand("bidi", "Check Bidi extension files, and try them on a saved printer answer");
    bidi->require_subcommand(1);
    AddAsk(*bidi, "get", "Answer one path each", L"Get");
    AddAsk(*bidi, "getall", "Answer all leaves below each path; '\\' is the whole tree", L"GetAll");

    auto enumOptions = std::make_shared<BidiOptions>();
    CLI::App* enumerate = AddQuery(*bidi, "enum", "List the WSD elements that the paths need", enumOptions);
    enumerate->add_option("PATH", enumOptions->paths, "Schema path")->required();
    enumerate->callback([enumOptions] { Enumerate(*enumOptions); });

    auto files = std::make_shared<std::vector<std::string>>();
    CLI::App* check = bidi->add_subcommand(
        "check",
        "Tell what is wrong with extension files; exit status 0 nothing, 1 warnings, 2 errors, 3 unreadable");
    check->add_option("FILE", *files, "Extension files, in the order in which a printer loads them")
        ->required();
    check->callback([files] { Check(*files); });
}

}  // namespace vlm::ctl
