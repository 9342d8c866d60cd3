// The kinds of workers of a soak.
#pragma once

#include <string>
#include <utility>

#include "soak/extension_set.h"
#include "soak/print_job.h"
#include "soak/worker.h"
#include "tests/support/scripted_server.h"
#include "tools/vlmctl/exchange/rpc_client.h"

namespace vlm::soak {

// Prints jobs on one port.
class PrintWorker : public Worker {
 public:
    PrintWorker(Stage& ownStage, const std::string& ownName, unsigned ownNumber, OpenPort port, Rivals rivals)
        : Worker(ownStage, ownName, ownNumber), port_(std::move(port)), rivals_(rivals) {}

 private:
    void Step(Random& random) override;

    const OpenPort port_;
    const Rivals rivals_;
};

// Asks Bidi queries over a TCP/IP port, a WSD port and a USB port, of a printer that behaves as the step
// says.
class BidiWorker : public Worker {
 public:
    BidiWorker(Stage& ownStage, const std::string& ownName, unsigned ownNumber, ExtensionSet& files,
               OpenPort tcp, OpenPort wsd, OpenPort usb);

 private:
    void Step(Random& random) override;
    void AskLocally();
    void Ask(const OpenPort& port, Random& random);

    ExtensionSet& files_;
    const OpenPort tcp_;
    const OpenPort wsd_;
    const OpenPort usb_;
    test::ScriptedServer printer_;
};

// Replaces the extension files with others or broken ones, or deletes them.
class FileWorker : public Worker {
 public:
    FileWorker(Stage& ownStage, const std::string& ownName, unsigned ownNumber, ExtensionSet& files)
        : Worker(ownStage, ownName, ownNumber), files_(files) {}

 private:
    void Step(Random& random) override;

    ExtensionSet& files_;
};

// Calls the remote procedures, on a port of its own, on one that it shares, and on one that opens and closes.
class RemoteWorker : public Worker {
 public:
    RemoteWorker(Stage& ownStage, const std::string& ownName, unsigned ownNumber,
                 const ctl::RpcClient& client, std::string own)
        : Worker(ownStage, ownName, ownNumber), client_(client), own_(std::move(own)) {}

 private:
    void Step(Random& random) override;

    const ctl::RpcClient& client_;
    const std::string own_;
};

// Sends suspend notices to the monitor's window. Now and then it keeps jobs from starting meanwhile and
// checks that a write is refused.
class SuspendWorker : public Worker {
 public:
    SuspendWorker(Stage& ownStage, const std::string& ownName, unsigned ownNumber, OpenPort port)
        : Worker(ownStage, ownName, ownNumber), port_(std::move(port)) {}

 private:
    void Step(Random& random) override;
    void Notify();

    const OpenPort port_;
};

// Opens and closes ports, also with wrong arguments, and makes further managers.
class TurnoverWorker : public Worker {
 public:
    TurnoverWorker(Stage& ownStage, const std::string& ownName, unsigned ownNumber, std::wstring openPort,
                   std::wstring printer);

 private:
    void Step(Random& random) override;
    Outcome OpenWith(HANDLE manager, PrinterPort& below, std::wstring name, HANDLE* handle);
    void OpenAndClose(Random& random);
    void OpenWrongly();
    void Turn();
    void AnotherManager(Random& random);

    PrinterPort turning_;
    HANDLE turningHandle_ = nullptr;
    const std::wstring openPort_;
    const std::wstring printer_;
    PrinterPort passing_;
    PrinterPort left_;
    PrinterPort refusing_;
};

}  // namespace vlm::soak
