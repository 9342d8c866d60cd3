#include <algorithm>
#include <optional>
#include <vector>

#include "soak/workers.h"
#include "tools/vlmctl/bidi/containers.h"
#include "util/text.h"

namespace vlm::soak {

namespace {

using test::Http;
using test::LowerEntry;
using test::Script;

constexpr char kBase[] = "\\Soak.Device:Base";
constexpr char kExtra[] = "\\Soak.Device:Extra";
constexpr char kToken[] = "\\Soak.Device:Token";
constexpr char kUnknown[] = "\\Soak.None";
constexpr char kBelow[] = "\\Below";
constexpr DWORD kBelowError = ERROR_NOT_READY;

struct Question {
    std::vector<std::string> paths;
    size_t leaves;  // of the extension files
};
const std::vector<Question>& Questions() {
    static const std::vector<Question> questions = {
        {{kToken}, 1}, {{"\\Soak.Device"}, 3}, {{"\\Soak.Bins", kUnknown}, 2}, {{kBase, kExtra, kToken}, 3},
        {{"\\"}, 5},   {{kUnknown}, 0},
    };
    return questions;
}

// What the printer tells about itself in one step.
struct Facts {
    std::string token;
    uint32_t level = 0;  // of the first bin; the second has the next number
    std::string below;   // what the lower monitor gives as a value
};

std::string Answer(const Facts& facts) {
    const auto bin = [](const char* name, uint32_t level) {
        return "<p:InputBinEntry Name='" + std::string(name) + "'>\n<p:Level>" + std::to_string(level) +
               "</p:Level></p:InputBinEntry>\n";
    };
    return "<?xml version='1.0' encoding='utf-8'?>\n"
           "<s:Envelope xmlns:s='http://www.w3.org/2003/05/soap-envelope'"
           " xmlns:p='http://schemas.microsoft.com/windows/2006/08/wdp/print'>\n"
           "<s:Body><p:GetPrinterElementsResponse><p:PrinterElements>\n"
           "<p:ElementData Name='p:PrinterDescription' Valid='true'><p:PrinterDescription><p:PrinterName>" +
           facts.token +
           "</p:PrinterName></p:PrinterDescription></p:ElementData>\n"
           "<p:ElementData Name='p:PrinterConfiguration' "
           "Valid='true'><p:PrinterConfiguration><p:InputBins>\n" +
           bin("Tray1", facts.level) + bin("Tray2", facts.level + 1) +
           "</p:InputBins></p:PrinterConfiguration></p:ElementData>\n"
           "</p:PrinterElements></p:GetPrinterElementsResponse></s:Body></s:Envelope>\n";
}

// In pieces, with a pause after each.
Script InPieces(const std::string& whole, size_t piece, DWORD pause) {
    Script script{test::ReadRequest()};
    for (size_t at = 0; at < whole.size(); at += piece)
        script.push_back(test::Send(whole.substr(at, piece), 1, pause));
    return script;
}

// How the printer behaves (no script: it is off), and whether its answer can be used.
struct Behaviour {
    std::optional<Script> script;
    bool good = false;
};

Behaviour DrawBehaviour(Random& random, const Facts& facts) {
    const std::string answer = Answer(facts);
    const std::string whole = Http("200 OK", answer);
    switch (random.Below(24)) {
        case 0:
            return {std::nullopt, false};
        case 1:
            return {Script{test::ReadRequest(), test::Reset()}, false};
        case 2:
            return {Script{test::ReadRequest()}, false};
        case 3:
            return {test::Answer(Http("404 Not Found", "<html/>")), false};
        case 4:
            return {test::Answer(Http("500 Internal Server Error",
                                      "<s:Envelope xmlns:s='http://www.w3.org/2003/05/soap-envelope'><s:Body>"
                                      "<s:Fault/></s:Body></s:Envelope>")),
                    false};
        case 5:
            return {test::Answer(Http("200 OK", "busy")), false};
        case 6:
            return {test::Answer(whole.substr(0, whole.size() - answer.size() / 2)), false};
        case 7:
            return {InPieces(whole, 400, 5), true};
        case 8:
            // Costs a query its whole time-out.
            if (random.OneIn(10)) return {Script{test::ReadRequest(), test::Hold()}, false};
            [[fallthrough]];
        default:
            return {test::Answer(whole), true};
    }
}

struct Result {
    DWORD code = 0;
    std::vector<ctl::BidiAnswer> answers;

    bool Has(const char* path) const {
        return std::any_of(answers.begin(), answers.end(),
                           [&](const auto& answer) { return answer.path == path; });
    }
    std::string Text() const {
        std::string text = "code " + std::to_string(code);
        for (const ctl::BidiAnswer& answer : answers)
            text += "; " + std::to_string(answer.request) + " " + answer.path + " " +
                    std::to_string(answer.result) + " " + answer.value;
        return text;
    }
};

Result Query(Worker& worker, const OpenPort& port, const wchar_t* action,
             const std::vector<std::string>& paths) {
    ctl::BidiRequest request(paths);
    BIDI_RESPONSE_CONTAINER* response = nullptr;
    Result result;
    result.code = worker.DoForCode("Bidi query", [&] {
        return worker.stage.table.pfnSendRecvBidiDataFromPort(port.handle, PRINTER_ACCESS_USE, action,
                                                              request.Container(), &response);
    });
    if (result.code == 0) result.answers = ctl::TakeAnswers(response);
    return result;
}

// Whether an engine's value comes from this step's printer, or from a file not older than the query.
bool IsCurrent(const ctl::BidiAnswer& answer, const Facts& facts, const ExtensionSet::State& files) {
    if (answer.path == kBase) return std::stoi(answer.value) >= files.numbers[0];
    if (answer.path == kExtra) return std::stoi(answer.value) >= files.numbers[1];
    if (answer.path == kToken) return answer.value == facts.token;
    const bool first = answer.path == "\\Soak.Bins.Tray1:Level";
    return (first || answer.path == "\\Soak.Bins.Tray2:Level") &&
           answer.value == std::to_string(facts.level + (first ? 0 : 1));
}

// For the test of the checks.
void PlantLeaks(const Stage& stage) {
    // Many at a time: a slow machine makes few steps, and newer versions of Wine count groups of blocks.
    for (int i = 0; i < 500 && stage.Planted("leak-block"); ++i)
        static_cast<void>(HeapAlloc(GetProcessHeap(), 0, 100));
    for (int i = 0; i < 10 && stage.Planted("leak-handle"); ++i)
        static_cast<void>(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (stage.Planted("leak-router")) static_cast<void>(RouterAllocBidiMem(8));
}

}  // namespace

BidiWorker::BidiWorker(Stage& ownStage, const std::string& ownName, unsigned ownNumber, ExtensionSet& files,
                       OpenPort tcp, OpenPort wsd, OpenPort usb)
    : Worker(ownStage, ownName, ownNumber),
      files_(files),
      tcp_(std::move(tcp)),
      wsd_(std::move(wsd)),
      usb_(std::move(usb)),
      printer_(Script{}) {}

void BidiWorker::Step(Random& random) {
    if (random.OneIn(12)) {
        AskLocally();
    } else {
        Ask(random.OneIn(3) ? wsd_ : tcp_, random);
    }
    PlantLeaks(stage);
    Sleep(random.Below(20));
}

void BidiWorker::AskLocally() {
    const Result got = Query(*this, usb_, L"Get", {kToken});
    Check(got.answers.size() == 1 && got.answers[0].path == kToken && got.answers[0].result == ERROR_NO_DATA,
          [&] { return "a USB port answered " + got.Text(); });
}

void BidiWorker::Ask(const OpenPort& port, Random& random) {
    const std::string step = name + "-" + std::to_string(StepNumber());
    Facts facts{step, random.Below(100), step + "-below"};
    const Behaviour behaviour = DrawBehaviour(random, facts);
    if (stage.Planted("stale-answer")) facts.token += "-new";
    const Question& question = Questions()[random.Below(static_cast<uint32_t>(Questions().size()))];
    const wchar_t* const action = random.OneIn(10) ? L"Set" : random.OneIn(2) ? L"Get" : L"GetAll";
    const DWORD lowerCode = random.OneIn(3) ? kBelowError : 0;
    const bool belowKnows = random.OneIn(2);
    std::vector<LowerEntry> lower;
    if (belowKnows) lower.push_back({7, 0, FromUtf8(kBelow), FromUtf8(facts.below)});
    if (random.OneIn(2)) lower.push_back({0, 0, FromUtf8(question.paths[0]), FromUtf8(facts.below)});
    if (random.OneIn(4)) lower.push_back({1, 50, FromUtf8(kUnknown), L""});

    port.below.bidiCode = lowerCode;
    port.below.entries = lower;
    if (behaviour.script) printer_.Play(*behaviour.script);
    if (&port == &wsd_) {
        port.below.address = behaviour.script ? printer_.Url() : L"http://127.0.0.1:1/wsd/print/";
    } else {
        port.below.address = L"127.0.0.1:" + std::to_wstring(behaviour.script ? printer_.Port() : 1);
    }

    const ExtensionSet::State before = files_.Now();
    const Result got = Query(*this, port, action, question.paths);
    const ExtensionSet::State after = files_.Now();

    size_t fromEngine = 0;
    bool good = true;
    for (const ctl::BidiAnswer& answer : got.answers) {
        if (answer.result != 0 || answer.value == facts.below) continue;
        ++fromEngine;
        good = good && IsCurrent(answer, facts, before);
    }
    good = good && got.Has(kBelow) == (belowKnows && lowerCode == 0);
    // The engine answers only "Get" and "GetAll". A file that is being changed may be unreadable.
    const bool forEngine = std::wstring(action) != L"Set";
    if (!forEngine || (before.changes == after.changes && before.changes % 2 == 0)) {
        const bool answers = forEngine && behaviour.good && before.Readable() && question.leaves != 0;
        const DWORD alone = lowerCode == 0 && lower.empty() ? ERROR_NO_DATA : lowerCode;
        good = good && fromEngine == (answers ? question.leaves : 0) && got.code == (answers ? 0 : alone);
    }
    Check(good, [&] {
        return "a query of " + question.paths[0] + (behaviour.good ? "" : ", the printer broken,") +
               " gave " + got.Text();
    });
}

void FileWorker::Step(Random& random) {
    const size_t file = random.Below(ExtensionSet::kFiles);
    const uint32_t drawn = random.Below(10);
    const auto kind = drawn == 0   ? ExtensionSet::Kind::kBroken
                      : drawn == 1 ? ExtensionSet::Kind::kMissing
                                   : ExtensionSet::Kind::kGood;
    Do("change of a file",
       [&]() -> BOOL { return files_.Change(file, kind, static_cast<int>(StepNumber()) + 1); });
    Sleep(random.Between(20, 200));
}

}  // namespace vlm::soak
