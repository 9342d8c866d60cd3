// A VPCA frame in words, for whoever looks at a capture of a printer's port.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace vlm::ctl {

struct FrameText {
    std::vector<std::string> lines;  // what could be read, each with its offset in the frame
    std::string problem;             // where and why the frame is bad; empty when it is good
};

// A frame whose flags announce a result code is read as a response, any other as a request.
FrameText DescribeFrame(std::span<const std::uint8_t> frame);

}  // namespace vlm::ctl
