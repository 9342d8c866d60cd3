// The stand-in spooler is what other tests trust: it has to see the faults that they look for.
#include <gtest/gtest.h>

#include "spooler/standin.h"
#include "util/spooler_api.h"

namespace vlm::standin {
namespace {

bool CanAccess(const void* address) {
    MEMORY_BASIC_INFORMATION region{};
    return VirtualQuery(address, &region, sizeof region) != 0 && region.State == MEM_COMMIT;
}

TEST(RouterTest, BlockEndsAtAPageWithoutAccessAndIsGoneOnceFreed) {
    const Router router;
    ASSERT_TRUE(router.Present());
    for (const size_t size : {size_t{2}, size_t{8}, size_t{100}, size_t{4096}, size_t{5001}}) {
        SCOPED_TRACE(size);
        auto* block = static_cast<BYTE*>(RouterAllocBidiMem(size));
        ASSERT_NE(block, nullptr);
        EXPECT_TRUE(CanAccess(block) && CanAccess(block + size - 1));
        EXPECT_FALSE(CanAccess(block + size));
        EXPECT_EQ(router.Counters().liveBlocks, 1);
        EXPECT_EQ(router.Counters().liveBytes, static_cast<LONG64>(size));
        RouterFreeBidiMem(block);
        EXPECT_FALSE(CanAccess(block));
        EXPECT_EQ(router.Counters().liveBlocks, 0);
    }
}

TEST(RouterTest, CountsWrongFreesAndFailsFromTheNthAllocationOn) {
    const Router router;
    const LONG64 badBefore = router.Counters().badFrees;
    void* block = RouterAllocBidiMem(16);
    RouterFreeBidiMem(block);
    RouterFreeBidiMem(block);
    int notOurs = 0;
    RouterFreeBidiMem(&notOurs);
    EXPECT_EQ(router.Counters().badFrees, badBefore + 2);

    router.ResetAllocations(2);
    void* first = RouterAllocBidiMem(16);
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(RouterAllocBidiMem(16), nullptr);
    EXPECT_EQ(RouterAllocBidiResponseContainer(1), nullptr);
    router.ResetAllocations(0);
    BIDI_RESPONSE_CONTAINER* container = RouterAllocBidiResponseContainer(3);
    ASSERT_NE(container, nullptr);
    container->aData[2].pSchema = static_cast<LPWSTR>(first);
    RouterFreeBidiResponseContainer(container);
    EXPECT_EQ(router.Counters().liveBlocks, 0) << "a container goes with what it holds";
}

TEST(PrintersTest, ScriptedPrintersAnswerAndCallsAreLogged) {
    const Printers spooler;
    ASSERT_TRUE(spooler.Present());
    spooler.Reset();
    EXPECT_TRUE(spooler.Add(
        {L"Office", L"IP_1,IP_2", L"office", PRINTER_ATTRIBUTE_ENABLE_BIDI, L"Driver", L"a.dll\0b.ini\0"}));
    EXPECT_FALSE(spooler.Add({L"OFFICE", L"", nullptr, 0, nullptr, nullptr})) << "names are unique";
    wchar_t name[] = L"office";
    HANDLE printer = nullptr;
    ASSERT_TRUE(OpenPrinterW(name, &printer, nullptr));
    DWORD needed = 0;
    EXPECT_FALSE(GetPrinterDriverW(printer, nullptr, 3, nullptr, 0, &needed));
    EXPECT_EQ(GetLastError(), 122U);
    std::vector<BYTE> buffer(needed);
    ASSERT_TRUE(GetPrinterDriverW(printer, nullptr, 3, buffer.data(), needed, &needed));
    const auto* driver = reinterpret_cast<const DRIVER_INFO_3W*>(buffer.data());
    EXPECT_EQ(std::wstring(driver->pDependentFiles, 13), std::wstring(L"a.dll\0b.ini\0\0", 13));

    EXPECT_TRUE(spooler.AddRule({"SetJobW", ERROR_ACCESS_DENIED, 0, 1, 1}));
    EXPECT_TRUE(SetJobW(printer, 5, 0, nullptr, JOB_CONTROL_SENT_TO_PRINTER));
    EXPECT_FALSE(SetJobW(printer, 5, 0, nullptr, JOB_CONTROL_LAST_PAGE_EJECTED));
    EXPECT_TRUE(SetJobW(printer, 5, 0, nullptr, JOB_CONTROL_LAST_PAGE_EJECTED));
    EXPECT_EQ(spooler.OpenHandles(), 1);
    EXPECT_TRUE(ClosePrinter(printer));
    EXPECT_FALSE(ClosePrinter(printer));
    EXPECT_EQ(spooler.OpenHandles(), 0);
    EXPECT_EQ(spooler.Log()[3], L"SetJobW(Office, job 5, SENT_TO_PRINTER)");
}

}  // namespace
}  // namespace vlm::standin
