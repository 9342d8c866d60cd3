// CBidiReq: the state of one Bidi request of the spooler while it is being answered.
//
// The action and the request container stay the caller's and must outlive the object. The response container
// that has been gathered so far is the object's; it is router memory and can be taken out for the spooler.
// One mark per request entry says whether the entry has been answered. Nothing here throws; an object belongs
// to one thread.
#pragma once

#include "bidi/bidi_mem.h"
#include "util/handles.h"
#include "util/spooler_api.h"

namespace vlm {

class CBidiReq : public CBidiMem {
 public:
    CBidiReq() = default;
    CBidiReq(DWORD accessBit, const wchar_t* action, const BIDI_REQUEST_CONTAINER* request);
    ~CBidiReq() override { FreeContainer(response_); }

    // Whether there is an action and a request, and memory for its marks.
    bool IsValid() const { return action_ != nullptr && request_ != nullptr && marks_; }

    DWORD AccessBit() const { return accessBit_; }
    const wchar_t* Action() const { return action_; }
    const BIDI_REQUEST_CONTAINER* Request() const { return request_; }
    DWORD Count() const { return count_; }

    bool IsAnswered(DWORD entry) const { return marks_ && entry < count_ && Marks()[entry] != 0; }
    void MarkAnswered(DWORD entry);
    DWORD CountUnanswered() const;

    // A request container with the version and flags of the request and only its unanswered entries, each as
    // it is: schemas and data stay the caller's. `*unanswered` is empty when none is left. False when memory
    // runs out.
    bool MakeUnanswered(GlobalMemory* unanswered) const;

    // Null until something was appended.
    const BIDI_RESPONSE_CONTAINER* Response() const { return response_; }
    // Puts copies of the answer's entries behind the response gathered so far. False, with the response
    // unchanged, when memory runs out. A null or empty answer changes nothing.
    bool AppendResponse(const BIDI_RESPONSE_CONTAINER* answer);
    // The same for an answer that may be taken over, with the version and flags that the answer has: nothing
    // is copied when there is no response yet, and `*answer` is null then. Otherwise it stays the caller's.
    bool TakeResponse(BIDI_RESPONSE_CONTAINER** answer);
    // Gives the response to the caller.
    BIDI_RESPONSE_CONTAINER* DetachResponse() { return std::exchange(response_, nullptr); }

 private:
    LONG* Marks() const { return static_cast<LONG*>(marks_.Get()); }

    DWORD accessBit_ = 0;
    const wchar_t* action_ = nullptr;
    const BIDI_REQUEST_CONTAINER* request_ = nullptr;
    BIDI_RESPONSE_CONTAINER* response_ = nullptr;
    DWORD count_ = 0;
    GlobalMemory marks_;  // one LONG per entry and one more; 0 = not answered
};

}  // namespace vlm
