// A process that ends while a job prints, another thread is inside the lower monitor, and a second one is
// waiting for the job lock. It must end at once, with its own exit status.
#include <windows.h>

#include <thread>

#include "spooler/host/monitor_host.h"
#include "tests/support/lower_monitor.h"

int main() {
    // Static: nothing of it may be gone while the threads are still inside.
    static vlm::host::MonitorHost host(vlm::host::BesideProgram(L"vllm3mon.dll"));
    static vlm::test::LowerMonitor lower;
    wchar_t name[] = L"IP_office";
    HANDLE port = nullptr;
    if (!host.Table().pfnOpenPortEx(host.Manager(), &lower, name, name, &port, &lower.table)) return 1;
    DOC_INFO_1W document{};
    const auto start = [&] {
        return host.Table().pfnStartDocPort(port, name, 1, 1, reinterpret_cast<LPBYTE>(&document));
    };
    if (!start()) return 2;
    const HANDLE inside = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    lower.answer = [&](const char*) {
        SetEvent(inside);
        Sleep(60'000);
        return TRUE;
    };
    std::thread([&] {
        BYTE data[] = "data";
        DWORD written = 0;
        host.Table().pfnWritePort(port, data, sizeof data, &written);
    }).detach();
    std::thread([&] { start(); }).detach();
    if (WaitForSingleObject(inside, 10'000) != WAIT_OBJECT_0) return 3;
    // Not through main's end, whose static destructors would wait for nobody.
    ExitProcess(0);
}
