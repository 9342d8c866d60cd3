#include "monitor/bidi_routing.h"

#include <cwchar>
#include <string>
#include <utility>
#include <vector>

#include "bidi/bidi_req.h"
#include "bidi/velunbidispl.h"
#include "monitor/bidi_merge.h"
#include "monitor/lm_manager.h"
#include "monitor/lower_bidi.h"
#include "monitor/module_explorer.h"
#include "monitor/printer_address.h"
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

DWORD TraceFailure(const LmPort& port, const Outcome& outcome) noexcept {
    return TraceRefusal(port.portName, outcome.Reason(), Win32FromHresult(outcome));
}

// Runs a step that returns a Win32 code; what it throws becomes one.
template <typename Step>
DWORD GuardCode(const LmPort& port, Step&& step) noexcept {
    try {
        return step();
    } catch (...) {
        return TraceFailure(port, CaughtOutcome());
    }
}

// The steps, in the order in which they happen.
DWORD AnswerLocally(const LmPort& port, const BIDI_REQUEST_CONTAINER* request,
                    BIDI_RESPONSE_CONTAINER** response);
DWORD AnswerNetworkPort(LmPort& port, DWORD accessBit, const wchar_t* action, BIDI_REQUEST_CONTAINER* request,
                        BIDI_RESPONSE_CONTAINER** response, QueryMetrics& metrics);
DWORD QueryBidi(const LmPort& port, CBidiReq& request, QueryMetrics& metrics);
DWORD QueryEngine(const LmPort* port, const wchar_t* action, const BIDI_REQUEST_CONTAINER* request,
                  BIDI_RESPONSE_CONTAINER** response);
Outcome AnswerFromPrinter(const LmPort& port, const BIDI_REQUEST_CONTAINER* request,
                          BIDI_RESPONSE_CONTAINER** response);

}  // namespace

DWORD RouteBidi(LmPort& port, DWORD accessBit, const wchar_t* action, BIDI_REQUEST_CONTAINER* request,
                BIDI_RESPONSE_CONTAINER** response) noexcept {
    const OperationScope scope(port);
    const TraceClock::time_point begin = TraceClock::now();
    QueryMetrics metrics;
    const DWORD code = GuardCode(port, [&]() -> DWORD {
        if (port.lower.base.pfnSendRecvBidiDataFromPort != nullptr && !IsUsbPort(port))
            return AnswerNetworkPort(port, accessBit, action, request, response, metrics);
        const DWORD local = AnswerLocally(port, request, response);
        if (local != ERROR_SUCCESS) return TraceRefusal(port.portName, L"no local answer", local);
        CountAll(port, *response, AnsweredBy::kEngine, metrics);
        return local;
    });
    TraceQueryEnd(port.portName, action, code, metrics, begin);
    return code;
}

namespace {

// One entry without value (232) for the request's first entry, for a port without a Bidi source.
DWORD AnswerLocally(const LmPort& port, const BIDI_REQUEST_CONTAINER* request,
                    BIDI_RESPONSE_CONTAINER** response) {
    if (request == nullptr || response == nullptr) return ERROR_INVALID_PARAMETER;
    const BIDI_REQUEST_DATA none{};
    return port.owner->BidiMemory().MakeSingleEntry(ERROR_NO_DATA,
                                                    request->Count != 0 ? request->aData[0] : none, response,
                                                    request->Version, request->Flags);
}

DWORD AnswerNetworkPort(LmPort& port, DWORD accessBit, const wchar_t* action, BIDI_REQUEST_CONTAINER* request,
                        BIDI_RESPONSE_CONTAINER** response, QueryMetrics& metrics) {
    if (action == nullptr || request == nullptr || response == nullptr)
        return TraceRefusal(port.portName, L"a query without action, request or response",
                            ERROR_INVALID_PARAMETER);
    if (port.owner->IsPooledPrinter(port))
        return TraceRefusal(port.portName, L"no Bidi for a pooled printer", ERROR_NOT_SUPPORTED);
    if (Equal(action, kEnumSchema)) {
        const DWORD code =
            port.lower.base.pfnSendRecvBidiDataFromPort(port.lowerPort, accessBit, action, request, response);
        // The answer is not looked at: nothing says that there is one.
        return code == ERROR_SUCCESS
                   ? code
                   : TraceRefusal(port.portName, L"the lower monitor does not list its schemas", code);
    }
    *response = nullptr;
    // Outlives the request. COM of another mode on this thread is as good; without any COM the engine fails,
    // and the lower monitor answers alone.
    const ComApartment apartment(COINIT_APARTMENTTHREADED);
    CBidiReq query(accessBit, action, request);
    const DWORD code = QueryBidi(port, query, metrics);
    if (code != ERROR_SUCCESS) return code;
    *response = query.DetachResponse();
    return *response != nullptr ? ERROR_SUCCESS
                                : TraceRefusal(port.portName, L"nothing to answer", ERROR_NO_DATA);
}

// Answers the request's open entries: "Get" and "GetAll" from the engine and the lower monitor together, any
// other action from the lower monitor alone. The answer is put behind the response that the request holds,
// and its entries are counted. A Win32 code; when both sources fail, the lower monitor's.
DWORD QueryBidi(const LmPort& port, CBidiReq& request, QueryMetrics& metrics) {
    const CBidiMem& memory = port.owner->BidiMemory();
    if (!request.IsValid()) return TraceRefusal(port.portName, L"no valid request", ERROR_INVALID_PARAMETER);
    GlobalMemory unanswered;
    if (!request.MakeUnanswered(&unanswered))
        return TraceRefusal(port.portName, L"no memory for the request", ERROR_OUTOFMEMORY);
    if (!unanswered) return ERROR_SUCCESS;
    const auto* reduced = static_cast<const BIDI_REQUEST_CONTAINER*>(unanswered.Get());

    const wchar_t* action = request.Action();
    RouterAnswer answer(memory);
    const wchar_t* reason = nullptr;
    const auto askLower = [&](RouterAnswer& lower) {
        const DWORD code = AskLower(port, request.AccessBit(), action, reduced, &lower, &reason);
        return code == ERROR_SUCCESS ? code : TraceRefusal(port.portName, reason, code);
    };
    DWORD code = ERROR_SUCCESS;
    if (Equal(action, kGet) || Equal(action, kGetAll)) {
        RouterAnswer engine(memory);
        RouterAnswer lower(memory);
        const DWORD engineCode = QueryEngine(&port, action, reduced, engine.Place());
        code = askLower(lower);
        if (engineCode == ERROR_SUCCESS || code == ERROR_SUCCESS) {
            code = MergeAnswers(memory, engine.Place(), lower.Place(), reduced->Version, reduced->Flags,
                                answer.Place(), port, metrics);
            if (code != ERROR_SUCCESS) TraceRefusal(port.portName, L"no memory for the merged answer", code);
        }
    } else {
        code = askLower(answer);
        CountAll(port, *answer.Place(), AnsweredBy::kLowerMonitor, metrics);
    }
    if (code != ERROR_SUCCESS) return code;
    if (!request.TakeResponse(answer.Place()))
        return TraceRefusal(port.portName, L"no memory for the response", ERROR_OUTOFMEMORY);
    return ERROR_SUCCESS;
}

// The engine's own answer, from the printer. A Win32 code: 14 for a null port, 87 for another null argument;
// a failure without a code of its own is 1627. The answer is router memory, null after a failure.
DWORD QueryEngine(const LmPort* port, const wchar_t* action, const BIDI_REQUEST_CONTAINER* request,
                  BIDI_RESPONSE_CONTAINER** response) {
    if (port == nullptr) return ERROR_OUTOFMEMORY;  // what this has always answered
    if (action == nullptr || request == nullptr || response == nullptr) return ERROR_INVALID_PARAMETER;
    *response = nullptr;
    return GuardCode(*port, [&]() -> DWORD {
        const Outcome outcome = AnswerFromPrinter(*port, request, response);
        return SUCCEEDED(outcome) ? ERROR_SUCCESS : TraceFailure(*port, outcome);
    });
}

Outcome AnswerFromPrinter(const LmPort& port, const BIDI_REQUEST_CONTAINER* request,
                          BIDI_RESPONSE_CONTAINER** response) {
    const std::wstring printerName = port.owner->PrinterNameOf(port);
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
    Outcome fetched = GetPrinterAddress(port, &address, port.owner->BidiMemory());
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

}  // namespace

DWORD GetBidiString(const LmPort& port, const wchar_t* schema, wchar_t* buffer, size_t capacity,
                    bool viaLower) {
    if (schema == nullptr || *schema == L'\0' || buffer == nullptr) return ERROR_INVALID_PARAMETER;
    const CBidiMem& memory = port.owner->BidiMemory();
    if (viaLower) return LowerText(port, schema, buffer, capacity, memory);
    const SchemaRequest request(schema);
    RouterAnswer answer(memory);
    const DWORD code = QueryEngine(&port, kGet, request.Get(), answer.Place());
    return code == ERROR_SUCCESS ? FirstText(*answer.Place(), buffer, capacity) : code;
}

}  // namespace vlm
