// Expands the Parameters of a schema tree from a printer's answer.
#pragma once

#include "bidi/filters.h"
#include "bidi/schema_tree.h"

namespace vlm {

// The tree with every parameter replaced. Each Parameter becomes, for each node that its filter finds in the
// printer's answer, one Property of a concrete name; they stand in document order where the template stood,
// and neither the template nor the Parameter remains. Throws CComErrorEx, also when the tree would grow
// beyond the search's budget.
SchemaElement ExpandParameters(const SchemaElement& root, const AnswerSearch& answer);

}  // namespace vlm
