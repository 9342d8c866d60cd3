// The elements of a Bidi extension file and what each may carry. packaging/bidi-extension.xsd says the same
// to editors.
//
// The platform's own port monitor for WSD reads files of this format, too, and knows more of it: these names
// are accepted, and the checker says what a reader of the file gets here instead.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace vlm::ctl {

// As the engine writes them into its answers; it matches them with regard to case.
inline constexpr std::array<std::wstring_view, 5> kTypeNames{L"BIDI_INT", L"BIDI_STRING", L"BIDI_BOOL",
                                                             L"BIDI_FLOAT", L"BIDI_BLOB"};

inline constexpr wchar_t kSchemaInstanceNamespace[] = L"http://www.w3.org/2001/XMLSchema-instance";

// Stands beside Schema and maps a printer's states to those of its port.
inline constexpr std::wstring_view kPortStatus = L"PortStatus";
// A boolean: the driver is to be told when the value changes.
inline constexpr std::wstring_view kDriverEvent = L"drvPrinterEvent";
// A boolean: of several texts, the one in the language of whoever asks.
inline constexpr std::wstring_view kLocalized = L"xmllang";
// A boolean: the printer may lack the value; the text of the Value then stands in for it.
inline constexpr std::wstring_view kOptional = L"optional";

struct ElementRule {
    std::wstring_view element;
    std::vector<std::wstring_view> required;  // attributes
    std::vector<std::wstring_view> optional;
    std::vector<std::wstring_view> children;
    std::wstring_view fixedType = {};  // what "type" must be when it is given
    bool isLeaf = false;
    bool holdsText = false;

    bool Allows(std::wstring_view attribute) const;
    bool Holds(std::wstring_view child) const;
};

// Null for a name that is not in the vocabulary.
const ElementRule* FindRule(std::wstring_view element);

// Whether an element or attribute of that name belongs to the files of the platform's TCP/IP port monitor,
// which look alike but say where a value lies by SNMP.
bool IsTcpIpName(std::wstring_view name);

// The namespace that `uri` was meant to be, when it is a well-known one written as the platform's
// documentation prints it, but not as files and printers spell it; else empty.
std::wstring MeantNamespace(std::wstring_view uri);

}  // namespace vlm::ctl
