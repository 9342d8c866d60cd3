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

constexpr char kToken[] = "\\Soak.Device:Token";
constexpr char kUnknown[] = "\\Soak.None";
constexpr DWORD kBelowError = ERROR_NOT_READY;

// The answer's entries as the commands show them, one line each.
using Lines = std::vector<std::string>;

std::string Line(DWORD request, const std::string& path, DWORD result, const std::string& value) {
    return std::to_string(request) + " " + path + " " + std::to_string(result) + " " + value;
}

std::string Join(const Lines& lines) {
    std::string text;
    for (const std::string& line : lines)
        text += (text.empty() ? "" : "; ") + line;
    return text;
}

const std::vector<std::vector<std::string>>& Questions() {
    static const std::vector<std::vector<std::string>> questions = {
        {kToken},
        {"\\Soak.Device"},
        {"\\Soak.Bins", kUnknown},
        {"\\Soak.Device:Base", "\\Soak.Device:Extra", kToken},
        {"\\"},
        {kUnknown},
    };
    return questions;
}

// What the printer tells about itself in one step.
struct Facts {
    std::string token;
    uint32_t level = 0;  // of the first bin; the second has the next number
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

// How the printer behaves, and whether its answer can be used. Nothing stands for a printer that is off.
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

// The engine's answer; nothing when it has none.
std::optional<Lines> EngineLines(const std::vector<std::string>& paths, int base, int extra,
                                 const Facts& facts, bool good) {
    if (base < 0 || extra < 0 || !good) return std::nullopt;
    // It does not ask the printer when no path is known.
    if (paths.size() == 1 && paths[0] == kUnknown) return std::nullopt;
    const std::pair<std::string, std::string> leaves[] = {
        {"\\Soak.Device:Base", std::to_string(base)},
        {kToken, facts.token},
        {"\\Soak.Device:Extra", std::to_string(extra)},
        {"\\Soak.Bins.Tray1:Level", std::to_string(facts.level)},
        {"\\Soak.Bins.Tray2:Level", std::to_string(facts.level + 1)},
    };
    Lines lines;
    for (DWORD i = 0; i < paths.size(); ++i) {
        const size_t before = lines.size();
        for (const auto& [path, value] : leaves) {
            const bool below = path.starts_with(paths[i] + ".") || path.starts_with(paths[i] + ":");
            if (path == paths[i] || below || paths[i] == "\\") lines.push_back(Line(i, path, 0, value));
        }
        if (lines.size() == before) lines.push_back(Line(i, paths[i], ERROR_NO_DATA, ""));
    }
    return lines;
}

// The lower monitor's entries, merged into the engine's: these win unless only the lower one succeeded.
Lines Merge(Lines engine, const std::vector<LowerEntry>& lower) {
    for (const LowerEntry& entry : lower) {
        const std::string question = std::to_string(entry.number) + " " + ToUtf8(entry.schema) + " ";
        const auto own = std::find_if(engine.begin(), engine.end(),
                                      [&](const std::string& line) { return line.starts_with(question); });
        const std::string line = Line(entry.number, ToUtf8(entry.schema), entry.result, ToUtf8(entry.text));
        if (own == engine.end()) {
            engine.push_back(line);
        } else if (!own->starts_with(question + "0 ") && entry.result == 0) {
            *own = line;
        }
    }
    return engine;
}

// The text of a whole outcome: "code 21", or the lines.
std::string Expected(const std::optional<Lines>& engine, DWORD lowerCode,
                     const std::vector<LowerEntry>& lower) {
    if (!engine && lowerCode != 0) return "code " + std::to_string(lowerCode);
    const Lines lines = Merge(engine.value_or(Lines()), lowerCode == 0 ? lower : std::vector<LowerEntry>());
    return lines.empty() ? "code " + std::to_string(ERROR_NO_DATA) : Join(lines);
}

std::string Query(Worker& worker, const OpenPort& port, const wchar_t* action,
                  const std::vector<std::string>& paths) {
    ctl::BidiRequest request(paths);
    BIDI_RESPONSE_CONTAINER* response = nullptr;
    const DWORD code = worker.DoForCode("Bidi query", [&] {
        return worker.stage.table.pfnSendRecvBidiDataFromPort(port.handle, PRINTER_ACCESS_USE, action,
                                                              request.Container(), &response);
    });
    if (code != 0) return "code " + std::to_string(code);
    Lines lines;
    for (const ctl::BidiAnswer& answer : ctl::TakeAnswers(response))
        lines.push_back(Line(answer.request, answer.path, answer.result, answer.value));
    return Join(lines);
}

// For a soak that has to find something.
void PlantLeaks(const Stage& stage) {
    // Many at a time: a slow machine makes few steps, and where small blocks are kept in groups these are
    // counted.
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
    const std::string got = Query(*this, usb_, L"Get", {kToken});
    const std::string expected = Line(0, kToken, ERROR_NO_DATA, "");
    Check(got == expected, [&] { return "a USB port answered " + got + ", not " + expected; });
}

void BidiWorker::Ask(const OpenPort& port, Random& random) {
    const Facts facts{name + "-" + std::to_string(StepNumber()), random.Below(100)};
    const Behaviour behaviour = DrawBehaviour(random, facts);
    const std::vector<std::string>& paths =
        Questions()[random.Below(static_cast<uint32_t>(Questions().size()))];
    const wchar_t* const action = random.OneIn(10) ? L"Set" : random.OneIn(2) ? L"Get" : L"GetAll";
    const DWORD lowerCode = random.OneIn(3) ? kBelowError : 0;
    std::vector<LowerEntry> lower;
    if (random.OneIn(2)) lower.push_back({7, 0, L"\\Below", L"here"});
    if (random.OneIn(2)) lower.push_back({0, 0, FromUtf8(paths[0]), L"below"});
    if (random.OneIn(4)) lower.push_back({1, 50, FromUtf8(kUnknown), L""});

    port.below.bidiCode = lowerCode;
    port.below.entries = lower;
    if (behaviour.script) printer_.Play(*behaviour.script);
    if (&port == &wsd_) {
        port.below.address = behaviour.script ? printer_.Url() : L"http://127.0.0.1:1/wsd/print/";
    } else {
        port.below.address = L"127.0.0.1:" + std::to_wstring(behaviour.script ? printer_.Port() : 1);
    }

    const ExtensionSet::Moment begin = files_.Begin();
    const std::string got = Query(*this, port, action, paths);
    const ExtensionSet::Seen seen = files_.End(begin);

    // Any action but the two goes down only. While a file changes, it may be that it cannot be read.
    const bool engineAsked = std::wstring(action) != L"Set";
    std::set<std::string> expected;
    if (!engineAsked || seen.Changed()) expected.insert(Expected(std::nullopt, lowerCode, lower));
    for (const int base : seen.states[0]) {
        for (const int extra : seen.states[1]) {
            if (!engineAsked) continue;
            expected.insert(
                Expected(EngineLines(paths, base, extra, facts, behaviour.good), lowerCode, lower));
        }
    }
    const bool planted = stage.Planted("stale-answer") && got.find(facts.token) != std::string::npos;
    Check(expected.contains(got) && !planted, [&] {
        return "a query of " + Join(paths) + (behaviour.good ? "" : ", the printer broken,") +
               " gave: " + got + " -- and not, for one: " + *expected.begin();
    });
}

void FileWorker::Step(Random& random) {
    const size_t file = random.Below(ExtensionSet::kFiles);
    const uint32_t kind = random.Below(10);
    // The step's number is a value that no earlier file had.
    const int state = kind == 0   ? ExtensionSet::kBroken
                      : kind == 1 ? ExtensionSet::kMissing
                                  : static_cast<int>(StepNumber()) + 1;
    Do("change of a file", [&]() -> BOOL { return files_.Change(file, state); });
    Sleep(random.Between(20, 200));
}

}  // namespace vlm::soak
