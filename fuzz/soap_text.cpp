// Any text, written into a message as an attribute's value and as an element's content. A parser that is not
// ours reads the same text back and sees no other markup; a text with characters that XML does not have is no
// well-formed message, rather than another text.
#include <expat.h>

#include <string>

#include "fuzz_input.h"
#include "soap/soap_generator.h"
#include "tests/soap/utf8.h"

namespace {

using Text = std::u32string;

// As the writer is to understand it: pairs of surrogates are one character, single ones are none.
Text Characters(const std::wstring& text) {
    Text characters;
    for (const wchar_t unit : text) {
        const auto c = static_cast<char32_t>(unit);
        const bool low = c >= 0xDC00 && c <= 0xDFFF;
        if (low && !characters.empty() && characters.back() >= 0xD800 && characters.back() <= 0xDBFF)
            characters.back() = 0x10000 + (characters.back() % 0x400) * 0x400 + c % 0x400;
        else
            characters.push_back(c);
    }
    for (char32_t& c : characters)
        if (c >= 0xD800 && c <= 0xDFFF) c = 0xFFFD;
    return characters;
}

bool IsInXml(const Text& text) {
    for (const char32_t c : text) {
        const bool control = c < 0x20 && c != '\t' && c != '\n' && c != '\r';
        if (control || c == 0xFFFE || c == 0xFFFF) return false;
    }
    return true;
}

struct Seen {
    std::string attribute;
    std::string content;
    int elements = 0;
};

void OnStart(void* data, const char* name, const char** attributes) {
    Seen& seen = *static_cast<Seen*>(data);
    ++seen.elements;
    if (std::string_view(name) == "snp:Say") seen.attribute = attributes[1];
}

void OnText(void* data, const char* text, int length) {
    static_cast<Seen*>(data)->content.append(text, static_cast<size_t>(length));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr size_t kUnit = 3;  // bytes of input for one character
    std::wstring text;
    for (size_t i = 0; i + kUnit <= size; i += kUnit)
        text.push_back(static_cast<wchar_t>((data[i] << 16 | data[i + 1] << 8 | data[i + 2]) % 0x110000));

    constexpr vlm::SoapField kFields[] = {{L"text", vlm::XsdType::kString, vlm::kSoapIn}};
    const vlm::SoapOperation operation{L"Say", text, kFields, {}};
    std::string message;
    FUZZ_CHECK(vlm::CRpcEncodedGenerator(&message).Generate(operation, {vlm::SoapValue(text)}, {}));
    for (const char c : message)
        FUZZ_CHECK(c >= ' ' && c <= '~');

    Seen seen;
    const XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetUserData(parser, &seen);
    XML_SetStartElementHandler(parser, OnStart);
    XML_SetCharacterDataHandler(parser, OnText);
    const bool wellFormed =
        XML_Parse(parser, message.data(), static_cast<int>(message.size()), 1) == XML_STATUS_OK;
    XML_ParserFree(parser);

    const Text expected = Characters(text);
    FUZZ_CHECK(wellFormed == IsInXml(expected));
    if (!wellFormed) return 0;
    FUZZ_CHECK(seen.elements == 4);
    FUZZ_CHECK(seen.content == vlm::Narrow(std::wstring(expected.begin(), expected.end())));
    FUZZ_CHECK(seen.attribute == seen.content);
    return 0;
}
