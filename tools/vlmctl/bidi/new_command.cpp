// vlmctl bidi new: where an author begins.
#include <filesystem>
#include <memory>

#include "soap/printer_elements.h"
#include "tools/vlmctl/bidi/bidi_commands.h"
#include "tools/vlmctl/bidi/engine.h"
#include "tools/vlmctl/bidi/new_extension.h"
#include "tools/vlmctl/console/command.h"
#include "tools/vlmctl/console/console.h"
#include "tools/vlmctl/console/files.h"
#include "tools/vlmctl/exchange/failure.h"
#include "tools/vlmctl/exchange/wsd_exchange.h"
#include "util/namespaces.h"
#include "util/text.h"

namespace vlm::ctl {

namespace {

struct NewOptions {
    std::string file;
    BidiSources source;
    bool force = false;
};

// An entry of an INI file has no quotes, and a comma behind a name begins a number.
void CheckName(const std::filesystem::path& file) {
    const std::wstring name = file.filename().wstring();
    const bool plain = !name.empty() && name.front() != L' ' && name.back() != L' ' &&
                       std::ranges::all_of(name, [](wchar_t c) { return c >= 0x20 && c < 0x7F; }) &&
                       name.find_first_of(L",;=\"%") == std::wstring::npos;
    if (!plain || _wcsicmp(file.extension().c_str(), L".ini") == 0)
        throw CommandError(
            "'" + Shown(name) + "' is not a name that an INI file can hold for an extension file",
            kWrongUsage);
}

void MakeNew(const NewOptions& options) {
    const ComApartment apartment(COINIT_MULTITHREADED);
    const std::filesystem::path file = FromUtf8(options.file);
    std::filesystem::path ini = file;
    ini.replace_extension(L".ini");
    CheckName(file);
    for (const std::filesystem::path& path : {file, ini}) {
        if (!options.force && std::filesystem::exists(path))
            throw CommandError(Shown(path.wstring()) + " already exists; --force overwrites it");
    }

    const std::string source =
        options.source.printerUrl.empty() ? options.source.printerAnswer : options.source.printerUrl;
    int status = 200;
    const std::wstring query =
        QueryForElements({kPrintServiceElements.begin(), kPrintServiceElements.end()}, {});
    const std::string answer = AnswerOf(options.source, query.c_str(), &status);
    std::string clean;
    const Outcome cleaned = CleanPrinterElements(answer, {{L"pri", ns::kWsdPrint}}, &clean, status);
    if (FAILED(cleaned)) ThrowFailure(Shown(source) + " cannot be used", cleaned);
    const NewExtension extension = MakeExtension(clean, source);

    WriteOutput(options.file, extension.xml);
    WriteOutput(
        ToUtf8(ini.wstring()),
        "; The driver's settings file, one of its dependent files. The extension file lies beside it.\r\n"
        "[BidiFiles]\r\nBidiWSDFile=" +
            ToUtf8(file.filename().wstring()) + "\r\n");
    PrintLine("{}: {} leaves, {} parameters", Shown(file.wstring()), extension.leaves, extension.parameters);
    for (const std::string& element : extension.elements)
        PrintLine("  asks for  {}", Shown(element));
    for (const std::string& element : extension.leftOut)
        PrintLine("  left out  {}: it has no namespace, so no query can name it", Shown(element));
    PrintLine("{}: INI file of the driver", Shown(ini.wstring()));
}

}  // namespace

void AddNewCommand(CLI::App& bidi) {
    auto options = std::make_shared<NewOptions>();
    CLI::App* command = bidi.add_subcommand(
        "new", "Write a first extension file for a printer's answer, and an INI file next to it");
    command->add_option("FILE", options->file, "Extension file to write")->required();
    CLI::Option_group* source = command->add_option_group("Source");
    source->add_option("--wsd", options->source.printerAnswer, "A saved answer of the printer");
    source->add_option(
        "--printer", options->source.printerUrl,
        "Print service address of a printer to ask for the standard elements; 'vlmctl wsd --save' "
        "also gets vendor elements");
    source->require_option(1);
    command->add_flag("--force", options->force, "Overwrite existing files");
    command->callback([options] { MakeNew(*options); });
}

}  // namespace vlm::ctl
