#include "rpc/printer_lookup.h"

#include <cwchar>
#include <span>

#include "rpc/codes.h"
#include "util/handles.h"
#include "util/names.h"
#include "util/spooler_api.h"
#include "util/system_version.h"
#include "util/text.h"
#include "util/trace.h"

namespace vlm::rpc {

namespace {

bool IsUsbPortName(const wchar_t* name) {
    const wchar_t* const prefix =
        SystemVersion().dwPlatformId == VER_PLATFORM_WIN32_NT ? L"USB" : L"MPUSBPRN";
    return _wcsnicmp(name, prefix, std::wcslen(prefix)) == 0;
}

// The share name in "\\server\share"; empty when `name` has not that form.
const wchar_t* ShareOf(const wchar_t* name) {
    if (std::wcsncmp(name, L"\\\\", 2) != 0 || name[2] == L'\\') return L"";
    const wchar_t* const serverEnd = std::wcschr(name + 2, L'\\');
    return serverEnd != nullptr ? serverEnd + 1 : L"";
}

DWORD EnumeratePrinters(GlobalMemory* buffer, std::span<const PRINTER_INFO_2W>* printers) {
    constexpr DWORD kWhich = PRINTER_ENUM_LOCAL | PRINTER_ENUM_CONNECTIONS;
    DWORD size = 0;
    DWORD count = 0;
    if (!EnumPrintersW(kWhich, nullptr, 2, nullptr, 0, &size, &count) &&
        GetLastError() != ERROR_INSUFFICIENT_BUFFER)
        return GetLastError();
    if (size == 0) return ERROR_SUCCESS;
    buffer->Reset(GlobalAlloc(GPTR, size));
    if (!*buffer) return ERROR_NOT_ENOUGH_MEMORY;
    if (!EnumPrintersW(kWhich, nullptr, 2, static_cast<BYTE*>(buffer->Get()), size, &size, &count))
        return GetLastError();
    *printers = {static_cast<const PRINTER_INFO_2W*>(buffer->Get()), count};
    return ERROR_SUCCESS;
}

bool IsReachable(const PRINTER_INFO_2W& printer) {
    return printer.pPortName != nullptr && IsUsbPortName(printer.pPortName) &&
           (printer.Attributes & PRINTER_ATTRIBUTE_ENABLE_BIDI) != 0;
}

}  // namespace

DWORD FindPortName(const char* client, std::wstring* port, std::wstring* reason) {
    const std::wstring name = FromCodePage(client);
    if (name.size() >= kLongestName) {
        *reason = L"the printer name is too long";
        return kBadArguments;
    }
    GlobalMemory buffer;
    std::span<const PRINTER_INFO_2W> printers;
    const DWORD enumerated = EnumeratePrinters(&buffer, &printers);
    if (enumerated != ERROR_SUCCESS) {
        *reason = L"the printers cannot be enumerated";
        return enumerated;
    }
    const bool isPort = IsUsbPortName(name.c_str());
    const wchar_t* const wanted = isPort ? name.c_str() : ShareOf(name.c_str());
    for (const PRINTER_INFO_2W& printer : printers) {
        const wchar_t* const candidate = isPort ? printer.pPortName : printer.pShareName;
        if (*wanted == L'\0' || candidate == nullptr || !SameName(candidate, wanted)) continue;
        if (!IsReachable(printer)) continue;
        *port = printer.pPortName;
        return ERROR_SUCCESS;
    }
    *reason = L"no USB printer with Bidi goes by the name " + Printable(name);
    return kNoSuchPrinter;
}

}  // namespace vlm::rpc
