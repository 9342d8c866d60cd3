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
    ModuleExplorer() {
        EXPECT_TRUE(printers_.Present());
        printers_.Reset();
    }
    ~ModuleExplorer() override { EXPECT_EQ(printers_.OpenHandles(), 0); }

    // The printer "Office", whose driver depends on these files of the test's folder.
    void AddPrinter(const std::vector<std::wstring>& dependentFiles) {
        dependent_.clear();
        for (const std::wstring& file : dependentFiles)
            dependent_ += folder_.Path(file) + L'\0';
        dependent_ += L'\0';
        const standin::PrinterDescription printer{L"Office", L"P1:",   nullptr,
                                                  0,         L"Velun", dependent_.c_str()};
        EXPECT_TRUE(printers_.Add(printer));
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
    std::ptrdiff_t Calls(const std::wstring& function) const {
        const std::vector<std::wstring> log = printers_.Log();
        return std::count_if(log.begin(), log.end(),
                             [&](const std::wstring& line) { return line.rfind(function, 0) == 0; });
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
    EXPECT_EQ(List(L"no such printer"), Elements({}));
    EXPECT_EQ(List(nullptr), Elements({}));
    EXPECT_EQ(List(L""), Elements({}));
    AddPrinter({L"velun.dll"});
    EXPECT_EQ(List(), Elements({}));
    printers_.Reset();
    AddPrinter({L"not there.ini"});
    EXPECT_EQ(List(), Elements({}));
    printers_.Reset();
    folder_.Write(L"driver.ini",
                  "[VelunDriverFiles]\r\nUIBidiWSDFile2=a.xml\r\n[BidiFiles]\r\nBidiWSDFile=\r\n");
    AddPrinter({L"driver.ini"});
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
    folder_.Write(L"driver.ini", ini);
    AddPrinter({L"driver.ini"});
    EXPECT_EQ(List(), Elements(std::vector<std::wstring>(999, L"a.xml")));
}

TEST_F(ModuleExplorer, DirectoryIdsNameTheFoldersOfInfFiles) {
    const std::wstring windows = WindowsFolder();
    const std::wstring system = windows + L"\\system32";
    wchar_t profile[MAX_PATH] = L"";
    GetEnvironmentVariableW(L"USERPROFILE", profile, MAX_PATH);
    const std::wstring ini = folder_.Path(L"").substr(0, folder_.Path(L"").size() - 1);
    const struct {
        DWORD id;
        std::wstring directory;
    } kCases[] = {
        {1, ini},
        {66000, ini},
        {10, windows},
        {25, windows},
        {11, system},
        {66002, system},
        {12, system + L"\\drivers"},
        {17, windows + L"\\inf"},
        {18, windows + L"\\Help"},
        {20, windows + L"\\Fonts"},
        {21, system + L"\\Viewers"},
        {30, L"C:"},
        {54, L"C:"},
        {50, windows + L"\\system"},
        {51, system + L"\\spool"},
        {52, L"C:\\windows\\system32\\spool\\drivers\\x64"},
        {53, profile},
        {55, L"C:\\windows\\system32\\spool\\prtprocs\\x64"},
        {66001, L"C:\\windows\\system32\\spool\\prtprocs\\x64"},
        {0, L""},
        {99, L""},
        {16383, L""},
        {32767, L""},
    };
    std::string text = "[S]\r\n";
    for (const auto& test : kCases)
        text += "k" + std::to_string(test.id) + "=f.xml," + std::to_string(test.id) + "\r\n";
    text +=
        "odd=f.xml,x\r\nspaced=f.xml, 11 "
        ",12\r\nshell=f.xml,16389\r\nshellHigh=f.xml,32766\r\ncolor=f.xml,23\r\n";
    folder_.Write(L"driver.ini", text);
    AddPrinter({L"driver.ini"});
    const auto explorer = CModuleExplorer::FromPrinterName(L"Office", L"S");
    const auto path = [&](const std::wstring& key) -> std::wstring {
        BSTR found = nullptr;
        EXPECT_EQ(explorer->GetFilePath(key.c_str(), &found), S_OK) << key;
        return found != nullptr ? found : L"";
    };
    for (const auto& test : kCases) {
        const std::wstring expected = test.directory.empty() ? L"f.xml" : test.directory + L"\\f.xml";
        EXPECT_EQ(_wcsicmp(path(L"k" + std::to_wstring(test.id)).c_str(), expected.c_str()), 0) << test.id;
    }
    EXPECT_EQ(path(L"odd"), L"f.xml");
    EXPECT_EQ(_wcsicmp(path(L"spaced").c_str(), (system + L"\\f.xml").c_str()), 0);
    EXPECT_GT(path(L"shell").size(), std::wstring(L"\\f.xml").size());  // "My Documents", wherever that is
    EXPECT_NE(path(L"color").find(L"\\f.xml"), std::wstring::npos);
    EXPECT_EQ(path(L"shellHigh"), L"f.xml");
}

TEST_F(ModuleExplorer, PathIsCachedAndStaysTheExplorers) {
    folder_.Write(L"driver.ini", "[VelunDriverFiles]\r\nkey=a.xml\r\n");
    AddPrinter({L"driver.ini"});
    const auto explorer = CModuleExplorer::FromPrinterName(L"Office", L"");
    BSTR first = nullptr;
    BSTR second = nullptr;
    ASSERT_EQ(explorer->GetFilePath(L"key", &first), S_OK);
    folder_.Write(L"driver.ini", "[VelunDriverFiles]\r\nkey=b.xml\r\n");
    ASSERT_EQ(explorer->GetFilePath(L"key", &second), S_OK);
    EXPECT_EQ(first, second);
    EXPECT_EQ(Calls(L"OpenPrinterW"), 1);
    EXPECT_EQ(explorer->GetFilePath(L"key", nullptr), E_FAIL);
    BSTR none = first;
    EXPECT_EQ(explorer->GetFilePath(L"other", &none), E_FAIL);
    EXPECT_EQ(none, nullptr);
}

TEST_F(ModuleExplorer, WorksFromADriverRecordOrAHandleToo) {
    folder_.Write(L"driver.ini", "[VelunDriverFiles]\r\nkey=a.xml\r\n");
    AddPrinter({L"driver.ini"});
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
