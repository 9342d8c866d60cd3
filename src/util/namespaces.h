// The namespaces of the documents that are read and written here, as their standards publish them.
#pragma once

namespace vlm::ns {

// The platform's Bidi schema, and the WSD print service.
inline constexpr wchar_t kBidi[] = L"http://schemas.microsoft.com/windows/2005/03/printing/bidi";
inline constexpr wchar_t kWsdPrint[] = L"http://schemas.microsoft.com/windows/2006/08/wdp/print";
inline constexpr wchar_t kGetPrinterElementsAction[] =
    L"http://schemas.microsoft.com/windows/2006/08/wdp/print/GetPrinterElements";

inline constexpr wchar_t kSoap12[] = L"http://www.w3.org/2003/05/soap-envelope";
inline constexpr wchar_t kSoap12Encoding[] = L"http://www.w3.org/2003/05/soap-encoding";
inline constexpr wchar_t kSoap11[] = L"http://schemas.xmlsoap.org/soap/envelope/";
inline constexpr wchar_t kAddressing[] = L"http://schemas.xmlsoap.org/ws/2004/08/addressing";
inline constexpr wchar_t kAddressingAnonymous[] =
    L"http://schemas.xmlsoap.org/ws/2004/08/addressing/role/anonymous";
inline constexpr wchar_t kSchema[] = L"http://www.w3.org/2001/XMLSchema";
inline constexpr wchar_t kSchemaInstance[] = L"http://www.w3.org/2001/XMLSchema-instance";
inline constexpr wchar_t kDepartmentId[] = L"http://velun.example/ns/active/deptid";
inline constexpr wchar_t kXml[] = L"http://www.w3.org/XML/1998/namespace";

}  // namespace vlm::ns
