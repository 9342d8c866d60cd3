#include "printer/command_line.h"

#include <CLI/CLI.hpp>

namespace vlm::printer {

std::optional<Options> ParseCommandLine(int argc, char** argv) {
    Options options;
    std::string faultMode;
    std::string answerTime = NameIn(kAnswerTimes, options.answer.when);
    Fault fault;
    std::uint64_t faultConnections = 0;

    CLI::App app{
        "A virtual network printer for demos and tests. Stores the documents it receives, and misbehaves on "
        "request.",
        "vprinter"};
    app.option_defaults()->always_capture_default();
    app.add_option("--store", options.store, "Folder for the documents, created if missing")->required();
    app.add_option("--address", options.address, "IPv4 address of the raw port and the WSD ports");
    app.add_option("--raw-port", options.rawPort, "TCP port for documents, 0 for a free one");
    app.add_option("--control-port", options.controlPort,
                   "HTTP port of the control API on loopback, 0 for a free one");
    app.add_option("--wsd-port", options.wsdPort, "HTTP port of the SOAP services, 0 for a free one");
    app.add_option("--wsds-port", options.wsdsPort, "HTTPS port of the SOAP services, 0 for a free one");
    app.add_option("--printers", options.printers,
                   "Number of printers to simulate; the second answers at /wsd/print/2/, and so on")
        ->check(CLI::Range(1U, 1000U));
    app.add_option("--accounts", options.accounts,
                   "JSON file with the accounts of the department-ID service");
    app.add_option("--ready-file", options.readyFile,
                   "File to write when all ports listen: ports and process id as JSON");
    app.add_option("--max-document", options.documentLimit,
                   "Size limit of a document in bytes (suffixes K, M, G)")
        ->transform(CLI::AsSizeValue(false));
    app.add_flag("--exit-with-parent", options.exitWithParent, "Stop when the parent process ends");

    const std::string answers = "Back-channel";
    CLI::Option* answer =
        app.add_option("--answer", options.answer.text, "Text to send back to the host")->group(answers);
    app.add_option("--answer-when", answerTime,
                   "When to send it: open (at once) or document (after the document)")
        ->check(CLI::IsMember({"open", "document"}))
        ->needs(answer)
        ->group(answers);

    const std::string faults = "Faults (also at run time, through the control API)";
    CLI::Option* mode = app.add_option("--fault", faultMode, "refuse, stall, slow or reset")
                            ->check(CLI::IsMember({"refuse", "stall", "slow", "reset"}))
                            ->group(faults);
    app.add_option("--fault-after", fault.after, "Bytes to read normally first (suffixes K, M, G)")
        ->transform(CLI::AsSizeValue(false))
        ->needs(mode)
        ->group(faults);
    app.add_option("--fault-rate", fault.rate, "Bytes per second for slow (suffixes K, M, G)")
        ->transform(CLI::AsSizeValue(false))
        ->needs(mode)
        ->group(faults);
    CLI::Option* connections = app.add_option("--fault-connections", faultConnections,
                                              "Number of connections that have the fault (default: all)")
                                   ->needs(mode)
                                   ->group(faults);

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& help) {
        app.exit(help);
        return std::nullopt;
    } catch (const CLI::ParseError& e) {
        throw UsageError(e.what());
    }

    if (options.documentLimit == 0) throw UsageError("--max-document must be at least 1");
    options.answer.when = ValueIn(kAnswerTimes, answerTime).value_or(options.answer.when);
    if (const auto parsed = ValueIn(kFaultModes, faultMode)) {
        fault.mode = *parsed;
        if (connections->count() > 0) fault.connections = faultConnections;
        if (const auto flaw = FindFlaw(fault)) throw UsageError(*flaw);
        options.fault = fault;
    }
    return options;
}

}  // namespace vlm::printer
