#include "util/comerror.h"

#include <cstdarg>
#include <cstring>
#include <cwchar>
#include <iterator>
#include <new>
#include <string>

#include "util/outcome.h"
#include "util/scope_exit.h"

namespace vlm {

namespace {

constexpr char kSource[] = "vlutil";
// Format's failures are reported under this line, wherever they are raised.
constexpr unsigned kFormatLine = 28;

// IDispatch implementations number their own errors upwards from here; the base itself is not one of them.
constexpr HRESULT kDispatchErrorBase = static_cast<HRESULT>(0x80040200);
constexpr HRESULT kDispatchErrorLast = static_cast<HRESULT>(0x8004FFFF);

std::wstring SystemMessage(HRESULT hr) {
    wchar_t* text = nullptr;
    const DWORD length = FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
        static_cast<DWORD>(hr), MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), reinterpret_cast<wchar_t*>(&text),
        0, nullptr);
    if (length == 0 || text == nullptr) return {};
    const ScopeExit release([text] { LocalFree(text); });
    std::wstring message(text, length);
    if (message.size() >= 2 && message.back() == L'\n') {
        message.pop_back();
        if (message.back() == L'\r') message.pop_back();
    }
    return message;
}

const char* AfterLastBackslash(const char* path) {
    const char* backslash = std::strrchr(path, '\\');
    return backslash != nullptr ? backslash + 1 : path;
}

}  // namespace

std::wstring DescribeHresult(HRESULT hr) {
    std::wstring message = SystemMessage(hr);
    if (!message.empty()) return message;
    wchar_t text[32];
    if (hr > kDispatchErrorBase && hr <= kDispatchErrorLast) {
        std::swprintf(text, std::size(text), L"IDispatch error #%d",
                      static_cast<int>(hr - kDispatchErrorBase));
    } else {
        std::swprintf(text, std::size(text), L"Unknown error 0x%0lX", static_cast<unsigned long>(hr));
    }
    return text;
}

void Format(_bstr_t_ex& out, const wchar_t* format, ...) {
    if (format == nullptr) throw CComErrorEx(E_INVALIDARG, kSource, kFormatLine);
    va_list arguments;
    va_start(arguments, format);
    va_list counted;
    va_copy(counted, arguments);
    const int length = _vscwprintf(format, counted);
    va_end(counted);
    std::wstring text(static_cast<size_t>(length + 1), L'\0');
    const int written = length < 0 ? -1 : std::vswprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    if (written < 0) throw CComErrorEx(E_FAIL, kSource, kFormatLine);
    out = text.c_str();
}

CComErrorEx::CComErrorEx(HRESULT hr, const char* sourcePath, unsigned line, const wchar_t* reason)
    : _com_error(hr), file_(AfterLastBackslash(sourcePath)), line_(line) {
    try {
        if (reason != nullptr) reason_ = reason;
        Format(message_, L"%ls (file=%hs, line=%d)\r\n", DescribeHresult(hr).c_str(), file_,
               static_cast<int>(line));
    } catch (const std::bad_alloc&) {
        throw _com_error(E_OUTOFMEMORY);
    }
}

std::wstring CComErrorEx::Reason() const {
    if (*reason_.Text() != L'\0') return reason_.Text();
    std::wstring report = message_.Text();
    report.erase(report.find_last_not_of(L"\r\n") + 1);
    return report;
}

}  // namespace vlm
