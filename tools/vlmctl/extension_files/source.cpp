#include "tools/vlmctl/extension_files/source.h"

#include <algorithm>

#include "tools/vlmctl/console/command.h"
#include "tools/vlmctl/console/input.h"
#include "util/handles.h"
#include "util/sax.h"
#include "util/streams.h"
#include "util/text.h"
#include "util/trace.h"
#include "util/xml_bounds.h"

namespace vlm::ctl {

namespace {

// Where start tags begin, found by one pass over the text.
struct TagScan {
    std::vector<size_t> starts;     // one for each start tag, in order
    std::optional<size_t> doctype;  // where one stands
};

bool IsUtf16(std::string_view bytes) {
    return bytes.substr(0, 2) == "\xFF\xFE" || bytes.substr(0, 2) == "\xFE\xFF";
}

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
// Stands for the second unit of a pair.
constexpr char kSecondHalf = '\x80';

std::string FromUtf16(std::string_view bytes) {
    const bool little = bytes.front() == '\xFF';
    std::string ascii;
    ascii.reserve(bytes.size() / 2);
    for (size_t i = 2; i + 1 < bytes.size(); i += 2) {
        const char low = little ? bytes[i] : bytes[i + 1];
        const auto high = static_cast<unsigned char>(little ? bytes[i + 1] : bytes[i]);
        const bool secondHalf = high >= 0xDC && high <= 0xDF;
        ascii.push_back(high == 0 && low >= 0 ? low : secondHalf ? kSecondHalf : '?');
    }
    return ascii;
}

// Whether the XML declaration names an encoding of one byte for each character.
bool DeclaresBytes(std::string_view text) {
    if (!text.starts_with("<?xml")) return false;
    const std::string_view declaration = text.substr(0, text.find("?>"));
    const size_t name = declaration.find("encoding");
    if (name == std::string_view::npos) return false;
    const size_t quote = declaration.find_first_of("\"'", name);
    if (quote == std::string_view::npos) return false;
    const std::string_view value = declaration.substr(quote + 1);
    return _strnicmp(value.data(), "utf", std::min<size_t>(3, value.size())) != 0;
}

TagScan ScanTags(const std::string& text) {
    TagScan scan;
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
            if (!scan.doctype) scan.doctype = position;
            ++position;
        } else {
            // A '<' cannot stand in an attribute value, so the next one begins the next piece of markup.
            if (!startsWith(position, "</")) scan.starts.push_back(position);
            ++position;
        }
        position = text.find('<', position);
    }
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
    TreeBuilder(const SourceText& text, const TagScan& scan) : text_(text), scan_(scan) {}

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
            if (count_ < scan_.starts.size()) element.tag = scan_.starts[count_];
            ++count_;
            lastLine_ = text_.LineOf(element.tag);
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

    const SourceText& text_;
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

// The place of a fault that the parser met at or behind `line`. A parser's position may stand at the last
// piece that was in order, lines before the fault; so the fault's place is the first one up to which the text
// shows that same fault.
Place PlaceOfFault(std::string_view bytes, const SourceText& text, const TagScan& scan, int line,
                   const std::wstring& fault) {
    const auto showsFault = [&](size_t end) {
        TreeBuilder builder(text, scan);
        return !Parse(bytes.substr(0, text.BytesBefore(end)), builder) && builder.Fault() == fault;
    };
    // The least number above `low` whose text shows the fault, when that of `high` does.
    const auto bisect = [&](size_t low, size_t high, auto endOf) {
        while (high - low > 1) {
            const size_t middle = low + (high - low) / 2;
            (showsFault(endOf(middle)) ? high : low) = middle;
        }
        return high;
    };
    const size_t end = text.Characters().size();
    const size_t before = text.StartOf(std::min(static_cast<size_t>(line), text.Lines()) - 1);
    // A text that shows its fault wherever it is cut ends too early: the fault is at its end.
    if (showsFault(before == 0 ? 1 : before)) return text.At(end);
    const size_t lines = bisect(static_cast<size_t>(text.LineOf(before)) - 1, text.Lines(),
                                [&](size_t count) { return text.StartOf(count); });
    const size_t start = text.StartOf(lines - 1);
    return text.At(bisect(start, text.StartOf(lines), [](size_t position) { return position; }) - 1);
}

// A file with what came on standard input, for readers that take paths. The system removes it when the handle
// is closed, however the process ends.
class StandardInputCopy {
 public:
    StandardInputCopy() : path_(MAX_PATH, L'\0') {
        const std::string bytes = ReadInput("-", kExtensionFileLimits.bytes);
        wchar_t folder[MAX_PATH + 1];
        if (GetTempPathW(MAX_PATH + 1, folder) == 0 || GetTempFileNameW(folder, L"vlm", 0, path_.data()) == 0)
            Fail();
        path_.resize(path_.find(L'\0'));
        file_.Reset(CreateFileW(path_.c_str(), GENERIC_WRITE | DELETE, FILE_SHARE_READ | FILE_SHARE_DELETE,
                                nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE,
                                nullptr));
        DWORD written = 0;
        if (!file_ ||
            !WriteFile(file_.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr))
            Fail();
    }
    const std::wstring& Path() const { return path_; }

 private:
    [[noreturn]] static void Fail() {
        throw CommandError("standard input cannot be kept in a temporary file: " + ErrorText(GetLastError()));
    }

    std::wstring path_;
    File file_;
};
std::unique_ptr<StandardInputCopy> standardInput;

bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

}  // namespace

SourceText::SourceText(std::string_view bytes) {
    if (IsUtf16(bytes)) {
        units_ = Units::kUtf16;
        characters_ = FromUtf16(bytes);
    } else {
        characters_ = bytes;
        if (DeclaresBytes(bytes)) units_ = Units::kBytes;
    }
    lineStarts_.push_back(characters_.starts_with(kUtf8Mark) ? kUtf8Mark.size() : 0);
    for (size_t i = characters_.find('\n'); i != std::string::npos; i = characters_.find('\n', i + 1)) {
        if (i + 1 < characters_.size()) lineStarts_.push_back(i + 1);
    }
}

size_t SourceText::StartOf(size_t line) const {
    return line < lineStarts_.size() ? lineStarts_[line] : characters_.size();
}

size_t SourceText::BytesBefore(size_t position) const {
    return units_ == Units::kUtf16 ? 2 + 2 * position : position;
}

int SourceText::LineOf(size_t position) const {
    const auto behind = std::upper_bound(lineStarts_.begin() + 1, lineStarts_.end(), position);
    return static_cast<int>(behind - lineStarts_.begin());
}

Place SourceText::At(size_t position) const {
    Place place{LineOf(position), 1};
    for (size_t i = StartOf(static_cast<size_t>(place.line) - 1); i < std::min(position, characters_.size());
         ++i) {
        if (Begins(i)) ++place.column;
    }
    return place;
}

bool SourceText::Begins(size_t position) const {
    return units_ == Units::kBytes || (static_cast<unsigned char>(characters_[position]) & 0xC0) != 0x80;
}

size_t SourceText::Utf16Units(size_t position) const {
    if (units_ != Units::kUtf8) return 1;
    if (!Begins(position)) return 0;
    return static_cast<unsigned char>(characters_[position]) >= 0xF0 ? 2 : 1;
}

std::optional<SourceText::Attribute> SourceText::Find(size_t tag, std::wstring_view attribute) const {
    const std::string wanted = ToUtf8(std::wstring(attribute));
    const std::string& text = characters_;
    const auto skip = [&](size_t position, auto passes) {
        while (position < text.size() && passes(text[position]))
            ++position;
        return position;
    };
    const auto inName = [](char c) { return !IsBlank(c) && c != '=' && c != '>' && c != '/'; };
    size_t position = skip(tag, inName);
    for (;;) {
        const size_t name = skip(position, [](char c) { return IsBlank(c); });
        const size_t nameEnd = skip(name, inName);
        const size_t quote = text.find_first_of("\"'", nameEnd);
        if (nameEnd == name || quote == std::string::npos) return std::nullopt;
        if (std::string_view(text).substr(name, nameEnd - name) == wanted) return Attribute{name, quote + 1};
        const size_t end = text.find(text[quote], quote + 1);
        if (end == std::string::npos) return std::nullopt;
        position = end + 1;
    }
}

Place SourceText::OfAttribute(size_t tag, std::wstring_view attribute) const {
    const std::optional<Attribute> found = Find(tag, attribute);
    return At(found ? found->name : tag);
}

Place SourceText::InAttribute(size_t tag, std::wstring_view attribute, size_t character) const {
    const std::optional<Attribute> found = Find(tag, attribute);
    if (!found) return At(tag);
    const char quote = characters_[found->value - 1];
    size_t position = found->value;
    for (size_t passed = 0; position < characters_.size() && characters_[position] != quote;) {
        size_t units = Utf16Units(position);
        size_t next = position + 1;
        if (characters_[position] == '&') {
            next = std::min(characters_.find(';', position), characters_.size() - 1) + 1;
            const std::string reference = characters_.substr(position, next - position);
            const bool hex = reference.starts_with("&#x");
            const bool number = reference.starts_with("&#");
            const unsigned long code =
                number ? std::strtoul(reference.c_str() + (hex ? 3 : 2), nullptr, hex ? 16 : 10) : 0;
            units = code > 0xFFFF ? 2 : 1;
        } else if (characters_.compare(position, 2, "\r\n") == 0) {
            next = position + 2;
        }
        passed += units;
        if (passed > character) break;
        position = next;
    }
    return At(position);
}

Place SourceFile::PlaceOf(const Spot& spot) const {
    if (spot.attribute.empty()) return text->At(spot.element.tag);
    if (spot.character) return text->InAttribute(spot.element.tag, spot.attribute, *spot.character);
    return text->OfAttribute(spot.element.tag, spot.attribute);
}

const std::wstring* SourceElement::Attribute(std::wstring_view attribute) const {
    const auto found =
        std::find_if(attributes.begin(), attributes.end(),
                     [&](const SourceAttribute& candidate) { return candidate.name == attribute; });
    return found == attributes.end() ? nullptr : &found->value;
}

std::wstring PathOfInput(const std::wstring& file) {
    if (file != L"-") return file;
    if (!standardInput) standardInput = std::make_unique<StandardInputCopy>();
    return standardInput->Path();
}

std::wstring WithNamesOfInput(std::wstring text) {
    if (!standardInput) return text;
    const std::wstring& path = standardInput->Path();
    for (size_t at = text.find(path); at != std::wstring::npos; at = text.find(path, at + 1))
        text.replace(at, path.size(), L"-");
    return text;
}

std::optional<std::string> ReadFileBytes(const std::wstring& path, size_t limit, std::wstring& problem) {
    constexpr DWORD kShare = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const File file(CreateFileW(PathOfInput(path).c_str(), GENERIC_READ, kShare, nullptr, OPEN_EXISTING,
                                FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    LARGE_INTEGER size{};
    // A pipe or a device has no size and might never end.
    if (!file || GetFileType(file.Get()) != FILE_TYPE_DISK || !GetFileSizeEx(file.Get(), &size)) {
        problem = L"cannot be opened: " + FromUtf8(ErrorText(GetLastError()));
        return std::nullopt;
    }
    if (static_cast<ULONGLONG>(size.QuadPart) > limit) {
        problem = L"is larger than " + std::to_wstring(limit >> 20) + L" MB";
        return std::nullopt;
    }
    std::string bytes(static_cast<size_t>(size.QuadPart), '\0');
    DWORD read = 0;
    if (!ReadFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr)) {
        problem = L"cannot be read: " + FromUtf8(ErrorText(GetLastError()));
        return std::nullopt;
    }
    bytes.resize(read);
    return bytes;
}

std::optional<SourceFile> ParseSource(const std::wstring& path, std::string_view bytes,
                                      FindingList& findings) {
    const auto text = std::make_shared<const SourceText>(bytes);
    const auto refuse = [&](Place place, Rule rule, const std::wstring& what) {
        findings.Add(path, place, rule, what);
        return std::nullopt;
    };
    const XmlRefusal refusal = CheckXmlBounds(bytes, kExtensionFileLimits);
    const TagScan scan = ScanTags(text->Characters());
    if (refusal != XmlRefusal::kNone && refusal != XmlRefusal::kTooDeep) {
        const bool atDoctype = refusal == XmlRefusal::kDocumentType && scan.doctype;
        return refuse(atDoctype ? text->At(*scan.doctype) : Place(), Rule::kBeyondLimits,
                      std::wstring(L"the file ") + Describe(refusal));
    }
    if (bytes.empty()) return refuse({}, Rule::kNotWellFormed, L"the file is empty");

    TreeBuilder builder(*text, scan);
    if (Parse(bytes, builder)) {
        if (std::optional<SourceElement> root = builder.TakeRoot())
            return SourceFile{path, text, std::move(*root)};
    }
    if (builder.TooDeep()) {
        return refuse(
            {builder.FaultLine(), 1}, Rule::kBeyondLimits,
            L"elements are nested deeper than " + std::to_wstring(kExtensionFileLimits.depth) + L" levels");
    }
    const std::wstring& fault = builder.Fault();
    return refuse(PlaceOfFault(bytes, *text, scan, builder.FaultLine(), fault), Rule::kNotWellFormed,
                  L"not well-formed" + (fault.empty() ? std::wstring() : L": " + Printable(fault)));
}

}  // namespace vlm::ctl
