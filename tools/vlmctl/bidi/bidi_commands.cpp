// vlmctl bidi: for the author of extension files. Checks them, and tries them on a printer or its saved
// answer.
#include <algorithm>
#include <map>
#include <memory>

#include "tools/vlmctl/bidi/answer_check.h"
#include "tools/vlmctl/bidi/bidi_commands.h"
#include "tools/vlmctl/bidi/check_output.h"
#include "tools/vlmctl/bidi/engine.h"
#include "tools/vlmctl/bidi/output.h"
#include "tools/vlmctl/bidi/port_query.h"
#include "tools/vlmctl/console/command.h"
#include "tools/vlmctl/console/console.h"
#include "tools/vlmctl/extension_files/check.h"
#include "util/com.h"
#include "util/text.h"
#include "util/trace.h"

namespace vlm::ctl {

namespace {

struct BidiOptions {
    BidiSources sources;
    std::vector<std::string> paths;
    std::string port;  // empty: only the engine is asked
    std::string dll;
    bool json = false;
};

const std::map<std::string, host::BidiLowerMonitor::Kind> kPorts{{"tcp", host::BidiLowerMonitor::Kind::kTcp},
                                                                 {"wsd", host::BidiLowerMonitor::Kind::kWsd},
                                                                 {"usb", host::BidiLowerMonitor::Kind::kUsb}};

std::vector<BidiAnswer> Answers(const BidiOptions& options, const wchar_t* action) {
    const BidiSources& sources = options.sources;
    if (options.port.empty()) return AskEngine(sources, action, options.paths);
    return AskThroughPort({sources.extensions, sources.printerUrl, kPorts.at(options.port), options.dll},
                          action, options.paths);
}

// A path begins with a backslash. What does not is mostly a second extension file, or a switch of another
// system.
void CheckPaths(const std::vector<std::string>& paths) {
    for (const std::string& path : paths) {
        if (path.starts_with('\\')) continue;
        throw CommandError("'" + Shown(path) +
                               "' is not a schema path, which begins with a backslash; each extension file "
                               "needs an --ext of its own",
                           kWrongUsage);
    }
}

// Standard input can be read once.
void CheckInputs(const BidiSources& sources) {
    const auto count = std::count(sources.extensions.begin(), sources.extensions.end(), "-") +
                       (sources.printerAnswer == "-" ? 1 : 0);
    if (count > 1) throw CommandError("only one file can be '-', standard input", kWrongUsage);
}

// Where the monitor had to do without the printer, only the port below has answered, with 50 for what it does
// not know. Asked once more without the monitor, the printer says why, in a CommandError.
void AskWhy(const BidiOptions& options) {
    try {
        NeededElements(options.sources, options.paths);
    } catch (const CommandError& error) {
        if (error.Status() != kNothingFound) throw;
    }
}

void Ask(const BidiOptions& options, const wchar_t* action) {
    CheckPaths(options.paths);
    CheckInputs(options.sources);
    const std::vector<BidiAnswer> answers = Answers(options, action);
    PrintAnswers(answers, options.json);
    const auto any = [&](unsigned long result) {
        return std::ranges::any_of(answers, [&](const auto& one) { return one.result == result; });
    };
    if (!options.port.empty() && any(ERROR_NOT_SUPPORTED)) AskWhy(options);
    if (!any(ERROR_SUCCESS)) throw CommandError("nothing was found", kNothingFound);
}

struct CheckOptions {
    BidiSources sources;  // the printer's answer only if one is given
    bool json = false;
    bool sarif = false;
};

void Check(const CheckOptions& options) {
    CheckInputs(options.sources);
    const ComApartment apartment(COINIT_MULTITHREADED);
    std::vector<std::wstring> paths;
    paths.reserve(options.sources.extensions.size());
    for (const std::string& file : options.sources.extensions)
        paths.push_back(FromUtf8(file));
    CheckReport report = CheckExtensionFiles(paths);
    if (!options.sources.printerAnswer.empty() || !options.sources.printerUrl.empty()) {
        FindingList findings;
        CheckWithAnswer(options.sources, findings);
        report.Add(findings.Take());
    }
    (options.sarif ? PrintFindingsAsSarif : options.json ? PrintFindingsAsJson : PrintFindings)(report);
    if (!report.unreadable.empty()) throw CommandError(ToUtf8(report.unreadable.front()), kUnreadable);
    const int errors = report.Count(Severity::kError);
    const int warnings = report.Count(Severity::kWarning);
    const std::string summary = Counted(errors, "error") + ", " + Counted(warnings, "warning");
    if (errors > 0) throw CommandError(summary, kErrors);
    if (warnings > 0) throw CommandError(summary, kOnlyWarnings);
}

CLI::App* AddQuery(CLI::App& bidi, const char* name, const char* what,
                   const std::shared_ptr<BidiOptions>& options) {
    CLI::App* command = bidi.add_subcommand(name, what);
    command
        ->add_option("--ext", options->sources.extensions,
                     "Extension file, or - for standard input; several are merged in the given order")
        ->required()
        ->allow_extra_args(false);  // each stands behind an --ext of its own, so that paths may follow
    command->add_flag("--json", options->json, "Print JSON instead of text");
    return command;
}

// Where the printer's answer comes from: one of two. The option for the second.
CLI::Option* AddSource(CLI::App* command, BidiSources& sources, bool needed = true) {
    CLI::Option_group* source = command->add_option_group("Source");
    CLI::Option* saved = source->add_option("--wsd", sources.printerAnswer,
                                            "A saved GetPrinterElements answer; only the elements that the "
                                            "paths query are used, as with a live printer");
    command->add_flag("--whole", sources.wholeAnswer, "Use all of the saved answer, whatever the paths query")
        ->needs(saved);
    CLI::Option* printer =
        source->add_option("--printer", sources.printerUrl, "Print service address of a printer to ask live");
    source->require_option(needed ? 1 : 0, 1);
    return printer;
}

void AddAsk(CLI::App& bidi, const char* name, const char* what, const wchar_t* action) {
    auto options = std::make_shared<BidiOptions>();
    CLI::App* command = AddQuery(bidi, name, what, options);
    CLI::Option* printer = AddSource(command, options->sources);
    CLI::Option* through =
        command
            ->add_option("--port", options->port,
                         "Ask through the monitor, on a port of this kind (tcp, wsd, usb), "
                         "and show the source of each entry; needs the stand-in spooler")
            ->check(CLI::IsMember(kPorts))
            ->needs(printer);
    command->add_option("--dll", options->dll, "Monitor DLL to load (default: the one next to this program)")
        ->needs(through);
    command->add_option("PATH", options->paths, "Schema path, such as \\Printer.Consumables.Black:Level")
        ->required();
    command->callback([options, action] { Ask(*options, action); });
}

void AddExplain(CLI::App& bidi) {
    auto options = std::make_shared<BidiOptions>();
    CLI::App* command =
        AddQuery(bidi, "explain", "Explain step by step why a path has its value, or none", options);
    AddSource(command, options->sources, false);
    auto path = std::make_shared<std::string>();
    command->add_option("PATH", *path, "Schema path, such as \\Printer.Consumables.Black:Level")->required();
    command->callback([options, path] {
        CheckPaths({*path});
        CheckInputs(options->sources);
        const Explanation explanation = Explain(options->sources, *path);
        PrintExplanation(explanation, options->json);
        if (explanation.verdict == Verdict::kFailed) throw CommandError(explanation.why);
        if (explanation.verdict != Verdict::kFound && explanation.verdict != Verdict::kDeclared)
            throw CommandError(Shown(*path) + ": " + explanation.why, kNothingFound);
    });
}

void AddCheck(CLI::App& bidi) {
    auto options = std::make_shared<CheckOptions>();
    CLI::App* check = bidi.add_subcommand(
        "check", "Check extension files; exit status 0: clean, 1: warnings, 2: errors, 3: unreadable");
    check
        ->add_option("FILE", options->sources.extensions,
                     "Extension files, in loading order; one may be - for standard input")
        ->required();
    CLI::Option* saved =
        check->add_option("--wsd", options->sources.printerAnswer,
                          "Also try them on this saved answer and report what finds nothing in it");
    check
        ->add_option("--printer", options->sources.printerUrl,
                     "Also try them on the answer of the printer at this address")
        ->excludes(saved);
    CLI::Option* json = check->add_flag("--json", options->json, "Print JSON instead of text");
    check->add_flag("--sarif", options->sarif, "Print a SARIF 2.1.0 log instead of text")->excludes(json);
    check->callback([options] { Check(*options); });
}

}  // namespace

void AddBidiCommands(CLI::App& app) {
    CLI::App* bidi = app.add_subcommand(
        "bidi", "Check Bidi extension files, and try them on a printer or its saved answer");
    bidi->require_subcommand(1);
    AddAsk(*bidi, "get", "Get the value of each path", L"Get");
    AddAsk(*bidi, "getall", "Get the values of all leaves below each path; '\\' is the whole tree",
           L"GetAll");

    auto enumOptions = std::make_shared<BidiOptions>();
    CLI::App* enumerate = AddQuery(*bidi, "enum", "List the WSD elements that the paths need", enumOptions);
    enumerate->add_option("--printer", enumOptions->sources.printerUrl,
                          "Ask the printer at this address which of them it sends");
    enumerate->add_option("PATH", enumOptions->paths, "Schema path")->required();
    enumerate->callback([enumOptions] {
        CheckPaths(enumOptions->paths);
        CheckInputs(enumOptions->sources);
        PrintElements(NeededElements(enumOptions->sources, enumOptions->paths), enumOptions->json);
    });

    AddNewCommand(*bidi);
    AddExplain(*bidi);
    AddCheck(*bidi);
}

}  // namespace vlm::ctl
