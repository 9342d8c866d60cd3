#include "bidi/velunbidispl.h"

#include <algorithm>
#include <cwchar>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "bidi/answer_pass.h"
#include "bidi/engine_documents.h"
#include "bidi/engine_error.h"
#include "bidi/extension_files.h"
#include "bidi/parameters.h"
#include "bidi/schema_tree.h"
#include "util/namespaces.h"
#include "util/streams.h"
#include "util/trace.h"
#include "util/xml_bounds.h"

namespace vlm {

namespace {

constexpr wchar_t kWholeTree[] = L"\\";

bool EverySchemaIsThere(const BIDI_REQUEST_CONTAINER& request) {
    return std::all_of(request.aData, request.aData + request.Count,
                       [](const BIDI_REQUEST_DATA& entry) { return entry.pSchema != nullptr; });
}

HRESULT GiveText(const std::wstring& text, BSTR* out) {
    *out = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    return *out != nullptr ? S_OK : E_OUTOFMEMORY;
}

// The first declaration of each prefix among the Schema elements, in document order. Their number is limited:
// each is registered with XPath for every filter.
std::vector<NamespaceDeclaration> PrefixesOf(const SchemaTree& tree) {
    constexpr size_t kMostPrefixes = 256;
    std::vector<NamespaceDeclaration> prefixes;
    std::unordered_set<std::wstring_view> seen;
    for (const SchemaElement* schema : tree.Schemas()) {
        for (const NamespaceDeclaration& declaration : schema->namespaces) {
            if (seen.insert(declaration.prefix).second) prefixes.push_back(declaration);
        }
        if (prefixes.size() <= kMostPrefixes) continue;
        ThrowEngineError(HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_QUOTA),
                         L"the Schema elements of the extension files declare more than " +
                             std::to_wstring(kMostPrefixes) + L" prefixes: " + DescribeElement(*schema));
    }
    return prefixes;
}

void AppendNew(std::vector<NamespaceDeclaration>& declarations, const NamespaceDeclaration& declaration) {
    if (FindPrefix(declarations, declaration.prefix) == nullptr) declarations.push_back(declaration);
}

// Gathers the distinct "query" names in the order in which they are first met, and the prefixes that they
// use.
struct QueryNames {
    explicit QueryNames(const SchemaTree& tree) : declared(PrefixesOf(tree)) {}

    void Add(const SchemaElement& element) {
        if (!element.query || !seen.insert(*element.query).second) return;
        const size_t colon = element.query->find(L':');
        if (colon != std::wstring::npos) {
            const std::wstring prefix = element.query->substr(0, colon);
            const NamespaceDeclaration* const declaration = FindPrefix(declared, prefix);
            if (declaration == nullptr || prefix.empty()) {
                const std::wstring traced =
                    L"Bidi extension file contains no namespace declaration for " + Printable(prefix);
                ThrowTracedError(traced, traced + L": " + DescribeElement(element));
            }
            AppendNew(prefixes, *declaration);
        }
        names.push_back(*element.query);
    }
    // A request may name the whole tree many times over; it is walked once.
    void AddWithDescendants(const SchemaElement& element) {
        if (!walked.insert(&element).second) return;
        Add(element);
        for (const SchemaElement& child : element.children)
            AddWithDescendants(child);
    }

    std::vector<std::wstring> names;
    std::vector<NamespaceDeclaration> prefixes;
    const std::vector<NamespaceDeclaration> declared;
    std::unordered_set<std::wstring_view> seen;
    std::unordered_set<const SchemaElement*> walked;
};

}  // namespace

// The printer's answer as filters see it, and what it makes of the extension files.
struct CVelunBidiSpl::BoundAnswer {
    BoundAnswer(AnswerShape shape, QueryBudget& budget) : search(document, std::move(shape), budget) {}

    CXMLDoc document;
    AnswerSearch search;
    std::unique_ptr<SchemaTree> expanded;
};

CVelunBidiSpl::CVelunBidiSpl() = default;
CVelunBidiSpl::~CVelunBidiSpl() = default;

HRESULT CVelunBidiSpl::Init(const wchar_t*, const wchar_t* fileListXml) {
    return GuardEntry(L"Init", &reason_, [&]() -> HRESULT {
        if (extension_) return S_OK;
        if (fileListXml == nullptr) return E_INVALIDARG;
        auto tree = std::make_unique<SchemaTree>(LoadExtensionFiles(fileListXml, budget_));
        if (tree->Schemas().empty())
            Trace(L"Error: the extension files hold no Schema element without a namespace\r\n");
        extension_ = std::move(tree);
        return S_OK;
    });
}

HRESULT CVelunBidiSpl::EnumQueryElement(const BIDI_REQUEST_CONTAINER* request, BSTR* queryXml) {
    return GuardEntry(L"EnumQueryElement", &reason_, [&]() -> HRESULT {
        if (queryXml != nullptr) *queryXml = nullptr;
        if (!extension_) {
            Trace(L"CVelunBidiSpl::EnumQueryElement - Error: must call init first\r\n");
            return E_FAIL;
        }
        if (request == nullptr || queryXml == nullptr || !EverySchemaIsThere(*request)) return E_INVALIDARG;
        bool resolved = false;
        QueryNames names(*extension_);
        for (DWORD i = 0; i < request->Count; ++i) {
            const std::wstring path = request->aData[i].pSchema;
            budget_.CheckTime(path);
            RefuseApostrophe(path);
            const auto reached = extension_->FindForQuery(ParseSchemaPath(path));
            if (!reached) continue;
            resolved = true;
            // Without the data of the parameters on the way there would be nothing at the end of it.
            for (const SchemaElement* parameter : reached->parameters)
                names.Add(*parameter);
            for (const SchemaElement* element : reached->elements)
                names.AddWithDescendants(*element);
        }
        const HRESULT hr =
            GiveText(WriteQueryElements(names.prefixes, resolved ? std::optional(names.names) : std::nullopt),
                     queryXml);
        return SUCCEEDED(hr) && !resolved ? S_FALSE : hr;
    });
}

HRESULT CVelunBidiSpl::GetPrefixes(std::vector<NamespaceDeclaration>* prefixes) const {
    return GuardEntry(L"GetPrefixes", &reason_, [&]() -> HRESULT {
        if (prefixes == nullptr) return E_INVALIDARG;
        if (!extension_) return E_FAIL;
        *prefixes = PrefixesOf(*extension_);
        std::erase_if(*prefixes, [](const auto& declaration) { return declaration.prefix.empty(); });
        return S_OK;
    });
}

HRESULT CVelunBidiSpl::SetGetPrinterElementResponseData(const wchar_t* responseXml) {
    return GuardEntry(L"SetGetPrinterElementResponseData", &reason_, [&]() -> HRESULT {
        if (responseXml == nullptr) return E_INVALIDARG;
        // What is longer is refused in any case, and might be more than the platform converts at once.
        const std::string document =
            DocumentToUtf8(std::wstring_view(responseXml).substr(0, 2 * kPrinterAnswerLimits.bytes));
        const XmlRefusal refusal = CheckXmlBounds(document, kPrinterAnswerLimits);
        if (refusal != XmlRefusal::kNone)
            ThrowEngineError(HRESULT_FROM_WIN32(ERROR_INVALID_DATA),
                             std::wstring(L"the printer's answer ") + RefusalText(refusal));
        Bind(document);
        return S_OK;
    });
}

HRESULT CVelunBidiSpl::SetGetPrinterElementResponse(std::string_view document) {
    return GuardEntry(L"SetGetPrinterElementResponse", &reason_, [&]() -> HRESULT {
        Bind(document);
        return S_OK;
    });
}

void CVelunBidiSpl::Bind(std::string_view response) {
    if (!extension_) {
        Trace(L"CVelunBidiSpl::SetGetPrinterElementResponseData - Error: must call init first\r\n");
        ThrowEngineError(E_FAIL);
    }
    auto bound = std::make_unique<BoundAnswer>(ShapeOf(response), budget_);
    CXMLDoc& wsd = bound->document;
    wsd.Init();
    wsd.LoadBytes(response, ns::kWsdPrint);

    // Filters use the prefixes of their extension file, and those of the answer. Only the first Schema's must
    // not differ from the answer's: of the others "Get" sees nothing.
    if (!extension_->Schemas().empty()) {
        std::vector<NamespaceDeclaration> known = extension_->Schemas().front()->namespaces;
        ReconcileNamespaces(known, wsd.Namespaces().Of(0), L"the printer's answer");
        for (const NamespaceDeclaration& declaration : PrefixesOf(*extension_))
            AppendNew(known, declaration);
        wsd.SetSelectionNamespaces(known);
    }
    bound->expanded = std::make_unique<SchemaTree>(ExpandParameters(extension_->Root(), bound->search));
    bound_ = std::move(bound);
}

const SchemaTree* CVelunBidiSpl::Expanded() const {
    return bound_ ? bound_->expanded.get() : nullptr;
}

const AnswerSearch* CVelunBidiSpl::Search() const {
    return bound_ ? &bound_->search : nullptr;
}

bool CVelunBidiSpl::ReadyToAnswer() const {
    const wchar_t* const missing = !extension_ ? L"init"
                                   : !bound_   ? L"SetGetPrinterElementResponseData"
                                               : nullptr;
    if (missing != nullptr)
        Trace(L"CVelunBidiSpl::SendRecvXMLString - Error: must call %ls first\r\n", missing);
    return missing == nullptr;
}

std::wstring CVelunBidiSpl::AnswerText(const wchar_t* path) const {
    AnswerPass pass(*bound_->expanded, bound_->search);
    return WriteAnswer(path, pass.Collect(path));
}

HRESULT CVelunBidiSpl::SendRecvXMLString(const wchar_t* path, CXMLDoc& answer) {
    return GuardEntry(L"SendRecvXMLString", &reason_, [&]() -> HRESULT {
        if (!ReadyToAnswer()) return E_FAIL;
        if (path == nullptr) return E_INVALIDARG;
        const std::wstring text = AnswerText(path);
        if (answer.Document() == nullptr) answer.Init();
        answer.LoadXml(text.c_str(), nullptr);
        return S_OK;
    });
}

HRESULT CVelunBidiSpl::SendRecvXMLString(const wchar_t* path, BSTR* answerXml) {
    return GuardEntry(L"SendRecvXMLString", &reason_, [&]() -> HRESULT {
        if (path == nullptr || answerXml == nullptr) return E_INVALIDARG;
        *answerXml = nullptr;
        if (!ReadyToAnswer()) return E_FAIL;
        return GiveText(AnswerText(path), answerXml);
    });
}

HRESULT CVelunBidiSpl::SendRecvBidiDataFromPort(const wchar_t* action, const BIDI_REQUEST_CONTAINER* request,
                                                BIDI_RESPONSE_CONTAINER** response) {
    const bool get = action != nullptr && std::wcscmp(action, BIDI_ACTION_GET) == 0;
    const bool getAll = action != nullptr && std::wcscmp(action, BIDI_ACTION_GET_ALL) == 0;
    const wchar_t* name = get      ? L"SendRecvBidiDataFromPort(BIDI_ACTION_GET)"
                          : getAll ? L"SendRecvBidiDataFromPort(BIDI_ACTION_GET_ALL)"
                                   : L"SendRecvBidiDataFromPort";
    return GuardEntry(name, &reason_, [&]() -> HRESULT {
        if (response != nullptr) *response = nullptr;
        if (request == nullptr || response == nullptr || !(get || getAll)) return E_INVALIDARG;
        if (!EverySchemaIsThere(*request)) return E_INVALIDARG;
        *response = (get ? Get(*request) : GetAll(*request)).Release();
        return S_OK;
    });
}

CVelunBidiSpl::Response CVelunBidiSpl::Get(const BIDI_REQUEST_CONTAINER& request) const {
    // The container comes first: without memory for it nothing is searched for.
    Response response = GetInitBidiResponseContainer(request.Count);
    if (!ReadyToAnswer()) ThrowEngineError(E_FAIL);
    budget_.Spend(Expense::kEntries, request.Count, kWholeTree);

    // The whole tree is answered, whatever is asked for: its first Schema, by which "Get" differs from
    // "GetAll".
    AnswerPass pass(*bound_->expanded, bound_->search);
    const std::optional<std::vector<NamedAnswer>> answers = pass.Collect(kWholeTree);
    std::unordered_map<std::wstring_view, const LeafAnswer*> byPath;
    if (answers) {
        byPath.reserve(answers->size());
        // Of two leaves with the same path the first counts.
        for (const NamedAnswer& named : *answers)
            byPath.emplace(named.path, named.answer);
    }
    for (DWORD i = 0; i < request.Count; ++i) {
        const BIDI_REQUEST_DATA& wanted = request.aData[i];
        RefuseApostrophe(wanted.pSchema);
        const auto found = byPath.find(wanted.pSchema);
        FillEntry(response.Get()->aData[i], wanted.dwReqNumber, wanted.pSchema,
                  found != byPath.end() ? found->second : nullptr);
    }
    return response;
}

CVelunBidiSpl::Response CVelunBidiSpl::GetAll(const BIDI_REQUEST_CONTAINER& request) const {
    if (!ReadyToAnswer()) ThrowEngineError(E_FAIL);
    AnswerPass pass(*bound_->expanded, bound_->search);
    std::vector<std::pair<DWORD, NamedAnswer>> entries;
    for (DWORD i = 0; i < request.Count; ++i) {
        const DWORD number = request.aData[i].dwReqNumber;
        const std::wstring path = request.aData[i].pSchema;
        budget_.CheckTime(path);
        const size_t before = entries.size();
        if (auto answers = pass.Collect(path)) {
            for (NamedAnswer& named : *answers)
                entries.emplace_back(number, std::move(named));
        }
        if (entries.size() > before) continue;
        budget_.Spend(Expense::kEntries, 1, path);
        entries.emplace_back(number, NamedAnswer{path, nullptr, nullptr});
    }
    Response response = GetInitBidiResponseContainer(entries.size());
    BIDI_RESPONSE_DATA* next = response.Get()->aData;
    for (const auto& [number, named] : entries)
        FillEntry(*next++, number, named.path, named.answer);
    return response;
}

}  // namespace vlm
