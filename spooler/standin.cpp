#include "spooler/standin.h"

#include "util/handles.h"

namespace vlm::standin {

Printers::Printers() {
    // Already loaded by whoever imports it; loading it here too keeps the functions valid for this object's
    // life.
    const HMODULE module = LoadLibraryW(L"winspool.drv");
    if (module == nullptr) return;
    reset_ = FindFunction<void()>(module, "StandInReset");
    addPrinter_ = FindFunction<BOOL(const PrinterDescription*)>(module, "StandInAddPrinter");
    setJob_ = FindFunction<BOOL(const wchar_t*, DWORD, const wchar_t*, DWORD)>(module, "StandInSetJob");
    addRule_ = FindFunction<BOOL(const Rule*)>(module, "StandInAddRule");
    openHandles_ = FindFunction<LONG()>(module, "StandInOpenHandles");
    readLog_ = FindFunction<DWORD(wchar_t*, DWORD)>(module, "StandInReadLog");
}

std::vector<std::wstring> Printers::Log() const {
    std::wstring text;
    for (DWORD needed = readLog_(nullptr, 0); text.size() < needed; needed = readLog_(text.data(), needed))
        text.resize(needed);
    std::vector<std::wstring> lines;
    for (size_t begin = 0, end = 0; (end = text.find(L'\n', begin)) != std::wstring::npos; begin = end + 1)
        lines.push_back(text.substr(begin, end - begin));
    return lines;
}

Router::Router() {
    const HMODULE module = LoadLibraryW(L"spoolss.dll");
    if (module == nullptr) return;
    counters_ = FindFunction<void(RouterCounters*)>(module, "StandInRouterCounters");
    resetAllocations_ = FindFunction<void(LONG64)>(module, "StandInResetAllocations");
    guardBlocks_ = FindFunction<void(BOOL)>(module, "StandInGuardBlocks");
}

}  // namespace vlm::standin
