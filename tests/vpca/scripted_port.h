// The port below, as a test of an exchange scripts it: it answers reads from a queue, misbehaves at one step,
// and writes down what it is asked.
#pragma once

#include <gtest/gtest.h>
// windows.h before winspool.h.
#include <windows.h>
#include <winspool.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <functional>
#include <stdexcept>
#include <vector>

#include "hex.h"
#include "vpca/transaction.h"

namespace vlm::vpca {

inline constexpr DWORD kPoison = 0xDEADBEEF;

enum class Step { kStartDoc, kWrite, kRead, kEndDoc };
enum class Fault { kNone, kFails, kFailsSilently, kThrows, kPending };

struct ScriptedPort {
    std::deque<Bytes> answers;
    Step faultyStep = Step::kStartDoc;
    Fault fault = Fault::kNone;
    // Called in each ReadPort, before it answers.
    std::function<void()> onRead;
    // Added to the count of bytes that ReadPort reports.
    DWORD overstatement = 0;

    std::vector<Step> calls;
    Bytes written;
    std::vector<DWORD> readSizes;
    std::atomic<uint32_t> flags{0x8};
    uint32_t flagsWhileOpen = 0;

    VpcaPort Port() { return {this, &flags, StartDocPort, WritePort, ReadPort, EndDocPort}; }
    int Count(Step step) const { return static_cast<int>(std::count(calls.begin(), calls.end(), step)); }

 private:
    static ScriptedPort& Self(HANDLE handle) { return *static_cast<ScriptedPort*>(handle); }

    BOOL Pass(Step step) {
        calls.push_back(step);
        if (fault == Fault::kNone || step != faultyStep) {
            // Stale for the next step, which may fail without an error of its own.
            SetLastError(ERROR_IO_PENDING);
            return TRUE;
        }
        if (fault == Fault::kThrows) throw std::runtime_error("the port below");
        if (fault == Fault::kFails) SetLastError(ERROR_NOT_READY);
        if (fault == Fault::kPending) SetLastError(ERROR_IO_PENDING);
        return FALSE;
    }

    static BOOL WINAPI StartDocPort(HANDLE handle, LPWSTR printer, DWORD job, DWORD level, LPBYTE document) {
        ScriptedPort& self = Self(handle);
        EXPECT_EQ(printer, nullptr);
        EXPECT_EQ(job, 0u);
        EXPECT_EQ(level, 2u);
        const DOC_INFO_2W zeroed{};
        EXPECT_EQ(std::memcmp(document, &zeroed, sizeof zeroed), 0);
        EXPECT_TRUE(self.flags & kPortJobActive);
        return self.Pass(Step::kStartDoc);
    }
    static BOOL WINAPI WritePort(HANDLE handle, LPBYTE bytes, DWORD size, LPDWORD written) {
        ScriptedPort& self = Self(handle);
        self.written.assign(bytes, bytes + size);
        *written = size;
        return self.Pass(Step::kWrite);
    }
    static BOOL WINAPI ReadPort(HANDLE handle, LPBYTE bytes, DWORD size, LPDWORD read) {
        ScriptedPort& self = Self(handle);
        self.flagsWhileOpen = self.flags;
        self.readSizes.push_back(size);
        if (self.onRead) self.onRead();
        *read = self.overstatement;
        if (!self.answers.empty()) {
            const Bytes answer = self.answers.front();
            self.answers.pop_front();
            const auto count = static_cast<DWORD>(std::min<size_t>(answer.size(), size));
            std::copy_n(answer.begin(), count, bytes);
            *read += count;
        }
        return self.Pass(Step::kRead);
    }
    static BOOL WINAPI EndDocPort(HANDLE handle) {
        const BOOL result = Self(handle).Pass(Step::kEndDoc);
        SetLastError(ERROR_SUCCESS);
        return result;
    }
};

}  // namespace vlm::vpca
