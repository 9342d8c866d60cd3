// CBidiMem and CBidiReq over the stand-in router.
#include <cstring>

#include "bidi/bidi_req.h"
#include "tests/bidi/engine_fixture.h"

namespace vlm {
namespace {

using Lines_ = std::vector<std::wstring>;

class Containers : public test::EngineTest {
 protected:
    // One entry for each value, with the schema "s0", "s1", …
    struct Source {
        explicit Source(std::vector<BIDI_DATA> values) {
            const size_t size =
                offsetof(BIDI_RESPONSE_CONTAINER, aData) + values.size() * sizeof(BIDI_RESPONSE_DATA);
            memory.resize(size / sizeof(uint64_t) + 1);
            Get()->Count = static_cast<DWORD>(values.size());
            schemas.reserve(values.size());
            for (size_t i = 0; i < values.size(); ++i) {
                BIDI_RESPONSE_DATA& entry = Get()->aData[i];
                entry.dwResult = static_cast<DWORD>(i);
                entry.dwReqNumber = static_cast<DWORD>(7 * i);
                entry.pSchema = schemas.emplace_back(L"s" + std::to_wstring(i)).data();
                entry.data = values[i];
            }
        }
        BIDI_RESPONSE_CONTAINER* Get() { return reinterpret_cast<BIDI_RESPONSE_CONTAINER*>(memory.data()); }

        std::vector<std::wstring> schemas;
        std::vector<uint64_t> memory;
    };

    CBidiMem memory_;
    wchar_t text_[5] = L"text";
    wchar_t empty_[1] = L"";
    BYTE bytes_[3] = {1, 2, 3};
    const BIDI_DATA one_{BIDI_INT, {.iData = 1}};
    const BIDI_DATA string_{BIDI_STRING, {.sData = text_}};
    const BIDI_DATA blob_{BIDI_BLOB, {.biData = {sizeof bytes_, bytes_}}};
    const BIDI_DATA unknown_{8, {}};
};

// A copy that is not deep is freed as what it is not: memory of the router.
TEST_F(Containers, ValuesAreCopiedDeeply) {
    const struct {
        const char* what;
        BIDI_DATA source;
        const wchar_t* copy;
        bool copies = true;
    } kCases[] = {
        {"int", one_, L"INT 1"},
        {"string", string_, L"STRING text"},
        {"text", {BIDI_TEXT, {.sData = text_}}, L"TEXT text"},
        {"enum", {BIDI_ENUM, {.sData = text_}}, L"ENUM text"},
        {"empty string, carried as null", {BIDI_STRING, {.sData = empty_}}, L"STRING (null)"},
        {"null string", {BIDI_STRING, {}}, L"STRING (null)"},
        {"blob", blob_, L"BLOB 1 2 3"},
        {"empty blob", {BIDI_BLOB, {.biData = {0, bytes_}}}, L"BLOB"},
        {"blob without bytes", {BIDI_BLOB, {.biData = {3, nullptr}}}, L"BLOB", false},
        {"unknown type", unknown_, L"? 8", false},
    };
    for (const auto& test : kCases) {
        BIDI_DATA copy;
        std::memset(&copy, 0xCC, sizeof copy);
        EXPECT_EQ(memory_.CopyValue(copy, test.source), test.copies) << test.what;
        EXPECT_EQ(test::DescribeValue(copy), test.copy) << test.what;
        memory_.FreeValue(copy);
        memory_.FreeValue(copy);  // nothing left to free
    }
}

TEST_F(Containers, MergeKeepsOrderAndLeavesItsInputs) {
    Source first({one_, string_});
    Source second({blob_, one_, {BIDI_STRING, {.sData = empty_}}});
    const test::Response merged(memory_.Merge(first.Get(), second.Get(), 1, 9));
    ASSERT_TRUE(merged);
    EXPECT_EQ(merged->Version, 1u);
    EXPECT_EQ(merged->Flags, 9u);
    EXPECT_EQ(test::Describe(*merged), (Lines_{L"0 0 s0 INT 1", L"7 1 s1 STRING text", L"0 0 s0 BLOB 1 2 3",
                                               L"7 1 s1 INT 1", L"14 2 s2 STRING (null)"}));
    const test::Response appended(memory_.Append(merged.get(), first.Get()->aData[0], 1, 0));
    ASSERT_EQ(appended->Count, 6u);
    EXPECT_EQ(test::Describe(*appended).back(), L"0 0 s0 INT 1");

    Source none({});
    EXPECT_EQ(memory_.Merge(nullptr, nullptr, 1, 0), nullptr);
    EXPECT_EQ(memory_.Merge(none.Get(), nullptr, 1, 0), nullptr);
    EXPECT_EQ(test::Response(memory_.Merge(nullptr, second.Get(), 1, 0))->Count, 3u);
    EXPECT_EQ(test::Response(memory_.Append(nullptr, second.Get()->aData[1], 1, 0))->Count, 1u);
    Source unknown({one_, unknown_});
    EXPECT_EQ(memory_.Merge(unknown.Get(), nullptr, 1, 0), nullptr);
}

TEST_F(Containers, MergeUndoesItselfWhicheverAllocationFails) {
    Source source({string_, blob_, one_});
    // The container, three schemas, a string and a blob.
    for (LONG64 n = 1; n <= 6; ++n) {
        router_.ResetAllocations(n);
        EXPECT_EQ(memory_.Merge(source.Get(), nullptr, 1, 0), nullptr) << n;
        EXPECT_EQ(router_.Counters().liveBlocks, before_.liveBlocks) << n;
    }
    router_.ResetAllocations(7);
    EXPECT_TRUE(test::Response(memory_.Merge(source.Get(), nullptr, 1, 0)));
    EXPECT_TRUE(trace_.Has(L"RouterAllocBidiMem(10) failed with status 8\r\n"));
}

TEST_F(Containers, RequestKeepsMarksAndGathersItsResponse) {
    EXPECT_FALSE(CBidiReq().IsValid());
    EXPECT_FALSE(CBidiReq(1, L"Get", nullptr).IsValid());
    const test::Request request({L"a", L"b", L"c"});
    EXPECT_FALSE(CBidiReq(1, nullptr, request.Get()).IsValid());

    CBidiReq state(PRINTER_ACCESS_USE, L"Get", request.Get());
    ASSERT_TRUE(state.IsValid());
    EXPECT_EQ(state.CountUnanswered(), 3u);
    state.MarkAnswered(1);
    state.MarkAnswered(3);  // beyond the end: nothing
    EXPECT_TRUE(state.IsAnswered(1));
    GlobalMemory memory;
    ASSERT_TRUE(state.MakeUnanswered(&memory));
    const auto* reduced = static_cast<const BIDI_REQUEST_CONTAINER*>(memory.Get());
    ASSERT_EQ(reduced->Count, 2u);
    EXPECT_EQ(reduced->Version, 1u);
    EXPECT_EQ(reduced->aData[1].dwReqNumber, 102u);
    EXPECT_EQ(reduced->aData[1].pSchema, request.Get()->aData[2].pSchema);
    state.MarkAnswered(0);
    state.MarkAnswered(2);
    EXPECT_TRUE(state.MakeUnanswered(&memory));
    EXPECT_FALSE(memory);

    Source one({one_});
    Source two({string_, one_});
    EXPECT_TRUE(state.AppendResponse(nullptr));
    EXPECT_EQ(state.Response(), nullptr);
    EXPECT_TRUE(state.AppendResponse(one.Get()));
    router_.ResetAllocations(2);
    EXPECT_FALSE(state.AppendResponse(two.Get()));
    router_.ResetAllocations(0);
    EXPECT_EQ(state.Response()->Count, 1u);
    EXPECT_TRUE(state.AppendResponse(two.Get()));
    const test::Response response(state.DetachResponse());
    EXPECT_EQ(test::Describe(*response), (Lines_{L"0 0 s0 INT 1", L"0 0 s0 STRING text", L"7 1 s1 INT 1"}));
    EXPECT_EQ(state.Response(), nullptr);
}

}  // namespace
}  // namespace vlm
