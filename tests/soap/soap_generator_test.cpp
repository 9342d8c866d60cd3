#include "soap/soap_generator.h"

#include <gtest/gtest.h>

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
    SoapValue(SoapValues{SoapValue(std::uint32_t{1}), SoapValue(std::uint32_t{2})}),
    SoapValue(SoapValues{SoapValue(SoapValues{SoapValue(std::int32_t{-1}), SoapValue()})})};
const SoapValues kHeaderValues = {SoapValue(std::wstring(L"t")), SoapValue(std::wstring(L"n"))};

const std::string kStart =
    "<soap:Envelope xmlns:soap=\"http://www.w3.org/2003/05/soap-envelope\""
    " xmlns:soapenc=\"http://www.w3.org/2003/05/soap-encoding\">"
    "<soap:Header xmlns=\"urn:s&amp;\"><ticket "
    "soap:mustUnderstand=\"1\">t</ticket><note>n</note></soap:Header>";
const std::string kNil = " xsi:nil=\"1\" xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\"/>";

std::string Write(const SoapValues& record) {
    std::string out;
    return CRpcEncodedGenerator(&out).Generate(kDraw, record, kHeaderValues) ? out : "refused";
}

TEST(SoapGenerator, WritesRpcEncodedMessages) {
    EXPECT_EQ(
        Write(kRecord),
        kStart +
            "<soap:Body soap:encodingStyle=\"http://www.w3.org/2003/05/soap-encoding\">"
            "<snp:Draw xmlns:snp=\"urn:s&amp;\"><name>&lt;&#x0000E4;&gt;</name>"
            "<sizes soapenc:arrayType=\"xsd:unsignedInt[2]\" xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\">"
            "<item>1</item><item>2</item></sizes>"
            "<where soapenc:arrayType=\"q1:Point[1]\" xmlns:q1=\"urn:types\"><item><x>-1</x><y" +
            kNil + "</item></where></snp:Draw></soap:Body></soap:Envelope>");
}

TEST(SoapGenerator, RefusesARecordThatDoesNotFit) {
    const std::pair<size_t, SoapValue> rows[] = {
        {0, SoapValue(true)},
        {2, SoapValue()},
        {2, SoapValue(std::uint32_t{1})},
        {2, SoapValue(SoapValues{SoapValue(std::int32_t{1})})},
        {3, SoapValue(SoapValues{SoapValue(SoapValues{})})},
        {3, SoapValue(SoapValues{SoapValue(SoapValues{SoapValue(), SoapValue()})})},
    };
    for (const auto& [index, value] : rows) {
        SoapValues record = kRecord;
        record[index] = value;
        EXPECT_EQ(Write(record), "refused") << index;
    }
    EXPECT_EQ(Write({}), "refused");
}

}  // namespace
}  // namespace vlm
