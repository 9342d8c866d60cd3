// The loaded monitor with a printer whose driver names the example extension files, a lower monitor that
// answers Bidi requests, and a printer that answers over HTTP.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/bidi/engine_fixture.h"
#include "tests/monitor/port_fixture.h"
#include "tests/support/bidi_lower_monitor.h"
#include "tests/support/scripted_server.h"

namespace vlm::test {

using Lines = std::vector<std::wstring>;

inline constexpr wchar_t kModel[] = L"\\Printer.DeviceInfo:ModelName";

inline std::string ExampleAnswer() {
    const std::filesystem::path path(host::BesideProgram(L"examples\\printer-answer.xml"));
    std::string text(static_cast<size_t>(std::filesystem::file_size(path)), '\0');
    std::ifstream(path, std::ios::binary).read(text.data(), static_cast<std::streamsize>(text.size()));
    return text;
}

// A printer that answers every request with the example.
inline Script WellBehaved() {
    return Answer(Http("200 OK", ExampleAnswer()));
}

class BidiPortTest : public PortTest {
 protected:
    BidiPortTest() { EXPECT_TRUE(router.Present()); }

    void SetUp() override {
        spooler.Reset();
        AddPrinter(L"IP_office");
        before_ = router.Counters();
    }
    void TearDown() override {
        router.ResetAllocations(0);
        EXPECT_EQ(router.Counters().liveBlocks, before_.liveBlocks);
        EXPECT_EQ(router.Counters().badFrees, before_.badFrees);
        EXPECT_EQ(bidi.openChannels, 0);
        PortTest::TearDown();
    }

    // Its driver depends on this file, or on none.
    void AddPrinter(const wchar_t* port, std::wstring ini = host::BesideProgram(L"examples\\velun.ini")) {
        spooler.Reset();
        ini.append(2, L'\0');
        EXPECT_TRUE(spooler.Add({L"Office", port, nullptr, 0, L"Velun", ini.c_str()}));
    }

    DWORD Query(HANDLE port, const wchar_t* action, const std::vector<const wchar_t*>& schemas,
                std::vector<std::wstring>* lines) {
        const Request request(schemas);
        auto* const response = reinterpret_cast<BIDI_RESPONSE_CONTAINER*>(~UINT_PTR{0});
        BIDI_RESPONSE_CONTAINER* answer = response;
        const DWORD code = table.pfnSendRecvBidiDataFromPort(
            port, PRINTER_ACCESS_USE, action, const_cast<BIDI_REQUEST_CONTAINER*>(request.Get()), &answer);
        EXPECT_EQ(answer != nullptr, code == 0);
        if (lines != nullptr) lines->clear();
        if (code == 0 && lines != nullptr) *lines = Describe(*answer);
        if (code == 0) RouterFreeBidiResponseContainer(answer);
        return code;
    }
    void PointTo(const ScriptedServer& printer) {
        const bool tcp = bidi.kind == BidiLowerMonitor::kTcp;
        bidi.address = tcp ? TcpAddress(printer) : printer.Url();
    }
    static std::wstring TcpAddress(const ScriptedServer& printer) {
        return L"127.0.0.1:" + std::to_wstring(printer.Port());
    }

    const standin::Router router;
    BidiLowerMonitor bidi;

 private:
    standin::RouterCounters before_{};
};

}  // namespace vlm::test
