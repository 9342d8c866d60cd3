// The loaded monitor with one printer and one lower port, for tests of its operations through the table.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "monitor/event_window.h"
#include "monitor/lm_port.h"
#include "spooler/host/monitor_host.h"
#include "spooler/standin.h"
#include "tests/support/lower_monitor.h"

namespace vlm::test {

inline constexpr DWORD kPoison = 0xdeadbeef;
inline constexpr DWORD kJob = 7;

// The module's one export; null when it has none.
inline auto EntryOf(const Module& module) {
    return FindFunction<MONITOR2 * WINAPI(MONITORINIT*, HANDLE*)>(module.Get(), "InitializePrintMonitor2");
}

inline HWND EventWindow() {
    return FindWindowW(kEventWindowClass, kEventWindowTitle);
}

// An open port, closed at the end of its scope.
class OpenedPort {
 public:
    OpenedPort(const MONITOR2& table, HANDLE handle) : table_(table), handle_(handle) {}
    ~OpenedPort() { EXPECT_TRUE(handle_ == nullptr || Close()); }
    OpenedPort(OpenedPort&& other) noexcept
        : table_(other.table_), handle_(std::exchange(other.handle_, nullptr)) {}
    OpenedPort& operator=(OpenedPort&&) = delete;
    BOOL Close() { return table_.pfnClosePort(std::exchange(handle_, nullptr)); }
    operator HANDLE() const& { return handle_; }
    operator HANDLE() && = delete;  // closed before it is used

 private:
    const MONITOR2& table_;
    HANDLE handle_;
};

class PortTest : public ::testing::Test {
 protected:
    void SetUp() override {
        spooler.Reset();
        spooler.Add({L"Office", L"IP_office", nullptr, 0, nullptr, nullptr});
        spooler.SetJob(L"Office", kJob, L"report", JOB_STATUS_PRINTING);
    }
    void TearDown() override { EXPECT_EQ(spooler.OpenHandles(), 0); }

    // Under the host's own manager where none is given.
    BOOL Open(LowerMonitor& below, std::wstring name, HANDLE* handle, HANDLE manager = nullptr) {
        std::wstring printer = L"Office";
        return table.pfnOpenPortEx(manager != nullptr ? manager : host.Manager(), &below, name.data(),
                                   printer.data(), handle, &below.table);
    }
    OpenedPort MustOpen(LowerMonitor& below, const std::wstring& name) {
        HANDLE handle = nullptr;
        EXPECT_TRUE(Open(below, name, &handle));
        below.ForgetCalls();
        return {table, handle};
    }
    BOOL Start(HANDLE handle, DWORD job = kJob, std::wstring printer = L"Office") {
        DOC_INFO_1W document{};
        return table.pfnStartDocPort(handle, printer.data(), job, 1, reinterpret_cast<LPBYTE>(&document));
    }
    BOOL Write(HANDLE handle) {
        BYTE data[] = "data";
        DWORD written = 0;
        return table.pfnWritePort(handle, data, sizeof data, &written);
    }
    BOOL Read(HANDLE handle) {
        BYTE data[] = "data";
        DWORD read = 0;
        return table.pfnReadPort(handle, data, sizeof data, &read);
    }
    BOOL Control(HANDLE handle) {
        wchar_t text[] = L"text";
        DWORD returned = 0;
        return table.pfnGetPrinterDataFromPort(handle, 1, nullptr, text, 2, text, 2, &returned);
    }
    static const LmPort& Record(HANDLE handle) { return *static_cast<const LmPort*>(handle); }
    // The module's lock is out of reach here; nothing else runs on the port.
    VLM_UNCHECKED static std::wstring PrinterNameOf(HANDLE handle) { return Record(handle).printerName; }
    // Whether somebody could take the port's job lock now; takes and gives it back.
    static bool LockIsFree(HANDLE handle) {
        if (WaitForSingleObject(Record(handle).portEvent, 0) != WAIT_OBJECT_0) return false;
        SetEvent(Record(handle).portEvent);
        return true;
    }
    // What the monitor told the spooler about jobs: the SetJobW lines.
    std::vector<std::wstring> JobEvents() const {
        std::vector<std::wstring> events;
        for (const std::wstring& line : spooler.Log()) {
            const size_t event = line.rfind(L' ') + 1;
            if (line.starts_with(L"SetJobW")) events.push_back(line.substr(event, line.rfind(L')') - event));
        }
        return events;
    }

    host::MonitorHost host{host::BesideProgram(L"vllm3mon.dll")};
    const MONITOR2& table = host.Table();
    standin::Printers spooler;
    LowerMonitor lower;
};

}  // namespace vlm::test
