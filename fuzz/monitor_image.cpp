// Any file: what is said of it is one of a problem, an entry point and a version, and none of it is read
// outside the file.
#include "tools/vlmctl/installation/monitor_image.h"

#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::vector<uint8_t> file(data, data + size);  // exactly as large, so that a read behind it is seen
    const vlm::ctl::MonitorImage image = vlm::ctl::InspectMonitorImage(file);
    FUZZ_CHECK(image.problem.empty() || !image.exportsEntry);
    FUZZ_CHECK(!image.exportsEntry || size > 64 + 24 + 112);
    return 0;
}
