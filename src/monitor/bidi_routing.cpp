#include "monitor/bidi_routing.h"

#include <cstddef>
#include <cwchar>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "bidi/bidi_req.h"
#include "bidi/velunbidispl.h"
#include "monitor/lm_manager.h"
#include "monitor/module_explorer.h"
#include "monitor/remote_ports.h"
#include "soap/printer_elements.h"
#include "util/com.h"
#include "util/scope_exit.h"
#include "util/trace_lines.h"

namespace vlm {

namespace {

constexpr wchar_t kGet[] = L"Get";
constexpr wchar_t kGetAll[] = L"GetAll";
constexpr wchar_t kEnumSchema[] = L"EnumSchema";

bool Equal(const wchar_t* one, const wchar_t* other) {
    return std::wcscmp(one, other) == 0;
}

// Says in the trace why, and returns the code.
DWORD Refuse(const LmPort& port, DWORD code, const wchar_t* reason) noexcept {
    TraceRefusal(port.portName, reason, code);
    return code;
}

DWORD Refuse(const LmPort& port, const Outcome& outcome) noexcept {
    return Refuse(port, Win32FromHresult(outcome), outcome.Reason());
}

// Runs a step that returns a Win32 code; what it throws becomes one.
template <typename Step>
DWORD GuardCode(const LmPort& port, Step&& step) noexcept {
    try {
        return step();
    } catch (...) {
        return Refuse(port, CaughtOutcome());
    }
}

// An answer that is given back to the router at the end of the scope.
class Answer {
 public:
    explicit Answer(const CBidiMem& memory) : memory_(memory) {}
    ~Answer() { memory_.FreeContainer(container_); }
    Answer(const Answer&) = delete;
    Answer& operator=(const Answer&) = delete;

    // To be filled, or to be taken over by setting it to null.
    BIDI_RESPONSE_CONTAINER** Place() { return &container_; }

 private:
    const CBidiMem& memory_;
    BIDI_RESPONSE_CONTAINER* container_ = nullptr;
};

// What two entries must have in common to answer the same question.
struct Question {
    std::wstring_view schema;
    DWORD number;
    bool operator==(const Question&) const = default;
};

Question QuestionOf(const BIDI_RESPONSE_DATA& entry) {
    return {entry.pSchema != nullptr ? entry.pSchema : std::wstring_view(), entry.dwReqNumber};
}

struct QuestionHash {
    size_t operator()(const Question& question) const {
        return std::hash<std::wstring_view>()(question.schema) * 31 + question.number;
    }
};

// The first entry for each question.
using EntryIndex = std::unordered_map<Question, const BIDI_RESPONSE_DATA*, QuestionHash>;

EntryIndex IndexOf(const BIDI_RESPONSE_CONTAINER& answer) {
    EntryIndex index;
    index.reserve(answer.Count);
    for (DWORD i = 0; i < answer.Count; ++i)
        index.try_emplace(QuestionOf(answer.aData[i]), &answer.aData[i]);
    return index;
}

void Tally(const LmPort& port, const BIDI_RESPONSE_DATA& entry, AnsweredBy by, QueryTally& tally) {
    TallyEntry(port.portName, entry.pSchema, entry.dwResult, by, &tally);
}

void TallyAll(const LmPort& port, const BIDI_RESPONSE_CONTAINER* answer, AnsweredBy by, QueryTally& tally) {
    if (answer == nullptr) return;
    for (DWORD i = 0; i < answer->Count; ++i)
        Tally(port, answer->aData[i], by, tally);
}

struct PickedEntry {
    const BIDI_RESPONSE_DATA* entry;
    AnsweredBy by;
};

// The entries of the merge, still in the memory of the two answers.
std::vector<PickedEntry> PickEntries(const BIDI_RESPONSE_CONTAINER& engine,
                                     const BIDI_RESPONSE_CONTAINER& lower) {
    const EntryIndex byEngine = IndexOf(engine);
    const EntryIndex byLower = IndexOf(lower);
    std::vector<PickedEntry> picked;
    picked.reserve(size_t{engine.Count} + lower.Count);
    for (DWORD i = 0; i < engine.Count; ++i) {
        const BIDI_RESPONSE_DATA& own = engine.aData[i];
        const auto found = own.dwResult != 0 ? byLower.find(QuestionOf(own)) : byLower.end();
        const bool lowerWins = found != byLower.end() && found->second->dwResult == 0;
        picked.push_back(lowerWins ? PickedEntry{found->second, AnsweredBy::kLowerMonitor}
                                   : PickedEntry{&own, AnsweredBy::kEngine});
    }
    for (DWORD i = 0; i < lower.Count; ++i)
        if (!byEngine.contains(QuestionOf(lower.aData[i])))
            picked.push_back({&lower.aData[i], AnsweredBy::kLowerMonitor});
    return picked;
}

bool IsEmpty(const BIDI_RESPONSE_CONTAINER* answer) {
    return answer == nullptr || answer->Count == 0;
}

// One container of both answers: the engine's entries in their order, each replaced by the lower monitor's of
// the same schema (with regard to case) and request number where only that one succeeded, then the lower
// monitor's for what the engine did not answer. Where one answer is null or empty the other is taken over
// into `*merged`, uncopied, and its pointer set to null; otherwise the entries are copies. `*merged` is null
// when both are null or empty. 0, or 14 when memory runs out. The merged entries are added to the tally.
DWORD MergeAnswers(const CBidiMem& memory, BIDI_RESPONSE_CONTAINER** engine, BIDI_RESPONSE_CONTAINER** lower,
                   DWORD version, DWORD flags, BIDI_RESPONSE_CONTAINER** merged, const LmPort& port,
                   QueryTally& tally) {
    *merged = nullptr;
    if (IsEmpty(*engine) && IsEmpty(*lower)) return ERROR_SUCCESS;
    if (IsEmpty(*engine) || IsEmpty(*lower)) {
        const AnsweredBy by = IsEmpty(*engine) ? AnsweredBy::kLowerMonitor : AnsweredBy::kEngine;
        *merged = std::exchange(by == AnsweredBy::kEngine ? *engine : *lower, nullptr);
        (*merged)->Version = version;
        (*merged)->Flags = flags;
        TallyAll(port, *merged, by, tally);
        return ERROR_SUCCESS;
    }
    const auto picked = PickEntries(**engine, **lower);
    const size_t size = offsetof(BIDI_RESPONSE_CONTAINER, aData) + picked.size() * sizeof(BIDI_RESPONSE_DATA);
    // Shallow, for one deep copy of all at once.
    const GlobalMemory gathered(GlobalAlloc(GPTR, size));
    if (!gathered) return ERROR_OUTOFMEMORY;
    auto* container = static_cast<BIDI_RESPONSE_CONTAINER*>(gathered.Get());
    for (const PickedEntry& each : picked)
        container->aData[container->Count++] = *each.entry;
    *merged = memory.Merge(container, nullptr, version, flags);
    if (*merged == nullptr) return ERROR_OUTOFMEMORY;
    for (const PickedEntry& each : picked)
        Tally(port, *each.entry, each.by, tally);
    return ERROR_SUCCESS;
}

Outcome AnswerFromPrinter(CLmMgr& manager, const LmPort& port, const BIDI_REQUEST_CONTAINER* request,
                          BIDI_RESPONSE_CONTAINER** response) {
    const std::wstring printerName = manager.PrinterNameOf(port);
    _bstr_t files;
    HRESULT hr = BuildExtensionFileList(printerName.c_str(), files.GetAddress());
    if (FAILED(hr)) return {hr, L"the driver's extension files cannot be listed"};
    CVelunBidiSpl engine;
    hr = engine.Init(printerName.c_str(), files);
    if (FAILED(hr)) return {hr, engine.Reason()};
    _bstr_t query;
    hr = engine.EnumQueryElement(request, query.GetAddress());
    // The printer need not be asked.
    if (hr == S_FALSE) return {E_INVALIDARG, L"the extension files have none of the paths"};
    if (FAILED(hr)) return {hr, engine.Reason()};

    std::wstring address;
    std::string answer;
    std::string document;
    std::vector<NamespaceDeclaration> prefixes;
    int status = 0;
    Outcome fetched = manager.GetPrinterAddress(port, &address);
    if (SUCCEEDED(fetched)) fetched = FetchPrinterElements(address.c_str(), query, &answer, &status);
    if (FAILED(fetched)) return fetched;
    hr = engine.GetPrefixes(&prefixes);
    if (FAILED(hr)) return {hr, engine.Reason()};
    Outcome cleaned = CleanPrinterElements(answer, prefixes, &document, status);
    if (FAILED(cleaned)) return cleaned;
    hr = engine.SetGetPrinterElementResponse(document);
    // A "Get" of a property, too, is answered with all that lies below it.
    if (SUCCEEDED(hr)) hr = engine.SendRecvBidiDataFromPort(kGetAll, request, response);
    return {hr, engine.Reason()};
}

DWORD AnswerNetworkPort(LmPort& port, DWORD accessBit, const wchar_t* action, BIDI_REQUEST_CONTAINER* request,
                        BIDI_RESPONSE_CONTAINER** response, QueryTally& tally) {
    if (action == nullptr || request == nullptr || response == nullptr)
        return Refuse(port, ERROR_INVALID_PARAMETER, L"a query without action, request or response");
    if (port.owner->IsPooledPrinter(port))
        return Refuse(port, ERROR_NOT_SUPPORTED, L"no Bidi for a pooled printer");
    if (Equal(action, kEnumSchema)) {
        const DWORD code =
            port.lower.base.pfnSendRecvBidiDataFromPort(port.lowerPort, accessBit, action, request, response);
        // The answer is not looked at: nothing says that there is one.
        return code == ERROR_SUCCESS ? code
                                     : Refuse(port, code, L"the lower monitor does not list its schemas");
    }
    *response = nullptr;
    // Outlives the request. COM of another mode on this thread is as good; without any COM the engine fails,
    // and the lower monitor answers alone.
    const ComApartment apartment(COINIT_APARTMENTTHREADED);
    CBidiReq query(accessBit, action, request);
    const DWORD code = port.owner->QueryBidi(port, query, &tally);
    if (code != ERROR_SUCCESS) return code;
    *response = query.DetachResponse();
    return *response != nullptr ? ERROR_SUCCESS : Refuse(port, ERROR_NO_DATA, L"nothing to answer");
}

}  // namespace

DWORD AskLower(const LmPort& port, DWORD accessBit, const wchar_t* action,
               const BIDI_REQUEST_CONTAINER* request, const CBidiMem& memory,
               BIDI_RESPONSE_CONTAINER** answer, const wchar_t** reason) noexcept {
    *answer = nullptr;
    *reason = L"the lower monitor gave no answer";
    DWORD code = ERROR_SUCCESS;
    try {
        const auto ask = port.lower.base.pfnSendRecvBidiDataFromPort;
        if (ask == nullptr) return ERROR_NOT_SUPPORTED;
        if (port.use.closing.load()) return ERROR_OPERATION_ABORTED;
        // The slot's type lacks the const that its contract has: a request is only read.
        code = ask(port.lowerPort, accessBit, action, const_cast<BIDI_REQUEST_CONTAINER*>(request), answer);
    } catch (...) {
        *reason = L"an exception came up from the lower monitor";
        code = Win32FromHresult(CaughtOutcome());
    }
    if (code != ERROR_SUCCESS) memory.FreeContainer(std::exchange(*answer, nullptr));
    return code;
}

DWORD CLmMgr::QueryBidi(const LmPort& port, CBidiReq& request, QueryTally* tally) {
    if (!request.IsValid()) return Refuse(port, ERROR_INVALID_PARAMETER, L"no valid request");
    GlobalMemory unanswered;
    if (!request.MakeUnanswered(&unanswered))
        return Refuse(port, ERROR_OUTOFMEMORY, L"no memory for the request");
    if (!unanswered) return ERROR_SUCCESS;
    const auto* reduced = static_cast<const BIDI_REQUEST_CONTAINER*>(unanswered.Get());

    const wchar_t* action = request.Action();
    Answer answer(bidiMem_);
    const wchar_t* reason = nullptr;
    const auto askLower = [&](Answer& lower) {
        const DWORD code =
            AskLower(port, request.AccessBit(), action, reduced, bidiMem_, lower.Place(), &reason);
        return code == ERROR_SUCCESS ? code : Refuse(port, code, reason);
    };
    DWORD code = ERROR_SUCCESS;
    if (Equal(action, kGet) || Equal(action, kGetAll)) {
        Answer engine(bidiMem_);
        Answer lower(bidiMem_);
        const DWORD engineCode = QueryEngine(&port, action, reduced, engine.Place());
        code = askLower(lower);
        if (engineCode == ERROR_SUCCESS || code == ERROR_SUCCESS) {
            code = MergeAnswers(bidiMem_, engine.Place(), lower.Place(), reduced->Version, reduced->Flags,
                                answer.Place(), port, *tally);
            if (code != ERROR_SUCCESS) Refuse(port, code, L"no memory for the merged answer");
        }
    } else {
        code = askLower(answer);
        TallyAll(port, *answer.Place(), AnsweredBy::kLowerMonitor, *tally);
    }
    if (code != ERROR_SUCCESS) return code;
    if (!request.TakeResponse(answer.Place()))
        return Refuse(port, ERROR_OUTOFMEMORY, L"no memory for the response");
    return ERROR_SUCCESS;
}

DWORD CLmMgr::QueryEngine(const LmPort* port, const wchar_t* action, const BIDI_REQUEST_CONTAINER* request,
                          BIDI_RESPONSE_CONTAINER** response) {
    if (port == nullptr) return ERROR_OUTOFMEMORY;  // what this has always answered
    if (action == nullptr || request == nullptr || response == nullptr) return ERROR_INVALID_PARAMETER;
    *response = nullptr;
    return GuardCode(*port, [&]() -> DWORD {
        const Outcome outcome = AnswerFromPrinter(*this, *port, request, response);
        return SUCCEEDED(outcome) ? ERROR_SUCCESS : Refuse(*port, outcome);
    });
}

DWORD CLmMgr::AnswerLocally(const BIDI_REQUEST_CONTAINER* request, BIDI_RESPONSE_CONTAINER** response) const {
    if (request == nullptr || response == nullptr) return ERROR_INVALID_PARAMETER;
    const BIDI_REQUEST_DATA none{};
    return bidiMem_.MakeSingleEntry(ERROR_NO_DATA, request->Count != 0 ? request->aData[0] : none, response,
                                    request->Version, request->Flags);
}

DWORD RouteBidi(LmPort& port, DWORD accessBit, const wchar_t* action, BIDI_REQUEST_CONTAINER* request,
                BIDI_RESPONSE_CONTAINER** response) noexcept {
    const OperationScope scope(port);
    const TraceClock::time_point begin = TraceClock::now();
    QueryTally tally;
    const DWORD code = GuardCode(port, [&]() -> DWORD {
        if (port.lower.base.pfnSendRecvBidiDataFromPort != nullptr && !IsUsbPort(port))
            return AnswerNetworkPort(port, accessBit, action, request, response, tally);
        const DWORD local = port.owner->AnswerLocally(request, response);
        if (local != ERROR_SUCCESS) return Refuse(port, local, L"no local answer");
        TallyAll(port, *response, AnsweredBy::kEngine, tally);
        return local;
    });
    TraceQueryEnd(port.portName, action, code, tally, begin);
    return code;
}

}  // namespace vlm
