#include "tools/vlmctl/bidi/engine.h"

#include <algorithm>
#include <set>

#include "bidi/velunbidispl.h"
#include "soap/printer_elements.h"
#include "tools/vlmctl/console/command.h"
#include "tools/vlmctl/console/console.h"
#include "tools/vlmctl/exchange/element_document.h"
#include "tools/vlmctl/exchange/failure.h"
#include "tools/vlmctl/exchange/wsd_exchange.h"
#include "util/namespaces.h"
#include "util/streams.h"
#include "util/text.h"
#include "util/trace.h"
#include "util/xml_bounds.h"
#include "util/xml_text.h"

namespace vlm::ctl {

namespace {

// The engine knows standard input by the path of its copy.
std::wstring ReasonOf(const CVelunBidiSpl& engine) {
    return WithNamesOfInput(engine.Reason());
}

void InitEngine(CVelunBidiSpl& engine, const std::vector<std::string>& extensions) {
    std::wstring list = L"<BidiExtensionFiles>";
    for (const std::string& extension : extensions) {
        list += L"<BidiXml path=\"" + EscapeXml(FullPath(extension)) + L"\" />";
    }
    list += L"</BidiExtensionFiles>";
    const HRESULT result = engine.Init(L"vlmctl", list.c_str());
    if (result == S_OK) return;
    Outcome outcome{result, ReasonOf(engine)};
    // Not every parser of the engine's kind tells the line; the one for authors does.
    for (const std::string& extension : extensions) {
        FindingList findings;
        if (ReadSource(extension, findings)) continue;
        const std::vector<Finding> faults = findings.Take();
        if (faults.empty()) continue;
        const Finding& fault = faults.front();
        outcome.reason = Printable(fault.file, MAX_PATH) + L":" + std::to_wstring(fault.place.line) + L":" +
                         std::to_wstring(fault.place.column) + L": " + fault.text;
        break;
    }
    ThrowFailure("the extension files cannot be used", outcome);
}

void CheckStep(const CVelunBidiSpl& engine, HRESULT result) {
    if (FAILED(result)) ThrowFailure("the query failed", {result, ReasonOf(engine)});
}

// The texts of the Name elements of an EnumQueryElement document.
std::vector<std::string> NamesIn(const wchar_t* queryXml) {
    CXMLDoc document;
    document.Init();
    document.LoadXml(queryXml, nullptr);
    std::vector<std::string> names;
    for (const ComPtr<IXMLDOMNode>& name : NodesAt(document.Document(), L"/EnumQueryElement/Name"))
        names.push_back(ToUtf8(TextOf(name.Get())));
    return names;
}

// The name with the prefix that a cleaned answer has for its namespace: the first of those that stand for it.
std::string InAnswer(const std::string& name, const std::vector<NamespaceDeclaration>& prefixes) {
    const size_t colon = name.find(':');
    const std::wstring prefix = FromUtf8(name.substr(0, colon));
    const auto find = [&](auto matches) { return std::ranges::find_if(prefixes, matches); };
    const auto own = find([&](const auto& one) { return one.prefix == prefix; });
    if (colon == std::string::npos || own == prefixes.end()) return name;
    const auto first = find([&](const auto& one) { return one.uri == own->uri; });
    return ToUtf8(first->prefix) + name.substr(colon);
}

// The cleaned answer without the parts that a printer would not have sent, since nothing asks for them.
std::string OnlyAskedFor(const std::string& clean, const _bstr_t& queryXml,
                         const std::vector<NamespaceDeclaration>& prefixes) {
    std::set<std::string> asked;
    for (const std::string& name : NamesIn(queryXml))
        asked.insert(InAnswer(name, prefixes));
    CXMLDoc document;
    document.Init();
    document.LoadBytes(clean, nullptr);
    document.SetSelectionNamespaces({{L"pri", ns::kWsdPrint}});
    for (const ComPtr<IXMLDOMNode>& part :
         NodesAt(document.Root().Get(), L"//pri:PrinterElements/pri:ElementData")) {
        bool wanted = asked.contains(AttributeAt(part.Get(), L"Name"));
        for (const ComPtr<IXMLDOMNode>& element : NodesAt(part.Get(), L"*"))
            wanted = wanted || asked.contains(ToUtf8(NameOf(element.Get())));
        ComPtr<IXMLDOMNode> parent;
        if (!wanted && part->get_parentNode(parent.Receive()) == S_OK)
            parent->removeChild(part.Get(), nullptr);
    }
    _bstr_t text;
    if (FAILED(document.Document()->get_xml(text.GetAddress()))) throw CommandError("out of memory");
    return DocumentToUtf8(static_cast<const wchar_t*>(text));
}

// A saved answer passes for one that the printer has just sent in answer to the query.
std::string CleanAnswer(const CVelunBidiSpl& engine, const BidiSources& sources, const _bstr_t& queryXml) {
    const bool saved = sources.printerUrl.empty();
    int status = 200;
    const std::string answer = AnswerOf(sources, queryXml, &status);
    std::vector<NamespaceDeclaration> prefixes;
    CheckStep(engine, engine.GetPrefixes(&prefixes));
    std::string clean;
    const Outcome cleaned = CleanPrinterElements(answer, prefixes, &clean, status);
    if (FAILED(cleaned))
        ThrowFailure(saved ? Shown(sources.printerAnswer) + " cannot be used"
                           : Shown(sources.printerUrl) + " is not a WSD print service",
                     cleaned);
    return saved && !sources.wholeAnswer ? OnlyAskedFor(clean, queryXml, prefixes) : clean;
}

}  // namespace

std::wstring FullPath(const std::string& path) {
    const std::wstring given = PathOfInput(FromUtf8(path));
    std::wstring full(32768, L'\0');
    const DWORD length =
        GetFullPathNameW(given.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
    if (length == 0 || length >= full.size()) throw CommandError("'" + path + "' is not a path");
    full.resize(length);
    return full;
}

std::optional<SourceFile> ReadSource(const std::string& extension, FindingList& findings) {
    std::wstring problem;
    const auto bytes = ReadFileBytes(FullPath(extension), kExtensionFileLimits.bytes, problem);
    return bytes ? ParseSource(FromUtf8(extension), *bytes, findings) : std::nullopt;
}

std::string AnswerOf(const BidiSources& sources, const wchar_t* queryXml, int* status) {
    if (!sources.printerUrl.empty()) return FetchAnswer(sources.printerUrl, queryXml, status);
    std::wstring problem;
    const auto bytes = ReadFileBytes(FullPath(sources.printerAnswer), kPrinterAnswerLimits.bytes, problem);
    if (!bytes) throw CommandError(sources.printerAnswer + " " + ToUtf8(problem));
    return *bytes;
}

void CheckUsable(const std::vector<std::string>& extensions) {
    const ComApartment apartment(COINIT_MULTITHREADED);
    CVelunBidiSpl engine;
    InitEngine(engine, extensions);
}

EngineQuery::EngineQuery(const BidiSources& sources, const std::vector<std::string>& paths)
    : sources_(sources), request_(paths) {
    InitEngine(engine_, sources.extensions);
}

bool EngineQuery::FindNeeded() {
    const HRESULT result = engine_.EnumQueryElement(request_.Container(), queryXml_.GetAddress());
    CheckStep(engine_, result);
    needed_ = NamesIn(queryXml_);
    return result == S_OK;
}

void EngineQuery::Fetch() {
    answer_ = CleanAnswer(engine_, sources_, queryXml_);
}

void EngineQuery::Bind() {
    if (!answer_) Fetch();
    CheckStep(engine_, engine_.SetGetPrinterElementResponse(*answer_));
}

std::vector<BidiAnswer> EngineQuery::Ask(const wchar_t* action) {
    BIDI_RESPONSE_CONTAINER* response = nullptr;
    CheckStep(engine_, engine_.SendRecvBidiDataFromPort(action, request_.Container(), &response));
    return TakeAnswers(response);
}

std::vector<BidiAnswer> AskEngine(const BidiSources& sources, const wchar_t* action,
                                  const std::vector<std::string>& paths) {
    EngineQuery query(sources, paths);
    query.FindNeeded();
    query.Bind();
    return query.Ask(action);
}

std::vector<NeededElement> NeededElements(const BidiSources& sources, const std::vector<std::string>& paths) {
    EngineQuery query(sources, paths);
    if (!query.FindNeeded())
        throw CommandError("the extension files define none of these paths", kNothingFound);
    std::vector<NeededElement> elements;
    for (const std::string& name : query.Needed())
        elements.push_back({name, std::nullopt});
    if (sources.printerUrl.empty()) return elements;
    const ElementDocument answer(sources.printerUrl, FetchCleanAnswer(sources.printerUrl, query.QueryXml()));
    const std::vector<std::string> valid = NamesOf(answer).valid;
    for (NeededElement& element : elements)
        element.answered = std::find(valid.begin(), valid.end(), element.name) != valid.end();
    return elements;
}

}  // namespace vlm::ctl
