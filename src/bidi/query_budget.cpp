#include "bidi/query_budget.h"

#include "bidi/engine_error.h"
#include "util/trace.h"

namespace vlm {

namespace {

struct Limit {
    size_t amount;
    const wchar_t* name;
};

// In the order of Expense. The largest real extension files have some thousand leaves, the largest real
// answers make some thousand instances of them and search a tenth of what is allowed here.
constexpr Limit kLimits[] = {{16u << 20, L"bytes of extension files"},
                             {100'000, L"elements of extension files"},
                             {100'000, L"elements that parameters make"},
                             {8u << 20, L"characters that parameters bring"},
                             {100'000'000, L"units of searching the printer's answer"},
                             {250'000, L"entries of the response"},
                             {8u << 20, L"characters of the response"}};
static_assert(std::size(kLimits) == kExpenses);
constexpr size_t kLongestCause = 1024;
constexpr double kLongestSearch = 20'000'000;

// Reading the processor time costs as much as running a filter.
constexpr std::chrono::milliseconds kLookEvery{100};

std::chrono::nanoseconds ProcessorTimeOfThread() {
    FILETIME created, ended, kernel, user;
    if (!GetThreadTimes(GetCurrentThread(), &created, &ended, &kernel, &user)) return {};
    constexpr int kNanosecondsEach = 100;
    const auto value = [](const FILETIME& time) {
        return static_cast<long long>(ULARGE_INTEGER{{time.dwLowDateTime, time.dwHighDateTime}}.QuadPart);
    };
    return std::chrono::nanoseconds(kNanosecondsEach * (value(kernel) + value(user)));
}

[[noreturn]] void Fail(const std::wstring& limit, const std::wstring& cause) {
    ThrowEngineError(HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_QUOTA),
                     limit + L": " + Printable(cause, kLongestCause));
}

}  // namespace

QueryBudget::QueryBudget(std::chrono::milliseconds longestWork)
    : longestWork_(longestWork),
      begin_(ProcessorTimeOfThread()),
      nextLook_(std::chrono::steady_clock::now() + kLookEvery) {
    for (size_t i = 0; i < kExpenses; ++i)
        left_[i] = kLimits[i].amount;
}

void QueryBudget::SpendSearch(double work, const SchemaElement& cause) {
    CheckTime(cause);
    if (work > kLongestSearch)
        Fail(L"one search of the printer's answer would take more than " +
                 std::to_wstring(static_cast<int>(kLongestSearch)) + L" units",
             DescribeElement(cause));
    Spend(Expense::kSearch, static_cast<size_t>(work), cause);
}

bool QueryBudget::IsLate() {
    const auto now = std::chrono::steady_clock::now();
    if (now < nextLook_) return false;
    nextLook_ = now + kLookEvery;
    return ProcessorTimeOfThread() - begin_ > longestWork_;
}

void QueryBudget::RunOut(Expense expense, const std::wstring& cause) {
    const Limit& limit = kLimits[static_cast<size_t>(expense)];
    Fail(L"a query may use at most " + std::to_wstring(limit.amount) + L" " + limit.name, cause);
}

void QueryBudget::RunOutOfTime(const std::wstring& cause) const {
    Fail(L"a query may work for at most " + std::to_wstring(longestWork_.count()) + L" ms", cause);
}

std::wstring DescribeElement(const SchemaElement& element) {
    std::wstring text = Printable(element.tag);
    if (element.name) text += L" \"" + Printable(*element.name) + L'"';
    if (element.filter) text += L" with the filter \"" + Printable(*element.filter) + L'"';
    if (element.file != nullptr) text += L" in " + Printable(*element.file, MAX_PATH);
    return text;
}

}  // namespace vlm
