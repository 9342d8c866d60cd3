// What one query may use of the process that it runs in. How much work a query is, extension files and
// printers decide; the budget decides how much of it is done.
//
// The engine makes one budget for a query and hands it down to every step, which spends where it causes work.
// Running out throws CComErrorEx(ERROR_NOT_ENOUGH_QUOTA as an HRESULT), with a reason that names what ran
// out and the file, element or path at which it did. An object belongs to one thread.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <string>

#include "bidi/schema_tree.h"

namespace vlm {

enum class Expense {
    kFileBytes,       // of extension files
    kSchemaElements,  // in extension files
    kInstances,       // elements that parameters make of them
    kBoundText,       // characters of parameters' values, and of the names and filters made with them
    kSearch,          // in the printer's answer, in units of filter_cost.h
    kEntries,         // of the response
    kAnswerText,      // characters of the response's paths and values
    kCount,
};
inline constexpr size_t kExpenses = static_cast<size_t>(Expense::kCount);

// "Value "Level" with the filter "pri:X/pri:Y" in C:\a.xml", printable.
std::wstring DescribeElement(const SchemaElement& element);

class QueryBudget {
 public:
    // Of the processor: what a query costs does not depend on how busy the machine is, nor on the printer.
    static constexpr std::chrono::milliseconds kLongestWork{7000};

    explicit QueryBudget(std::chrono::milliseconds longestWork = kLongestWork);

    // The cause is a path, of a file or of the schema, or an element.
    template <typename Cause>
    void Spend(Expense expense, size_t amount, const Cause& cause) {
        size_t& left = left_[static_cast<size_t>(expense)];
        if (amount > left) RunOut(expense, CauseText(cause));
        left -= amount;
    }
    // A single search cannot be stopped, so it has a bound of its own. Checks the time, too.
    void SpendSearch(double work, const SchemaElement& cause);
    template <typename Cause>
    void CheckTime(const Cause& cause) {
        if (IsLate()) RunOutOfTime(CauseText(cause));
    }

 private:
    static std::wstring CauseText(const std::wstring& path) { return path; }
    static std::wstring CauseText(const SchemaElement& element) { return DescribeElement(element); }
    bool IsLate();
    [[noreturn]] static void RunOut(Expense expense, const std::wstring& cause);
    [[noreturn]] void RunOutOfTime(const std::wstring& cause) const;

    const std::chrono::milliseconds longestWork_;
    std::array<size_t, kExpenses> left_;
    const std::chrono::nanoseconds begin_;  // the thread's processor time at the beginning
    std::chrono::steady_clock::time_point nextLook_;
};

}  // namespace vlm
