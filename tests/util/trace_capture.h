// Gathers the trace while it is in scope. One at a time.
#pragma once

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "util/trace.h"

namespace vlm::test {

class TraceCapture {
 public:
    TraceCapture() {
        const std::lock_guard guard(Shared().mutex);
        Shared().texts.clear();
        SetTraceStream(&Receive);
    }
    ~TraceCapture() { SetTraceStream(nullptr); }
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;

    std::vector<std::wstring> Texts() const {
        const std::lock_guard guard(Shared().mutex);
        return Shared().texts;
    }
    bool Has(const std::wstring& text) const {
        const std::vector<std::wstring> texts = Texts();
        return std::find(texts.begin(), texts.end(), text) != texts.end();
    }
    bool HasPart(const std::wstring& part) const {
        for (const std::wstring& traced : Texts())
            if (traced.find(part) != std::wstring::npos) return true;
        return false;
    }
    void Forget() const {
        const std::lock_guard guard(Shared().mutex);
        Shared().texts = {};
    }
    // Everything, for the message of a failed expectation.
    std::string All() const {
        std::string all;
        for (const std::wstring& text : Texts())
            for (const wchar_t c : text)
                all += c < 0x80 ? static_cast<char>(c) : '?';
        return all;
    }

 private:
    struct State {
        std::mutex mutex;
        std::vector<std::wstring> texts;
    };
    static State& Shared() {
        static State state;
        return state;
    }
    static void Receive(const wchar_t* text) {
        const std::lock_guard guard(Shared().mutex);
        Shared().texts.emplace_back(text);
    }
};

}  // namespace vlm::test
