#include "soap/xsd_lexical.h"

#include <algorithm>

namespace vlm::xsd {

namespace {

using std::wstring_view;

bool IsDigit(wchar_t c) {
    return c >= L'0' && c <= L'9';
}

bool IsLetter(wchar_t c) {
    return (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z');
}

// Text that is used up from its front.
class Cursor {
 public:
    explicit Cursor(wstring_view text) : rest_(text) {}
    bool AtEnd() const { return rest_.empty(); }
    bool Take(wchar_t c) {
        if (rest_.empty() || rest_.front() != c) return false;
        rest_.remove_prefix(1);
        return true;
    }
    bool TakeSign() { return Take(L'-') || Take(L'+'); }
    // All digits at the front.
    wstring_view Digits() {
        const auto end = std::find_if_not(rest_.begin(), rest_.end(), IsDigit);
        const wstring_view digits = rest_.substr(0, static_cast<size_t>(end - rest_.begin()));
        rest_.remove_prefix(digits.size());
        return digits;
    }
    // Exactly two digits, as a number from `least` to `most`.
    bool TwoDigits(int least, int most, int* number) {
        if (rest_.size() < 2 || !IsDigit(rest_[0]) || !IsDigit(rest_[1])) return false;
        *number = (rest_[0] - L'0') * 10 + (rest_[1] - L'0');
        rest_.remove_prefix(2);
        return *number >= least && *number <= most;
    }

 private:
    wstring_view rest_;
};

// At least four digits, no more zeros in front than make four, and not the year 0. What a leap year needs of
// it goes to `year`.
bool TakeYear(Cursor* cursor, int* year) {
    cursor->Take(L'-');
    const wstring_view digits = cursor->Digits();
    if (digits.size() < 4 || (digits.size() > 4 && digits.front() == L'0')) return false;
    // 10,000 years are a multiple of the calendar's 400.
    *year = 0;
    for (const wchar_t c : digits.substr(digits.size() - 4))
        *year = *year * 10 + (c - L'0');
    return digits.find_first_not_of(L'0') != wstring_view::npos;
}

int DaysIn(int month, int year) {
    constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return month == 2 && leap ? 29 : kDays[month - 1];
}

bool TakeTime(Cursor* cursor) {
    int hour = 0;
    int minute = 0;
    int second = 0;
    if (!cursor->TwoDigits(0, 24, &hour) || !cursor->Take(L':') || !cursor->TwoDigits(0, 59, &minute) ||
        !cursor->Take(L':') || !cursor->TwoDigits(0, 59, &second)) {
        return false;
    }
    if (cursor->Take(L'.')) {
        const wstring_view fraction = cursor->Digits();
        if (fraction.empty()) return false;
        if (hour == 24 && fraction.find_first_not_of(L'0') != wstring_view::npos) return false;
    }
    return hour < 24 || (minute == 0 && second == 0);
}

bool TakeZone(Cursor* cursor) {
    if (cursor->AtEnd() || cursor->Take(L'Z')) return true;
    int hour = 0;
    int minute = 0;
    return cursor->TakeSign() && cursor->TwoDigits(0, 14, &hour) && cursor->Take(L':') &&
           cursor->TwoDigits(0, hour == 14 ? 0 : 59, &minute);
}

// "1Y", "2M", …: numbers before units, each unit at most once, in their order. `count` is how many there
// were.
bool TakeUnits(Cursor* cursor, wstring_view units, int* count) {
    *count = 0;
    while (!cursor->AtEnd()) {
        const wstring_view digits = cursor->Digits();
        if (digits.empty()) return true;
        const bool fraction = cursor->Take(L'.');
        if (fraction && cursor->Digits().empty()) return false;
        while (!units.empty() && !cursor->Take(units.front()))
            units.remove_prefix(1);
        if (units.empty() || (fraction && units.front() != L'S')) return false;
        units.remove_prefix(1);
        ++*count;
    }
    return true;
}

}  // namespace

bool IsLanguage(wstring_view text) {
    size_t length = 0;
    bool first = true;
    for (const wchar_t c : text) {
        if (c == L'-') {
            if (length == 0) return false;
            length = 0;
            first = false;
        } else if (++length > 8 || !(IsLetter(c) || (!first && IsDigit(c)))) {
            return false;
        }
    }
    return length > 0;
}

bool IsList(wstring_view text, bool (*isItem)(wstring_view)) {
    for (;;) {
        const size_t blank = text.find(L' ');
        if (!isItem(text.substr(0, blank))) return false;
        if (blank == wstring_view::npos) return true;
        text.remove_prefix(blank + 1);
    }
}

bool IsDecimal(wstring_view text) {
    Cursor cursor(text);
    cursor.TakeSign();
    const bool before = !cursor.Digits().empty();
    const bool after = cursor.Take(L'.') && !cursor.Digits().empty();
    return (before || after) && cursor.AtEnd();
}

int SignOfInteger(wstring_view text) {
    Cursor cursor(text);
    const bool negative = cursor.Take(L'-');
    if (!negative) cursor.Take(L'+');
    const wstring_view digits = cursor.Digits();
    if (digits.empty() || !cursor.AtEnd()) return 2;
    if (digits.find_first_not_of(L'0') == wstring_view::npos) return 0;
    return negative ? -1 : 1;
}

bool IsScientific(wstring_view text) {
    const size_t exponent = text.find_first_of(L"eE");
    if (!IsDecimal(text.substr(0, exponent))) return false;
    return exponent == wstring_view::npos || SignOfInteger(text.substr(exponent + 1)) != 2;
}

bool IsDuration(wstring_view text) {
    Cursor cursor(text);
    cursor.Take(L'-');
    int days = 0;
    int time = 0;
    if (!cursor.Take(L'P') || !TakeUnits(&cursor, L"YMD", &days)) return false;
    if (cursor.Take(L'T') && (!TakeUnits(&cursor, L"HMS", &time) || time == 0)) return false;
    return days + time > 0 && cursor.AtEnd();
}

bool IsCalendar(wstring_view text, Calendar form) {
    Cursor cursor(text);
    // Without a year, February has the days of a leap year.
    int year = 4;
    int month = 1;
    int day = 1;
    bool good = true;
    switch (form) {
        case Calendar::kTime:
            return TakeTime(&cursor) && TakeZone(&cursor) && cursor.AtEnd();
        case Calendar::kDateTime:
        case Calendar::kDate:
            good = TakeYear(&cursor, &year) && cursor.Take(L'-') && cursor.TwoDigits(1, 12, &month) &&
                   cursor.Take(L'-') && cursor.TwoDigits(1, 31, &day);
            break;
        case Calendar::kGYearMonth:
            good = TakeYear(&cursor, &year) && cursor.Take(L'-') && cursor.TwoDigits(1, 12, &month);
            break;
        case Calendar::kGYear:
            good = TakeYear(&cursor, &year);
            break;
        case Calendar::kGMonthDay:
            good = cursor.Take(L'-') && cursor.Take(L'-') && cursor.TwoDigits(1, 12, &month) &&
                   cursor.Take(L'-') && cursor.TwoDigits(1, 31, &day);
            break;
        case Calendar::kGDay:
            good =
                cursor.Take(L'-') && cursor.Take(L'-') && cursor.Take(L'-') && cursor.TwoDigits(1, 31, &day);
            break;
        case Calendar::kGMonth:
            good = cursor.Take(L'-') && cursor.Take(L'-') && cursor.TwoDigits(1, 12, &month);
            break;
    }
    if (!good || day > DaysIn(month, year)) return false;
    if (form == Calendar::kDateTime && !(cursor.Take(L'T') && TakeTime(&cursor))) return false;
    return TakeZone(&cursor) && cursor.AtEnd();
}

}  // namespace vlm::xsd
