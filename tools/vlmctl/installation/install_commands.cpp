// vlmctl install, uninstall: the monitor into the system and out of it, for a machine without a driver
// package that does it.
#include <array>
#include <filesystem>
#include <memory>

#include "spooler/host/monitor_host.h"
#include "tools/vlmctl/console/console.h"
#include "tools/vlmctl/console/product.h"
#include "tools/vlmctl/installation/installation_commands.h"
#include "tools/vlmctl/installation/monitor_installation.h"
#include "util/text.h"

namespace vlm::ctl {

namespace {

struct InstallOptions {
    std::string dll;
    std::string name = kMonitorName;
};

void Install(const InstallOptions& options) {
    const std::wstring dll = options.dll.empty() ? host::BesideProgram(kMonitorFile)
                                                 : std::filesystem::absolute(FromUtf8(options.dll)).wstring();
    const std::wstring copy = InstallMonitor(dll, FromUtf8(options.name));
    PrintLine("installed     {}", options.name);
    PrintLine("file          {}", ToUtf8(copy));
}

void Uninstall(const std::string& name) {
    const CopyAfterRemoval copy = RemoveMonitor(FromUtf8(name));
    PrintLine("uninstalled   {}", name);
    // By CopyAfterRemoval.
    static constexpr std::array<std::pair<const char*, const char*>, 4> kFates{
        {{"deleted", ""},
         {"file", " did not exist"},
         {"kept", "; another monitor uses it"},
         {"renamed", "; it is still loaded and is deleted at the next restart"}}};
    const auto& [word, rest] = kFates[static_cast<size_t>(copy)];
    PrintLine("{:<13} {}{}", word, ToUtf8(InSystemFolder(kMonitorFile)), rest);
}

}  // namespace

void AddInstallCommands(CLI::App& app) {
    auto options = std::make_shared<InstallOptions>();
    CLI::App* install = app.add_subcommand("install", "Install the monitor on this machine");
    install->add_option("--dll", options->dll,
                        "Monitor DLL to install (default: the one next to this program)");
    CLI::App* uninstall = app.add_subcommand("uninstall", "Remove the monitor from this machine");
    for (CLI::App* command : {install, uninstall})
        command->add_option("--name", options->name, "Name under which drivers refer to it")
            ->capture_default_str();
    install->callback([options] { Install(*options); });
    uninstall->callback([options] { Uninstall(options->name); });
}

}  // namespace vlm::ctl
