// What the monitor costs a print job: a forwarded write, a whole document, an open port.
#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "bench/bench.h"
#include "bench/least_monitor.h"
#include "monitor/lm_port.h"
#include "spooler/host/monitor_host.h"
#include "tests/support/resources.h"

namespace {

using namespace vlm;

// Reached through the table, as the monitor reaches them.
DWORD64 counted;

BOOL WINAPI Write(HANDLE, LPBYTE, DWORD size, LPDWORD written) {
    counted += size;
    *written = size;
    return TRUE;
}
BOOL WINAPI Read(HANDLE, LPBYTE, DWORD, LPDWORD) {
    return TRUE;
}

// Touches nothing that two threads share.
BOOL WINAPI Take(HANDLE, LPBYTE, DWORD size, LPDWORD written) {
    *written = size;
    return TRUE;
}

struct Bench {
    host::MonitorHost host{host::BesideProgram(L"vllm3mon.dll")};
    const MONITOR2& monitor = host.Table();
    MONITOR2 lower = bench::LeastMonitor(Write, Read);
    MONITOR2 takers = bench::LeastMonitor(Take, Read);
    bench::Rows rows;

    HANDLE OpenPort(std::wstring name) { return OpenPort(std::move(name), lower); }
    HANDLE OpenPort(std::wstring name, MONITOR2& below) {
        HANDLE port = nullptr;
        monitor.pfnOpenPortEx(host.Manager(), this, name.data(), name.data(), &port, &below);
        return port;
    }

    void ForwardedWrite() {
        bench::Measuring("WritePort");
        constexpr long kWrites = 100'000;
        constexpr int kRounds = 4'000;  // two seconds: others have the machine for moments of that length
        const HANDLE port = OpenPort(L"IP_write");
        std::vector<BYTE> data(4096);
        const auto loop = [&data](auto write, HANDLE handle) {
            return [&data, write, handle](long repetitions) {
                DWORD written = 0;
                for (long i = 0; i < repetitions; ++i)
                    write(handle, data.data(), 4096, &written);
            };
        };
        // Volatile, so that the reference is a call through a pointer and not inlined away.
        BOOL(WINAPI* volatile direct)(HANDLE, LPBYTE, DWORD, LPDWORD) = Write;
        const bench::Pair best =
            bench::BestOfBoth(kRounds, kWrites, loop(monitor.pfnWritePort, port), loop(direct, this));
        rows.Add("WritePort of 4 KiB", "ns", best.ours, best.reference,
                 "the same lower function called through a pointer", "<= 2.5");
        monitor.pfnClosePort(port);
    }

    // As a print processor does it: the spool file is read and written to the port in pieces of 64 KiB.
    void Document() {
        constexpr DWORD kPiece = 64 * 1024;
        constexpr DWORD kDocument = 64 * 1024 * 1024;
        constexpr int kRounds = 200;
        std::vector<BYTE> data(kPiece, 0x55);
        DWORD count = 0;
        const std::wstring path = host::BesideProgram(L"monitor_bench.spl");
        const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                        FILE_FLAG_DELETE_ON_CLOSE, nullptr);
        for (DWORD done = 0; done < kDocument; done += kPiece)
            WriteFile(file, data.data(), kPiece, &count, nullptr);

        const HANDLE port = OpenPort(L"IP_document");
        wchar_t printer[] = L"Office";
        DOC_INFO_1W info{};
        const auto send = [&](const MONITOR2& table, HANDLE handle) {
            SetFilePointer(file, 0, nullptr, FILE_BEGIN);
            while (ReadFile(file, data.data(), kPiece, &count, nullptr) && count > 0) {
                DWORD written = 0;
                table.pfnWritePort(handle, data.data(), count, &written);
            }
        };
        const auto print = [&](const MONITOR2& table, HANDLE handle) {
            table.pfnStartDocPort(handle, printer, 1, 1, reinterpret_cast<LPBYTE>(&info));
            send(table, handle);
            table.pfnEndDocPort(handle);
        };
        const auto measure = [&](const char* what, const auto& run) {
            bench::Measuring(what);
            const bench::Pair best = bench::BestOfBoth(
                kRounds, 1, [&](long) { run(monitor, port); }, [&](long) { run(lower, this); });
            const double megabytes = kDocument / 1e6;
            rows.Add(what, "MB/s", megabytes / best.ours * 1e9, megabytes / best.reference * 1e9,
                     "the same loop without the monitor", ">= 0.98");
        };
        measure("throughput of a 64 MiB spool file", print);
        monitor.pfnStartDocPort(port, printer, 1, 1, reinterpret_cast<LPBYTE>(&info));
        measure("the same in a job that is open already", send);
        monitor.pfnEndDocPort(port);
        monitor.pfnClosePort(port);
        CloseHandle(file);
    }

    void OpenPorts() {
        bench::Measuring("opening and closing of ports");
        constexpr long kPorts = 2'000;
        const double cycle = bench::BestNanoseconds(3, kPorts, [&](long repetitions) {
            for (long i = 0; i < repetitions; ++i)
                monitor.pfnClosePort(OpenPort(L"IP_cycle"));
        });
        rows.State("open and close of a port", "us", cycle / 1000);

        const size_t before = test::CountResources().heapBytes;
        std::vector<HANDLE> ports;
        ports.reserve(100);
        const size_t reserved = test::CountResources().heapBytes - before;
        for (int i = 0; i < 100; ++i)
            ports.push_back(OpenPort(L"IP_192.168.0." + std::to_wstring(100 + i)));
        const size_t used = test::CountResources().heapBytes - before - reserved;
        rows.State("heap memory of an open port", "bytes", static_cast<double>(used) / 100);
        for (const HANDLE port : ports)
            monitor.pfnClosePort(port);
    }

    void OpenAmongMany() {
        bench::Measuring("opening a port beside many");
        const auto beside = [&](int others) {
            std::vector<HANDLE> ports;
            for (int i = 0; i < others; ++i)
                ports.push_back(OpenPort(L"IP_10.0." + std::to_wstring(i)));
            const double cycle = bench::BestNanoseconds(20, 200, [&](long repetitions) {
                for (long i = 0; i < repetitions; ++i)
                    monitor.pfnClosePort(OpenPort(L"IP_one_more"));
            });
            while (!ports.empty()) {
                monitor.pfnClosePort(ports.back());
                ports.pop_back();
            }
            return cycle / 1000;
        };
        const double few = beside(100);
        rows.Add("open and close of a port beside 10,000 others", "us", beside(10'000), few,
                 "beside 100 others", "<= 3");
    }

    void WriteFromTwoThreads() {
        bench::Measuring("WritePort from two threads");
        constexpr long kWrites = 100'000;
        constexpr int kRounds = 2'000;  // a quarter of a millisecond each: others have the machine, too
        const HANDLE ports[] = {OpenPort(L"IP_first", takers), OpenPort(L"IP_second", takers)};
        const auto write = [this](HANDLE port) {
            std::vector<BYTE> data(4096);
            DWORD written = 0;
            for (long i = 0; i < kWrites; ++i)
                monitor.pfnWritePort(port, data.data(), 4096, &written);
        };
        // A second thread that is there already and starts at a sign.
        std::atomic<int> asked{0};
        std::atomic<int> done{0};
        std::thread second([&] {
            for (int turn = 1; turn <= kRounds; ++turn) {
                while (asked.load() < turn) {
                }
                write(ports[1]);
                done.store(turn);
            }
        });
        bench::Pair best{1e300, 1e300};
        for (int turn = 1; turn <= kRounds; ++turn) {
            best.reference = std::min(best.reference, bench::Nanoseconds(1, [&](long) { write(ports[0]); }));
            best.ours = std::min(best.ours, bench::Nanoseconds(1, [&](long) {
                                     asked.store(turn);
                                     write(ports[0]);
                                     while (done.load() < turn) {
                                     }
                                 }));
        }
        second.join();
        rows.Add("WritePort on two ports from two threads at once", "writes/us",
                 2 * kWrites / best.ours * 1000, kWrites / best.reference * 1000, "one port from one thread",
                 ">= 1.8");
        for (const HANDLE port : ports)
            monitor.pfnClosePort(port);
    }
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    Bench bench;
    bench.ForwardedWrite();
    bench.Document();
    bench.OpenPorts();
    bench.OpenAmongMany();
    bench.WriteFromTwoThreads();
    return bench.rows.WriteTo(argv[1]);
}
