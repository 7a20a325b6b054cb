#pragma once
// Which datasets count as analyses: the ones holding scalar data (info, variables,
// violations) are left out of analysis lists.

#include <string_view>

namespace simdata {

/// True when a dataset of this name (or analysis type) is an analysis. Always true when the
/// environment holds _kraIncludeAllAnalysis; otherwise false when the lower-cased name
/// contains "info", "variables" or "violations".
bool analysisFilter(std::string_view name);

}  // namespace simdata
