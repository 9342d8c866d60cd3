// Bidi queries to the lower monitor alone.
#pragma once

#include <cstddef>
#include <string>
#include <utility>

#include "bidi/bidi_mem.h"
#include "monitor/lm_port.h"
#include "util/spooler_api.h"

namespace vlm {

// An answer that is given back to the router at the end of the scope.
class RouterAnswer {
 public:
    explicit RouterAnswer(const CBidiMem& memory) : memory_(memory) {}
    ~RouterAnswer() { Free(); }
    RouterAnswer(const RouterAnswer&) = delete;
    RouterAnswer& operator=(const RouterAnswer&) = delete;

    // To be filled, or to be taken over by setting it to null.
    BIDI_RESPONSE_CONTAINER** Place() { return &container_; }
    void Free() { memory_.FreeContainer(std::exchange(container_, nullptr)); }

 private:
    const CBidiMem& memory_;
    BIDI_RESPONSE_CONTAINER* container_ = nullptr;
};

// The lower monitor's answer; null after a failure. What it throws becomes 1627, and a success without a
// container stays one. `reason`, a literal, says why it failed.
DWORD AskLower(const LmPort& port, DWORD accessBit, const wchar_t* action,
               const BIDI_REQUEST_CONTAINER* request, RouterAnswer* answer, const wchar_t** reason) noexcept;

// A "Get" of one schema.
class SchemaRequest {
 public:
    explicit SchemaRequest(const wchar_t* schema);
    SchemaRequest(const SchemaRequest&) = delete;
    SchemaRequest& operator=(const SchemaRequest&) = delete;
    const BIDI_REQUEST_CONTAINER* Get() const { return &request_; }

 private:
    std::wstring schema_;
    BIDI_REQUEST_CONTAINER request_{};
};

// The value of the answer's first entry as text, in a buffer of `capacity` characters including the
// terminator. A Win32 code: 232 for no value, 122 if it does not fit, 87 if it is not text.
DWORD FirstText(const BIDI_RESPONSE_CONTAINER* answer, wchar_t* buffer, size_t capacity);

// The same, of the lower monitor's answer to a "Get" of one schema.
DWORD LowerText(const LmPort& port, const wchar_t* schema, wchar_t* buffer, size_t capacity,
                const CBidiMem& memory);

}  // namespace vlm
