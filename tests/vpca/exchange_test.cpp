// Exchanges over a scripted port: what goes down to it, what comes back to the caller, and which error is
// left.
#include "scripted_port.h"

namespace vlm::vpca {
namespace {

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

enum class Question { kDataBlock, kAttribute };

struct Outcome {
    DWORD error;
    uint32_t size;
    Bytes buffer;  // longer than it was said to be, and 0xEE where nothing was written
};

// Asks for data block 7, or for attribute 180.
Outcome Ask(ScriptedPort* scripted, Question question, uint32_t capacity) {
    const VpcaPort port = scripted->Port();
    Outcome outcome{0, capacity, Bytes(capacity + 16, 0xEE)};
    SetLastError(kPoison);
    if (question == Question::kDataBlock) {
        const uint32_t dataId = 7;
        outcome.error = ReadDataBlock(&port, &dataId, outcome.buffer.data(), &outcome.size);
    } else {
        const uint32_t callerValues[2] = {0x51525354, 0x61626364};
        uint16_t id = 180;
        AttributeRequest request;
        request.shortIds = &id;
        request.shortIdCount = 1;
        outcome.error = ReadAttribute(&port, callerValues, &request, outcome.buffer.data(), &outcome.size);
    }
    return outcome;
}

const Bytes kBlockRequest = Hex("CD CA 10 04 00 31 00 01 00 04 00000000 00000000 0000 00000007");
const Bytes kAttributeRequest =
    Hex("CD CA 10 04 00 66 00 01 00 0A 51525354 61626364 0000 0000 00 00 0000 0001 00B4");

TEST(ExchangeTest, DataBlockIsAskedForInOneDocumentAndReturned) {
    ScriptedPort scripted;
    scripted.answers = {DataAnswer(1, 7, Hex("AA BB CC"))};
    const Outcome outcome = Ask(&scripted, Question::kDataBlock, 3);
    EXPECT_EQ(outcome.error, 0u);
    EXPECT_EQ(outcome.size, 3u);
    EXPECT_EQ(outcome.buffer, Hex("AA BB CC") + Bytes(16, 0xEE));
    EXPECT_EQ(scripted.calls, (std::vector<Step>{Step::kStartDoc, Step::kWrite, Step::kRead, Step::kEndDoc}));
    EXPECT_EQ(scripted.readSizes, std::vector<DWORD>{8216});
    EXPECT_EQ(scripted.flagsWhileOpen, 0x9u);
}

struct AnswerCase {
    const char* what;
    Bytes answer;
    uint32_t capacity;
    DWORD error;
    Bytes reply = {};
};

void ExpectOutcomes(Question question, const std::vector<AnswerCase>& cases) {
    for (const AnswerCase& c : cases) {
        SCOPED_TRACE(c.what);
        ScriptedPort scripted;
        scripted.answers = {c.answer};
        const Outcome outcome = Ask(&scripted, question, c.capacity);
        EXPECT_EQ(outcome.error, c.error);
        EXPECT_EQ(outcome.size, c.error == 0 ? c.reply.size() : c.capacity) << "unchanged by a failure";
        EXPECT_EQ(outcome.buffer, c.reply + Bytes(c.capacity + 16 - c.reply.size(), 0xEE))
            << "nothing is written behind the reply, or at all on failure";
        EXPECT_EQ(scripted.written, question == Question::kDataBlock ? kBlockRequest : kAttributeRequest);
        EXPECT_EQ(scripted.Count(Step::kEndDoc), 1);
        EXPECT_EQ(scripted.flags, 0x8u) << "the other flags stay";
    }
}

// What a real device answers is in tests/rpc/test_device.py; here is what it does not, and what is written
// where.
TEST(ExchangeTest, DataBlockAnswersSucceedOrFailWithTheRightCode) {
    const Bytes five = Hex("01 02 03 04 05");
    const Bytes largest(8192, 0x42);
    ExpectOutcomes(
        Question::kDataBlock,
        {
            {"exactly the capacity", DataAnswer(1, 7, five), 5, 0, five},
            {"one byte more", DataAnswer(1, 7, Bytes(6)), 5, ERROR_INSUFFICIENT_BUFFER},
            {"no data", DataAnswer(1, 7, {}), 5, 0},
            {"the largest answer", DataAnswer(1, 7, largest), 8192, 0, largest},
            {"refused with 29", DataAnswer(29, 7, five), 5, ERROR_GEN_FAILURE},
            {"a status with a body that is not success", DataAnswer(33, 7, five), 5, ERROR_GEN_FAILURE},
            {"another data id, refused", DataAnswer(29, 8, five), 5, ERROR_INVALID_DATA},
            {"a data id cut short", Hex("CD CA 10 05 00 31 00 01 00 04 00000000 00000000 0001 0000"), 5,
             ERROR_INVALID_DATA},
            {"nothing", {}, 5, ERROR_INVALID_DATA},
            {"no capacity", DataAnswer(1, 7, {}), 0, ERROR_INSUFFICIENT_BUFFER},
        });
}

TEST(ExchangeTest, AttributeAnswersSucceedOrFailWithTheRightCode) {
    const Bytes eight = Hex("0102030405060708");
    const Bytes two = AttributeFrame(1, Hex("02 00B4 08 0102030405060708 1B58 02 AABB"));
    ExpectOutcomes(
        Question::kAttribute,
        {
            {"180", AttributeFrame(1, kEightBytes), 8, 0, eight},
            {"2405 in a larger buffer", AttributeFrame(1, kTwentyEightBytes), 100, 0, Bytes(28, 0x42)},
            {"another attribute", AttributeFrame(1, Hex("01 0002 02 AABB")), 8, 0},
            {"two that are too large together", two, 9, ERROR_INSUFFICIENT_BUFFER},
            {"180 cut short", AttributeFrame(1, Hex("01 00B4 07 01020304050607")), 8, ERROR_INVALID_DATA},
            {"2405 cut short", AttributeFrame(1, Hex("01 0965 08 0102030405060708")), 28, ERROR_INVALID_DATA},
            {"more than is read", AttributeFrame(1, Hex("01 1B58 40") + Bytes(64)), 100, ERROR_INVALID_DATA},
            {"no list", AttributeFrame(1, {}), 8, ERROR_INVALID_DATA},
            {"refused with 29", AttributeFrame(29, kEightBytes), 8, ERROR_GEN_FAILURE},
            {"no capacity", AttributeFrame(1, kEightBytes), 0, ERROR_INSUFFICIENT_BUFFER},
        });
}

TEST(ExchangeTest, FaultyPortEndsTheDocumentAtMostOnceAndLeavesAnError) {
    const struct {
        Fault fault;
        DWORD errors[4];  // by step
    } cases[] = {
        {Fault::kFails, {ERROR_NOT_READY, ERROR_NOT_READY, ERROR_NOT_READY, 0}},
        {Fault::kFailsSilently, {ERROR_GEN_FAILURE, ERROR_GEN_FAILURE, ERROR_GEN_FAILURE, 0}},
        {Fault::kThrows, {ERROR_GEN_FAILURE, ERROR_GEN_FAILURE, ERROR_GEN_FAILURE, 0}},
        {Fault::kPending, {ERROR_IO_PENDING, 0, 0, 0}},
    };
    for (const auto& c : cases) {
        for (const Step step : {Step::kStartDoc, Step::kWrite, Step::kRead, Step::kEndDoc}) {
            for (const Question question : {Question::kDataBlock, Question::kAttribute}) {
                SCOPED_TRACE(testing::Message() << "fault " << int(c.fault) << ", step " << int(step)
                                                << ", question " << int(question));
                ScriptedPort scripted;
                scripted.answers = {question == Question::kDataBlock ? DataAnswer(1, 7, Bytes(8))
                                                                     : AttributeFrame(1, kEightBytes)};
                scripted.faultyStep = step;
                scripted.fault = c.fault;
                EXPECT_EQ(Ask(&scripted, question, 8).error, c.errors[static_cast<int>(step)]);
                EXPECT_EQ(scripted.Count(Step::kStartDoc), 1);
                EXPECT_EQ(scripted.Count(Step::kEndDoc), step == Step::kStartDoc ? 0 : 1);
                EXPECT_EQ(scripted.flags, 0x8u);
            }
        }
    }
}

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
    EXPECT_EQ(Ask(&scripted, Question::kDataBlock, 0x20000).error, DWORD{ERROR_INVALID_DATA});
}

TEST(ExchangeTest, RequestThatCannotBeEncodedEndsTheDocumentUnwritten) {
    ScriptedPort scripted;
    const VpcaPort port = scripted.Port();
    const uint32_t callerValues[2] = {};
    AttributeRequest request;
    request.addressKind = 1;
    uint8_t buffer[8];
    uint32_t size = 8;
    EXPECT_EQ(ReadAttribute(&port, callerValues, &request, buffer, &size), DWORD{ERROR_INVALID_PARAMETER});
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

TEST(TransactionTest, DocumentIsOpenFromASuccessfulSendToTheDestructorAtTheLatest) {
    ScriptedPort scripted;
    const VpcaPort port = scripted.Port();
    {
        CVPCATransaction transaction(7);
        EXPECT_TRUE(transaction.Initialise());
        transaction.PrepareDataBlock();
        scripted.faultyStep = Step::kWrite;
        scripted.fault = Fault::kFails;
        EXPECT_FALSE(transaction.Send(&port));
        EXPECT_EQ(GetLastError(), DWORD{ERROR_NOT_READY});
        EXPECT_EQ(scripted.Count(Step::kEndDoc), 1);

        scripted.fault = Fault::kNone;
        transaction.PrepareDataBlock(0x0A0B0C0D);
        EXPECT_TRUE(transaction.Send(&port));
        EXPECT_EQ(scripted.Count(Step::kEndDoc), 1);
    }
    EXPECT_EQ(scripted.Count(Step::kEndDoc), 2);
    EXPECT_EQ(ToHex(scripted.written.data() + 6, 2), "00 02") << "numbered anew";
    EXPECT_EQ(ToHex(scripted.written.data() + 20, 4), "0A 0B 0C 0D");
}

}  // namespace
}  // namespace vlm::vpca
