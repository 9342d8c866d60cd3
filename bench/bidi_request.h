// A Bidi request for the benches that call the engine.
#pragma once

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "util/spooler_api.h"

namespace vlm::bench {

struct FreeMemory {
    void operator()(void* memory) const { std::free(memory); }
};
using Request = std::unique_ptr<BIDI_REQUEST_CONTAINER, FreeMemory>;

// For the first `count` of `paths`, which outlive it.
inline Request RequestOf(const std::vector<std::wstring>& paths, size_t count) {
    void* memory = std::calloc(1, sizeof(BIDI_REQUEST_CONTAINER) + count * sizeof(BIDI_REQUEST_DATA));
    if (memory == nullptr) std::exit(3);
    Request request(static_cast<BIDI_REQUEST_CONTAINER*>(memory));
    request->Version = 1;
    request->Count = static_cast<DWORD>(count);
    for (size_t i = 0; i < count; ++i)
        request->aData[i].pSchema = const_cast<wchar_t*>(paths[i].c_str());
    return request;
}

}  // namespace vlm::bench
