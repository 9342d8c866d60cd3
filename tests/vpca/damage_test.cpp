// Valid frames, cut short at every byte and changed in every byte: the codec answers with an error code or
// with a value that is really in the bytes. Under the sanitizers a read outside the frame ends the test.
#include <gtest/gtest.h>

#include "hex.h"

// What is right to say of any bytes is what the fuzzer checks.
#define FUZZ_CHECK EXPECT_TRUE
#include "fuzz/vpca_frame.cpp"

namespace vlm::vpca {
namespace {

constexpr struct {
    const char* name;
    const char* hex;
} kFrames[] = {
    {"DataBlock", "CD CA 10 05 00 31 00 01 00 08 00000000 00000000 0001 11223344 AABBCCDD"},
    {"EightBytes", "CD CA 10 05 00 66 00 01 00 0C 00000000 00000000 0001 01 00B4 08 0102030405060708"},
    {"AddressLists",
     "CD CA 10 05 00 66 00 01 00 24 00000000 00000000 0001 "
     "03 177C 11 02 C0000201 00000102 C0000202 00000304 0090 05 01 0A000001 0438 01 00 1B58 00"},
    {"TextRecord",
     "CD CA 10 05 00 66 00 01 00 1D 00000000 00000000 0001 "
     "01 0840 15 C0000205 03 616263 0102 0304 05060708 090A0B0C 0D 00 00 00 00"},
    {"OpaqueAndUnknown",
     "CD CA 10 05 00 66 00 01 00 10 00000000 00000000 0001 02 0002 04 AABBCCDD 1B58 05 0102030405"},
    {"OpaqueBody", "CD CA 10 05 00 02 00 01 00 03 00000000 00000000 0001 AABBCC"},
    {"OpenEndedFp", "CD CA 10 01 00 1A 00 01 00 03 00000000 00000000 0001 AABBCC"},
};

void Check(const Bytes& frame) {
    LLVMFuzzerTestOneInput(frame.data(), frame.size());
}

TEST(DamagedFrameTest, CutAnywhereIsNeverMisread) {
    RegisterTables();
    for (const auto& [name, hex] : kFrames) {
        const Bytes whole = Hex(hex);
        VpcaHeader header;
        VpcaResult result;
        EXPECT_EQ(DecodeResponse(&header, &result, {whole.data(), static_cast<uint32_t>(whole.size())}),
                  VpcaError::kSuccess)
            << name;
        for (size_t size = 0; size <= whole.size(); ++size) {
            SCOPED_TRACE(testing::Message() << name << ", " << size << " bytes");
            Check(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
        }
    }
}

TEST(DamagedFrameTest, ChangedInAnyByteIsNeverMisread) {
    for (const auto& [name, hex] : kFrames) {
        Bytes frame = Hex(hex);
        for (uint8_t& byte : frame) {
            const uint8_t original = byte;
            for (int value = 0; value <= 0xFF; ++value) {
                SCOPED_TRACE(testing::Message()
                             << name << ", byte " << &byte - frame.data() << " is " << value);
                byte = static_cast<uint8_t>(value);
                Check(frame);
            }
            byte = original;
        }
    }
}

}  // namespace
}  // namespace vlm::vpca
