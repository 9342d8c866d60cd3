#include "printer/command_line.h"

#include <CLI/CLI.hpp>

namespace vlm::printer {

namespace {

void AddPrinterOptions(CLI::App& app, Options& options) {
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
}

// What the back channel says. The parser writes into this object, which has to outlive the parsing.
class AnswerOptions {
 public:
    AnswerOptions(CLI::App& app, Answer& answer) : answer_(answer), when_(NameIn(kAnswerTimes, answer.when)) {
        const std::string group = "Back-channel";
        CLI::Option* text =
            app.add_option("--answer", answer.text, "Text to send back to the host")->group(group);
        app.add_option("--answer-when", when_,
                       "When to send it: open (at once) or document (after the document)")
            ->check(CLI::IsMember({"open", "document"}))
            ->needs(text)
            ->group(group);
    }
    void Apply() { answer_.when = ValueIn(kAnswerTimes, when_).value_or(answer_.when); }

 private:
    Answer& answer_;
    std::string when_;
};

// The fault that the printer begins with. The parser writes into this object, too.
class FaultOptions {
 public:
    explicit FaultOptions(CLI::App& app) {
        const std::string group = "Faults (also at run time, through the control API)";
        CLI::Option* mode = app.add_option("--fault", mode_, "refuse, stall, slow or reset")
                                ->check(CLI::IsMember({"refuse", "stall", "slow", "reset"}))
                                ->group(group);
        app.add_option("--fault-after", fault_.after, "Bytes to read normally first (suffixes K, M, G)")
            ->transform(CLI::AsSizeValue(false))
            ->needs(mode)
            ->group(group);
        app.add_option("--fault-rate", fault_.rate, "Bytes per second for slow (suffixes K, M, G)")
            ->transform(CLI::AsSizeValue(false))
            ->needs(mode)
            ->group(group);
        connectionsOption_ = app.add_option("--fault-connections", connections_,
                                            "Number of connections that have the fault (default: all)")
                                 ->needs(mode)
                                 ->group(group);
    }
    // Throws UsageError.
    std::optional<Fault> Get() const {
        const auto mode = ValueIn(kFaultModes, mode_);
        if (!mode) return std::nullopt;
        Fault fault = fault_;
        fault.mode = *mode;
        if (connectionsOption_->count() > 0) fault.connections = connections_;
        if (const auto flaw = FindFlaw(fault)) throw UsageError(*flaw);
        return fault;
    }

 private:
    std::string mode_;
    Fault fault_;
    std::uint64_t connections_ = 0;
    const CLI::Option* connectionsOption_ = nullptr;
};

}  // namespace

std::optional<Options> ParseCommandLine(int argc, char** argv) {
    Options options;
    CLI::App app{
        "A virtual network printer for demos and tests. Stores the documents it receives, and misbehaves on "
        "request.",
        "vprinter"};
    app.option_defaults()->always_capture_default();
    AddPrinterOptions(app, options);
    AnswerOptions answer(app, options.answer);
    const FaultOptions fault(app);

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& help) {
        app.exit(help);
        return std::nullopt;
    } catch (const CLI::ParseError& e) {
        throw UsageError(e.what());
    }

    if (options.documentLimit == 0) throw UsageError("--max-document must be at least 1");
    answer.Apply();
    options.fault = fault.Get();
    return options;
}

}  // namespace vlm::printer
