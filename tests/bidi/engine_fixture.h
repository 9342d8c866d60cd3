// What the engine's tests share: extension files from inline XML, requests, and responses whose router memory
// is counted by the stand-in router.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "bidi/velunbidispl.h"
#include "spooler/standin.h"
#include "tests/util/temp_dir.h"
#include "tests/util/trace_capture.h"
#include "util/com.h"
#include "util/spooler_api.h"

namespace vlm::test {

struct ResponseDeleter {
    void operator()(BIDI_RESPONSE_CONTAINER* container) const;
};
using Response = std::unique_ptr<BIDI_RESPONSE_CONTAINER, ResponseDeleter>;

// A request container over schemas that it keeps; entry i has the request number 100 + i.
class Request {
 public:
    explicit Request(std::vector<const wchar_t*> schemas);
    const BIDI_REQUEST_CONTAINER* Get() const;

 private:
    std::vector<std::wstring> schemas_;
    std::vector<uint64_t> memory_;
};

// "STRING Velun", "BLOB 1 2" and the like.
std::wstring DescribeValue(const BIDI_DATA& value);
// "100 0 \Printer:Name STRING Velun" and the like, one line an entry.
std::vector<std::wstring> Describe(const BIDI_RESPONSE_CONTAINER& response);

// An extension file around the children of one Schema. Prefix "w" is the WSD print service.
std::string Extension(std::string_view schemaChildren);
// The same around whole Schema elements, without a prefix for the WSD print service.
std::string Definition(std::string_view schemas);
// A printer's answer around some elements. Prefix "wprt" is the WSD print service.
std::wstring Answer(std::wstring_view elements);

// COM on the test's thread, a folder for files, and a check that no router block is left or freed twice.
class EngineTest : public testing::Test {
 protected:
    EngineTest();
    ~EngineTest() override;

    // The list of these texts, written to files in that order.
    std::wstring FileList(const std::vector<std::string>& texts);
    // An engine over the files.
    std::unique_ptr<CVelunBidiSpl> Loaded(const std::vector<std::string>& texts);
    // The same, bound to the answer.
    std::unique_ptr<CVelunBidiSpl> Engine(const std::vector<std::string>& texts, const std::wstring& answer);

    static Response Ask(CVelunBidiSpl& engine, const wchar_t* action, std::vector<const wchar_t*> schemas,
                        HRESULT expected = S_OK);
    // The lines of Describe for a request that must succeed.
    static std::vector<std::wstring> Lines(CVelunBidiSpl& engine, const wchar_t* action,
                                           std::vector<const wchar_t*> schemas);
    // Whether the trace or the reason of the engine's last failure says so.
    bool Said(const CVelunBidiSpl& engine, const std::wstring& part) const {
        return trace_.HasPart(part) || engine.Reason().find(part) != std::wstring::npos;
    }
    static std::wstring Enum(CVelunBidiSpl& engine, std::vector<const wchar_t*> schemas,
                             HRESULT expected = S_OK);

    const ComApartment apartment_{COINIT_APARTMENTTHREADED};
    const standin::Router router_;
    standin::RouterCounters before_{};
    TempDir folder_;
    int files_ = 0;
    TraceCapture trace_;
};

}  // namespace vlm::test
