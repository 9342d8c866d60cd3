// A VPCA frame in words, for whoever looks at a capture of a printer's port.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace vlm::ctl {

struct FrameField {
    size_t offset = 0;  // in the frame
    std::string name;   // two blanks before it when it is a part of the field before
    std::string value;
};

struct FrameText {
    std::vector<FrameField> fields;  // what could be read
    std::string problem;             // where and why the frame is bad; empty when it is good
};

// A frame whose flags announce a result code is read as a response, any other as a request.
FrameText DescribeFrame(std::span<const std::uint8_t> frame);

}  // namespace vlm::ctl
