// The DLL in the hands of a spooler that we did not write: the system's own, which under Wine runs in the
// calling process, so that its loading and unloading can be watched.
#include <gtest/gtest.h>

#include <string>

#include "monitor/event_window.h"
#include "spooler/host/monitor_host.h"
#include "util/spooler_api.h"

namespace vlm {
namespace {

constexpr wchar_t kFile[] = L"vllm3mon_test.dll";  // its own name: the real one may be installed

class SystemSpooler : public testing::Test {
 protected:
    SystemSpooler() {
        wchar_t folder[MAX_PATH];
        GetSystemDirectoryW(folder, MAX_PATH);
        copy_ = std::wstring(folder) + L'\\' + kFile;
        EXPECT_TRUE(CopyFileW(host::BesideProgram(L"vllm3mon.dll").c_str(), copy_.c_str(), FALSE));
    }
    ~SystemSpooler() override {
        Delete();
        EXPECT_TRUE(DeleteFileW(copy_.c_str())) << "still loaded";
    }
    bool Add() {
        MONITOR_INFO_2W info{name_.data(), environment_.data(), file_.data()};
        return AddMonitorW(nullptr, 2, reinterpret_cast<BYTE*>(&info)) != FALSE;
    }
    bool Delete() { return DeleteMonitorW(nullptr, environment_.data(), name_.data()) != FALSE; }
    static bool Loaded() { return GetModuleHandleW(kFile) != nullptr; }
    static bool HasWindow() { return FindWindowW(kEventWindowClass, kEventWindowTitle) != nullptr; }

    std::wstring copy_;
    std::wstring name_ = L"Velun Language Monitor under test";
    std::wstring environment_ = L"Windows x64";
    std::wstring file_ = kFile;
};

TEST_F(SystemSpooler, LoadsInitialisesShutsDownAndUnloadsTheMonitorAgainAndAgain) {
    for (int round = 0; round < 3; ++round) {
        ASSERT_TRUE(Add()) << GetLastError();
        EXPECT_TRUE(Loaded());
        EXPECT_TRUE(HasWindow());
        ASSERT_TRUE(Delete()) << GetLastError();
        EXPECT_FALSE(Loaded());
        EXPECT_FALSE(HasWindow());
    }
}

}  // namespace
}  // namespace vlm
