#include "soap/soap_generator.h"

#include <expat.h>
#include <gtest/gtest.h>

#include <random>

namespace vlm {
namespace {

constexpr SoapField kPointFields[] = {{L"x", XsdType::kInt}, {L"y", XsdType::kInt, kSoapNullable}};
constexpr SoapUserType kPoint{L"Point", L"urn:types", kPointFields};
constexpr SoapField kFields[] = {{L"name", XsdType::kString, kSoapIn | kSoapNullable},
                                 {L"answer", XsdType::kBoolean, kSoapOut},
                                 {L"sizes", XsdType::kUnsignedInt, kSoapIn | kSoapArray},
                                 {L"where", XsdType::kString, kSoapIn | kSoapArray, &kPoint}};
constexpr SoapField kHeaders[] = {{L"ticket", XsdType::kString, kSoapMustUnderstand},
                                  {L"note", XsdType::kString}};
constexpr SoapOperation kDraw{L"Draw", L"urn:s&", kFields, kHeaders};

const SoapValues kRecord = {
    SoapValue(std::wstring(L"<\u00e4>")), SoapValue(),
    SoapValue(SoapValues{SoapValue(std::uint64_t{1}), SoapValue(std::uint64_t{2})}),
    SoapValue(SoapValues{SoapValue(SoapValues{SoapValue(std::int64_t{-1}), SoapValue()})})};
const SoapValues kHeaderValues = {SoapValue(std::wstring(L"t")), SoapValue(std::wstring(L"n"))};

const std::string kStart =
    "<soap:Envelope xmlns:soap=\"http://www.w3.org/2003/05/soap-envelope\""
    " xmlns:soapenc=\"http://www.w3.org/2003/05/soap-encoding\">"
    "<soap:Header xmlns=\"urn:s&amp;\"><ticket "
    "soap:mustUnderstand=\"1\">t</ticket><note>n</note></soap:Header>";
const std::string kNil = " xsi:nil=\"1\" xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\"/>";

std::string Write(const CResponseGenerator& generator, const SoapValues& record = kRecord) {
    std::string out;
    return generator.Generate(kDraw, record, kHeaderValues, &out) ? out : "refused";
}

TEST(SoapGenerator, WritesRpcEncodedMessages) {
    EXPECT_EQ(
        Write(CRpcEncodedGenerator()),
        kStart +
            "<soap:Body soap:encodingStyle=\"http://www.w3.org/2003/05/soap-encoding\">"
            "<snp:Draw xmlns:snp=\"urn:s&amp;\"><name>&lt;&#x0000E4;&gt;</name>"
            "<sizes soapenc:arrayType=\"xsd:unsignedInt[2]\" xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\">"
            "<item>1</item><item>2</item></sizes>"
            "<where soapenc:arrayType=\"q1:Point[1]\" xmlns:q1=\"urn:types\"><item><x>-1</x><y" +
            kNil + "</item></where></snp:Draw></soap:Body></soap:Envelope>");
}

TEST(SoapGenerator, WritesDocumentsInBothStyles) {
    SoapValues record = kRecord;
    record[0] = record[2] = record[3] = SoapValue(SoapValues());
    record[0] = SoapValue();
    EXPECT_EQ(Write(CPADGenerator(), record),
              kStart + "<soap:Body><Draw xmlns=\"urn:s&amp;\"><name" + kNil +
                  "<sizes></sizes><where></where></Draw></soap:Body></soap:Envelope>");
    EXPECT_EQ(Write(CPIDGenerator(), record),
              kStart + "<soap:Body><name xmlns=\"urn:s&amp;\"" + kNil +
                  "<sizes xmlns=\"urn:s&amp;\"></sizes><where "
                  "xmlns=\"urn:s&amp;\"></where></soap:Body></soap:Envelope>");
}

TEST(SoapGenerator, RefusesARecordThatDoesNotFit) {
    const std::pair<size_t, SoapValue> rows[] = {
        {0, SoapValue(true)},
        {2, SoapValue()},
        {2, SoapValue(std::uint64_t{1})},
        {2, SoapValue(SoapValues{SoapValue(std::int64_t{1})})},
        {3, SoapValue(SoapValues{SoapValue(SoapValues{})})},
        {3, SoapValue(SoapValues{SoapValue(SoapValues{SoapValue(), SoapValue()})})},
    };
    for (const auto& [index, value] : rows) {
        SoapValues record = kRecord;
        record[index] = value;
        EXPECT_EQ(Write(CRpcEncodedGenerator(), record), "refused") << index;
    }
    EXPECT_EQ(Write(CRpcEncodedGenerator(), {}), "refused");
}

// What a real parser reads in the first element called "name".
std::wstring ReadBack(const std::string& document) {
    struct State {
        bool inName = false;
        std::string text;
    } state;
    const XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetUserData(parser, &state);
    XML_SetElementHandler(
        parser,
        [](void* data, const char* name, const char**) {
            static_cast<State*>(data)->inName = std::string_view(name) == "name";
        },
        [](void* data, const char*) { static_cast<State*>(data)->inName = false; });
    XML_SetCharacterDataHandler(parser, [](void* data, const char* text, int length) {
        if (static_cast<State*>(data)->inName)
            static_cast<State*>(data)->text.append(text, static_cast<size_t>(length));
    });
    EXPECT_EQ(XML_Parse(parser, document.data(), static_cast<int>(document.size()), 1), XML_STATUS_OK)
        << document;
    XML_ParserFree(parser);
    // UTF-8 to characters.
    std::wstring text;
    for (size_t i = 0; i < state.text.size();) {
        const auto byte = static_cast<unsigned char>(state.text[i]);
        const size_t length = byte < 0x80 ? 1 : byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4;
        unsigned c = length == 1 ? byte : byte & (0x7Fu >> length);
        for (size_t k = 1; k < length; ++k)
            c = c << 6 | (static_cast<unsigned char>(state.text[i + k]) & 0x3Fu);
        text += static_cast<wchar_t>(c);
        i += length;
    }
    return text;
}

TEST(SoapGenerator, WritesTextThatAParserReadsBackUnchanged) {
    std::mt19937 random(3);
    const unsigned special[] = {'&',  '<',  '>', '"',  '\'', ' ',    '\t',
                                '\r', '\n', ']', 0x7F, 0x85, 0x2028, 0xFFFD};
    for (int round = 0; round < 300; ++round) {
        std::wstring text;
        for (size_t i = random() % 30; i > 0; --i) {
            auto c = static_cast<unsigned>(random());
            c = c % 4 < 2 ? special[c / 4 % std::size(special)]
                          : 0x20 + c / 4 % (c % 4 == 2 ? 0x5F : 0x10FFDF);
            const bool noCharacter = (c >= 0xD800 && c <= 0xDFFF) || c == 0xFFFE || c == 0xFFFF;
            text += static_cast<wchar_t>(noCharacter ? 'x' : c);
        }
        SoapValues record = kRecord;
        record[0] = SoapValue(text);
        ASSERT_EQ(ReadBack(Write(CRpcEncodedGenerator(), record)), text);
    }
}

}  // namespace
}  // namespace vlm
