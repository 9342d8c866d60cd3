// Writes the engine's small XML documents as text. Characters that XML cannot hold come out as U+FFFD.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "bidi/answer_pass.h"

namespace vlm {

// The answer document for one path; no `answers` for an unknown path.
std::wstring WriteAnswer(std::wstring_view path, const std::optional<std::vector<NamedAnswer>>& answers);

// The list of wanted WSD elements; no `names` when no path could be resolved.
std::wstring WriteQueryElements(const std::vector<NamespaceDeclaration>& prefixes,
                                const std::optional<std::vector<std::wstring>>& names);

}  // namespace vlm
