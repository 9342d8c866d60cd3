#include "vpca/analyzer.h"

#include <cstring>

#include "vpca/memory.h"

namespace vlm::vpca {

namespace {

// The first `count` of `ids` on the heap, null when there are none. False when memory runs out.
template <typename Id>
bool CopyIds(const Id* ids, uint16_t count, Id** copy) {
    *copy = nullptr;
    if (count == 0) return true;
    *copy = static_cast<Id*>(Allocate(count * sizeof(Id)));
    if (*copy == nullptr) return false;
    std::memcpy(*copy, ids, count * sizeof(Id));
    return true;
}

}  // namespace

bool CVPCAAnalyzer::BuildAttributeRequest(const ClientAttributeRequest* client, AttributeRequest* request) {
    if (client == nullptr || request == nullptr) return false;
    *request = {};
    if (client->longIdCount > ClientAttributeRequest::kSlots ||
        client->shortIdCount > ClientAttributeRequest::kSlots) {
        return false;
    }
    request->firstWord = client->firstWord;
    request->addressKind = client->addressKind;
    request->longIdCount = client->longIdCount;
    request->shortIdCount = client->shortIdCount;
    if (CopyIds(client->longIds, client->longIdCount, &request->longIds) &&
        CopyIds(client->shortIds, client->shortIdCount, &request->shortIds)) {
        return true;
    }
    FreeAttributeRequest(request);
    return false;
}

bool CVPCAAnalyzer::FreeAttributeRequest(AttributeRequest* request) {
    if (request == nullptr) return false;
    Free(request->longIds);
    Free(request->shortIds);
    *request = {};
    return true;
}

}  // namespace vlm::vpca
