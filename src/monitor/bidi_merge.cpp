#include "monitor/bidi_merge.h"

#include <cstddef>
#include <map>
#include <string_view>
#include <utility>
#include <vector>

#include "util/handles.h"

namespace vlm {

namespace {

// What two entries must have in common to answer the same question: schema and request number.
using Question = std::pair<std::wstring_view, DWORD>;

Question QuestionOf(const BIDI_RESPONSE_DATA& entry) {
    return {entry.pSchema != nullptr ? entry.pSchema : std::wstring_view(), entry.dwReqNumber};
}

// The first entry for each question.
using EntryIndex = std::map<Question, const BIDI_RESPONSE_DATA*>;

EntryIndex IndexOf(const BIDI_RESPONSE_CONTAINER& answer) {
    EntryIndex index;
    for (DWORD i = 0; i < answer.Count; ++i)
        index.try_emplace(QuestionOf(answer.aData[i]), &answer.aData[i]);
    return index;
}

void CountOne(const LmPort& port, const BIDI_RESPONSE_DATA& entry, AnsweredBy by, QueryMetrics& metrics) {
    CountEntry(port.portName, entry.pSchema, entry.dwResult, by, &metrics);
}

struct PickedEntry {
    const BIDI_RESPONSE_DATA* entry;
    AnsweredBy by;
};

// The entries of the merge, still in the memory of the two answers.
std::vector<PickedEntry> PickEntries(const BIDI_RESPONSE_CONTAINER& engine,
                                     const BIDI_RESPONSE_CONTAINER& lower) {
    const EntryIndex byEngine = IndexOf(engine);
    const EntryIndex byLower = IndexOf(lower);
    std::vector<PickedEntry> picked;
    picked.reserve(size_t{engine.Count} + lower.Count);
    for (DWORD i = 0; i < engine.Count; ++i) {
        const BIDI_RESPONSE_DATA& own = engine.aData[i];
        const auto found = own.dwResult != 0 ? byLower.find(QuestionOf(own)) : byLower.end();
        const bool lowerWins = found != byLower.end() && found->second->dwResult == 0;
        picked.push_back(lowerWins ? PickedEntry{found->second, AnsweredBy::kLowerMonitor}
                                   : PickedEntry{&own, AnsweredBy::kEngine});
    }
    for (DWORD i = 0; i < lower.Count; ++i)
        if (!byEngine.contains(QuestionOf(lower.aData[i])))
            picked.push_back({&lower.aData[i], AnsweredBy::kLowerMonitor});
    return picked;
}

bool IsEmpty(const BIDI_RESPONSE_CONTAINER* answer) {
    return answer == nullptr || answer->Count == 0;
}

}  // namespace

DWORD MergeAnswers(const CBidiMem& memory, BIDI_RESPONSE_CONTAINER** engine, BIDI_RESPONSE_CONTAINER** lower,
                   DWORD version, DWORD flags, BIDI_RESPONSE_CONTAINER** merged, const LmPort& port,
                   QueryMetrics& metrics) {
    *merged = nullptr;
    if (IsEmpty(*engine) && IsEmpty(*lower)) return ERROR_SUCCESS;
    if (IsEmpty(*engine) || IsEmpty(*lower)) {
        const AnsweredBy by = IsEmpty(*engine) ? AnsweredBy::kLowerMonitor : AnsweredBy::kEngine;
        *merged = std::exchange(by == AnsweredBy::kEngine ? *engine : *lower, nullptr);
        (*merged)->Version = version;
        (*merged)->Flags = flags;
        CountAll(port, *merged, by, metrics);
        return ERROR_SUCCESS;
    }
    const auto picked = PickEntries(**engine, **lower);
    const size_t size = offsetof(BIDI_RESPONSE_CONTAINER, aData) + picked.size() * sizeof(BIDI_RESPONSE_DATA);
    // Shallow, for one deep copy of all at once.
    const GlobalMemory gathered(GlobalAlloc(GPTR, size));
    if (!gathered) return ERROR_OUTOFMEMORY;
    auto* container = static_cast<BIDI_RESPONSE_CONTAINER*>(gathered.Get());
    for (const PickedEntry& each : picked)
        container->aData[container->Count++] = *each.entry;
    *merged = memory.Merge(container, nullptr, version, flags);
    if (*merged == nullptr) return ERROR_OUTOFMEMORY;
    for (const PickedEntry& each : picked)
        CountOne(port, *each.entry, each.by, metrics);
    return ERROR_SUCCESS;
}

void CountAll(const LmPort& port, const BIDI_RESPONSE_CONTAINER* answer, AnsweredBy by,
              QueryMetrics& metrics) {
    if (answer == nullptr) return;
    for (DWORD i = 0; i < answer->Count; ++i)
        CountOne(port, answer->aData[i], by, metrics);
}

}  // namespace vlm
