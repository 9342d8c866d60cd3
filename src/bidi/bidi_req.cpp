#include "bidi/bidi_req.h"

#include <cstddef>

namespace vlm {

CBidiReq::CBidiReq(DWORD accessBit, const wchar_t* action, const BIDI_REQUEST_CONTAINER* request)
    : accessBit_(accessBit),
      action_(action),
      request_(request),
      count_(request != nullptr ? request->Count : 0) {
    marks_.Reset(GlobalAlloc(GPTR, (static_cast<size_t>(count_) + 1) * sizeof(LONG)));
}

void CBidiReq::MarkAnswered(DWORD entry) {
    if (marks_ && entry < count_) Marks()[entry] = 1;
}

DWORD CBidiReq::CountUnanswered() const {
    DWORD unanswered = 0;
    for (DWORD i = 0; i < count_; ++i)
        unanswered += IsAnswered(i) ? 0u : 1u;
    return unanswered;
}

bool CBidiReq::MakeUnanswered(GlobalMemory* unanswered) const {
    unanswered->Reset();
    const DWORD count = CountUnanswered();
    if (request_ == nullptr || count == 0) return true;
    const size_t size =
        offsetof(BIDI_REQUEST_CONTAINER, aData) + static_cast<size_t>(count) * sizeof(BIDI_REQUEST_DATA);
    unanswered->Reset(GlobalAlloc(GPTR, size));
    if (!*unanswered) return false;
    auto* container = static_cast<BIDI_REQUEST_CONTAINER*>(unanswered->Get());
    container->Version = request_->Version;
    container->Flags = request_->Flags;
    for (DWORD i = 0; i < count_; ++i) {
        if (!IsAnswered(i)) container->aData[container->Count++] = request_->aData[i];
    }
    return true;
}

bool CBidiReq::AppendResponse(const BIDI_RESPONSE_CONTAINER* answer) {
    if (answer == nullptr || answer->Count == 0) return true;
    BIDI_RESPONSE_CONTAINER* joined = Merge(response_, answer, answer->Version, answer->Flags);
    if (joined == nullptr) return false;
    FreeContainer(response_);
    response_ = joined;
    return true;
}

bool CBidiReq::TakeResponse(BIDI_RESPONSE_CONTAINER** answer) {
    if (response_ != nullptr || *answer == nullptr || (*answer)->Count == 0) return AppendResponse(*answer);
    response_ = std::exchange(*answer, nullptr);
    return true;
}

}  // namespace vlm
