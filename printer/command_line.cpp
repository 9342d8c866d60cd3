#include "printer/command_line.h"

#include <CLI/CLI.hpp>

namespace vlm::printer {

std::optional<Options> ParseCommandLine(int argc, char** argv) {
    Options options;
    std::string faultMode;
    std::string answerTime = NameIn(kAnswerTimes, options.answer.when);
    Fault fault;
    std::uint64_t faultConnections = 0;

    CLI::App app{"A network printer for demos and tests: stores what it is sent, and misbehaves on request.",
                 "vprinter"};
    app.option_defaults()->always_capture_default();
    app.add_option("--store", options.store, "Folder for the documents, made if need be")->required();
    app.add_option("--address", options.address, "IPv4 address of the raw port and the WSD ports");
    app.add_option("--raw-port", options.rawPort, "TCP port for documents, 0 for a free one");
    app.add_option("--control-port", options.controlPort,
                   "HTTP port of the control API on loopback, 0 for a free one");
    app.add_option("--wsd-port", options.wsdPort, "HTTP port of the SOAP services, 0 for a free one");
    app.add_option("--wsds-port", options.wsdsPort, "HTTPS port of the same, 0 for a free one");
    app.add_option("--printers", options.printers,
                   "How many printers answer for themselves: the second at /wsd/print/2/, and so on")
        ->check(CLI::Range(1U, 1000U));
    app.add_option("--accounts", options.accounts,
                   "JSON file of the accounts that the department-ID service knows");
    app.add_option("--ready-file", options.readyFile,
                   "Written when all ports listen: ports and process id as JSON");
    app.add_option("--max-document", options.documentLimit,
                   "Bytes that one document may have (suffixes K, M, G)")
        ->transform(CLI::AsSizeValue(false));
    app.add_flag("--exit-with-parent", options.exitWithParent, "Stop when the process that started it ends");

    const std::string answers = "Back-channel";
    CLI::Option* answer =
        app.add_option("--answer", options.answer.text, "Text that is sent back to the host")->group(answers);
    app.add_option("--answer-when", answerTime, "When to send it: open (at once) or document (after it)")
        ->check(CLI::IsMember({"open", "document"}))
        ->needs(answer)
        ->group(answers);

    const std::string faults = "Misbehaviour (also at run time, over the control API)";
    CLI::Option* mode = app.add_option("--fault", faultMode, "refuse, stall, slow or reset")
                            ->check(CLI::IsMember({"refuse", "stall", "slow", "reset"}))
                            ->group(faults);
    app.add_option("--fault-after", fault.after, "Bytes that are read normally first (suffixes K, M, G)")
        ->transform(CLI::AsSizeValue(false))
        ->needs(mode)
        ->group(faults);
    app.add_option("--fault-rate", fault.rate, "Bytes per second of slow (suffixes K, M, G)")
        ->transform(CLI::AsSizeValue(false))
        ->needs(mode)
        ->group(faults);
    CLI::Option* connections =
        app.add_option("--fault-connections", faultConnections, "How many connections; all, if not given")
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
