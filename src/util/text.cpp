#include "util/text.h"

#include <winsock2.h>
// winsock2.h first.
#include <wininet.h>

namespace vlm {

namespace {

std::wstring Widen(UINT codePage, std::string_view text) {
    const int length = static_cast<int>(text.size());
    std::wstring wide(static_cast<size_t>(MultiByteToWideChar(codePage, 0, text.data(), length, nullptr, 0)),
                      L'\0');
    MultiByteToWideChar(codePage, 0, text.data(), length, wide.data(), static_cast<int>(wide.size()));
    return wide;
}

}  // namespace

std::string ToUtf8(std::wstring_view text) {
    const int length = static_cast<int>(text.size());
    const int needed = WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string bytes(static_cast<size_t>(needed), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), length, bytes.data(), needed, nullptr, nullptr);
    return bytes;
}

std::wstring FromUtf8(std::string_view text) {
    return Widen(CP_UTF8, text);
}

std::wstring FromCodePage(std::string_view text) {
    return Widen(CP_ACP, text);
}

std::string ErrorText(DWORD code) {
    static constexpr struct {
        DWORD code;
        const char* text;
    } kEntries[] = {
        {ERROR_FILE_NOT_FOUND, "file not found"},
        {ERROR_ACCESS_DENIED, "access denied"},
        {ERROR_NOT_ENOUGH_MEMORY, "out of memory"},
        {63, "the system has suspended since the job began"},
        {ERROR_INVALID_PARAMETER, "invalid parameter"},
        {ERROR_MOD_NOT_FOUND, "it or a DLL that it needs was not found"},
        {ERROR_BUSY, "busy"},
        {ERROR_BAD_EXE_FORMAT, "not a DLL for this processor"},
        {WSAECONNREFUSED, "connection refused"},
        {WSAECONNRESET, "connection reset by the printer"},
        {WSAECONNABORTED, "connection aborted"},
        {WSAETIMEDOUT, "timed out"},
        {WSAENETUNREACH, "network unreachable"},
        {WSAEHOSTUNREACH, "host unreachable"},
        {WSAHOST_NOT_FOUND, "unknown host"},
        {ERROR_INTERNET_TIMEOUT, "timed out"},
        {ERROR_INTERNET_NAME_NOT_RESOLVED, "unknown host"},
        {ERROR_INTERNET_CANNOT_CONNECT, "no connection"},
        {ERROR_INTERNET_CONNECTION_ABORTED, "connection aborted"},
        {ERROR_INTERNET_CONNECTION_RESET, "connection reset"},
        {ERROR_INTERNET_SECURITY_CHANNEL_ERROR, "no secure connection"},
        {ERROR_HTTP_INVALID_SERVER_RESPONSE, "the answer is not HTTP"},
    };
    for (const auto& entry : kEntries)
        if (entry.code == code) return std::string(entry.text) + " (" + std::to_string(code) + ")";
    return "error " + std::to_string(code);
}

}  // namespace vlm
