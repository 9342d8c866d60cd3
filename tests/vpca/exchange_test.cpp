// Exchanges over a scripted port: what goes down to it, what comes back to the caller, and which error is
// left.
#include <gtest/gtest.h>
// windows.h before winspool.h.
#include <windows.h>
#include <winspool.h>

#include <deque>
#include <functional>
#include <ostream>
#include <stdexcept>

#include "hex.h"
#include "vpca/memory.h"
#include "vpca/transaction.h"

namespace vlm::vpca {
namespace {

constexpr DWORD kPoison = 0xDEADBEEF;

enum class Step { kStartDoc, kWrite, kRead, kEndDoc };
enum class Fault { kNone, kFails, kFailsSilently, kThrows, kPending };

// The port below. It answers reads from a queue and misbehaves at one step.
struct ScriptedPort {
    std::deque<Bytes> answers;
    Step faultyStep = Step::kStartDoc;
    Fault fault = Fault::kNone;
    // Called in each ReadPort, before it answers.
    std::function<void()> onRead;
    // Added to the count of bytes that ReadPort reports.
    DWORD overstatement = 0;

    std::vector<Step> calls;
    Bytes written;
    std::vector<DWORD> readSizes;
    std::atomic<uint32_t> flags{0x8};
    uint32_t flagsWhileOpen = 0;

    VpcaPort Port();
    BOOL Pass(Step step) {
        calls.push_back(step);
        SetLastError(fault == Fault::kNone ? kPoison : ERROR_SUCCESS);
        if (step != faultyStep) return TRUE;
        switch (fault) {
            case Fault::kFails:
                SetLastError(ERROR_NOT_READY);
                return FALSE;
            case Fault::kFailsSilently:
                return FALSE;
            case Fault::kThrows:
                throw std::runtime_error("the port below");
            case Fault::kPending:
                SetLastError(ERROR_IO_PENDING);
                return FALSE;
            case Fault::kNone:
                break;
        }
        return TRUE;
    }
    int Count(Step step) const { return static_cast<int>(std::count(calls.begin(), calls.end(), step)); }
};

HANDLE ToHandle(ScriptedPort* port) {
    return port;
}
ScriptedPort& FromHandle(HANDLE handle) {
    return *static_cast<ScriptedPort*>(handle);
}

BOOL WINAPI StartDocPort(HANDLE handle, LPWSTR printer, DWORD job, DWORD level, LPBYTE document) {
    ScriptedPort& port = FromHandle(handle);
    EXPECT_EQ(printer, nullptr);
    EXPECT_EQ(job, 0u);
    EXPECT_EQ(level, 2u);
    const DOC_INFO_2W zeroed{};
    EXPECT_EQ(std::memcmp(document, &zeroed, sizeof zeroed), 0);
    EXPECT_TRUE(port.flags & kPortJobActive);
    return port.Pass(Step::kStartDoc);
}

BOOL WINAPI WritePort(HANDLE handle, LPBYTE bytes, DWORD size, LPDWORD written) {
    ScriptedPort& port = FromHandle(handle);
    port.written.assign(bytes, bytes + size);
    *written = size;
    return port.Pass(Step::kWrite);
}

BOOL WINAPI ReadPort(HANDLE handle, LPBYTE bytes, DWORD size, LPDWORD read) {
    ScriptedPort& port = FromHandle(handle);
    port.flagsWhileOpen = port.flags;
    port.readSizes.push_back(size);
    if (port.onRead) port.onRead();
    *read = port.overstatement;
    if (!port.answers.empty()) {
        const Bytes answer = port.answers.front();
        port.answers.pop_front();
        const auto count = static_cast<DWORD>(std::min<size_t>(answer.size(), size));
        std::copy_n(answer.begin(), count, bytes);
        *read += count;
    }
    return port.Pass(Step::kRead);
}

BOOL WINAPI EndDocPort(HANDLE handle) {
    ScriptedPort& port = FromHandle(handle);
    const BOOL result = port.Pass(Step::kEndDoc);
    SetLastError(ERROR_SUCCESS);
    return result;
}

VpcaPort ScriptedPort::Port() {
    return {ToHandle(this), &flags, StartDocPort, WritePort, ReadPort, EndDocPort};
}

Bytes DataAnswer(uint16_t status, uint32_t dataId, const Bytes& data) {
    Bytes frame = Hex("CD CA 10 05 00 31 00 01 00 00 00000000 00000000 0000 00000000");
    frame[18] = static_cast<uint8_t>(status >> 8);
    frame[19] = static_cast<uint8_t>(status);
    for (size_t i = 0; i < 4; ++i)
        frame[20 + i] = static_cast<uint8_t>(dataId >> (24 - 8 * i));
    return frame + data;
}

Bytes AttributeFrame(uint16_t status, const Bytes& list) {
    Bytes frame = Hex("CD CA 10 05 00 66 00 01 00 00 00000000 00000000 0000");
    frame[9] = static_cast<uint8_t>(list.size());
    frame[18] = static_cast<uint8_t>(status >> 8);
    frame[19] = static_cast<uint8_t>(status);
    return frame + list;
}

const Bytes kEightBytes = Hex("01 00B4 08 0102030405060708");
const Bytes kTwentyEightBytes = Hex("01 0965 1C") + Bytes(28, 0x42);

DWORD RunQuery(ScriptedPort* scripted, uint32_t dataId, Bytes* buffer, uint32_t* size) {
    const VpcaPort port = scripted->Port();
    SetLastError(kPoison);
    return ReadDataBlock(&port, &dataId, buffer->data(), size);
}

DWORD RunCommand(ScriptedPort* scripted, AttributeRequest* request, Bytes* buffer, uint32_t* size) {
    const VpcaPort port = scripted->Port();
    const uint32_t callerValues[2] = {0x51525354, 0x61626364};
    SetLastError(kPoison);
    return ReadAttribute(&port, callerValues, request, buffer->data(), size);
}

TEST(ExchangeTest, DataBlockIsAskedForInOneDocumentAndReturned) {
    ScriptedPort scripted;
    scripted.answers = {DataAnswer(1, 0x11223344, Hex("AA BB CC"))};
    Bytes buffer(3);
    uint32_t size = 3;
    EXPECT_EQ(RunQuery(&scripted, 0x11223344, &buffer, &size), 0u);
    EXPECT_EQ(size, 3u);
    EXPECT_EQ(buffer, Hex("AA BB CC"));
    EXPECT_EQ(ToHex(scripted.written.data(), scripted.written.size()),
              "CD CA 10 04 00 31 00 01 00 04 00 00 00 00 00 00 00 00 00 00 11 22 33 44");
    EXPECT_EQ(scripted.calls, (std::vector<Step>{Step::kStartDoc, Step::kWrite, Step::kRead, Step::kEndDoc}));
    EXPECT_EQ(scripted.readSizes, std::vector<DWORD>{8216});
    EXPECT_EQ(scripted.flagsWhileOpen, 0x9u);
    EXPECT_EQ(scripted.flags, 0x8u) << "the other flags stay";
}

TEST(ExchangeTest, DataBlockAnswersSucceedOrFailWithTheRightCode) {
    const struct {
        const char* what;
        Bytes answer;
        uint32_t capacity;
        DWORD error;
        uint32_t size;
    } cases[] = {
        {"exactly the capacity", DataAnswer(1, 7, Bytes(5)), 5, 0, 5},
        {"one byte more", DataAnswer(1, 7, Bytes(6)), 5, ERROR_INSUFFICIENT_BUFFER, 5},
        {"less than the capacity", DataAnswer(1, 7, Bytes(1)), 5, 0, 1},
        {"no data", DataAnswer(1, 7, {}), 5, 0, 0},
        {"the largest answer", DataAnswer(1, 7, Bytes(8192)), 8192, 0, 8192},
        {"refused with 0", DataAnswer(0, 7, Bytes(5)), 5, ERROR_GEN_FAILURE, 5},
        {"refused with 29", DataAnswer(29, 7, Bytes(5)), 5, ERROR_GEN_FAILURE, 5},
        {"a status with a body that is not success", DataAnswer(33, 7, Bytes(5)), 5, ERROR_GEN_FAILURE, 5},
        {"a status without a body", DataAnswer(5, 7, Bytes(5)), 5, ERROR_GEN_FAILURE, 5},
        {"another data id", DataAnswer(1, 8, Bytes(5)), 5, ERROR_INVALID_DATA, 5},
        {"another data id, refused", DataAnswer(29, 8, Bytes(5)), 5, ERROR_INVALID_DATA, 5},
        {"another operation", AttributeFrame(1, kEightBytes), 64, ERROR_INVALID_DATA, 64},
        {"garbage", Hex("48 54 54 50 2F 31 2E 31"), 5, ERROR_INVALID_DATA, 5},
        {"a data id cut short", Hex("CD CA 10 05 00 31 00 01 00 04 00000000 00000000 0001 0000"), 5,
         ERROR_INVALID_DATA, 5},
        {"nothing", {}, 5, ERROR_INVALID_DATA, 5},
        {"no capacity", DataAnswer(1, 7, {}), 0, ERROR_INSUFFICIENT_BUFFER, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        ScriptedPort scripted;
        scripted.answers = {c.answer};
        Bytes buffer(c.capacity + 16, 0xEE);
        uint32_t size = c.capacity;
        EXPECT_EQ(RunQuery(&scripted, 7, &buffer, &size), c.error);
        EXPECT_EQ(size, c.size);
        const size_t untouched = c.error == 0 ? c.size : 0;
        EXPECT_EQ(Bytes(buffer.begin() + static_cast<std::ptrdiff_t>(untouched), buffer.end()),
                  Bytes(buffer.size() - untouched, 0xEE))
            << "nothing is written behind the data, or at all on failure";
        EXPECT_EQ(scripted.Count(Step::kEndDoc), 1);
        EXPECT_EQ(scripted.flags, 0x8u);
    }
}

TEST(ExchangeTest, AttributeAnswersSucceedOrFailWithTheRightCode) {
    const struct {
        const char* what;
        Bytes answer;
        uint32_t capacity;
        DWORD error;
        uint32_t size;
    } cases[] = {
        {"180", AttributeFrame(1, kEightBytes), 8, 0, 8},
        {"180 in a larger buffer", AttributeFrame(1, kEightBytes), 100, 0, 8},
        {"180 in a smaller buffer", AttributeFrame(1, kEightBytes), 7, ERROR_INSUFFICIENT_BUFFER, 7},
        {"2405 in a larger buffer", AttributeFrame(1, kTwentyEightBytes), 100, 0, 28},
        {"2405 in a smaller buffer", AttributeFrame(1, kTwentyEightBytes), 27, ERROR_INSUFFICIENT_BUFFER, 27},
        {"another attribute", AttributeFrame(1, Hex("01 0002 02 AABB")), 8, 0, 0},
        {"an unknown attribute", AttributeFrame(1, Hex("01 1B58 02 AABB")), 8, 0, 0},
        {"the first of two", AttributeFrame(1, Hex("02 00B4 08 0102030405060708 1B58 02 AABB")), 10, 0, 8},
        {"two that are too large together",
         AttributeFrame(1, Hex("02 00B4 08 0102030405060708 1B58 02 AABB")), 9, ERROR_INSUFFICIENT_BUFFER, 9},
        {"180 cut short", AttributeFrame(1, Hex("01 00B4 07 01020304050607")), 8, ERROR_INVALID_DATA, 8},
        {"2405 cut short", AttributeFrame(1, Hex("01 0965 08 0102030405060708")), 28, ERROR_INVALID_DATA, 28},
        {"more than is read", AttributeFrame(1, Hex("01 1B58 40") + Bytes(64)), 100, ERROR_INVALID_DATA, 100},
        {"no attribute", AttributeFrame(1, Hex("00")), 8, ERROR_INVALID_DATA, 8},
        {"no list", AttributeFrame(1, {}), 8, ERROR_INVALID_DATA, 8},
        {"refused with 0", AttributeFrame(0, {}), 8, ERROR_GEN_FAILURE, 8},
        {"refused with 29", AttributeFrame(29, kEightBytes), 8, ERROR_GEN_FAILURE, 8},
        {"another operation", DataAnswer(1, 7, Bytes(8)), 8, ERROR_INVALID_DATA, 8},
        {"no capacity", AttributeFrame(1, kEightBytes), 0, ERROR_INSUFFICIENT_BUFFER, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        ScriptedPort scripted;
        scripted.answers = {c.answer};
        AttributeRequest request;
        uint16_t id = 180;
        request.shortIds = &id;
        request.shortIdCount = 1;
        Bytes buffer(c.capacity + 16, 0xEE);
        uint32_t size = c.capacity;
        EXPECT_EQ(RunCommand(&scripted, &request, &buffer, &size), c.error);
        EXPECT_EQ(size, c.size);
        const size_t copied = c.error == 0 ? c.size : 0;
        EXPECT_EQ(Bytes(buffer.begin() + static_cast<std::ptrdiff_t>(copied), buffer.end()),
                  Bytes(buffer.size() - copied, 0xEE));
        if (copied == 8) {
            EXPECT_EQ(ToHex(buffer.data(), 8), "01 02 03 04 05 06 07 08");
        }
        EXPECT_EQ(
            ToHex(scripted.written.data(), scripted.written.size()),
            "CD CA 10 04 00 66 00 01 00 0A 51 52 53 54 61 62 63 64 00 00 00 00 00 00 00 00 00 01 00 B4");
        EXPECT_EQ(scripted.Count(Step::kEndDoc), 1);
        EXPECT_EQ(scripted.flags, 0x8u);
    }
}

TEST(LocalHeapTest, BlocksStartZeroedKeepTheirBytesWhenGrownAndLeaveTheLastErrorAlone) {
    auto* block = static_cast<uint8_t*>(Allocate(16));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(Bytes(block, block + 16), Bytes(16));
    std::fill_n(block, 16, uint8_t{0x42});
    block = static_cast<uint8_t*>(Reallocate(block, 100000));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(Bytes(block, block + 16), Bytes(16, 0x42));
    EXPECT_GE(LocalSize(block), 100000u);
    SetLastError(kPoison);
    Free(block);
    Free(nullptr);
    EXPECT_EQ(GetLastError(), kPoison);
}

// What the caller of the exchange sees of each fault of the port below.
struct FaultCase {
    Step step;
    Fault fault;
    DWORD error;
    int ended;
};

void PrintTo(const FaultCase& c, std::ostream* out) {
    *out << "step " << static_cast<int>(c.step) << " fault " << static_cast<int>(c.fault);
}

class FaultyPortTest : public testing::TestWithParam<FaultCase> {};

TEST_P(FaultyPortTest, EndsTheDocumentAtMostOnceAndLeavesAnError) {
    const FaultCase& c = GetParam();
    for (const bool query : {true, false}) {
        SCOPED_TRACE(query);
        ScriptedPort scripted;
        scripted.answers = {query ? DataAnswer(1, 7, Bytes(8)) : AttributeFrame(1, kEightBytes)};
        scripted.faultyStep = c.step;
        scripted.fault = c.fault;
        AttributeRequest request;
        Bytes buffer(8);
        uint32_t size = 8;
        EXPECT_EQ(
            query ? RunQuery(&scripted, 7, &buffer, &size) : RunCommand(&scripted, &request, &buffer, &size),
            c.error);
        EXPECT_EQ(scripted.Count(Step::kStartDoc), 1);
        EXPECT_EQ(scripted.Count(Step::kEndDoc), c.ended);
        EXPECT_EQ(scripted.flags, 0x8u);
    }
}

INSTANTIATE_TEST_SUITE_P(Faults, FaultyPortTest,
                         testing::Values(FaultCase{Step::kStartDoc, Fault::kFails, ERROR_NOT_READY, 0},
                                         FaultCase{Step::kStartDoc, Fault::kFailsSilently, ERROR_GEN_FAILURE,
                                                   0},
                                         FaultCase{Step::kStartDoc, Fault::kThrows, ERROR_GEN_FAILURE, 0},
                                         FaultCase{Step::kStartDoc, Fault::kPending, ERROR_IO_PENDING, 0},
                                         FaultCase{Step::kWrite, Fault::kFails, ERROR_NOT_READY, 1},
                                         FaultCase{Step::kWrite, Fault::kFailsSilently, ERROR_GEN_FAILURE, 1},
                                         FaultCase{Step::kWrite, Fault::kThrows, ERROR_GEN_FAILURE, 1},
                                         FaultCase{Step::kWrite, Fault::kPending, 0, 1},
                                         FaultCase{Step::kRead, Fault::kFails, ERROR_NOT_READY, 1},
                                         FaultCase{Step::kRead, Fault::kFailsSilently, ERROR_GEN_FAILURE, 1},
                                         FaultCase{Step::kRead, Fault::kThrows, ERROR_GEN_FAILURE, 1},
                                         FaultCase{Step::kRead, Fault::kPending, 0, 1},
                                         FaultCase{Step::kEndDoc, Fault::kFails, 0, 1},
                                         FaultCase{Step::kEndDoc, Fault::kThrows, 0, 1}));

TEST(ExchangeTest, StalePendingOfTheWriteDoesNotTurnAFailedReadIntoSuccess) {
    ScriptedPort scripted;
    scripted.answers = {DataAnswer(1, 7, Bytes(8))};
    VpcaPort port = scripted.Port();
    port.writePort = [](HANDLE, LPBYTE, DWORD, LPDWORD) -> BOOL {
        SetLastError(ERROR_IO_PENDING);
        return FALSE;
    };
    port.readPort = [](HANDLE, LPBYTE, DWORD, LPDWORD) -> BOOL { return FALSE; };
    const uint32_t dataId = 7;
    Bytes buffer(8);
    uint32_t size = 8;
    EXPECT_EQ(ReadDataBlock(&port, &dataId, buffer.data(), &size), DWORD{ERROR_GEN_FAILURE});
}

TEST(ExchangeTest, PortThatClaimsMoreBytesThanWereAskedForIsRefused) {
    ScriptedPort scripted;
    scripted.answers = {DataAnswer(1, 7, Bytes(8))};
    scripted.overstatement = 0x10000;
    Bytes buffer(0x20000);
    uint32_t size = 0x20000;
    EXPECT_EQ(RunQuery(&scripted, 7, &buffer, &size), DWORD{ERROR_INVALID_DATA});
}

TEST(ExchangeTest, RequestThatCannotBeEncodedEndsTheDocumentUnwritten) {
    ScriptedPort scripted;
    AttributeRequest request;
    request.addressKind = 1;
    Bytes buffer(8);
    uint32_t size = 8;
    EXPECT_EQ(RunCommand(&scripted, &request, &buffer, &size), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(scripted.calls, (std::vector<Step>{Step::kStartDoc, Step::kEndDoc}));
    EXPECT_EQ(scripted.flags, 0x8u);
}

TEST(ExchangeTest, MissingArgumentsAndAPortWithNothingBelowAreRefused) {
    ScriptedPort scripted;
    const VpcaPort port = scripted.Port();
    const uint32_t words[2] = {};
    uint8_t buffer[8];
    uint32_t size = 8;
    AttributeRequest request;
    EXPECT_EQ(ReadDataBlock(nullptr, words, buffer, &size), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(ReadDataBlock(&port, nullptr, buffer, &size), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(ReadDataBlock(&port, words, nullptr, &size), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(ReadDataBlock(&port, words, buffer, nullptr), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(ReadAttribute(&port, nullptr, &request, buffer, &size), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(ReadAttribute(&port, words, nullptr, buffer, &size), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_TRUE(scripted.calls.empty());

    VpcaPort nothingBelow;
    nothingBelow.flags = &scripted.flags;
    EXPECT_EQ(ReadDataBlock(&nothingBelow, words, buffer, &size), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_EQ(scripted.flags, 0x8u);
}

// Requests carry 0 in their result code; a transaction whose request carries 29 goes on reading.
class ContinuedExchangeTest : public testing::Test {
 protected:
    // Marks the request as continued until the last answer is read.
    bool Receive(std::deque<Bytes> answers) {
        scripted_.answers = std::move(answers);
        scripted_.onRead = [this] {
            transaction_.RequestHeader().resultCode =
                scripted_.answers.size() > 1 ? uint16_t{29} : uint16_t{0};
        };
        const VpcaPort port = scripted_.Port();
        transaction_.Initialise();
        transaction_.PrepareDataBlock();
        EXPECT_TRUE(transaction_.Send(&port));
        const bool received = transaction_.ReceiveDataBlock(&port, buffer_.data(), &size_);
        error_ = GetLastError();
        return received;
    }

    ScriptedPort scripted_;
    CVPCATransaction transaction_{7};
    Bytes buffer_ = Bytes(5, 0xEE);
    uint32_t size_ = 5;
    DWORD error_ = 0;
};

TEST_F(ContinuedExchangeTest, BlocksAreJoined) {
    EXPECT_TRUE(Receive(
        {DataAnswer(1, 7, Hex("01 02")), DataAnswer(1, 7, Hex("03 04")), DataAnswer(1, 7, Hex("05"))}));
    EXPECT_EQ(size_, 5u);
    EXPECT_EQ(buffer_, Hex("01 02 03 04 05"));
    EXPECT_EQ(scripted_.Count(Step::kRead), 3);
    EXPECT_EQ(scripted_.Count(Step::kEndDoc), 1);
}

TEST_F(ContinuedExchangeTest, TotalAboveTheCapacityFails) {
    EXPECT_FALSE(Receive({DataAnswer(1, 7, Hex("01 02 03")), DataAnswer(1, 7, Hex("04 05 06"))}));
    EXPECT_EQ(error_, DWORD{ERROR_INSUFFICIENT_BUFFER});
}

TEST_F(ContinuedExchangeTest, BlocksWithoutDataDoNotGoOnForEver) {
    EXPECT_FALSE(Receive({DataAnswer(1, 7, {}), DataAnswer(1, 7, {}), DataAnswer(1, 7, {})}));
    EXPECT_EQ(error_, DWORD{ERROR_INVALID_DATA});
    EXPECT_EQ(scripted_.Count(Step::kRead), 1);
}

TEST(TransactionTest, FailedSendLeavesNoDocumentOpen) {
    ScriptedPort scripted;
    scripted.faultyStep = Step::kWrite;
    scripted.fault = Fault::kFails;
    const VpcaPort port = scripted.Port();
    CVPCATransaction transaction(7);
    transaction.Initialise();
    transaction.PrepareDataBlock();
    EXPECT_FALSE(transaction.Send(&port));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_NOT_READY});
    EXPECT_EQ(scripted.Count(Step::kEndDoc), 1);
}

TEST(TransactionTest, EachPrepareNumbersTheRequestAnewAndTheDestructorEndsAnOpenDocument) {
    ScriptedPort scripted;
    const VpcaPort port = scripted.Port();
    {
        CVPCATransaction transaction(7);
        EXPECT_TRUE(transaction.Initialise());
        transaction.PrepareDataBlock();
        EXPECT_EQ(transaction.RequestHeader().sequence, 1);
        transaction.PrepareDataBlock(0x0A0B0C0D);
        EXPECT_TRUE(transaction.Send(&port));
        EXPECT_EQ(scripted.Count(Step::kEndDoc), 0);
    }
    EXPECT_EQ(scripted.Count(Step::kEndDoc), 1);
    EXPECT_EQ(ToHex(scripted.written.data() + 6, 2), "00 02");
    EXPECT_EQ(ToHex(scripted.written.data() + 20, 4), "0A 0B 0C 0D");
}

}  // namespace
}  // namespace vlm::vpca
