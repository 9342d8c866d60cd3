// vlmctl wsd: a printer's WSD elements, as the monitor sees them.
#include <memory>
#include <set>
#include <sstream>

#include "tools/vlmctl/console/command.h"
#include "tools/vlmctl/console/console.h"
#include "tools/vlmctl/console/files.h"
#include "tools/vlmctl/console/table.h"
#include "tools/vlmctl/exchange/element_document.h"
#include "tools/vlmctl/exchange/wsd_exchange.h"
#include "tools/vlmctl/printer/printer_commands.h"
#include "util/text.h"
#include "util/trace.h"

namespace vlm::ctl {

namespace {

struct WsdOptions {
    std::string url;
    std::vector<std::string> names;
    std::vector<std::string> namespaces;  // "PREFIX=URI"
    bool raw = false;
    bool envelope = false;
    bool json = false;
    std::string save;  // a file for the answer as it came
};

std::vector<NamespaceDeclaration> ParseDeclarations(const std::vector<std::string>& texts) {
    std::vector<NamespaceDeclaration> declarations;
    for (const std::string& text : texts) {
        const size_t equals = text.find('=');
        const std::string prefix = text.substr(0, equals);
        const bool good = equals != std::string::npos && equals + 1 < text.size() && !prefix.empty() &&
                          prefix.find_first_of(" :<>&\"'/") == std::string::npos && prefix != "xmlns" &&
                          prefix != "xml" && prefix != "pri";
        if (!good)
            throw CommandError("'" + text + "' is not PREFIX=URI, or the prefix is reserved", kWrongUsage);
        declarations.push_back({FromUtf8(prefix), FromUtf8(text.substr(equals + 1))});
    }
    return declarations;
}

// As it came, line by line, but for what could steer a terminal.
void PrintRaw(const std::string& answer) {
    std::wistringstream text(FromUtf8(answer));
    for (std::wstring line; std::getline(text, line);) {
        if (line.ends_with(L'\r')) line.pop_back();
        Print(ToUtf8(Printable(line, line.size())));
    }
}

void PrintElement(IXMLDOMNode* element, const NamespaceDeclarations& declarations = {}) {
    std::string text = Indented(element, declarations);
    text.pop_back();
    Print(text);
}

// Which of the names no part of the answer is about.
std::vector<std::string> Unanswered(const std::vector<std::string>& names, const PartNames& parts) {
    std::set<std::string> answered(parts.valid.begin(), parts.valid.end());
    answered.insert(parts.invalid.begin(), parts.invalid.end());
    std::vector<std::string> unanswered;
    for (const std::string& name : names) {
        const std::string qualified = name.find(':') == std::string::npos ? "pri:" + name : name;
        if (answered.insert(qualified).second) unanswered.push_back(Shown(qualified));
    }
    return unanswered;
}

void PrintElements(const WsdOptions& options) {
    const ComApartment apartment(COINIT_MULTITHREADED);
    const std::wstring query = QueryForElements(options.names, ParseDeclarations(options.namespaces));
    if (options.raw) {
        PrintRaw(FetchAnswer(options.url, query.c_str()));
        return;
    }
    std::string answer;
    const ElementDocument document(options.url, FetchCleanAnswer(options.url, query.c_str(), &answer));
    const PartNames parts = NamesOf(document);
    const std::vector<std::string> unanswered = Unanswered(options.names, parts);
    if (!options.save.empty()) {
        WriteOutput(options.save, answer);
    } else if (options.json) {
        Json elements = Json::array();
        for (const ComPtr<IXMLDOMNode>& part : document.Parts())
            elements.push_back(ElementJson(part.Get()));
        PrintJson({{"url", options.url},
                   {"elements", elements},
                   {"invalid", parts.invalid},
                   {"leftOut", unanswered}});
    } else if (options.envelope) {
        PrintElement(document.Envelope().Get(), document.Declarations());
    } else {
        for (const ComPtr<IXMLDOMNode>& part : document.Parts())
            PrintElement(part.Get());
    }
    std::string problem;
    if (!parts.invalid.empty())
        problem = fmt::format("the printer has no valid {}", fmt::join(parts.invalid, ", "));
    if (!unanswered.empty())
        problem += fmt::format("{}the printer did not send {}", problem.empty() ? "" : "; ",
                               fmt::join(unanswered, ", "));
    if (!problem.empty()) throw CommandError(problem, parts.valid.empty() ? kNothingFound : kFailed);
}

}  // namespace

void AddWsdCommand(CLI::App& app) {
    auto options = std::make_shared<WsdOptions>();
    CLI::App* command =
        app.add_subcommand("wsd", "Show a printer's WSD elements as the monitor sees them, after clean-up");
    command->add_option("URL", options->url, "Print service address: a URL or a host name")->required();
    command
        ->add_option("NAME", options->names,
                     "Element such as PrinterStatus or pri:PrinterConfiguration; the default prefix is pri:")
        ->required();
    command
        ->add_option("--ns", options->namespaces,
                     "Namespace of vendor elements as PREFIX=URI; may be repeated")
        ->allow_extra_args(false);
    CLI::Option* envelope =
        command->add_flag("--envelope", options->envelope, "Show the whole message, not only the elements");
    command->add_flag("--raw", options->raw, "Show the printer's message as received, before clean-up")
        ->excludes(envelope);
    command->add_flag("--json", options->json, "Print JSON instead of text")
        ->excludes(envelope)
        ->excludes("--raw");
    command->add_option("--save", options->save, "Save the message as received to this file and show nothing")
        ->excludes(envelope)
        ->excludes("--raw")
        ->excludes("--json");
    command->callback([options] { PrintElements(*options); });
}

}  // namespace vlm::ctl
