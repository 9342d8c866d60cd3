// CModuleExplorer: finds the files that a printer driver's INI file names, and BuildExtensionFileList, which
// gathers the driver's Bidi extension files with it.
//
// The INI file is the first of the driver's dependent files whose name holds ".ini". An entry of it has the
// form "name" or "name,directory id"; the ids are those of Windows INF files and a few of our own.
//
// An explorer belongs to one thread; only its reference count is atomic.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "util/com.h"
#include "util/spooler_api.h"

namespace vlm {

inline constexpr IID kIModuleExplorer = {
    0x09780b87, 0xae3d, 0x4a64, {0xb1, 0x40, 0x9b, 0x92, 0xc5, 0xb6, 0xa9, 0xaf}};

// Sections of the INI file that name extension files.
inline constexpr wchar_t kBidiFilesSection[] = L"BidiFiles";
inline constexpr wchar_t kDriverFilesSection[] = L"VelunDriverFiles";
// Of the files with a number, which are looked for from 1 to the first that is missing.
inline constexpr int kMostNumberedFiles = 999;

// IUnknown has no virtual destructor, of which gcc warns in everything derived from it. Only Release deletes
// the objects.
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
#endif

struct IModuleExplorer : public IUnknown {
    // The full path of the file that `key` names; the explorer owns it. E_FAIL without an INI file or such a
    // key.
    virtual HRESULT STDMETHODCALLTYPE GetFilePath(const wchar_t* key, BSTR* path) = 0;

 protected:
    virtual ~IModuleExplorer() = default;
};

class CModuleExplorer final : public IModuleExplorer {
 public:
    // Each returns an object with one reference. The driver record and the printer handle stay the caller's.
    static ComPtr<CModuleExplorer> Create();
    static ComPtr<CModuleExplorer> FromDriver(const DRIVER_INFO_3W* driverInfo, const wchar_t* section);
    static ComPtr<CModuleExplorer> FromPrinter(HANDLE printer, const wchar_t* section);
    static ComPtr<CModuleExplorer> FromPrinterName(const wchar_t* printerName, const wchar_t* section);

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;
    HRESULT STDMETHODCALLTYPE GetFilePath(const wchar_t* key, BSTR* path) override;

    // The INI file, after the first GetFilePath; empty if there is none.
    const std::wstring& IniPath() const { return iniPath_; }

    // The directory of the id, a backslash unless that is empty, and the file name: a new BSTR, or null when
    // memory runs out.
    BSTR Resolve(const wchar_t* fileName, DWORD directoryId) const;

 private:
    explicit CModuleExplorer(const wchar_t* section);
    ~CModuleExplorer() override = default;

    void FindIniFile();
    void TakeIniFile(const wchar_t* dependentFiles);
    std::wstring Directory(DWORD directoryId) const;

    volatile LONG refCount_ = 1;
    HANDLE printer_ = nullptr;  // the creator's
    const DRIVER_INFO_3W* driverInfo_ = nullptr;
    std::wstring printerName_;
    std::wstring iniPath_;
    std::wstring iniDirectory_;
    std::wstring section_;
    std::map<std::wstring, _bstr_t> cache_;  // key to path
};

#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

// The paths of a driver's extension files in the order in which the engine loads them: first the one for the
// platform's WSD Bidi, then the numbered ones of the driver's user interface. The explorers are those of the
// two sections above. Throws std::bad_alloc.
std::vector<std::wstring> ExtensionFiles(IModuleExplorer& bidiFiles, IModuleExplorer& driverFiles);

// The extension files of the printer's driver as one line of XML, ready for CVelunBidiSpl::Init:
//   <BidiExtensionFiles><BidiXml path="C:\a.xml" /></BidiExtensionFiles>
// Paths stand in it as they are, without XML escaping. A printer or INI file that cannot be found gives an
// empty list and S_OK.
HRESULT BuildExtensionFileList(const wchar_t* printerName, BSTR* list);

}  // namespace vlm
