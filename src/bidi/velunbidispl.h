// CVelunBidiSpl: the Bidi engine. It answers queries of the spooler's Bidi schema from XML extension files,
// which say where in a printer's WSD data each value lies, and from one such WSD answer.
//
// Order of calls, on an object that serves one query:
//   Init                             loads and merges the extension files
//   EnumQueryElement                 which WSD elements do the requested paths need?
//   SetGetPrinterElementResponseData binds the printer's answer, expands parameters
//   SendRecvBidiDataFromPort / SendRecvXMLString   any number of times
//
// A schema path is "\" + property names joined by "." + optionally ":" + a leaf name:
// "\Printer.Layout:Duplex". "\" alone is the whole tree. Names are matched exactly, with regard to case. A
// path that holds an apostrophe fails its call: paths stand in XPath literals, unquoted.
//
// Limits: an object's work is bounded by one budget (query_budget.h). A call that exceeds it fails with
// ERROR_NOT_ENOUGH_QUOTA as an HRESULT, and the reason says what ran out, and where.
//
// Threads: COM must be initialised, and the object stays on its thread; different objects share nothing.
// Errors: every function is a boundary. It returns an HRESULT and lets no C++ exception of ours out; Reason()
// says why the last one failed. Out parameters are null after a failure. A failed Init leaves the
// engine empty, a failed SetGetPrinterElementResponseData leaves it unbound.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "bidi/bidi_mem.h"
#include "bidi/query_budget.h"
#include "util/com.h"
#include "util/crypt32mgr.h"
#include "util/spooler_api.h"
#include "util/vlxml.h"

namespace vlm {

struct LeafAnswer;
class AnswerSearch;
class SchemaTree;

class CVelunBidiSpl {
 public:
    CVelunBidiSpl();
    ~CVelunBidiSpl();
    CVelunBidiSpl(const CVelunBidiSpl&) = delete;
    CVelunBidiSpl& operator=(const CVelunBidiSpl&) = delete;

    // `name` is the printer's; may be null. `fileListXml` is a text like
    // <BidiExtensionFiles><BidiXml path="C:\a.xml" /></BidiExtensionFiles>. One file that cannot be used
    // fails the call, and so does a list without files. When the engine is already initialised: S_OK, nothing
    // happens.
    HRESULT Init(const wchar_t* name, const wchar_t* fileListXml);

    // The WSD elements that the request's paths need, each once, as the text of a document
    //   <EnumQueryElement xmlns:p="…"><Name>p:Consumables</Name>…</EnumQueryElement>
    // whose root declares the prefixes of its names. S_FALSE, with an Error element in place of names, when
    // no path could be resolved. E_INVALIDARG for null arguments and for an entry without schema.
    HRESULT EnumQueryElement(const BIDI_REQUEST_CONTAINER* request, BSTR* queryXml);

    // The prefixes that the extension files bind, whichever paths are asked for: in the printer's answer none
    // of them may stand for anything else.
    HRESULT GetPrefixes(std::vector<NamespaceDeclaration>* prefixes) const;

    // Binds the printer's answer, the text of an XML document; an XML declaration in it is passed over. One
    // beyond kPrinterAnswerLimits (util/xml_bounds.h) is refused.
    HRESULT SetGetPrinterElementResponseData(const wchar_t* responseXml);
    // The same for a document in UTF-8 that was made of an answer within those limits and is as bounded, as
    // CleanPrinterElements makes it: it is not looked at again.
    HRESULT SetGetPrinterElementResponse(std::string_view document);

    // Answers one path with the document
    //   <bidi:Get xmlns:bidi="…"><Query schema="PATH"><Schema name="LEAF
    //   PATH"><BIDI_INT>7</BIDI_INT></Schema>…
    // one Schema element per leaf, with an Error element where no value was found; Query holds just one Error
    // element when the path is unknown, which is no failure. E_FAIL before Init and before the printer's
    // answer is bound; `answer` is not touched then.
    HRESULT SendRecvXMLString(const wchar_t* path, CXMLDoc& answer);
    // The same as text. E_INVALIDARG for null arguments.
    HRESULT SendRecvXMLString(const wchar_t* path, BSTR* answerXml);

    // Action "Get": one response entry per request entry, for leaves only. Action "GetAll": for each request
    // entry one response entry per leaf below its path, at least one. An entry's dwResult is 0 or, without
    // value, 232 (ERROR_NO_DATA). The response is router memory, for the spooler or
    // RouterFreeBidiResponseContainer to free. E_INVALIDARG for null arguments, for any other action and for
    // an entry without schema.
    HRESULT SendRecvBidiDataFromPort(const wchar_t* action, const BIDI_REQUEST_CONTAINER* request,
                                     BIDI_RESPONSE_CONTAINER** response);

    // Why the last call failed, in one line that names the file, the element or the path at fault. Empty
    // after a success.
    const std::wstring& Reason() const { return reason_; }

    // What the engine works on, for whoever explains its answers; null before Init, and before an answer is
    // bound.
    const SchemaTree* Declared() const { return extension_.get(); }
    const SchemaTree* Expanded() const;
    const AnswerSearch* Search() const;

 private:
    struct BoundAnswer;

    void Bind(std::string_view response);
    bool ReadyToAnswer() const;
    std::wstring AnswerText(const wchar_t* path) const;
    // The response's memory and values.
    struct ResponseTraits : NullTraits<BIDI_RESPONSE_CONTAINER*> {
        static void Close(Type response) { RouterFreeBidiResponseContainer(response); }
    };
    using Response = Unique<ResponseTraits>;
    Response Get(const BIDI_REQUEST_CONTAINER& request) const;
    Response GetAll(const BIDI_REQUEST_CONTAINER& request) const;
    Response GetInitBidiResponseContainer(size_t count) const;
    BYTE* DecodeBlob(const wchar_t* text, DWORD* size) const;
    void FillEntry(BIDI_RESPONSE_DATA& entry, DWORD number, const std::wstring& schema,
                   const LeafAnswer* answer) const;

    LoadedRouter router_;
    CCrypt32Mgr crypt32_;
    mutable std::wstring reason_;
    std::unique_ptr<SchemaTree> extension_;  // as the files declare it; null before Init
    mutable QueryBudget budget_;
    std::unique_ptr<BoundAnswer> bound_;  // null until an answer is bound
};

}  // namespace vlm
