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

// The requests, and which answer leads to which code, are in tests/rpc/test_device.py; here is what is
// written where.
TEST(ExchangeTest, QuestionIsAskedInOneDocumentAndItsAnswerStaysWithinTheCapacity) {
    const struct {
        Question question;
        Bytes answer;
        Bytes reply;
        DWORD readSize;
    } cases[] = {
        {Question::kDataBlock, DataAnswer(1, 7, Hex("AA BB CC")), Hex("AA BB CC"), 8216},
        {Question::kAttribute, AttributeFrame(1, kEightBytes), Hex("0102030405060708"), 64},
    };
    for (const auto& c : cases) {
        const auto capacity = static_cast<uint32_t>(c.reply.size());
        ScriptedPort scripted;
        scripted.answers = {c.answer};
        const Outcome fits = Ask(&scripted, c.question, capacity);
        EXPECT_EQ(fits.error, 0u);
        EXPECT_EQ(fits.size, capacity);
        EXPECT_EQ(fits.buffer, c.reply + Bytes(16, 0xEE)) << "nothing is written behind the reply";
        EXPECT_EQ(scripted.calls,
                  (std::vector<Step>{Step::kStartDoc, Step::kWrite, Step::kRead, Step::kEndDoc}));
        EXPECT_EQ(scripted.readSizes, std::vector<DWORD>{c.readSize});
        EXPECT_EQ(scripted.flagsWhileOpen, 0x9u);

        scripted.answers = {c.answer};
        const Outcome large = Ask(&scripted, c.question, capacity - 1);
        EXPECT_EQ(large.error, DWORD{ERROR_INSUFFICIENT_BUFFER});
        EXPECT_EQ(large.size, capacity - 1) << "unchanged by a failure";
        EXPECT_EQ(large.buffer, Bytes(capacity + 15, 0xEE)) << "nothing is written";
        EXPECT_EQ(scripted.flags, 0x8u) << "the other flags stay";
    }
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

TEST(ExchangeTest, PortThatClaimsMoreBytesThanWereAskedForIsRefused) {
    ScriptedPort scripted;
    scripted.answers = {DataAnswer(1, 7, Bytes(8))};
    scripted.overstatement = 0x10000;
    EXPECT_EQ(Ask(&scripted, Question::kDataBlock, 0x20000).error, DWORD{ERROR_INVALID_DATA});
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
TEST(ExchangeTest, BlocksOfAContinuedRequestAreJoinedUpToTheCapacityAndNotForEver) {
    const struct {
        std::vector<Bytes> blocks;
        DWORD error;
        int reads;
    } cases[] = {
        {{Hex("01 02"), Hex("03 04"), Hex("05")}, 0, 3},
        {{Hex("01 02 03"), Hex("04 05 06")}, ERROR_INSUFFICIENT_BUFFER, 2},
        {{{}, {}, {}}, ERROR_INVALID_DATA, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.error);
        ScriptedPort scripted;
        for (const Bytes& block : c.blocks)
            scripted.answers.push_back(DataAnswer(1, 7, block));
        CVPCATransaction transaction(7);
        // Continued until the last answer is read.
        scripted.onRead = [&] {
            transaction.RequestHeader().resultCode = scripted.answers.size() > 1 ? uint16_t{29} : uint16_t{0};
        };
        const VpcaPort port = scripted.Port();
        transaction.Initialise();
        transaction.PrepareDataBlock();
        EXPECT_TRUE(transaction.Send(&port));
        Bytes buffer(5);
        uint32_t size = 5;
        EXPECT_EQ(transaction.ReceiveDataBlock(&port, buffer.data(), &size), c.error == 0);
        if (c.error == 0) {
            EXPECT_EQ(buffer, Hex("01 02 03 04 05"));
        } else {
            EXPECT_EQ(GetLastError(), c.error);
        }
        EXPECT_EQ(scripted.Count(Step::kRead), c.reads);
        EXPECT_EQ(scripted.Count(Step::kEndDoc), 1);
    }
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
