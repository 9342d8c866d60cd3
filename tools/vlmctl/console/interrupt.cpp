#include "tools/vlmctl/console/interrupt.h"

#include <windows.h>

#include <cstdlib>
#include <mutex>
#include <optional>
#include <string_view>

#include "tools/vlmctl/console/console.h"
#include "tools/vlmctl/console/exit_status.h"

namespace vlm::ctl {

namespace {

constexpr DWORD kGrace = 5'000;  // milliseconds

struct Interruption {
    OnInterrupt::Then then;
    std::function<void()> act;
    bool raised = false;
};
std::mutex guard;
std::optional<Interruption> current;

// Whether the command ends by itself.
bool Raise() {
    const std::lock_guard lock(guard);
    if (!current || current->raised) return false;
    current->raised = true;
    current->act();
    return current->then == OnInterrupt::Then::kWait;
}

BOOL WINAPI Handle(DWORD) {
    if (Raise()) Sleep(kGrace);
    // Past the C library: the thread that was interrupted may hold the lock of its stream.
    constexpr std::string_view kLine = "vlmctl: interrupted\n";
    DWORD written = 0;
    WriteFile(GetStdHandle(STD_ERROR_HANDLE), kLine.data(), static_cast<DWORD>(kLine.size()), &written,
              nullptr);
    RestoreConsole();
    // Nothing else of the program runs any more: its threads may be anywhere.
    TerminateProcess(GetCurrentProcess(), kInterrupted);
    return TRUE;
}

}  // namespace

void WatchForInterrupt() {
    SetConsoleCtrlHandler(Handle, TRUE);
}

OnInterrupt::OnInterrupt(Then then, std::function<void()> act) {
    const std::lock_guard lock(guard);
    current = {then, std::move(act)};
}

OnInterrupt::~OnInterrupt() {
    const std::lock_guard lock(guard);
    current.reset();
}

bool OnInterrupt::Raised() const {
    const std::lock_guard lock(guard);
    return current && current->raised;
}

}  // namespace vlm::ctl
