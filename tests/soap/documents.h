// SOAP documents of the tests, and the platform's parser for them.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "util/sax.h"

namespace vlm::test {

inline const std::string kSoap12 = "http://www.w3.org/2003/05/soap-envelope";
inline const std::string kSoap11 = "http://schemas.xmlsoap.org/soap/envelope/";
inline const std::string kPrint = "http://schemas.microsoft.com/windows/2006/08/wdp/print";

inline std::string Envelope(const std::string& content) {
    return "<s:Envelope xmlns:s='" + kSoap12 + "'>" + content + "</s:Envelope>";
}
inline std::string Body(const std::string& content) {
    return Envelope("<s:Body>" + content + "</s:Body>");
}
inline std::string Envelope11(const std::string& content) {
    return "<e:Envelope xmlns:e='" + kSoap11 + "'>" + content + "</e:Envelope>";
}
inline std::string Body11(const std::string& content) {
    return Envelope11("<e:Body>" + content + "</e:Body>");
}

inline HRESULT Parse(const std::string& document, SaxHandler* handler) {
    ComPtr<ISAXXMLReader> reader;
    EXPECT_EQ(CreateSaxReader(reader.Receive()), S_OK);
    return ParseXml(reader.Get(), document, handler);
}

}  // namespace vlm::test
