#pragma once

#include <string>
#include <vector>

namespace corvane::tool {

/// The lines of a table whose columns are as wide as their widest cell; the first row is its head. The last
/// column is not padded.
std::string tableText(const std::vector<std::vector<std::string>>& rows);

}  // namespace corvane::tool
