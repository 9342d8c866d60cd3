// The driver's INI file and the extension-file list, over the platform's profile functions and a stand-in
// printer.
#include "monitor/module_explorer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "spooler/standin.h"
#include "tests/util/temp_dir.h"

namespace vlm {
namespace {

class ModuleExplorer : public testing::Test {
 protected:
    ModuleExplorer() { EXPECT_TRUE(printers_.Present()); }
    ~ModuleExplorer() override { EXPECT_EQ(printers_.OpenHandles(), 0); }

    // The printer "Office", whose driver depends on these files of the test's folder.
    void AddPrinter(const std::vector<std::wstring>& dependentFiles) {
        printers_.Reset();
        dependent_.clear();
        for (const std::wstring& file : dependentFiles)
            dependent_ += folder_.Path(file) + L'\0';
        dependent_ += L'\0';
        const standin::PrinterDescription printer{L"Office", L"P1:",   nullptr,
                                                  0,         L"Velun", dependent_.c_str()};
        EXPECT_TRUE(printers_.Add(printer));
    }
    // The same with one file of this text.
    void AddPrinterWithIni(const std::string& text) {
        folder_.Write(L"driver.ini", text);
        AddPrinter({L"driver.ini"});
    }
    std::wstring List(const wchar_t* printer = L"Office") {
        BSTR list = nullptr;
        EXPECT_EQ(BuildExtensionFileList(printer, &list), S_OK);
        const _bstr_t owner(list, false);
        return static_cast<const wchar_t*>(owner);
    }
    static std::wstring Elements(const std::vector<std::wstring>& paths) {
        std::wstring list = L"<BidiExtensionFiles>";
        for (const std::wstring& path : paths)
            list += L"<BidiXml path=\"" + path + L"\" />";
        return list + L"</BidiExtensionFiles>";
    }
    const standin::Printers printers_;
    test::TempDir folder_;
    std::wstring dependent_;
};

std::wstring WindowsFolder() {
    wchar_t path[MAX_PATH];
    GetWindowsDirectoryW(path, MAX_PATH);
    return path;
}

TEST_F(ModuleExplorer, ListHoldsTheWsdFileThenTheNumberedOnes) {
    folder_.Write(L"Driver.INI",
                  "[BidiFiles]\r\nBidiWSDFile=wsd.xml\r\n"
                  "[VelunDriverFiles]\r\nUIBidiWSDFile1=a & "
                  "b.xml,11\r\nUIBidiWSDFile2=c.xml\r\nUIBidiWSDFile4=d.xml\r\n");
    AddPrinter({L"velun.dll", L"Driver.INI", L"other.ini"});
    // Paths stand as they are, unescaped; the gap at 3 ends the list.
    EXPECT_EQ(List(), Elements({folder_.Path(L"wsd.xml"), WindowsFolder() + L"\\system32\\a & b.xml",
                                folder_.Path(L"c.xml")}));
}

TEST_F(ModuleExplorer, WhatIsMissingGivesAnEmptyList) {
    printers_.Reset();
    for (const wchar_t* printer : {L"no such printer", L"", static_cast<const wchar_t*>(nullptr)})
        EXPECT_EQ(List(printer), Elements({}));
    for (const wchar_t* file : {L"velun.dll", L"not there.ini"}) {
        AddPrinter({file});
        EXPECT_EQ(List(), Elements({}));
    }
    AddPrinterWithIni("[VelunDriverFiles]\r\nUIBidiWSDFile2=a.xml\r\n[BidiFiles]\r\nBidiWSDFile=\r\n");
    EXPECT_EQ(List(), Elements({}));
    EXPECT_EQ(BuildExtensionFileList(L"Office", nullptr), E_INVALIDARG);
}

TEST_F(ModuleExplorer, IniFileIsTheFirstNameThatHoldsTheExtensionAnywhere) {
    folder_.Write(L"x.Ini.bak", "[VelunDriverFiles]\r\nUIBidiWSDFile1=a.xml\r\n");
    AddPrinter({L"velun.dll", L"x.Ini.bak", L"y.ini"});
    EXPECT_EQ(List(), Elements({folder_.Path(L"a.xml")}));
}

TEST_F(ModuleExplorer, NumberedFilesEndAt999) {
    std::string ini = "[VelunDriverFiles]\r\n";
    for (int n = 1; n <= 1005; ++n)
        ini += "UIBidiWSDFile" + std::to_string(n) + "=a.xml,99\r\n";
    AddPrinterWithIni(ini);
    EXPECT_EQ(List(), Elements(std::vector<std::wstring>(999, L"a.xml")));
}

// Each way to a folder once.
TEST_F(ModuleExplorer, DirectoryIdsNameTheFoldersOfInfFiles) {
    const std::wstring windows = WindowsFolder();
    const std::wstring system = windows + L"\\system32";
    wchar_t profile[MAX_PATH] = L"";
    GetEnvironmentVariableW(L"USERPROFILE", profile, MAX_PATH);
    const std::wstring ini = folder_.Path(L"driver.ini");
    const std::wstring iniFolder = ini.substr(0, ini.rfind(L'\\'));
    const struct {
        const char* file;
        std::wstring expected;
    } kCases[] = {
        {"f.xml,1", iniFolder + L"\\f.xml"},
        {"f.xml,66000", iniFolder + L"\\f.xml"},
        {"f.xml,10", windows + L"\\f.xml"},
        {"f.xml,17", windows + L"\\inf\\f.xml"},
        {"f.xml, 11 ,12", system + L"\\f.xml"},
        {"f.xml,66002", system + L"\\f.xml"},
        {"f.xml,30", L"C:\\f.xml"},
        {"f.xml,52", system + L"\\spool\\drivers\\x64\\f.xml"},
        {"f.xml,53", profile + std::wstring(L"\\f.xml")},
        {"f.xml,55", system + L"\\spool\\prtprocs\\x64\\f.xml"},
        // No folder, or none of that name.
        {"f.xml,0", L"f.xml"},
        {"f.xml,99", L"f.xml"},
        {"f.xml,16383", L"f.xml"},
        {"f.xml,32766", L"f.xml"},
        {"f.xml,32767", L"f.xml"},
        {"f.xml,x", L"f.xml"},
    };
    std::string text = "[S]\r\nshell=f.xml,16389\r\ncolor=f.xml,23\r\n";
    for (size_t i = 0; i < std::size(kCases); ++i)
        text += "k" + std::to_string(i) + "=" + kCases[i].file + "\r\n";
    AddPrinterWithIni(text);
    const auto explorer = CModuleExplorer::FromPrinterName(L"Office", L"S");
    const auto path = [&](const std::wstring& key) -> std::wstring {
        BSTR found = nullptr;
        EXPECT_EQ(explorer->GetFilePath(key.c_str(), &found), S_OK) << key;
        return found != nullptr ? found : L"";
    };
    for (size_t i = 0; i < std::size(kCases); ++i) {
        EXPECT_EQ(_wcsicmp(path(L"k" + std::to_wstring(i)).c_str(), kCases[i].expected.c_str()), 0)
            << kCases[i].file;
    }
    // Wherever the account's documents and the color profiles are.
    for (const wchar_t* key : {L"shell", L"color"}) {
        const std::wstring found = path(key);
        EXPECT_TRUE(found.ends_with(L"\\f.xml") && found.starts_with(L"C:")) << found;
    }
}

TEST_F(ModuleExplorer, PathIsCachedAndStaysTheExplorers) {
    AddPrinterWithIni("[VelunDriverFiles]\r\nkey=a.xml\r\n");
    const auto explorer = CModuleExplorer::FromPrinterName(L"Office", L"");
    BSTR first = nullptr;
    BSTR second = nullptr;
    ASSERT_EQ(explorer->GetFilePath(L"key", &first), S_OK);
    folder_.Write(L"driver.ini", "[VelunDriverFiles]\r\nkey=b.xml\r\n");
    ASSERT_EQ(explorer->GetFilePath(L"key", &second), S_OK);
    EXPECT_EQ(first, second);
    const std::vector<std::wstring> log = printers_.Log();
    EXPECT_EQ(
        std::count_if(log.begin(), log.end(), [](const auto& l) { return l.starts_with(L"OpenPrinterW"); }),
        1);
    EXPECT_EQ(explorer->GetFilePath(L"key", nullptr), E_FAIL);
    BSTR none = first;
    EXPECT_EQ(explorer->GetFilePath(L"other", &none), E_FAIL);
    EXPECT_EQ(none, nullptr);
}

TEST_F(ModuleExplorer, WorksFromADriverRecordOrAHandleToo) {
    AddPrinterWithIni("[VelunDriverFiles]\r\nkey=a.xml\r\n");
    DRIVER_INFO_3W driver{};
    driver.pDependentFiles = dependent_.data();
    HANDLE printer = nullptr;
    wchar_t name[] = L"Office";
    ASSERT_TRUE(OpenPrinterW(name, &printer, nullptr));
    for (const auto& explorer : {CModuleExplorer::FromDriver(&driver, kDriverFilesSection),
                                 CModuleExplorer::FromPrinter(printer, kDriverFilesSection)}) {
        BSTR path = nullptr;
        EXPECT_EQ(explorer->GetFilePath(L"key", &path), S_OK);
        EXPECT_EQ(path, folder_.Path(L"a.xml"));
    }
    // The caller's handle is still open.
    EXPECT_TRUE(ClosePrinter(printer));
    BSTR path = nullptr;
    EXPECT_EQ(CModuleExplorer::Create()->GetFilePath(L"key", &path), E_FAIL);
}

TEST_F(ModuleExplorer, AnswersItsInterfacesAndCountsReferences) {
    const auto explorer = CModuleExplorer::Create();
    for (const IID& iid : {IID_IUnknown, kIModuleExplorer}) {
        void* object = nullptr;
        ASSERT_EQ(explorer->QueryInterface(iid, &object), S_OK);
        EXPECT_EQ(object, static_cast<IModuleExplorer*>(explorer.Get()));
        EXPECT_EQ(explorer->Release(), 1u);
    }
    void* object = &object;
    EXPECT_EQ(explorer->QueryInterface(IID_IDispatch, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
}

}  // namespace
}  // namespace vlm
