// The namespaces of every SOAP message of ours, as their standards publish them.
#pragma once

#include <string_view>

namespace vlm::ns {

inline constexpr std::wstring_view kSoap12 = L"http://www.w3.org/2003/05/soap-envelope";
inline constexpr std::wstring_view kSoap11 = L"http://schemas.xmlsoap.org/soap/envelope/";
inline constexpr std::wstring_view kAddressing = L"http://schemas.xmlsoap.org/ws/2004/08/addressing";
inline constexpr std::wstring_view kAddressingAnonymous =
    L"http://schemas.xmlsoap.org/ws/2004/08/addressing/role/anonymous";
inline constexpr std::wstring_view kWsdPrint = L"http://schemas.microsoft.com/windows/2006/08/wdp/print";
inline constexpr std::wstring_view kGetPrinterElementsAction =
    L"http://schemas.microsoft.com/windows/2006/08/wdp/print/GetPrinterElements";
inline constexpr std::wstring_view kSoap12Encoding = L"http://www.w3.org/2003/05/soap-encoding";
inline constexpr std::wstring_view kSchema = L"http://www.w3.org/2001/XMLSchema";
inline constexpr std::wstring_view kSchemaInstance = L"http://www.w3.org/2001/XMLSchema-instance";
inline constexpr std::wstring_view kDepartmentId = L"http://velun.example/ns/active/deptid";
inline constexpr std::wstring_view kXml = L"http://www.w3.org/XML/1998/namespace";

}  // namespace vlm::ns
