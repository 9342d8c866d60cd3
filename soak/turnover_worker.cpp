#include "soak/workers.h"

namespace vlm::soak {

namespace {

constexpr DWORD kRefused = ERROR_PATH_NOT_FOUND;

}  // namespace

TurnoverWorker::TurnoverWorker(Stage& ownStage, const std::string& ownName, unsigned ownNumber,
                               std::wstring openPort, std::wstring printer)
    : Worker(ownStage, ownName, ownNumber),
      turning_(ownStage, L"USB-turning"),
      openPort_(std::move(openPort)),
      printer_(std::move(printer)),
      passing_(ownStage, L"IP_passing"),
      left_(ownStage, L"IP_left"),
      refusing_(ownStage, L"IP_refusing") {
    refusing_.openError = kRefused;
}

void TurnoverWorker::Step(Random& random) {
    switch (random.Below(8)) {
        case 0:
        case 1:
        case 2:
            OpenAndClose(random);
            break;
        case 3:
            OpenWrongly();
            break;
        case 4:
            AnotherManager(random);
            break;
        default:
            Turn();
    }
    Sleep(random.Between(5, 40));
}

Outcome TurnoverWorker::OpenWith(HANDLE manager, PrinterPort& below, std::wstring portName, HANDLE* handle) {
    std::wstring printer = printer_;
    return Do("OpenPortEx", [&] {
        return stage.table.pfnOpenPortEx(manager, static_cast<test::LowerMonitor*>(&below), portName.data(),
                                         printer.data(), handle, &below.table);
    });
}

void TurnoverWorker::OpenAndClose(Random& random) {
    HANDLE handle = nullptr;
    const Outcome opened = OpenWith(stage.host.Manager(), passing_, passing_.name, &handle);
    Check(opened.result && opened.error == kPoison, [] { return "a port does not open"; });
    if (!opened.result) return;
    if (random.OneIn(2)) PrintJob(*this, {passing_, handle, printer_}, random, Rivals::kNone);
    const Outcome closed = Do("ClosePort", [&] { return stage.table.pfnClosePort(handle); });
    Check(closed.result && closed.error == kPoison, [] { return "a port does not close"; });
}

void TurnoverWorker::OpenWrongly() {
    const int opens = passing_.opens;
    HANDLE handle = nullptr;
    const Outcome again = OpenWith(stage.host.Manager(), passing_, openPort_, &handle);
    const Outcome lost = OpenWith(&stage, passing_, passing_.name, &handle);
    Check(!again.result && again.error == ERROR_BUSY && !lost.result &&
              lost.error == ERROR_INVALID_MONITOR_HANDLE && passing_.opens == opens,
          [] { return "a wrong port opens, or is refused wrongly"; });
}

void TurnoverWorker::Turn() {
    if (turningHandle_ == nullptr) {
        const Outcome opened = OpenWith(stage.host.Manager(), turning_, turning_.name, &turningHandle_);
        Check(opened.result, [] { return "the USB port does not open"; });
    } else {
        const HANDLE handle = std::exchange(turningHandle_, nullptr);
        const Outcome closed = Do("ClosePort", [&] { return stage.table.pfnClosePort(handle); });
        Check(closed.result, [] { return "the USB port does not close"; });
    }
}

void TurnoverWorker::AnotherManager(Random& random) {
    HANDLE manager = nullptr;
    Do("another manager", [&]() -> BOOL {
        manager = stage.host.InitializeAgain();
        return manager != nullptr;
    });
    Check(manager != nullptr, [] { return "no further manager"; });
    if (manager == nullptr) return;
    HANDLE handle = nullptr;
    left_.Abandon();
    Check(OpenWith(manager, left_, left_.name, &handle).result,
          [] { return "another manager opens no port"; });
    if (random.OneIn(2)) PrintJob(*this, {left_, handle, printer_}, random, Rivals::kNone);
    // A port that the lower monitor does not open stays busy until the manager goes.
    for (const DWORD code : {kRefused, DWORD{ERROR_BUSY}}) {
        HANDLE none = nullptr;
        const Outcome outcome = OpenWith(manager, refusing_, refusing_.name, &none);
        Check(!outcome.result && outcome.error == code && none == nullptr,
              [&] { return "a port that is refused below: " + std::to_string(outcome.error); });
    }
    Do("Shutdown", [&] {
        stage.table.pfnShutdown(manager);
        return TRUE;
    });
}

}  // namespace vlm::soak
