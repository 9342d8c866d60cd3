// What is different on Windows 5.0. The prefix shows that version to programs of this name alone ('./dev
// setup').
#include "monitor/event_window.h"
#include "tests/monitor/port_fixture.h"
// windows.h first.
#include <versionhelpers.h>

namespace vlm::test {
namespace {

using Windows2000Test = PortTest;

TEST_F(Windows2000Test, HasTheOldTableSizeAndNoSuspendGuard) {
    ASSERT_FALSE(IsWindowsXPOrGreater()) << "this program is to see Windows 5.0; is the prefix set up?";
    EXPECT_EQ(table.cbSize, 148U);
    const OpenedPort port = MustOpen(lower, L"IP_office");
    ASSERT_TRUE(Start(port));
    SendMessageW(FindWindowW(kEventWindowClass, kEventWindowTitle), WM_POWERBROADCAST, PBT_APMSUSPEND, 0);
    EXPECT_TRUE(Write(port));
    table.pfnEndDocPort(port);
}

}  // namespace
}  // namespace vlm::test
