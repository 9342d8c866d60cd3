#include "soak/workers.h"

namespace vlm::soak {

namespace {

constexpr DWORD kRefused = ERROR_PATH_NOT_FOUND;

void Clear(PrinterPort& below, DWORD openError) {
    below.Abandon();
    below.openError = openError;
}

}  // namespace

TurnoverWorker::TurnoverWorker(Stage& ownStage, const std::string& ownName, unsigned ownNumber,
                               TurningPort& turning, std::wstring openPort, std::wstring printer)
    : Worker(ownStage, ownName, ownNumber),
      turning_(turning),
      openPort_(std::move(openPort)),
      printer_(std::move(printer)),
      passing_(ownStage, L"IP_passing"),
      left_(ownStage, L"IP_left"),
      refusing_(ownStage, L"IP_refusing") {}

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
    const auto refused = [&](const Outcome& outcome, DWORD code, const char* what) {
        Check(!outcome.result && outcome.error == code, [&] {
            return std::string(what) + ": " + std::to_string(outcome.result) + ", " +
                   std::to_string(outcome.error);
        });
    };
    refused(OpenWith(stage.host.Manager(), passing_, openPort_, &handle), ERROR_BUSY, "a port twice");
    refused(OpenWith(&stage, passing_, passing_.name, &handle), ERROR_INVALID_MONITOR_HANDLE, "no manager");
    refused(OpenWith(stage.host.Manager(), passing_, L"", &handle), ERROR_INVALID_PARAMETER, "no name");
    refused(Do("ClosePort", [&] { return stage.table.pfnClosePort(nullptr); }), ERROR_INVALID_PARAMETER,
            "no port");
    Check(passing_.opens == opens, [] { return "a wrong port was opened below"; });
}

void TurnoverWorker::Turn() {
    ++turning_.state;
    if (turningHandle_ == nullptr) {
        const Outcome opened =
            OpenWith(stage.host.Manager(), turning_.below, turning_.below.name, &turningHandle_);
        Check(opened.result, [] { return "the USB port does not open"; });
    } else {
        const HANDLE handle = std::exchange(turningHandle_, nullptr);
        const Outcome closed = Do("ClosePort", [&] { return stage.table.pfnClosePort(handle); });
        Check(closed.result, [] { return "the USB port does not close"; });
    }
    ++turning_.state;
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
    Clear(left_, 0);
    Check(OpenWith(manager, left_, left_.name, &handle).result,
          [] { return "another manager opens no port"; });
    if (random.OneIn(2)) PrintJob(*this, {left_, handle, printer_}, random, Rivals::kNone);
    // A port that the lower monitor does not open stays busy until the manager goes.
    Clear(refusing_, kRefused);
    for (const DWORD code : {kRefused, DWORD{ERROR_BUSY}}) {
        HANDLE none = nullptr;
        const Outcome outcome = OpenWith(manager, refusing_, refusing_.name, &none);
        Check(!outcome.result && outcome.error == code,
              [&] { return "a port that is refused below: " + std::to_string(outcome.error); });
    }
    Do("Shutdown", [&] {
        stage.table.pfnShutdown(manager);
        return TRUE;
    });
}

}  // namespace vlm::soak
