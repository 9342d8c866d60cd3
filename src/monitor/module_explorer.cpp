#include "monitor/module_explorer.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cwchar>
#include <cwctype>
#include <vector>

#include "util/handles.h"
#include "util/outcome.h"
#include "util/trace.h"

namespace vlm {

namespace {

// Directory ids of our own, beside those of INF files.
constexpr DWORD kIdIniDirectory = 66000;
constexpr DWORD kIdIniDirectoryInOtherSections = 1;

constexpr DWORD kPathCapacity = 260;
// Longer than the capacity that the calls are told of, and zeroed, so that a text always ends.
using PathBuffer = std::array<wchar_t, kPathCapacity + 1>;

// The path that `fill` writes into a buffer; empty when it writes none.
template <typename Fill>
std::wstring PathFrom(const Fill& fill) {
    PathBuffer buffer{};
    fill(buffer.data());
    return buffer.data();
}

std::wstring WindowsDirectory() {
    return PathFrom([](wchar_t* path) { GetWindowsDirectoryW(path, kPathCapacity); });
}

std::wstring SystemDirectory() {
    return PathFrom([](wchar_t* path) { GetSystemDirectoryW(path, kPathCapacity); });
}

std::wstring Environment(const wchar_t* name) {
    return PathFrom([name](wchar_t* path) { GetEnvironmentVariableW(name, path, kPathCapacity); });
}

// This and the next are given the capacity in characters where they expect one in bytes: kept as it is. A
// longer path is refused by the call, and none is longer.
std::wstring SpoolerDirectory(decltype(GetPrinterDriverDirectoryW)& get) {
    return PathFrom([&get](wchar_t* path) {
        DWORD needed = 0;
        get(nullptr, nullptr, 1, reinterpret_cast<BYTE*>(path), kPathCapacity, &needed);
    });
}

std::wstring ColorDirectory() {
    return PathFrom([](wchar_t* path) {
        const Module library(LoadLibraryW(L"mscms.dll"));
        using Function = BOOL WINAPI(const wchar_t*, wchar_t*, DWORD*);
        auto* getColorDirectory = FindFunction<Function>(library.Get(), "GetColorDirectoryW");
        DWORD size = kPathCapacity;
        if (getColorDirectory != nullptr) getColorDirectory(nullptr, path, &size);
    });
}

std::wstring ShellFolder(int folder) {
    return PathFrom([folder](wchar_t* path) {
        const Module library(LoadLibraryW(L"shell32.dll"));
        using Function = HRESULT WINAPI(HWND, int, HANDLE, DWORD, wchar_t*);
        auto* getFolderPath = FindFunction<Function>(library.Get(), "SHGetFolderPathW");
        if (getFolderPath != nullptr) getFolderPath(nullptr, folder, nullptr, 0, path);
    });
}

// What the other ids stand for.
struct KnownDirectory {
    DWORD id;
    std::wstring (*parent)();
    const wchar_t* below;
};
constexpr KnownDirectory kDirectories[] = {
    {10, WindowsDirectory, L""},
    {25, WindowsDirectory, L""},
    {17, WindowsDirectory, L"\\inf"},
    {18, WindowsDirectory, L"\\Help"},
    {20, WindowsDirectory, L"\\Fonts"},
    {50, WindowsDirectory, L"\\system"},
    {11, SystemDirectory, L""},
    {66002, SystemDirectory, L""},
    {12, SystemDirectory, L"\\drivers"},
    {21, SystemDirectory, L"\\Viewers"},
    {51, SystemDirectory, L"\\spool"},
    {23, ColorDirectory, L""},
    {66003, ColorDirectory, L""},
    {52, [] { return SpoolerDirectory(GetPrinterDriverDirectoryW); }, L""},
    {55, [] { return SpoolerDirectory(GetPrintProcessorDirectoryW); }, L""},
    {66001, [] { return SpoolerDirectory(GetPrintProcessorDirectoryW); }, L""},
    {24, [] { return Environment(L"HOMEDRIVE"); }, L""},
    {30, [] { return Environment(L"SystemDrive"); }, L""},
    {54, [] { return Environment(L"SystemDrive"); }, L""},
    {53, [] { return Environment(L"USERPROFILE"); }, L""},
};

bool HoldsIniExtension(std::wstring name) {
    name.resize(std::min<size_t>(name.size(), kPathCapacity));
    std::transform(name.begin(), name.end(), name.begin(), [](wchar_t c) { return std::towlower(c); });
    return name.find(L".ini") != std::wstring::npos;
}

std::wstring CopyOf(const wchar_t* text) {
    return text != nullptr ? text : L"";
}

}  // namespace

CModuleExplorer::CModuleExplorer(const wchar_t* section) : section_(CopyOf(section)) {}

ComPtr<CModuleExplorer> CModuleExplorer::Create() {
    return ComPtr<CModuleExplorer>::Attach(new CModuleExplorer(kDriverFilesSection));
}

ComPtr<CModuleExplorer> CModuleExplorer::FromDriver(const DRIVER_INFO_3W* driverInfo,
                                                    const wchar_t* section) {
    auto explorer = ComPtr<CModuleExplorer>::Attach(new CModuleExplorer(section));
    explorer->driverInfo_ = driverInfo;
    return explorer;
}

ComPtr<CModuleExplorer> CModuleExplorer::FromPrinter(HANDLE printer, const wchar_t* section) {
    auto explorer = ComPtr<CModuleExplorer>::Attach(new CModuleExplorer(section));
    explorer->printer_ = printer;
    return explorer;
}

ComPtr<CModuleExplorer> CModuleExplorer::FromPrinterName(const wchar_t* printerName, const wchar_t* section) {
    auto explorer = ComPtr<CModuleExplorer>::Attach(new CModuleExplorer(section));
    explorer->printerName_ = CopyOf(printerName);
    return explorer;
}

HRESULT STDMETHODCALLTYPE CModuleExplorer::QueryInterface(REFIID iid, void** object) {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    if (!IsEqualIID(iid, IID_IUnknown) && !IsEqualIID(iid, kIModuleExplorer)) return E_NOINTERFACE;
    *object = static_cast<IModuleExplorer*>(this);
    AddRef();
    return S_OK;
}

ULONG STDMETHODCALLTYPE CModuleExplorer::AddRef() {
    return static_cast<ULONG>(InterlockedIncrement(&refCount_));
}

ULONG STDMETHODCALLTYPE CModuleExplorer::Release() {
    const LONG count = InterlockedDecrement(&refCount_);
    if (count == 0) delete this;
    return static_cast<ULONG>(count);
}

void CModuleExplorer::FindIniFile() {
    if (!iniPath_.empty()) return;
    if (driverInfo_ != nullptr) {
        TakeIniFile(driverInfo_->pDependentFiles);
        return;
    }
    PrinterHandle opened;
    if (printer_ == nullptr &&
        (printerName_.empty() || !OpenPrinterW(printerName_.data(), opened.Receive(), nullptr)))
        return;
    const HANDLE printer = printer_ != nullptr ? printer_ : opened.Get();
    const GlobalMemory driver = AskForRecord<DRIVER_INFO_3W>([&](BYTE* buffer, DWORD size, DWORD* needed) {
        return GetPrinterDriverW(printer, nullptr, 3, buffer, size, needed);
    });
    if (driver) TakeIniFile(static_cast<const DRIVER_INFO_3W*>(driver.Get())->pDependentFiles);
}

void CModuleExplorer::TakeIniFile(const wchar_t* dependentFiles) {
    if (dependentFiles == nullptr) return;
    for (const wchar_t* name = dependentFiles; *name != L'\0'; name += std::wcslen(name) + 1) {
        const std::wstring path(name);
        if (!HoldsIniExtension(path)) continue;
        const size_t backslash = path.rfind(L'\\');
        iniDirectory_ = path.substr(0, backslash != std::wstring::npos ? backslash : 0);
        iniPath_ = path;
        return;
    }
}

HRESULT STDMETHODCALLTYPE CModuleExplorer::GetFilePath(const wchar_t* key, BSTR* path) {
    return GuardHresult([&] {
        if (path != nullptr) *path = nullptr;
        FindIniFile();
        if (path == nullptr || key == nullptr || iniPath_.empty()) return E_FAIL;
        const auto cached = cache_.find(key);
        if (cached != cache_.end()) {
            *path = static_cast<wchar_t*>(cached->second);
            return S_OK;
        }
        if (section_.empty()) section_ = kDriverFilesSection;
        PathBuffer value{};
        GetPrivateProfileStringW(section_.c_str(), key, L"", value.data(), kPathCapacity, iniPath_.c_str());
        if (value[0] == L'\0') return E_FAIL;
        const bool ofDriverFiles = section_ == kDriverFilesSection;
        DWORD directoryId = ofDriverFiles ? kIdIniDirectory : kIdIniDirectoryInOtherSections;
        if (wchar_t* comma = std::wcschr(value.data(), L','); comma != nullptr) {
            directoryId = static_cast<DWORD>(std::wcstol(comma + 1, nullptr, 10));
            *comma = L'\0';
        }
        const _bstr_t resolved(Resolve(value.data(), directoryId), false);
        if (!resolved) return E_FAIL;
        *path = static_cast<wchar_t*>(cache_.emplace(key, resolved).first->second);
        return S_OK;
    });
}

BSTR CModuleExplorer::Resolve(const wchar_t* fileName, DWORD directoryId) const {
    std::wstring path = Directory(directoryId);
    if (!path.empty()) path += L'\\';
    path += fileName;
    return SysAllocStringLen(path.data(), static_cast<UINT>(path.size()));
}

std::wstring CModuleExplorer::Directory(DWORD directoryId) const {
    constexpr DWORD kFirstShellFolder = 16384;
    constexpr DWORD kLastShellFolder = 32766;
    if (directoryId >= kFirstShellFolder && directoryId <= kLastShellFolder) {
        return ShellFolder(static_cast<int>(directoryId - kFirstShellFolder));
    }
    if (directoryId == kIdIniDirectory || directoryId == kIdIniDirectoryInOtherSections) return iniDirectory_;
    for (const KnownDirectory& known : kDirectories)
        if (known.id == directoryId) return known.parent() + known.below;
    return {};
}

namespace {

// False when the key names no file.
bool AppendFile(IModuleExplorer& explorer, const wchar_t* key, std::vector<std::wstring>& files) {
    BSTR path = nullptr;
    if (FAILED(explorer.GetFilePath(key, &path)) || path == nullptr) return false;
    files.emplace_back(path);
    return true;
}

std::wstring ListOf(const wchar_t* printerName) {
    const auto bidiFiles = CModuleExplorer::FromPrinterName(printerName, kBidiFilesSection);
    const auto driverFiles = CModuleExplorer::FromPrinterName(printerName, kDriverFilesSection);
    std::wstring list = L"<BidiExtensionFiles>";
    for (const std::wstring& path : ExtensionFiles(*bidiFiles.Get(), *driverFiles.Get()))
        list += L"<BidiXml path=\"" + path + L"\" />";
    return list + L"</BidiExtensionFiles>";
}

}  // namespace

std::vector<std::wstring> ExtensionFiles(IModuleExplorer& bidiFiles, IModuleExplorer& driverFiles) {
    std::vector<std::wstring> files;
    AppendFile(bidiFiles, L"BidiWSDFile", files);
    for (int n = 1; n <= kMostNumberedFiles; ++n) {
        const std::wstring key = L"UIBidiWSDFile" + std::to_wstring(n);
        if (!AppendFile(driverFiles, key.c_str(), files)) break;
    }
    return files;
}

HRESULT BuildExtensionFileList(const wchar_t* printerName, BSTR* list) {
    if (list == nullptr) return E_INVALIDARG;
    *list = nullptr;
    return GuardHresult([&] {
        const std::wstring text = ListOf(printerName);
        *list = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
        return *list != nullptr ? S_OK : E_OUTOFMEMORY;
    });
}

}  // namespace vlm
