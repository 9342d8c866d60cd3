#include "tools/vlmctl/extension_files/source.h"

#include <algorithm>

#include "spooler/host/monitor_host.h"
#include "util/handles.h"
#include "util/sax.h"
#include "util/streams.h"
#include "util/vlutil.h"
#include "util/xml_bounds.h"

namespace vlm::ctl {

namespace {

// Where start tags begin, found by one pass over the bytes. The parser's own position is no help here: it
// stands behind a start tag, which may be several lines long, and its column counts differently from parser
// to parser.
struct TagScan {
    std::vector<int> startLines;   // one for each start tag, in order
    std::vector<size_t> lineEnds;  // the offset in bytes behind each line feed, and the end of the text
    int doctypeLine = 0;           // 0: none
};

bool IsUtf16(std::string_view bytes) {
    return bytes.substr(0, 2) == "\xFF\xFE" || bytes.substr(0, 2) == "\xFE\xFF";
}

// The markup characters of `bytes` as ASCII. Whatever is not ASCII cannot be markup and becomes '?'.
std::string MarkupCharacters(std::string_view bytes) {
    if (!IsUtf16(bytes)) return std::string(bytes);
    const bool little = bytes.front() == '\xFF';
    std::string ascii;
    ascii.reserve(bytes.size() / 2);
    for (size_t i = 2; i + 1 < bytes.size(); i += 2) {
        const char low = little ? bytes[i] : bytes[i + 1];
        const char high = little ? bytes[i + 1] : bytes[i];
        ascii.push_back(high == 0 ? low : '?');
    }
    return ascii;
}

TagScan ScanTags(std::string_view bytes) {
    const std::string text = MarkupCharacters(bytes);
    TagScan scan;
    int line = 1;
    size_t counted = 0;
    const auto lineAt = [&](size_t position) {
        line += static_cast<int>(std::count(text.begin() + static_cast<std::ptrdiff_t>(counted),
                                            text.begin() + static_cast<std::ptrdiff_t>(position), '\n'));
        counted = position;
        return line;
    };
    const auto startsWith = [&](size_t position, std::string_view what) {
        return std::string_view(text).substr(position, what.size()) == what;
    };
    const auto skipPast = [&](size_t position, std::string_view end) {
        const size_t found = text.find(end, position);
        return found == std::string::npos ? text.size() : found + end.size();
    };

    size_t position = text.find('<');
    while (position != std::string::npos && position < text.size()) {
        if (startsWith(position, "<!--")) {
            position = skipPast(position + 4, "-->");
        } else if (startsWith(position, "<![CDATA[")) {
            position = skipPast(position, "]]>");
        } else if (startsWith(position, "<?")) {
            position = skipPast(position, "?>");
        } else if (startsWith(position, "<!")) {
            if (scan.doctypeLine == 0) scan.doctypeLine = lineAt(position);
            ++position;
        } else {
            // A '<' cannot stand in an attribute value, so the next one begins the next piece of markup.
            if (!startsWith(position, "</")) scan.startLines.push_back(lineAt(position));
            ++position;
        }
        position = text.find('<', position);
    }
    for (size_t i = text.find('\n'); i != std::string::npos; i = text.find('\n', i + 1)) {
        scan.lineEnds.push_back(IsUtf16(bytes) ? 2 + 2 * (i + 1) : i + 1);
    }
    if (scan.lineEnds.empty() || scan.lineEnds.back() != bytes.size()) scan.lineEnds.push_back(bytes.size());
    return scan;
}

std::wstring TakeText(const wchar_t* text, int length) {
    return text == nullptr || length <= 0 ? std::wstring() : std::wstring(text, static_cast<size_t>(length));
}

std::wstring Trimmed(const std::wstring& text) {
    constexpr wchar_t kBlanks[] = L" \t\r\n";
    const size_t begin = text.find_first_not_of(kBlanks);
    return begin == std::wstring::npos ? L"" : text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

#if defined(__GNUC__)
// COM interfaces have no virtual destructors by design; nobody deletes through them.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
#endif
// Both handlers in one, on the stack of Parse. The parser's references to it are not counted: it is told to
// forget the handlers before they go.
class TreeBuilder final : public ISAXContentHandler, public ISAXErrorHandler {
 public:
    explicit TreeBuilder(const TagScan& scan) : scan_(scan) {}

    std::optional<SourceElement> TakeRoot() { return std::move(root_); }
    // Where the parser saw the fault, and what it says; for a stop of our own, why.
    int FaultLine() const { return faultLine_ != 0 ? faultLine_ : lastLine_; }
    const std::wstring& Fault() const { return fault_; }
    bool TooDeep() const { return stopped_; }

    // IUnknown
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override {
        if (object == nullptr) return E_POINTER;
        if (id == msxml::kISAXErrorHandler) {
            *object = static_cast<ISAXErrorHandler*>(this);
        } else if (id == IID_IUnknown || id == msxml::kISAXContentHandler) {
            *object = static_cast<ISAXContentHandler*>(this);
        } else {
            *object = nullptr;
            return E_NOINTERFACE;
        }
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }

    // ISAXContentHandler
    HRESULT STDMETHODCALLTYPE putDocumentLocator(ISAXLocator*) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE startDocument() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE endDocument() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE startPrefixMapping(const wchar_t* prefix, int prefixLength, const wchar_t* uri,
                                                 int uriLength) override {
        return Guard([&] { pending_[TakeText(prefix, prefixLength)] = TakeText(uri, uriLength); });
    }
    HRESULT STDMETHODCALLTYPE endPrefixMapping(const wchar_t*, int) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE startElement(const wchar_t* uri, int uriLength, const wchar_t*, int,
                                           const wchar_t* name, int nameLength,
                                           ISAXAttributes* attributes) override {
        return Guard([&] {
            SourceElement element;
            element.name = TakeText(name, nameLength);
            element.namespaceUri = TakeText(uri, uriLength);
            element.declarations.swap(pending_);
            if (count_ < scan_.startLines.size()) lastLine_ = scan_.startLines[count_];
            ++count_;
            element.line = lastLine_;
            if (open_.size() >= kExtensionFileLimits.depth) {
                stopped_ = true;
                return;
            }
            ReadAttributes(attributes, element);
            open_.push_back(std::move(element));
        });
    }
    HRESULT STDMETHODCALLTYPE endElement(const wchar_t*, int, const wchar_t*, int, const wchar_t*,
                                         int) override {
        return Guard([&] {
            SourceElement element = std::move(open_.back());
            open_.pop_back();
            element.text = Trimmed(element.text);
            if (open_.empty()) {
                root_ = std::move(element);
            } else {
                open_.back().children.push_back(std::move(element));
            }
        });
    }
    HRESULT STDMETHODCALLTYPE characters(const wchar_t* text, int length) override {
        return Guard([&] {
            if (!open_.empty()) open_.back().text += TakeText(text, length);
        });
    }
    HRESULT STDMETHODCALLTYPE ignorableWhitespace(const wchar_t*, int) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE processingInstruction(const wchar_t*, int, const wchar_t*, int) override {
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE skippedEntity(const wchar_t*, int) override { return S_OK; }

    // ISAXErrorHandler
    HRESULT STDMETHODCALLTYPE error(ISAXLocator* locator, const wchar_t* message, HRESULT) override {
        return Guard([&] { KeepFault(locator, message); });
    }
    HRESULT STDMETHODCALLTYPE fatalError(ISAXLocator* locator, const wchar_t* message, HRESULT) override {
        return Guard([&] { KeepFault(locator, message); });
    }
    HRESULT STDMETHODCALLTYPE ignorableWarning(ISAXLocator*, const wchar_t*, HRESULT) override {
        return S_OK;
    }

 private:
    // No exception may pass through the parser; what is thrown here is memory running out.
    template <typename Work>
    HRESULT Guard(Work work) {
        try {
            if (!stopped_) work();
        } catch (...) {
            return E_OUTOFMEMORY;
        }
        return stopped_ ? E_ABORT : S_OK;
    }

    static void ReadAttributes(ISAXAttributes* attributes, SourceElement& element) {
        int count = 0;
        if (attributes == nullptr || attributes->getLength(&count) != S_OK) return;
        for (int i = 0; i < count; ++i) {
            const wchar_t* name = nullptr;
            const wchar_t* value = nullptr;
            int nameLength = 0;
            int valueLength = 0;
            if (attributes->getQName(i, &name, &nameLength) != S_OK) continue;
            if (attributes->getValue(i, &value, &valueLength) != S_OK) continue;
            SourceAttribute attribute{TakeText(name, nameLength), TakeText(value, valueLength)};
            const bool declaration = attribute.name == L"xmlns" || attribute.name.starts_with(L"xmlns:");
            if (!declaration) element.attributes.push_back(std::move(attribute));
        }
    }

    // The first fault is the one to mend; what a parser says after it follows from it.
    void KeepFault(ISAXLocator* locator, const wchar_t* message) {
        if (faultLine_ != 0) return;
        if (locator == nullptr || locator->getLineNumber(&faultLine_) != S_OK || faultLine_ < 1) {
            faultLine_ = lastLine_;
        }
        fault_ = message != nullptr ? message : L"";
        while (!fault_.empty() && (fault_.back() == L'\n' || fault_.back() == L'\r'))
            fault_.pop_back();
    }

    const TagScan& scan_;
    std::map<std::wstring, std::wstring> pending_;  // declarations of the element that starts next
    std::vector<SourceElement> open_;               // the path from the root to where the parser stands
    std::optional<SourceElement> root_;
    size_t count_ = 0;
    int lastLine_ = 1;  // of the element that started last
    int faultLine_ = 0;
    std::wstring fault_;
    bool stopped_ = false;
};
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

bool Parse(std::string_view bytes, TreeBuilder& builder) {
    ComPtr<IStream> stream;
    ComPtr<ISAXXMLReader> reader;
    if (MakeStream(bytes, stream.Receive()) != S_OK || CreateSaxReader(reader.Receive()) != S_OK)
        return false;
    HRESULT result = reader->putContentHandler(&builder);
    if (result == S_OK) result = reader->putErrorHandler(&builder);
    if (result == S_OK) {
        VARIANT input;
        VariantInit(&input);
        input.vt = VT_UNKNOWN;
        input.punkVal = stream.Get();
        result = reader->parse(input);
    }
    reader->putContentHandler(nullptr);
    reader->putErrorHandler(nullptr);
    return result == S_OK;
}

// The line of a fault that the parser met at or behind `line`. A parser's position may stand at the last
// piece that was in order, lines before the fault; so the fault's line is the first one up to which the text
// shows that same fault.
int LineOfFault(std::string_view bytes, const TagScan& scan, int line, const std::wstring& fault) {
    const auto showsFault = [&](size_t lines) {
        TreeBuilder builder(scan);
        return !Parse(bytes.substr(0, scan.lineEnds[lines - 1]), builder) && builder.Fault() == fault;
    };
    size_t high = scan.lineEnds.size();
    size_t low = std::min(static_cast<size_t>(line), high) - 1;
    // A text that shows its fault wherever it is cut ends too early: the fault is at its end.
    if (low > 0 && showsFault(low)) return static_cast<int>(high);
    while (high - low > 1) {
        const size_t middle = low + (high - low) / 2;
        (showsFault(middle) ? high : low) = middle;
    }
    return static_cast<int>(high);
}

}  // namespace

const std::wstring* SourceElement::Attribute(std::wstring_view attribute) const {
    const auto found =
        std::find_if(attributes.begin(), attributes.end(),
                     [&](const SourceAttribute& candidate) { return candidate.name == attribute; });
    return found == attributes.end() ? nullptr : &found->value;
}

std::optional<std::string> ReadFileBytes(const std::wstring& path, size_t limit, std::wstring& problem) {
    const File file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    LARGE_INTEGER size{};
    // A pipe or a device has no size and might never end.
    if (!file || GetFileType(file.Get()) != FILE_TYPE_DISK || !GetFileSizeEx(file.Get(), &size)) {
        problem = L"cannot be opened: " + host::FromUtf8(host::ErrorText(GetLastError()));
        return std::nullopt;
    }
    if (static_cast<ULONGLONG>(size.QuadPart) > limit) {
        problem = L"is larger than " + std::to_wstring(limit >> 20) + L" MB";
        return std::nullopt;
    }
    std::string bytes(static_cast<size_t>(size.QuadPart), '\0');
    DWORD read = 0;
    if (!ReadFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr)) {
        problem = L"cannot be read: " + host::FromUtf8(host::ErrorText(GetLastError()));
        return std::nullopt;
    }
    bytes.resize(read);
    return bytes;
}

std::optional<SourceFile> ParseSource(const std::wstring& path, std::string_view bytes,
                                      FindingList& findings) {
    const auto refuse = [&](int line, const std::wstring& text) {
        findings.Error(path, line, text);
        return std::nullopt;
    };
    const XmlRefusal refusal = CheckXmlBounds(bytes, kExtensionFileLimits);
    const TagScan scan = ScanTags(bytes);
    if (refusal != XmlRefusal::kNone && refusal != XmlRefusal::kTooDeep) {
        const bool atDoctype = refusal == XmlRefusal::kDocumentType && scan.doctypeLine != 0;
        return refuse(atDoctype ? scan.doctypeLine : 1, std::wstring(L"the file ") + Describe(refusal));
    }
    if (bytes.empty()) return refuse(1, L"the file is empty");

    TreeBuilder builder(scan);
    if (Parse(bytes, builder)) {
        if (std::optional<SourceElement> root = builder.TakeRoot()) return SourceFile{path, std::move(*root)};
    }
    if (builder.TooDeep()) {
        return refuse(builder.FaultLine(), L"elements are nested deeper than " +
                                               std::to_wstring(kExtensionFileLimits.depth) + L" levels");
    }
    const std::wstring& fault = builder.Fault();
    const int line = LineOfFault(bytes, scan, builder.FaultLine(), fault);
    return refuse(line, L"not well-formed" + (fault.empty() ? std::wstring() : L": " + Printable(fault)));
}

}  // namespace vlm::ctl
