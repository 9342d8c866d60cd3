// What the loaded monitor writes to the debugger output about a job and a query, at each level.
#include <algorithm>
#include <mutex>
#include <regex>

#include "tests/monitor/bidi_fixture.h"

namespace vlm::test {
namespace {

constexpr wchar_t kOnlyBelow[] = L"\\Printer.Below:Leaf";
constexpr wchar_t kNone[] = L"\\Printer.None:Leaf";

// Takes the debugger output of this process, from any thread, while it is in scope. One at a time.
class DebuggerOutput {
 public:
    DebuggerOutput() : handler_(AddVectoredExceptionHandler(1, Take)) { Taken() = {}; }
    ~DebuggerOutput() { RemoveVectoredExceptionHandler(handler_); }
    DebuggerOutput(const DebuggerOutput&) = delete;
    DebuggerOutput& operator=(const DebuggerOutput&) = delete;

    // The lines that begin so. With N for each time and each free TCP port, P for the port that is tested,
    // and
    // "|" for the line's end.
    static Lines Texts(const std::wstring& start = L"") {
        const std::lock_guard guard(Mutex());
        Lines texts;
        for (std::wstring text : Taken()) {
            if (!text.starts_with(start)) continue;
            text = std::regex_replace(text, std::wregex(L"\\d+ ms"), L"N ms");
            text = std::regex_replace(text, std::wregex(L"127\\.0\\.0\\.1:\\d+"), L"127.0.0.1:N");
            text = std::regex_replace(text, std::wregex(L"port \"IP_office\""), L"P");
            texts.push_back(std::regex_replace(text, std::wregex(L"\r\n$"), L"|"));
        }
        return texts;
    }

 private:
    static LONG CALLBACK Take(EXCEPTION_POINTERS* exception) {
        constexpr DWORD kWideDebugText = 0x4001000A;  // DBG_PRINTEXCEPTION_WIDE_C
        constexpr DWORD kDebugText = 0x40010006;      // DBG_PRINTEXCEPTION_C
        const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
        const auto text = record.ExceptionInformation[1];
        const std::lock_guard guard(Mutex());
        if (record.ExceptionCode == kWideDebugText) {
            Taken().emplace_back(reinterpret_cast<const wchar_t*>(text));
        } else if (record.ExceptionCode == kDebugText) {
            const std::string_view narrow = reinterpret_cast<const char*>(text);
            Taken().emplace_back(narrow.begin(), narrow.end());
        } else {
            return EXCEPTION_CONTINUE_SEARCH;
        }
        return EXCEPTION_CONTINUE_EXECUTION;
    }
    static std::mutex& Mutex() {
        static std::mutex mutex;
        return mutex;
    }
    static Lines& Taken() {
        static Lines taken;
        return taken;
    }

    PVOID handler_;
};

// Comes before the monitor, which reads its level when it is loaded.
class TraceEnvironment : public ::testing::WithParamInterface<const wchar_t*> {
 public:
    TraceEnvironment() { SetEnvironmentVariableW(L"VLLM3MON_TRACE", GetParam()); }
    ~TraceEnvironment() { SetEnvironmentVariableW(L"VLLM3MON_TRACE", nullptr); }
};

class MonitorTraceTest : public TraceEnvironment, public BidiPortTest {
 protected:
    // Those of the lines that belong to the level under test.
    static Lines AtThisLevel(const Lines& lines) {
        const std::wstring level = GetParam();
        Lines chosen;
        std::copy_if(lines.begin(), lines.end(), std::back_inserter(chosen), [&](const std::wstring& line) {
            if (line.starts_with(L"Verbose: ")) return level == L"verbose";
            if (line.starts_with(L"Info: ")) return level == L"verbose" || level == L"INFO";
            return level != L"off";
        });
        return chosen;
    }
};
INSTANTIATE_TEST_SUITE_P(Levels, MonitorTraceTest, ::testing::Values(L"off", L"error", L"INFO", L"verbose"));

TEST_P(MonitorTraceTest, JobEndsWithWhatWentThroughItAndRefusalsSayWhy) {
    const OpenedPort port = MustOpen(lower, L"IP_office");
    const DebuggerOutput output;
    EXPECT_TRUE(Start(port));
    EXPECT_TRUE(Write(port));
    lower.most = 2;
    EXPECT_TRUE(Write(port));
    lower.Fail(kPoison, "WritePort");
    EXPECT_FALSE(Write(port));
    EXPECT_FALSE(Write(port));
    EXPECT_EQ(GetLastError(), kPoison);
    lower.answer = [](const char*) { return TRUE; };
    EXPECT_TRUE(Write(port));
    BYTE data[] = "uncounted";
    EXPECT_TRUE(table.pfnWritePort(port, data, sizeof data, nullptr));
    EXPECT_FALSE(Start(port, 8));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_BUSY});
    HANDLE second = nullptr;
    EXPECT_FALSE(Open(lower, L"ip_OFFICE", &second));
    table.pfnEndDocPort(port);
    table.pfnEndDocPort(port);  // there is no job any more
    lower.Fail(1234, "StartDocPort");
    EXPECT_FALSE(Start(port, 9));
    EXPECT_EQ(GetLastError(), 1234U);
    EXPECT_EQ(output.Texts(),
              AtThisLevel({L"Verbose: P: job 7 started, printer \"Office\"|",
                           L"Error: P: a job while another one, or a remote caller, has the port, error 170|",
                           L"Error: port \"ip_OFFICE\": open already, error 170|",
                           L"Error: P: job 7 broke: 2 failed writes, the last one with error 3735928559|",
                           L"Info: P: job 7 ended, 9 bytes, 2 failed writes, N ms|",
                           L"Error: P: the lower monitor does not start the job, error 1234|"}));
}

TEST_P(MonitorTraceTest, QueryEndsWithWhoAnsweredIt) {
    const ScriptedServer printer(WellBehaved());
    PointTo(printer);
    bidi.entries = {{101, 0, kOnlyBelow, L"below"}};
    const OpenedPort port = MustOpen(bidi, L"IP_office");
    const DebuggerOutput output;
    EXPECT_EQ(Query(port, L"Get", {kModel, kOnlyBelow, kNone}, nullptr), 0U);
    EXPECT_EQ(Query(port, L"Set", {kOnlyBelow}, nullptr), 0U);
    EXPECT_EQ(output.Texts(),
              AtThisLevel({L"Info: host \"127.0.0.1:N\": exchange ended, status 200, " +
                               std::to_wstring(ExampleAnswer().size()) + L" bytes, N ms|",
                           L"Verbose: P: entry \"\\Printer.DeviceInfo:ModelName\" of the engine, result 0|",
                           L"Verbose: P: entry \"\\Printer.Below:Leaf\" of the lower monitor, result 0|",
                           L"Verbose: P: entry \"\\Printer.None:Leaf\" of the engine, result 232|",
                           L"Info: P: query \"Get\" ended, code 0, 1 entries by the engine, 1 by the lower "
                           L"monitor, 1 unanswered, N ms|",
                           L"Verbose: P: entry \"\\Printer.Below:Leaf\" of the lower monitor, result 0|",
                           L"Info: P: query \"Set\" ended, code 0, 0 entries by the engine, 1 by the lower "
                           L"monitor, 0 unanswered, N ms|"}));
}

TEST(TraceLevelTest, UnknownOneIsNamedByEachInitialization) {
    SetEnvironmentVariableW(L"VLLM3MON_TRACE", L"loud\r\n");
    const DebuggerOutput output;
    {
        host::MonitorHost host(host::BesideProgram(L"vllm3mon.dll"));
        host.Table().pfnShutdown(host.InitializeAgain());
    }
    SetEnvironmentVariableW(L"VLLM3MON_TRACE", nullptr);
    EXPECT_EQ(DebuggerOutput::Texts(L"Error: VLLM3MON_TRACE"),
              Lines(2, L"Error: VLLM3MON_TRACE=loud?? is not a trace level; errors are traced|"));
}

// Whatever is at fault, the printer is not blamed for it, and the port's line says all.
TEST_P(MonitorTraceTest, ExtensionFileAtFaultIsNamedOnThePortsLine) {
    const ScriptedServer printer(WellBehaved());
    PointTo(printer);
    bidi.bidiCode = ERROR_NOT_READY;
    const TempDir folder;
    AddPrinter(L"IP_office", folder.Write(L"driver.ini", "[BidiFiles]\r\nBidiWSDFile=own.xml\r\n"));
    const std::wstring file = folder.Path(L"own.xml");
    const struct {
        std::string text;
        std::wstring reason;
        DWORD code = ERROR_FUNCTION_FAILED;
    } kCases[] = {
        {Extension("<Value name='A' query='w:PrinterStatus' filter='w:X['/>"),
         L"filter w:X[ cannot be used: Value \"A\" with the filter \"w:X[\" in " + file},
        {Extension("<Value name='A' query='w:PrinterStatus' filter='w:X[.=$P$]'/>"),
         L"Parameter P in w:X[.=$P$] is undefined: Value \"A\" with the filter \"w:X[.=$P$]\" in " + file},
        {Extension("<Value name='A' query='none:X' filter='w:X'/>"),
         L"Bidi extension file contains no namespace declaration for none: Value \"A\" with the filter "
         L"\"w:X\" in " +
             file},
        {"<!DOCTYPE x><x/>", L"extension file " + file + L" has a document type declaration",
         ERROR_INVALID_DATA},
    };
    const OpenedPort port = MustOpen(bidi, L"IP_office");
    for (const auto& test : kCases) {
        folder.Write(L"own.xml", test.text);
        const DebuggerOutput output;
        EXPECT_EQ(Query(port, L"Get", {L"\\:A"}, nullptr), DWORD{ERROR_NOT_READY});
        EXPECT_EQ(output.Texts(L"Error: port "),
                  AtThisLevel({L"Error: P: " + test.reason + L", error " + std::to_wstring(test.code) + L"|",
                               L"Error: P: the lower monitor gave no answer, error 21|"}));
    }
}

TEST_P(MonitorTraceTest, JobThatBreaksIsAnErrorLine) {
    OpenedPort port = MustOpen(lower, L"IP_office");
    const DebuggerOutput output;
    lower.Fail(10054, "EndDocPort");
    EXPECT_TRUE(Start(port));
    table.pfnEndDocPort(port);
    lower.Fail(0, "EndDocPort");  // what some lower monitors always answer
    EXPECT_TRUE(Start(port));
    table.pfnEndDocPort(port);
    lower.answer = [](const char* call) -> BOOL {
        if (std::string(call) == "EndDocPort") throw 1;
        return TRUE;
    };
    EXPECT_TRUE(Start(port));
    table.pfnEndDocPort(port);
    lower.answer = [](const char*) { return TRUE; };
    spooler.Reset();  // without a printer there is none that only EndDocPort closes
    EXPECT_TRUE(Start(port));
    EXPECT_TRUE(port.Close());
    EXPECT_EQ(output.Texts(L"Error: "),
              AtThisLevel({L"Error: P: the lower monitor does not end the job's document, error 10054|",
                           L"Error: P: EndDocPort: an unexpected exception, error 1627|",
                           L"Error: P: closed before its job ended, error 170|"}));
}

TEST_P(MonitorTraceTest, QueryThatIsRefusedOrFailsSaysWhyAtEachStep) {
    const ScriptedServer printer(Answer(Http("404 Not Found", "<html/>")));
    PointTo(printer);
    bidi.bidiCode = ERROR_NOT_READY;
    const OpenedPort port = MustOpen(bidi, L"IP_office");
    const DebuggerOutput output;
    EXPECT_EQ(Query(port, L"Get", {kModel}, nullptr), DWORD{ERROR_NOT_READY});
    bidi.address = L"127.0.0.1:1";
    EXPECT_EQ(Query(port, L"Get", {kModel}, nullptr), DWORD{ERROR_NOT_READY});
    AddPrinter(L"IP_office,IP_other");
    const Request request({kModel});
    BIDI_RESPONSE_CONTAINER* answer = nullptr;
    EXPECT_EQ(table.pfnSendRecvBidiDataFromPort(port, 0, L"Get\r\n",
                                                const_cast<BIDI_REQUEST_CONTAINER*>(request.Get()), &answer),
              DWORD{ERROR_NOT_SUPPORTED});
    const std::wstring noLower = L"Error: P: the lower monitor gave no answer, error 21|";
    const std::wstring ended =
        L"Info: P: query \"Get\" ended, code 21, 0 entries by the engine, 0 by the lower monitor, 0 "
        L"unanswered, N ms|";
    EXPECT_EQ(
        output.Texts(),
        AtThisLevel({L"Info: host \"127.0.0.1:N\": exchange ended, status 404, 7 bytes, N ms|",
                     L"Error: P: HTTP status 404; the printer's answer is not a SOAP 1.2 envelope but "
                     L"\"html\", error 1627|",
                     noLower, ended, L"Info: host \"127.0.0.1:N\": exchange ended, status 0, 0 bytes, N ms|",
                     L"Error: P: no answer from 127.0.0.1:N: no connection (12029), error 1627|", noLower,
                     ended, L"Error: P: no Bidi for a pooled printer, error 50|",
                     L"Info: P: query \"Get??\" ended, code 50, 0 entries by the engine, 0 by the lower "
                     L"monitor, 0 unanswered, N ms|"}));
}

}  // namespace
}  // namespace vlm::test
