#include "tools/vlmctl/bidi_offline.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cwchar>

#include "bidi/bidi_mem.h"
#include "bidi/velunbidispl.h"
#include "soap/printer_elements.h"
#include "spooler/host/monitor_host.h"
#include "tools/vlmctl/bidi_source.h"
#include "tools/vlmctl/command.h"
#include "tools/vlmctl/trace_keeper.h"
#include "tools/vlmctl/wsd_exchange.h"
#include "util/scope_exit.h"
#include "util/vlutil.h"
#include "util/xml_bounds.h"

// windows.h first.
#include <wincrypt.h>

namespace vlm::ctl {

namespace {

using host::FromUtf8;
using host::ToUtf8;

std::wstring FullPath(const std::string& path) {
    const std::wstring given = FromUtf8(path);
    std::wstring full(32768, L'\0');
    const DWORD length =
        GetFullPathNameW(given.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
    if (length == 0 || length >= full.size()) throw CommandError("'" + path + "' is no path");
    full.resize(length);
    return full;
}

void InitEngine(CVelunBidiSpl& engine, const std::vector<std::string>& extensions) {
    std::wstring list = L"<BidiExtensionFiles>";
    for (const std::string& extension : extensions) {
        list += L"<BidiXml path=\"" + EscapedForXml(FullPath(extension)) + L"\" />";
    }
    list += L"</BidiExtensionFiles>";
    const HRESULT result = engine.Init(L"vlmctl", list.c_str());
    if (result != S_OK) ThrowTraced("the extension files cannot be used", result);
}

// A request container with one entry per path; it holds the paths, too.
class Request {
 public:
    explicit Request(const std::vector<std::string>& paths) {
        for (const std::string& path : paths)
            paths_.push_back(FromUtf8(path));
        bytes_.resize(sizeof(BIDI_REQUEST_CONTAINER) + paths_.size() * sizeof(BIDI_REQUEST_DATA));
        BIDI_REQUEST_CONTAINER* container = Container();
        container->Version = 1;
        container->Count = static_cast<DWORD>(paths_.size());
        for (size_t i = 0; i < paths_.size(); ++i) {
            container->aData[i].dwReqNumber = static_cast<DWORD>(i);
            container->aData[i].pSchema = paths_[i].data();
        }
    }
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    BIDI_REQUEST_CONTAINER* Container() { return reinterpret_cast<BIDI_REQUEST_CONTAINER*>(bytes_.data()); }

 private:
    std::vector<std::wstring> paths_;
    std::vector<std::byte> bytes_;  // zeroed, and aligned for anything
};

// The names that the paths need, as a query to the printer; with no name when the extension files have none
// of the paths, and false.
bool QueryFor(CVelunBidiSpl& engine, Request& request, _bstr_t& queryXml) {
    const HRESULT result = engine.EnumQueryElement(request.Container(), queryXml.GetAddress());
    if (result != S_OK && result != S_FALSE) ThrowTraced("the query failed", result);
    return result == S_OK;
}

// As if the printer had just sent the file in answer to the query: with the prefixes that the query declares,
// whatever the printer's own are.
void BindAnswer(CVelunBidiSpl& engine, const std::string& file, const _bstr_t& queryXml) {
    std::wstring problem;
    const std::optional<std::string> bytes =
        ReadFileBytes(FullPath(file), kPrinterAnswerLimits.bytes, problem);
    if (!bytes) throw CommandError(file + " " + ToUtf8(problem));
    const ComPtr<IStream> answer = StreamOf(*bytes);
    ComPtr<IStream> clean;
    HRESULT result = answer ? CleanPrinterElements(answer.Get(), queryXml, clean.Receive()) : E_OUTOFMEMORY;
    if (result == S_OK) result = engine.SetGetPrinterElementResponseStream(clean.Get());
    if (result != S_OK) ThrowTraced("the printer's answer cannot be used", result);
}

std::string Base64(const BINARY_CONTAINER& blob) {
    DWORD length = 0;
    const DWORD flags = CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF;
    if (!CryptBinaryToStringA(blob.pData, blob.cbBuf, flags, nullptr, &length)) return {};
    std::string text(length, '\0');
    if (!CryptBinaryToStringA(blob.pData, blob.cbBuf, flags, text.data(), &length)) return {};
    text.resize(length);
    return text;
}

BidiAnswer Describe(const BIDI_RESPONSE_DATA& entry) {
    static constexpr std::array<const char*, 8> kNames{"BIDI_NULL",   "BIDI_INT",  "BIDI_FLOAT", "BIDI_BOOL",
                                                       "BIDI_STRING", "BIDI_TEXT", "BIDI_ENUM",  "BIDI_BLOB"};
    const BIDI_DATA& data = entry.data;
    BidiAnswer answer;
    answer.path = entry.pSchema != nullptr ? ToUtf8(entry.pSchema) : "";
    answer.type = data.dwBidiType < kNames.size() ? kNames[data.dwBidiType] : std::to_string(data.dwBidiType);
    answer.result = entry.dwResult;
    answer.hasValue = entry.dwResult == ERROR_SUCCESS && data.dwBidiType != BIDI_NULL;
    if (!answer.hasValue) return answer;
    switch (data.dwBidiType) {
        case BIDI_INT:
            answer.value = std::to_string(data.u.iData);
            break;
        case BIDI_FLOAT:
            answer.value = fmt::format("{}", data.u.fData);
            break;
        case BIDI_BOOL:
            answer.value = data.u.bData ? "true" : "false";
            break;
        case BIDI_BLOB:
            answer.value = Base64(data.u.biData);
            break;
        default:
            // An empty text is carried as null.
            answer.value = data.u.sData != nullptr ? ToUtf8(data.u.sData) : "";
    }
    return answer;
}

// The texts of the Name elements of an EnumQueryElement document.
std::vector<std::string> NamesIn(const wchar_t* queryXml) {
    CXMLDoc document;
    document.Init();
    document.LoadXml(queryXml, nullptr);
    const ComPtr<IXMLDOMNodeList> list = document.SelectNodes(L"/EnumQueryElement/Name");
    std::vector<std::string> names;
    while (const ComPtr<IXMLDOMNode> name = NextNode(list.Get()))
        names.push_back(ToUtf8(TextOf(name.Get())));
    return names;
}

}  // namespace

std::vector<BidiAnswer> AskOffline(const BidiFiles& files, const wchar_t* action,
                                   const std::vector<std::string>& paths) {
    const ComApartment apartment(COINIT_MULTITHREADED);
    const TraceKeeper keeper;
    CVelunBidiSpl engine;
    InitEngine(engine, files.extensions);
    Request request(paths);
    _bstr_t queryXml;
    QueryFor(engine, request, queryXml);
    BindAnswer(engine, files.printerAnswer, queryXml);

    BIDI_RESPONSE_CONTAINER* response = nullptr;
    const HRESULT result = engine.SendRecvBidiDataFromPort(action, request.Container(), &response);
    if (result != S_OK || response == nullptr) ThrowTraced("the query failed", result);
    const CBidiMem memory;
    const ScopeExit free([&] { memory.FreeContainer(response); });
    std::vector<BidiAnswer> answers;
    for (DWORD i = 0; i < response->Count; ++i)
        answers.push_back(Describe(response->aData[i]));
    return answers;
}

std::vector<std::string> NeededElements(const BidiFiles& files, const std::vector<std::string>& paths) {
    const ComApartment apartment(COINIT_MULTITHREADED);
    const TraceKeeper keeper;
    CVelunBidiSpl engine;
    InitEngine(engine, files.extensions);

    Request request(paths);
    _bstr_t queryXml;
    if (!QueryFor(engine, request, queryXml))
        throw CommandError("the extension files have none of these paths");
    return NamesIn(queryXml);
}

std::string ResultText(unsigned long result) {
    switch (result) {
        case ERROR_SUCCESS:
            return "found";
        case ERROR_NO_DATA:
            return "no value";
        case ERROR_OUTOFMEMORY:
            return "out of memory";
        default:
            return "unknown result";
    }
}

}  // namespace vlm::ctl
