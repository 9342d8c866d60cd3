#include "tests/bidi/engine_fixture.h"

#include <cstddef>

namespace vlm::test {

std::wstring DescribeValue(const BIDI_DATA& value) {
    switch (value.dwBidiType) {
        case BIDI_NULL:
            return L"NULL";
        case BIDI_INT:
            return L"INT " + std::to_wstring(value.u.iData);
        case BIDI_FLOAT:
            return L"FLOAT " + std::to_wstring(value.u.fData);
        case BIDI_BOOL:
            return value.u.bData == TRUE ? L"BOOL TRUE" : value.u.bData == FALSE ? L"BOOL FALSE" : L"BOOL ?";
        case BIDI_STRING:
        case BIDI_TEXT:
        case BIDI_ENUM:
            return std::wstring(value.dwBidiType == BIDI_STRING ? L"STRING "
                                : value.dwBidiType == BIDI_TEXT ? L"TEXT "
                                                                : L"ENUM ") +
                   (value.u.sData != nullptr ? value.u.sData : L"(null)");
        case BIDI_BLOB: {
            std::wstring bytes = L"BLOB";
            for (DWORD i = 0; i < value.u.biData.cbBuf; ++i)
                bytes += L" " + std::to_wstring(value.u.biData.pData[i]);
            return bytes;
        }
        default:
            return L"? " + std::to_wstring(value.dwBidiType);
    }
}

void ResponseDeleter::operator()(BIDI_RESPONSE_CONTAINER* container) const {
    RouterFreeBidiResponseContainer(container);
}

Request::Request(std::vector<const wchar_t*> schemas) {
    const size_t size =
        offsetof(BIDI_REQUEST_CONTAINER, aData) + (schemas.size() + 1) * sizeof(BIDI_REQUEST_DATA);
    memory_.resize(size / sizeof(uint64_t) + 1);
    auto* container = reinterpret_cast<BIDI_REQUEST_CONTAINER*>(memory_.data());
    container->Version = 1;
    container->Count = static_cast<DWORD>(schemas.size());
    schemas_.reserve(schemas.size());
    for (size_t i = 0; i < schemas.size(); ++i) {
        container->aData[i].dwReqNumber = static_cast<DWORD>(100 + i);
        if (schemas[i] == nullptr) continue;
        container->aData[i].pSchema = schemas_.emplace_back(schemas[i]).data();
    }
}

const BIDI_REQUEST_CONTAINER* Request::Get() const {
    return reinterpret_cast<const BIDI_REQUEST_CONTAINER*>(memory_.data());
}

std::vector<std::wstring> Describe(const BIDI_RESPONSE_CONTAINER& response) {
    std::vector<std::wstring> lines;
    for (DWORD i = 0; i < response.Count; ++i) {
        const BIDI_RESPONSE_DATA& entry = response.aData[i];
        lines.push_back(std::to_wstring(entry.dwReqNumber) + L" " + std::to_wstring(entry.dwResult) + L" " +
                        (entry.pSchema != nullptr ? entry.pSchema : L"(null)") + L" " +
                        DescribeValue(entry.data));
    }
    return lines;
}

std::string Extension(std::string_view schemaChildren) {
    return Definition("<Schema xmlns:w='http://schemas.microsoft.com/windows/2006/08/wdp/print'>" +
                      std::string(schemaChildren) + "</Schema>");
}

std::string Definition(std::string_view schemas) {
    return "<bidi:Definition xmlns:bidi='http://schemas.microsoft.com/windows/2005/03/printing/bidi'>" +
           std::string(schemas) + "</bidi:Definition>";
}

std::wstring Answer(std::wstring_view elements) {
    return L"<e:Envelope xmlns:e='http://www.w3.org/2003/05/soap-envelope' "
           L"xmlns:wprt='http://schemas.microsoft.com/windows/2006/08/wdp/print'><e:Body>" +
           std::wstring(elements) + L"</e:Body></e:Envelope>";
}

EngineTest::EngineTest() {
    EXPECT_TRUE(router_.Present());
    router_.ResetAllocations(0);
    before_ = router_.Counters();
}

EngineTest::~EngineTest() {
    router_.ResetAllocations(0);
    EXPECT_EQ(router_.Counters().liveBlocks, before_.liveBlocks);
    EXPECT_EQ(router_.Counters().badFrees, before_.badFrees);
    if (HasFailure()) printf("trace:\n%s\n", trace_.All().c_str());
}

std::wstring EngineTest::FileList(const std::vector<std::string>& texts) {
    std::wstring list = L"<BidiExtensionFiles>";
    for (const std::string& text : texts) {
        const std::wstring path = folder_.Write(L"file" + std::to_wstring(++files_) + L".xml", text);
        list += L"<BidiXml path=\"" + path + L"\" />";
    }
    return list + L"</BidiExtensionFiles>";
}

std::unique_ptr<CVelunBidiSpl> EngineTest::Loaded(const std::vector<std::string>& texts) {
    auto engine = std::make_unique<CVelunBidiSpl>();
    EXPECT_EQ(engine->Init(L"Office", FileList(texts).c_str()), S_OK);
    return engine;
}

std::unique_ptr<CVelunBidiSpl> EngineTest::Engine(const std::vector<std::string>& texts,
                                                  const std::wstring& answer) {
    auto engine = Loaded(texts);
    EXPECT_EQ(engine->SetGetPrinterElementResponseData(answer.c_str()), S_OK);
    return engine;
}

Response EngineTest::Ask(CVelunBidiSpl& engine, const wchar_t* action, std::vector<const wchar_t*> schemas,
                         HRESULT expected) {
    const Request request(std::move(schemas));
    BIDI_RESPONSE_CONTAINER* response = nullptr;
    EXPECT_EQ(engine.SendRecvBidiDataFromPort(action, request.Get(), &response), expected);
    EXPECT_EQ(response != nullptr, expected == S_OK);
    if (response != nullptr) {
        EXPECT_EQ(response->Version, 1u);
        EXPECT_EQ(response->Flags, 0u);
    }
    return Response(response);
}

std::vector<std::wstring> EngineTest::Lines(CVelunBidiSpl& engine, const wchar_t* action,
                                            std::vector<const wchar_t*> schemas) {
    const Response response = Ask(engine, action, std::move(schemas));
    return response ? Describe(*response) : std::vector<std::wstring>();
}

std::wstring EngineTest::Enum(CVelunBidiSpl& engine, std::vector<const wchar_t*> schemas, HRESULT expected) {
    const Request request(std::move(schemas));
    _bstr_t text;
    EXPECT_EQ(engine.EnumQueryElement(request.Get(), text.GetAddress()), expected);
    return text.length() != 0 ? std::wstring(static_cast<const wchar_t*>(text)) : std::wstring();
}

}  // namespace vlm::test
