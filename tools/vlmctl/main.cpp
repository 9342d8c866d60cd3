// vlmctl: the companion of the language monitor, for the driver engineer and the administrator.
#include <windows.h>
// windows.h first.
#include <shellapi.h>

#include <fmt/format.h>

#include <cstdio>
#include <string>
#include <vector>

#include "tools/vlmctl/bidi/bidi_commands.h"
#include "tools/vlmctl/console/command.h"
#include "tools/vlmctl/console/console.h"
#include "tools/vlmctl/console/interrupt.h"
#include "tools/vlmctl/console/product.h"
#include "tools/vlmctl/console/trace_view.h"
#include "tools/vlmctl/installation/installation_commands.h"
#include "tools/vlmctl/printer/printer_commands.h"
#include "tools/vlmctl/remote/remote_commands.h"
#include "tools/vlmctl/trace/trace_command.h"
#include "util/com.h"
#include "util/handles.h"
#include "util/text.h"
#include "util/trace.h"

namespace {

using namespace vlm::ctl;

// The arguments in UTF-8, last first, as the parser takes them.
std::vector<std::string> Arguments() {
    struct ListTraits {
        using Type = LPWSTR*;
        static Type Invalid() { return nullptr; }
        static void Close(Type list) { LocalFree(list); }
    };
    int count = 0;
    const vlm::Unique<ListTraits> wide(CommandLineToArgvW(GetCommandLineW(), &count));
    std::vector<std::string> arguments;
    for (int i = count - 1; i > 0; --i)
        arguments.push_back(vlm::ToUtf8(wide.Get()[i]));
    return arguments;
}

int Complain(const std::string& what, int status) {
    const std::string line = "vlmctl: " + what + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
    return status;
}

// What is missing is often there, but misspelt.
std::string Unknown(const CLI::App& app, const CLI::ParseError& error) {
    const std::vector<std::string> unknown = app.remaining(true);
    const bool told = dynamic_cast<const CLI::RequiredError*>(&error) == nullptr;
    return told || unknown.empty() ? "" : " (unknown: '" + unknown.front() + "')";
}

int Run() {
    CLI::App app("Companion of the language monitor vllm3mon.dll", "vlmctl");
    app.set_version_flag("--version", OwnVersion());
    app.require_subcommand(1);
    app.allow_windows_style_options(false);  // a path that begins with a slash is a path
    app.add_flag_callback("--trace", ShowTrace, "Show the monitor's trace on standard error");
    AddBidiCommands(app);
    AddDeptIdCommand(app);
    AddPrintCommand(app);
    AddStatusCommand(app);
    AddWsdCommand(app);
    AddRpcCommands(app);
    AddVpcaCommands(app);
    AddTraceCommand(app);
    AddDoctorCommand(app);
    AddInstallCommands(app);
    try {
        app.parse(Arguments());
        return kDone;
    } catch (const CLI::Success& help) {
        return app.exit(help);
    } catch (const CLI::RuntimeError& answer) {
        return answer.get_exit_code();
    } catch (const CLI::ParseError& error) {
        return Complain(error.what() + Unknown(app, error) + "; see --help", kWrongUsage);
    }
}

}  // namespace

int main() {
    try {
        WatchForInterrupt();
        PrepareConsole();
        vlm::ReadTraceLevel();
        if (const std::wstring level = vlm::UnknownTraceLevel(); !level.empty())
            Complain("VLLM3MON_TRACE=" + Shown(level) +
                         " is not a trace level (off, error, info or verbose); tracing errors only",
                     kDone);
        return Run();
    } catch (const CommandError& error) {
        return Complain(error.what(), error.Status());
    } catch (const std::exception& error) {
        return Complain(error.what(), kFailed);
    } catch (const _com_error& error) {
        return Complain(fmt::format("failed (0x{:08X})", static_cast<unsigned long>(error.Error())), kFailed);
    } catch (...) {
        return Complain("failed for an unknown reason", kFailed);
    }
}
