#include "soap/bounded_call.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>

#include "util/handles.h"

namespace vlm {
namespace {

TEST(BoundedCall, LeavesFewCallsBehindForOnePeer) {
    const KernelHandle release(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const auto running = std::make_shared<std::atomic<int>>(0);
    const auto hang = [event = release.Get(), running] {
        ++*running;
        WaitForSingleObject(event, 10'000);
        --*running;
    };
    for (int i = 0; i < kMostLeftBehind; ++i)
        EXPECT_FALSE(RunBounded(L"hangs", hang, 20));
    EXPECT_FALSE(RunBounded(
        L"hangs", [running] { *running += 100; }, 1000));
    EXPECT_EQ(*running, kMostLeftBehind);
    EXPECT_TRUE(RunBounded(
        L"other", [] { throw 1; }, 1000));
    SetEvent(release.Get());
    for (int wait = 0; wait < 200 && *running > 0; ++wait)
        Sleep(10);
    Sleep(20);
    EXPECT_TRUE(RunBounded(
        L"hangs", [] {}, 1000));
}

}  // namespace
}  // namespace vlm
