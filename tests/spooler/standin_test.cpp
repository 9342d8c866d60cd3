// The stand-in router is what other tests trust: it has to see the faults that they look for. What the
// stand-in printers do is seen by the tests of jobs and of the driver's files.
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

}  // namespace
}  // namespace vlm::standin
