#include "util/bounded_call.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "util/handles.h"

namespace vlm {
namespace {

class BoundedCall : public testing::Test {
 protected:
    // Lets every call that hangs go, and waits until none is left.
    void Release() {
        SetEvent(release_.Get());
        for (int wait = 0; wait < 200 && running_->load() > 0; ++wait)
            Sleep(10);
        Sleep(20);
    }

    const KernelHandle release_{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    const std::shared_ptr<std::atomic<int>> running_ = std::make_shared<std::atomic<int>>(0);
    const std::function<void()> hang_ = [event = release_.Get(), running = running_] {
        ++*running;
        WaitForSingleObject(event, 10'000);
        --*running;
    };
};

TEST_F(BoundedCall, LeavesFewCallsBehindForOnePeerAndNotManyInAll) {
    constexpr int kPeers = kMostAbandonedInAll / kMostAbandoned;
    for (int peer = 0; peer < kPeers; ++peer) {
        const std::wstring name = L"hangs" + std::to_wstring(peer);
        for (int i = 0; i < kMostAbandoned; ++i) {
            EXPECT_TRUE(MayCall(name));
            EXPECT_FALSE(RunBounded(name, hang_, 20));
        }
        EXPECT_FALSE(MayCall(name));
        EXPECT_EQ(MayCall(L"healthy"), peer + 1 < kPeers);
    }
    EXPECT_EQ(*running_, kMostAbandonedInAll);
    Release();
    EXPECT_TRUE(MayCall(L"hangs0"));
    const auto throws = [] { throw 1; };
    EXPECT_TRUE(RunBounded(L"hangs0", throws, 1000));
}

TEST_F(BoundedCall, CancelledCallThatEndsIsNotAbandoned) {
    for (int i = 0; i <= kMostAbandoned; ++i) {
        ResetEvent(release_.Get());
        // A call that ends at that moment may have used what was closed: its result does not count.
        const auto cancel = [this] { SetEvent(release_.Get()); };
        EXPECT_FALSE(RunBounded(L"obeys", hang_, 20, cancel, 2000));
        EXPECT_EQ(*running_, 0);
    }
    EXPECT_TRUE(MayCall(L"obeys"));
}

}  // namespace
}  // namespace vlm
