#include "tools/vlmctl/exchange/trace_keeper.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cwchar>
#include <string_view>

#include "spooler/host/monitor_host.h"
#include "tools/vlmctl/console/command.h"
#include "util/vlutil.h"

// windows.h first.
#include <wininet.h>

namespace vlm::ctl {

namespace {

std::array<wchar_t, 512> firstTrace{};

void KeepFirstTrace(const wchar_t* text) {
    // With VLLM3MON_TRACE set, what went well is traced too.
    const bool error = std::wcsncmp(text, L"Info: ", 6) != 0 && std::wcsncmp(text, L"Verbose: ", 9) != 0;
    if (error && firstTrace[0] == L'\0') {
        const size_t length = std::min(std::wcscspn(text, L"\r\n"), firstTrace.size() - 1);
        std::wmemcpy(firstTrace.data(), text, length);
    }
    OutputDebugStringW(text);
}

struct NetworkError {
    unsigned long code;
    std::string_view text;
};

// "no answer from printer, error 12029" with the number in words.
std::string InWords(const std::string& cause) {
    static constexpr std::array kErrors = {
        NetworkError{ERROR_INTERNET_TIMEOUT, "timed out"},
        NetworkError{ERROR_INTERNET_NAME_NOT_RESOLVED, "unknown host"},
        NetworkError{ERROR_INTERNET_CANNOT_CONNECT, "no connection"},
        NetworkError{ERROR_INTERNET_CONNECTION_ABORTED, "connection aborted"},
        NetworkError{ERROR_INTERNET_CONNECTION_RESET, "connection reset"},
        NetworkError{ERROR_INTERNET_SECURITY_CHANNEL_ERROR, "no secure connection"},
        NetworkError{ERROR_HTTP_INVALID_SERVER_RESPONSE, "the answer is no HTTP"},
    };
    constexpr std::string_view kMark = ", error ";
    const size_t mark = cause.rfind(kMark);
    if (mark == std::string::npos) return cause;
    const char* number = cause.data() + mark + kMark.size();
    unsigned long code = 0;
    if (std::from_chars(number, cause.data() + cause.size(), code).ec != std::errc()) return cause;
    for (const NetworkError& error : kErrors) {
        if (error.code == code) return fmt::format("{}: {} ({})", cause.substr(0, mark), error.text, code);
    }
    return cause;
}

// Empty when nothing was kept.
std::string TracedCause() {
    std::wstring cause = firstTrace.data();
    for (const std::wstring_view reporter : {L"Error: ", L"SOAP: ", L"WSD: "}) {
        if (cause.starts_with(reporter)) cause.erase(0, reporter.size());
    }
    return InWords(host::ToUtf8(Printable(cause, 400)));
}

}  // namespace

TraceKeeper::TraceKeeper() {
    firstTrace.fill(L'\0');
    SetTraceStream(KeepFirstTrace);
}

TraceKeeper::~TraceKeeper() {
    SetTraceStream(nullptr);
}

void ThrowTraced(const std::string& what, HRESULT result) {
    const std::string cause = TracedCause();
    if (!cause.empty() && result == E_FAIL) throw CommandError(what + ": " + cause);
    throw CommandError(fmt::format("{}: {} (0x{:08X})", what, cause.empty() ? "failed" : cause,
                                   static_cast<unsigned long>(result)));
}

}  // namespace vlm::ctl
