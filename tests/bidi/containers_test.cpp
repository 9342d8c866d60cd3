// CBidiMem and CBidiReq over the stand-in router.
#include <cstring>

#include "bidi/bidi_req.h"
#include "tests/bidi/engine_fixture.h"

namespace vlm {
namespace {

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

    static BIDI_DATA Int(LONG value) {
        BIDI_DATA data{};
        data.dwBidiType = BIDI_INT;
        data.u.iData = value;
        return data;
    }
    static BIDI_DATA Text(DWORD type, wchar_t* text) {
        BIDI_DATA data{};
        data.dwBidiType = type;
        data.u.sData = text;
        return data;
    }
    static BIDI_DATA Blob(BYTE* bytes, DWORD size) {
        BIDI_DATA data{};
        data.dwBidiType = BIDI_BLOB;
        data.u.biData.pData = bytes;
        data.u.biData.cbBuf = size;
        return data;
    }
    static BIDI_DATA Unknown() {
        BIDI_DATA data{};
        data.dwBidiType = 8;
        return data;
    }
    test::Response Own(BIDI_RESPONSE_CONTAINER* container) { return test::Response(container); }

    CBidiMem memory_;
    wchar_t text_[5] = L"text";
    wchar_t empty_[1] = L"";
    BYTE bytes_[3] = {1, 2, 3};
};

TEST_F(Containers, ValuesAreCopiedDeeply) {
    const struct {
        const char* what;
        BIDI_DATA source;
        bool copies;
    } kCases[] = {
        {"int", Int(-5), true},
        {"string", Text(BIDI_STRING, text_), true},
        {"text", Text(BIDI_TEXT, text_), true},
        {"enum", Text(BIDI_ENUM, text_), true},
        {"empty string", Text(BIDI_STRING, empty_), true},
        {"null string", Text(BIDI_STRING, nullptr), true},
        {"blob", Blob(bytes_, 3), true},
        {"empty blob", Blob(bytes_, 0), true},
        {"blob without bytes", Blob(nullptr, 3), false},
        {"unknown type", Unknown(), false},
    };
    for (const auto& test : kCases) {
        BIDI_DATA copy;
        std::memset(&copy, 0xCC, sizeof copy);
        EXPECT_EQ(memory_.CopyValue(copy, test.source), test.copies) << test.what;
        EXPECT_EQ(copy.dwBidiType, test.source.dwBidiType) << test.what;
        switch (test.source.dwBidiType) {
            case BIDI_INT:
                EXPECT_EQ(copy.u.iData, -5);
                break;
            case BIDI_BLOB: {
                const DWORD size = test.copies ? test.source.u.biData.cbBuf : 0;
                EXPECT_EQ(copy.u.biData.cbBuf, size) << test.what;
                EXPECT_EQ(copy.u.biData.pData != nullptr, size != 0) << test.what;
                EXPECT_TRUE(size == 0 || std::memcmp(copy.u.biData.pData, bytes_, size) == 0);
                break;
            }
            case 8:
                break;
            default:
                // An empty string is carried as null.
                if (test.source.u.sData == text_) {
                    EXPECT_NE(copy.u.sData, text_);
                    EXPECT_STREQ(copy.u.sData, text_);
                } else {
                    EXPECT_EQ(copy.u.sData, nullptr) << test.what;
                }
        }
        memory_.FreeValue(copy);
        memory_.FreeValue(copy);  // nothing left to free
    }
}

TEST_F(Containers, MergeKeepsOrderAndLeavesItsInputs) {
    Source first({Int(1), Text(BIDI_STRING, text_)});
    Source second({Blob(bytes_, 3), Int(2), Text(BIDI_STRING, empty_)});
    const test::Response merged = Own(memory_.Merge(first.Get(), second.Get(), 1, 9));
    ASSERT_TRUE(merged);
    EXPECT_EQ(merged->Version, 1u);
    EXPECT_EQ(merged->Flags, 9u);
    EXPECT_EQ(test::Describe(*merged),
              (std::vector<std::wstring>{L"0 0 s0 INT 1", L"7 1 s1 STRING text", L"0 0 s0 BLOB 3",
                                         L"7 1 s1 INT 2", L"14 2 s2 STRING (null)"}));
    const test::Response appended = Own(memory_.Append(merged.get(), first.Get()->aData[0], 1, 0));
    ASSERT_EQ(appended->Count, 6u);
    EXPECT_EQ(test::Describe(*appended).back(), L"0 0 s0 INT 1");

    Source none({});
    EXPECT_EQ(memory_.Merge(nullptr, nullptr, 1, 0), nullptr);
    EXPECT_EQ(memory_.Merge(none.Get(), nullptr, 1, 0), nullptr);
    EXPECT_EQ(Own(memory_.Merge(nullptr, second.Get(), 1, 0))->Count, 3u);
    EXPECT_EQ(Own(memory_.Append(nullptr, second.Get()->aData[1], 1, 0))->Count, 1u);
    Source unknown({Int(1), Unknown()});
    EXPECT_EQ(memory_.Merge(unknown.Get(), nullptr, 1, 0), nullptr);
}

TEST_F(Containers, MergeUndoesItselfWhicheverAllocationFails) {
    Source source({Text(BIDI_STRING, text_), Blob(bytes_, 3), Int(1)});
    // The container, three schemas, a string and a blob.
    for (LONG64 n = 1; n <= 6; ++n) {
        router_.ResetAllocations(n);
        EXPECT_EQ(memory_.Merge(source.Get(), nullptr, 1, 0), nullptr) << n;
        EXPECT_EQ(router_.Counters().liveBlocks, before_.liveBlocks) << n;
    }
    router_.ResetAllocations(7);
    EXPECT_TRUE(Own(memory_.Merge(source.Get(), nullptr, 1, 0)));
    EXPECT_TRUE(trace_.Has(L"RouterAllocBidiMem(10) failed with status 8\r\n"));
}

TEST_F(Containers, SingleEntryAnswersARequestEntry) {
    const test::Request request({L"\\Printer", L"", nullptr});
    const struct {
        DWORD entry;
        LONG64 failFrom;
        DWORD returned;
        const wchar_t* expected;
    } kCases[] = {
        {0, 0, 0, L"100 232 \\Printer NULL"},
        // An empty schema counts as one that could not be copied.
        {1, 0, 0, L"101 14 (null) NULL"},
        {2, 0, 0, L"102 14 (null) NULL"},
        {0, 2, 0, L"100 14 (null) NULL"},
        {0, 1, 14, nullptr},
    };
    for (const auto& test : kCases) {
        router_.ResetAllocations(test.failFrom);
        BIDI_RESPONSE_CONTAINER* container = nullptr;
        EXPECT_EQ(memory_.MakeSingleEntry(232, request.Get()->aData[test.entry], &container, 1, 2),
                  test.returned);
        router_.ResetAllocations(0);
        const test::Response response = Own(container);
        ASSERT_EQ(response != nullptr, test.expected != nullptr);
        if (response == nullptr) continue;
        EXPECT_EQ(test::Describe(*response), std::vector<std::wstring>{test.expected});
        EXPECT_EQ(response->Flags, 2u);
    }
    EXPECT_EQ(memory_.MakeSingleEntry(0, request.Get()->aData[0], nullptr, 1, 0), 87u);
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

    Source one({Int(1)});
    Source two({Int(2), Int(3)});
    EXPECT_TRUE(state.AppendResponse(nullptr));
    EXPECT_EQ(state.Response(), nullptr);
    EXPECT_TRUE(state.AppendResponse(one.Get()));
    router_.ResetAllocations(2);
    EXPECT_FALSE(state.AppendResponse(two.Get()));
    router_.ResetAllocations(0);
    EXPECT_EQ(state.Response()->Count, 1u);
    EXPECT_TRUE(state.AppendResponse(two.Get()));
    const test::Response response = Own(state.DetachResponse());
    EXPECT_EQ(test::Describe(*response),
              (std::vector<std::wstring>{L"0 0 s0 INT 1", L"0 0 s0 INT 2", L"7 1 s1 INT 3"}));
    EXPECT_EQ(state.Response(), nullptr);
}

}  // namespace
}  // namespace vlm
