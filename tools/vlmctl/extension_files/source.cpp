#include "tools/vlmctl/extension_files/source.h"

#include <algorithm>

#include "tools/vlmctl/console/command.h"
#include "tools/vlmctl/console/files.h"
#include "util/handles.h"
#include "util/outcome.h"
#include "util/sax.h"
#include "util/scope_exit.h"
#include "util/text.h"
#include "util/trace.h"
#include "util/xml_bounds.h"
#include "util/xml_markup.h"
#include "util/xml_names.h"

namespace vlm::ctl {

namespace {

// Where markup stands, found by one pass over the text.
struct TagScan {
    std::vector<size_t> starts;     // of start tags, in order
    std::optional<size_t> doctype;  // of the first declaration
    size_t tooDeep = 0;             // of the first start tag beyond the depth allowed
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
    size_t depth = 0;
    MarkupReader reader(text, text.size());
    while (const std::optional<Markup> markup = reader.Next()) {
        const auto position = static_cast<size_t>(markup->text.data() - text.data());
        if (markup->kind == MarkupKind::kDeclaration && !scan.doctype) scan.doctype = position;
        if (markup->kind == MarkupKind::kEndTag && depth > 0) --depth;
        if (markup->kind != MarkupKind::kStartTag && markup->kind != MarkupKind::kEmptyTag) continue;
        scan.starts.push_back(position);
        if (depth >= kExtensionFileLimits.depth && scan.tooDeep == 0) scan.tooDeep = position;
        if (markup->kind == MarkupKind::kStartTag) ++depth;
    }
    return scan;
}

class TreeBuilder final : public SaxHandler {
 public:
    TreeBuilder(const SourceText& text, const TagScan& scan) : text_(text), scan_(scan) {}

    std::optional<SourceElement> TakeRoot() { return std::move(root_); }
    // Of the element that started last.
    int LastLine() const { return lastLine_; }

 private:
    HRESULT OnPrefix(std::wstring_view prefix, std::wstring_view uri) override {
        pending_[std::wstring(prefix)] = uri;
        return S_OK;
    }
    HRESULT OnStart(const XmlName& name, const XmlAttributes& attributes) override {
        SourceElement element;
        element.name = name.qualified;
        element.namespaceUri = name.uri;
        element.declarations.swap(pending_);
        if (count_ < scan_.starts.size()) element.tag = scan_.starts[count_];
        ++count_;
        element.line = lastLine_ = text_.LineOf(element.tag);
        for (const XmlAttribute& attribute : attributes)
            element.attributes.push_back(
                {std::wstring(attribute.name.qualified), std::wstring(attribute.value)});
        open_.push_back(std::move(element));
        return S_OK;
    }
    HRESULT OnEnd(const XmlName&) override {
        SourceElement element = std::move(open_.back());
        open_.pop_back();
        element.text = TrimXmlSpace(element.text);
        if (open_.empty()) {
            root_ = std::move(element);
        } else {
            open_.back().children.push_back(std::move(element));
        }
        return S_OK;
    }
    HRESULT OnText(std::wstring_view text) override {
        if (!open_.empty()) open_.back().text += text;
        return S_OK;
    }

    const SourceText& text_;
    const TagScan& scan_;
    std::map<std::wstring, std::wstring> pending_;  // declarations of the element that starts next
    std::vector<SourceElement> open_;               // the path from the root to where the parser stands
    std::optional<SourceElement> root_;
    size_t count_ = 0;
    int lastLine_ = 1;
};

#if defined(__GNUC__)
// COM interfaces have no virtual destructors by design; objects are not deleted through them.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
#endif
// The first fault that the parser reports; those after it follow from it. An object of the caller's scope.
class FirstFault final : public ISAXErrorHandler {
 public:
    const std::wstring& Message() const { return message_; }
    int Line() const { return line_; }  // 0: unknown

 private:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override {
        if (object == nullptr) return E_POINTER;
        const bool known = id == IID_IUnknown || id == msxml::kISAXErrorHandler;
        *object = known ? static_cast<ISAXErrorHandler*>(this) : nullptr;
        return known ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE error(ISAXLocator* locator, const wchar_t* message, HRESULT) override {
        return GuardHresult([&]() -> HRESULT {
            if (known_) return S_OK;
            known_ = true;
            if (locator != nullptr) locator->getLineNumber(&line_);
            message_ = message != nullptr ? message : L"";
            message_.erase(message_.find_last_not_of(L"\r\n") + 1);
            return S_OK;
        });
    }
    HRESULT STDMETHODCALLTYPE fatalError(ISAXLocator* locator, const wchar_t* message, HRESULT hr) override {
        return error(locator, message, hr);
    }
    HRESULT STDMETHODCALLTYPE ignorableWarning(ISAXLocator*, const wchar_t*, HRESULT) override {
        return S_OK;
    }

    bool known_ = false;
    int line_ = 0;
    std::wstring message_;
};
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

bool Parse(std::string_view bytes, SaxHandler& handler, FirstFault& fault) {
    ComPtr<ISAXXMLReader> reader;
    if (CreateSaxReader(reader.Receive()) != S_OK || reader->putErrorHandler(&fault) != S_OK) return false;
    const ScopeExit detach([&] { reader->putErrorHandler(nullptr); });
    return ParseReadyXml(reader.Get(), bytes, &handler) == S_OK;
}

// The place of a fault that the parser met at or behind `line`. A parser's position may stand at the last
// piece that was in order, lines before the fault; so the fault's place is the first one up to which the text
// shows that same fault.
Place PlaceOfFault(std::string_view bytes, const SourceText& text, const TagScan& scan, int line,
                   const std::wstring& message) {
    const auto showsFault = [&](size_t end) {
        TreeBuilder builder(text, scan);
        FirstFault fault;
        return !Parse(bytes.substr(0, text.BytesBefore(end)), builder, fault) && fault.Message() == message;
    };
    // The least number above `low` whose text shows the fault, when that of `high` does.
    const auto bisect = [&](size_t low, size_t high, auto endOf) {
        while (high - low > 1) {
            const size_t middle = low + (high - low) / 2;
            (showsFault(endOf(middle)) ? high : low) = middle;
        }
        return high;
    };
    const size_t before = std::min(static_cast<size_t>(line), text.Lines()) - 1;
    // A text that shows its fault wherever it is cut ends too early: the fault is at its end.
    if (showsFault(std::max<size_t>(text.StartOf(before), 1))) return text.At(text.Characters().size());
    // First to a line: a cut inside an attribute's value shows the fault of a value without an end.
    const size_t lines = bisect(before, text.Lines(), [&](size_t count) { return text.StartOf(count); });
    return text.At(
        bisect(text.StartOf(lines - 1), text.StartOf(lines), [](size_t position) { return position; }) - 1);
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
    const std::string_view text = characters_;
    constexpr char kNameEnd[] = " \t\r\n=>/";
    for (size_t end = text.find_first_of(kNameEnd, tag); end != text.npos;) {
        const size_t name = text.find_first_not_of(" \t\r\n", end);
        const size_t nameEnd = text.find_first_of(kNameEnd, name);
        const size_t quote = text.find_first_of("\"'", nameEnd);
        if (nameEnd == name || quote == text.npos) break;
        if (text.substr(name, nameEnd - name) == wanted) return Attribute{name, quote + 1};
        end = text.find(text[quote], quote + 1);
        if (end != text.npos) ++end;
    }
    return std::nullopt;
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
    const auto found = std::ranges::find_if(
        attributes, [&](const SourceAttribute& candidate) { return candidate.name == attribute; });
    return found == attributes.end() ? nullptr : &found->value;
}

std::wstring SourceElement::Value(std::wstring_view attribute) const {
    const std::wstring* value = Attribute(attribute);
    return value != nullptr ? *value : std::wstring();
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
    const File file = OpenToRead(PathOfInput(path));
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
    if (refusal == XmlRefusal::kTooDeep) {
        return refuse(
            {text->LineOf(scan.tooDeep), 1}, Rule::kBeyondLimits,
            L"elements are nested deeper than " + std::to_wstring(kExtensionFileLimits.depth) + L" levels");
    }
    if (refusal != XmlRefusal::kNone) {
        const bool atDoctype = refusal == XmlRefusal::kDocumentType && scan.doctype;
        return refuse(atDoctype ? text->At(*scan.doctype) : Place(), Rule::kBeyondLimits,
                      std::wstring(L"the file ") + RefusalText(refusal));
    }
    if (bytes.empty()) return refuse({}, Rule::kNotWellFormed, L"the file is empty");

    TreeBuilder builder(*text, scan);
    FirstFault fault;
    if (Parse(bytes, builder, fault)) {
        if (std::optional<SourceElement> root = builder.TakeRoot())
            return SourceFile{path, text, std::move(*root)};
    }
    const int line = fault.Line() > 0 ? fault.Line() : builder.LastLine();
    const std::wstring& message = fault.Message();
    return refuse(PlaceOfFault(bytes, *text, scan, line, message), Rule::kNotWellFormed,
                  L"not well-formed" + (message.empty() ? std::wstring() : L": " + Printable(message)));
}

}  // namespace vlm::ctl
