// The lexical forms of XML Schema's languages, numbers and dates. Plain standard C++.
#pragma once

#include <string_view>

namespace vlm::xsd {

// All expect text whose white space has been dealt with.
bool IsLanguage(std::wstring_view text);
// One or more items, separated by one blank each.
bool IsList(std::wstring_view text, bool (*isItem)(std::wstring_view));

bool IsDecimal(std::wstring_view text);
// The sign that an integer's digits make: -1, 0 or 1; 2 when the text is no integer.
int SignOfInteger(std::wstring_view text);
// As for float and double, INF and NaN apart.
bool IsScientific(std::wstring_view text);

bool IsDuration(std::wstring_view text);

enum class Calendar { kDateTime, kTime, kDate, kGYearMonth, kGYear, kGMonthDay, kGDay, kGMonth };
bool IsCalendar(std::wstring_view text, Calendar form);

}  // namespace vlm::xsd
