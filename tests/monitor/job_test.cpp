// One job on one port: start, data, end, and what the spooler and the lower monitor see of it.
#include <tuple>

#include "tests/monitor/port_fixture.h"

namespace vlm::test {
namespace {

using JobTest = PortTest;

TEST_F(JobTest, GoodJobIsForwardedAndMarkedSentAndEjected) {
    const OpenedPort port = MustOpen(lower, L"IP_office");
    lower.keepBytes = true;
    lower.most = 3;
    ASSERT_TRUE(Start(port));
    EXPECT_FALSE(LockIsFree(port)) << "the job holds the lock";

    BYTE data[] = {1, 2, 3, 4, 5};
    DWORD count = kPoison;
    SetLastError(kPoison);
    EXPECT_TRUE(table.pfnWritePort(port, data, sizeof data, &count));
    EXPECT_EQ(count, 3U) << "what the lower monitor took, not what it was given";
    EXPECT_TRUE(table.pfnReadPort(port, data, 2, &count));
    EXPECT_EQ(GetLastError(), kPoison) << "forwarding leaves the last error alone";

    EXPECT_FALSE(table.pfnEndDocPort(port)) << "FALSE also after success";
    const auto calls = lower.Calls();
    ASSERT_EQ(calls.size(), 4U);
    EXPECT_STREQ(calls[0].operation, "StartDocPort");
    EXPECT_EQ(calls[1].buffer, data);
    EXPECT_EQ(calls[1].size, sizeof data);
    EXPECT_EQ(calls[1].count, &count);
    EXPECT_EQ(calls[2].buffer, data);
    EXPECT_EQ(calls[2].size, 2U);
    EXPECT_STREQ(calls[3].operation, "EndDocPort");
    EXPECT_EQ(lower.written, std::string("\1\2\3"));
    EXPECT_EQ(JobEvents(), (std::vector<std::wstring>{L"SENT_TO_PRINTER", L"LAST_PAGE_EJECTED"}));
    EXPECT_EQ(spooler.OpenHandles(), 0);
    EXPECT_TRUE(LockIsFree(port));
}

TEST_F(JobTest, StartRefusesWrongArguments) {
    const OpenedPort port = MustOpen(lower, L"IP_office");
    wchar_t printer[] = L"Office";
    wchar_t empty[] = L"";
    BYTE info[sizeof(DOC_INFO_1W)] = {};
    const std::tuple<wchar_t*, DWORD, BYTE*, DWORD> cases[] = {
        {printer, 1, nullptr, 87}, {nullptr, 1, info, 87},  {empty, 1, info, 87},
        {printer, 2, info, 124},   {printer, 0, info, 124},
    };
    for (const auto& [name, level, document, error] : cases) {
        SetLastError(kPoison);
        EXPECT_FALSE(table.pfnStartDocPort(port, name, kJob, level, document));
        EXPECT_EQ(GetLastError(), error);
    }
    EXPECT_TRUE(lower.Calls().empty());
    EXPECT_TRUE(LockIsFree(port));
}

TEST_F(JobTest, SecondJobIsRefusedAfterASecondAndGivesTheLockBack) {
    const OpenedPort port = MustOpen(lower, L"IP_office");
    ASSERT_TRUE(Start(port));
    const ULONGLONG begin = GetTickCount64();
    EXPECT_FALSE(Start(port, kJob + 1));
    EXPECT_EQ(GetLastError(), 170U);
    const ULONGLONG waited = GetTickCount64() - begin;
    EXPECT_GE(waited, 900U);
    EXPECT_LE(waited, 10'000U);
    EXPECT_TRUE(LockIsFree(port));
    EXPECT_EQ(Record(port).jobId, kJob);
    EXPECT_EQ(lower.CountOf("StartDocPort"), 1U);
    table.pfnEndDocPort(port);
    EXPECT_TRUE(Start(port, kJob + 1)) << "the next job gets the port";
    table.pfnEndDocPort(port);
}

TEST_F(JobTest, RefusedStartLeavesThePortFreeAndTheLowerError) {
    const OpenedPort port = MustOpen(lower, L"IP_office");
    for (const DWORD error : {DWORD{ERROR_NOT_READY}, kPoison}) {
        // A lower monitor that sets no error of its own leaves the one that stood before.
        lower.answer = [error](const char*) {
            if (error != kPoison) SetLastError(error);
            return FALSE;
        };
        SetLastError(kPoison);
        // The printer is unknown, so that the monitor's own work before the call leaves an error, too.
        EXPECT_FALSE(Start(port, kJob, L"Nowhere"));
        EXPECT_EQ(GetLastError(), error);
        EXPECT_TRUE(LockIsFree(port));
        EXPECT_EQ(Record(port).flags.load() & LMPORT_JOB_ACTIVE, 0U);
        EXPECT_EQ(spooler.OpenHandles(), 0) << "nothing is lost when the port is closed next";
    }
}

TEST_F(JobTest, JobForAnotherPrinterChangesThePortsPrinterName) {
    spooler.Add({L"Lobby", L"IP_office", nullptr, 0, nullptr, nullptr});
    const OpenedPort port = MustOpen(lower, L"IP_office");
    ASSERT_TRUE(Start(port, kJob, L"Lobby"));
    EXPECT_EQ(PrinterNameOf(port), L"Lobby");
    table.pfnEndDocPort(port);
    // A printer that the spooler does not know leaves the job untracked, not unprinted.
    ASSERT_TRUE(Start(port, kJob, L"Nowhere"));
    EXPECT_TRUE(Write(port));
    table.pfnEndDocPort(port);
    EXPECT_EQ(JobEvents().size(), 2U) << "of the first job alone";
}

TEST_F(JobTest, FailedWriteKeepsTheLowerErrorAndIsNotedUntilOneSucceeds) {
    const OpenedPort port = MustOpen(lower, L"IP_office");
    ASSERT_TRUE(Start(port));
    lower.Fail(ERROR_DISK_FULL);
    EXPECT_FALSE(Write(port));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_DISK_FULL});
    EXPECT_EQ(Record(port).flags.load(), DWORD{LMPORT_JOB_ACTIVE | LMPORT_WRITE_FAILED});
    lower.answer = [](const char*) { return TRUE; };
    EXPECT_TRUE(Write(port));
    EXPECT_EQ(Record(port).flags.load(), DWORD{LMPORT_JOB_ACTIVE});
    table.pfnEndDocPort(port);
}

TEST_F(JobTest, ControlCodeGoesDownButANamedValueDoesNot) {
    const OpenedPort port = MustOpen(lower, L"IP_office");
    wchar_t name[] = L"Value";
    DWORD returned = 0;
    SetLastError(kPoison);
    EXPECT_FALSE(table.pfnGetPrinterDataFromPort(port, 0, name, name, 2, name, 2, &returned));
    EXPECT_EQ(GetLastError(), 87U);
    EXPECT_TRUE(lower.Calls().empty());
    EXPECT_TRUE(table.pfnGetPrinterDataFromPort(port, 0x42, name, name, 3, name, 2, &returned));
    ASSERT_EQ(lower.Calls().size(), 1U);
    EXPECT_EQ(lower.Calls()[0].size, 3U * 0x100 + 2);

    LowerMonitor without;
    without.table.pfnGetPrinterDataFromPort = nullptr;
    const OpenedPort second = MustOpen(without, L"IP_second");
    SetLastError(kPoison);
    EXPECT_FALSE(table.pfnGetPrinterDataFromPort(second, 0x42, name, name, 3, name, 2, &returned));
    EXPECT_EQ(GetLastError(), 87U);
}

TEST_F(JobTest, ExceptionFromBelowBecomesAnErrorAndLeavesThePortUsable) {
    OpenedPort port = MustOpen(lower, L"IP_office");
    lower.answer = [](const char*) -> BOOL { throw 42; };
    SetLastError(kPoison);
    EXPECT_FALSE(Start(port));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_FUNCTION_FAILED});
    EXPECT_FALSE(Write(port));
    lower.answer = [](const char*) -> BOOL { throw std::bad_alloc(); };
    EXPECT_FALSE(Write(port));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_NOT_ENOUGH_MEMORY});
    lower.answer = [](const char*) { return TRUE; };
    spooler.SetJob(L"Office", kJob, L"report", JOB_STATUS_RESTART);
    ASSERT_TRUE(Start(port));
    lower.answer = [](const char*) -> BOOL { throw 42; };
    EXPECT_FALSE(table.pfnEndDocPort(port));
    EXPECT_TRUE(LockIsFree(port));
    EXPECT_EQ(Record(port).flags.load(), 0U) << "nothing of the job is left for the next one";
    EXPECT_FALSE(port.Close());
    lower.answer = [](const char*) { return TRUE; };
    MustOpen(lower, L"IP_office");  // the record went although the lower close threw
}

const std::vector<std::wstring> kSent = {L"SENT_TO_PRINTER", L"LAST_PAGE_EJECTED"};
const std::vector<std::wstring> kNotSent = {L"LAST_PAGE_EJECTED"};

TEST_F(JobTest, EndIsPolledAndReportedAsTheJobsStatusSays) {
    const struct {
        const char* what;
        const wchar_t* port;
        DWORD status;
        std::vector<std::wstring> events;
        size_t polls;
    } kCases[] = {
        {"good", L"IP_office", JOB_STATUS_PRINTING, kSent, 0},
        {"deleted", L"IP_office", JOB_STATUS_DELETING, kSent, 5},
        {"restarted", L"IP_office", JOB_STATUS_RESTART, kNotSent, 5},
        {"deleted and restarted", L"IP_office", JOB_STATUS_DELETING | JOB_STATUS_RESTART, kNotSent, 5},
        {"deleted on USB", L"UsB001x", JOB_STATUS_DELETING, kSent, 0},
        {"restarted on USB", L"USB001x", JOB_STATUS_RESTART, kSent, 0},
        {"deleted on a short name", L"IP_12", JOB_STATUS_DELETING, kSent, 0},
        {"deleted on the shortest name", L"IP_123", JOB_STATUS_DELETING, kSent, 5},
    };
    for (const auto& test : kCases) {
        SCOPED_TRACE(test.what);
        SetUp();  // an empty log
        lower.answer = [](const char*) { return TRUE; };
        const OpenedPort port = MustOpen(lower, test.port);
        spooler.SetJob(L"Office", kJob, L"report", test.status);
        ASSERT_TRUE(Start(port));
        lower.answer = [](const char* operation) {
            // Whatever the monitor does after the lower EndDocPort, this is the error that stays.
            SetLastError(std::string(operation) == "EndDocPort" ? ERROR_NOT_READY : ERROR_GEN_FAILURE);
            return FALSE;
        };
        EXPECT_FALSE(table.pfnEndDocPort(port));
        EXPECT_EQ(GetLastError(), DWORD{ERROR_NOT_READY});
        EXPECT_EQ(JobEvents(), test.events);
        EXPECT_EQ(lower.CountOf("GetPrinterDataFromPort"), test.polls);
        EXPECT_EQ(Record(port).flags.load(), 0U) << "nothing of the job is left for the next one";
        EXPECT_TRUE(LockIsFree(port));
    }
}

using CompletionPollTest = PortTest;

TEST_F(CompletionPollTest, EndsAtTheAnswerAndSurvivesAnyOther) {
    const OpenedPort port = MustOpen(lower, L"IP_office");
    spooler.SetJob(L"Office", kJob, L"report", JOB_STATUS_DELETING);
    const auto pollsFor = [&](std::function<DWORD(void*)> completion) {
        lower.ForgetCalls();
        lower.completion = std::move(completion);
        EXPECT_TRUE(Start(port));
        table.pfnEndDocPort(port);
        return lower.CountOf("GetPrinterDataFromPort");
    };
    const auto say = [](const std::string& text) {
        return [text](void* output) {
            memcpy(output, text.data(), text.size());
            return static_cast<DWORD>(text.size());
        };
    };
    EXPECT_EQ(pollsFor(say("COMPLETE")), 1U);
    EXPECT_EQ(pollsFor(say("BUSY")), 5U);
    EXPECT_EQ(pollsFor(say("")), 5U);
    EXPECT_EQ(pollsFor(say("COMPLETED")), 5U);
    EXPECT_EQ(pollsFor(say(std::string("COMPLETE\0rest", 13))), 1U) << "text ends at its terminator";
    EXPECT_EQ(pollsFor(say("COMPLETE plus 15")), 1U) << "16 bytes for 8 are no answer and end the poll";
    EXPECT_EQ(pollsFor(say(std::string(4000, 'x'))), 1U);
    EXPECT_EQ(pollsFor([](void*) { return DWORD{0xFFFFFFFF}; }), 1U);
    int tries = 0;
    EXPECT_EQ(pollsFor([&](void* output) { return ++tries < 3 ? DWORD{0} : say("COMPLETE")(output); }), 3U);
    // The question: 3 bytes in, 8 bytes of room offered.
    EXPECT_EQ(lower.Calls().back().size, 3U * 0x100 + 8);
}

TEST_F(CompletionPollTest, IsSkippedWhereTheLowerMonitorLacksTheOperations) {
    spooler.SetJob(L"Office", kJob, L"report", JOB_STATUS_DELETING);
    LowerMonitor without;
    without.table.pfnEndDocPort = nullptr;
    without.table.pfnGetPrinterDataFromPort = nullptr;
    const OpenedPort port = MustOpen(without, L"IP_office");
    ASSERT_TRUE(Start(port));
    SetLastError(kPoison);
    EXPECT_FALSE(table.pfnEndDocPort(port));
    EXPECT_EQ(GetLastError(), kPoison);
    EXPECT_EQ(JobEvents(), kSent);
    EXPECT_EQ(Record(port).flags.load(), 0U);
}

TEST_F(CompletionPollTest, JobThatCannotBeReadCountsAsGood) {
    const OpenedPort port = MustOpen(lower, L"IP_office");
    spooler.SetJob(L"Office", kJob, L"report", JOB_STATUS_RESTART);
    for (const DWORD skip : {DWORD{0}, DWORD{1}}) {  // the size query fails; the read itself fails
        spooler.AddRule({"GetJobW", ERROR_ACCESS_DENIED, 0, skip, 1});
        ASSERT_TRUE(Start(port));
        table.pfnEndDocPort(port);
    }
    EXPECT_EQ(JobEvents().size(), 4U);
    EXPECT_EQ(lower.CountOf("GetPrinterDataFromPort"), 0U);
}

}  // namespace
}  // namespace vlm::test
