// Checks what in an extension file refers to something else: queries and filters to the printer's elements,
// prefixes to declarations, "$name$" to the Parameter that binds it.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "tools/vlmctl/extension_files/filter.h"
#include "tools/vlmctl/extension_files/findings.h"
#include "tools/vlmctl/extension_files/source.h"

namespace vlm::ctl {

using Declarations = std::map<std::wstring, std::wstring>;  // prefix to URI

// What holds at one place of the tree.
struct Scope {
    std::wstring path;                     // of the level: "\Printer.Layout"
    std::map<std::wstring, int> bindings;  // parameters in reach, and the lines of their Parameter elements
    bool queried = false;                  // a Parameter around it asks the printer anyway
};

// COM must be initialised on the thread.
class ExpressionChecker {
 public:
    explicit ExpressionChecker(FindingList& findings) : findings_(findings) {}

    // The file that the elements to come are from, and what its elements declare, wherever they stand.
    void BeginFile(const SourceFile& file, Declarations anywhere);
    // What queries and filters may use from here on.
    void BeginSchema(Declarations declarations) { declarations_ = std::move(declarations); }

    void CheckQuery(const SourceElement& element);
    void CheckFilter(const SourceElement& element, const Scope& scope);
    // Checks the parameters in `text`, the value of that attribute, and returns them.
    std::vector<Piece> CheckParameters(const SourceElement& element, std::wstring_view attribute,
                                       const std::wstring& text, const Scope& scope);
    // Checks the name of what no Parameter repeats: there only bound parameters are replaced.
    void CheckPlainName(const SourceElement& element, const std::wstring& name, const Scope& scope);

 private:
    void Say(Rule rule, const Spot& spot, std::wstring text);
    bool CheckPrefix(const Spot& spot, const std::wstring& prefix);
    void CheckQuoted(const SourceElement& element, const std::wstring& filter,
                     const std::vector<Piece>& parameters);
    void CheckStart(const SourceElement& element, const FilterNames& names);

    FindingList& findings_;
    FilterCompiler compiler_;
    const SourceFile* file_ = nullptr;
    Declarations anywhere_;
    Declarations declarations_;
};

}  // namespace vlm::ctl
