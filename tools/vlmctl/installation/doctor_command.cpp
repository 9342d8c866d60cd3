// vlmctl doctor: whether everything that the monitor needs is in place, and what to do about what is not.
#include <array>
#include <memory>

#include "tools/vlmctl/console/command.h"
#include "tools/vlmctl/console/console.h"
#include "tools/vlmctl/console/table.h"
#include "tools/vlmctl/installation/doctor_checks.h"
#include "tools/vlmctl/installation/installation_commands.h"

namespace vlm::ctl {

namespace {

struct DoctorOptions {
    std::string printer;
    std::string iniFile;
    std::string queue;
    bool json = false;
};

// Shows results as they come and counts what is wrong: a check may wait for a printer.
class Report {
 public:
    explicit Report(bool json) : json_(json) {}

    void Show(const CheckResult& result) {
        if (json_)
            checks_.push_back(
                {{"check", result.what}, {"health", Word(result.health)}, {"text", result.text}});
        else
            PrintLine("{:<8} {:<11} {}", Word(result.health), result.what, result.text);
        if (result.health == Health::kWrong) ++wrong_;
        ++count_;
    }
    void End() const {
        if (json_) PrintJson(checks_);
        if (wrong_ > 0) throw CommandError(fmt::format("{} of {} checks failed", wrong_, count_));
    }

 private:
    static const char* Word(Health health) {
        static constexpr std::array kWords{"ok", "wrong", "unknown"};
        return kWords[static_cast<size_t>(health)];
    }

    bool json_;
    Json checks_ = Json::array();
    int wrong_ = 0;
    int count_ = 0;
};

void Examine(const DoctorOptions& options) {
    Report report(options.json);
    report.Show(CheckRegistration());
    report.Show(CheckImage());
    report.Show(CheckEventWindow());
    for (const CheckResult& result : CheckRpc())
        report.Show(result);
    if (!options.printer.empty()) report.Show(CheckPrinter(options.printer));
    if (!options.iniFile.empty()) report.Show(CheckIniFile(options.iniFile));
    if (!options.queue.empty()) report.Show(CheckDriverOf(options.queue));
    report.End();
}

}  // namespace

void AddDoctorCommand(CLI::App& app) {
    auto options = std::make_shared<DoctorOptions>();
    CLI::App* command = app.add_subcommand("doctor", "Check the installation and suggest how to fix it");
    command->add_option("--printer", options->printer,
                        "Also check a printer: the URL of its print service, or HOST[:PORT] of its raw port");
    command->add_option("--driver", options->iniFile,
                        "Also check a driver's INI file and the extension files it names");
    command->add_option("--queue", options->queue, "Also check the driver of this installed printer");
    command->add_flag("--json", options->json, "Print JSON instead of text, after the last check");
    command->callback([options] { Examine(*options); });
}

}  // namespace vlm::ctl
