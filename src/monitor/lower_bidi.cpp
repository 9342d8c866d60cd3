#include "monitor/lower_bidi.h"

#include <cwchar>
#include <string>

#include "util/outcome.h"

namespace vlm {

DWORD AskLower(const LmPort& port, DWORD accessBit, const wchar_t* action,
               const BIDI_REQUEST_CONTAINER* request, RouterAnswer* answer, const wchar_t** reason) noexcept {
    *reason = L"the lower monitor gave no answer";
    DWORD code = ERROR_SUCCESS;
    try {
        const auto ask = port.lower.base.pfnSendRecvBidiDataFromPort;
        if (ask == nullptr) return ERROR_NOT_SUPPORTED;
        if (port.use.closing.load()) return ERROR_OPERATION_ABORTED;
        // The slot's type lacks the const that its contract has: a request is only read.
        code = ask(port.lowerPort, accessBit, action, const_cast<BIDI_REQUEST_CONTAINER*>(request),
                   answer->Place());
    } catch (...) {
        *reason = L"an exception came up from the lower monitor";
        code = Win32FromHresult(CaughtOutcome());
    }
    if (code != ERROR_SUCCESS) answer->Free();
    return code;
}

SchemaRequest::SchemaRequest(const wchar_t* schema) : schema_(schema) {
    request_.Version = 1;
    request_.Count = 1;
    request_.aData[0].pSchema = schema_.data();
    request_.aData[0].data.dwBidiType = BIDI_NULL;
}

DWORD FirstText(const BIDI_RESPONSE_CONTAINER* answer, wchar_t* buffer, size_t capacity) {
    if (answer == nullptr || answer->Count == 0) return ERROR_NO_DATA;
    const BIDI_DATA& value = answer->aData[0].data;
    // The type first: the value of a number is no pointer.
    switch (value.dwBidiType) {
        case BIDI_NULL:
            return ERROR_NO_DATA;
        case BIDI_STRING:
        case BIDI_TEXT:
        case BIDI_ENUM:
            break;
        default:
            return ERROR_INVALID_PARAMETER;
    }
    const wchar_t* text = value.u.sData;
    if (text == nullptr) return ERROR_NO_DATA;
    const size_t length = wcsnlen(text, capacity);
    if (length == capacity) return ERROR_INSUFFICIENT_BUFFER;
    std::wmemcpy(buffer, text, length);
    buffer[length] = L'\0';
    return ERROR_SUCCESS;
}

DWORD LowerText(const LmPort& port, const wchar_t* schema, wchar_t* buffer, size_t capacity,
                const CBidiMem& memory) {
    const SchemaRequest request(schema);
    RouterAnswer answer(memory);
    const wchar_t* reason = nullptr;
    const DWORD code = AskLower(port, PRINTER_ACCESS_USE, L"Get", request.Get(), &answer, &reason);
    return code == ERROR_SUCCESS ? FirstText(*answer.Place(), buffer, capacity) : code;
}

}  // namespace vlm
