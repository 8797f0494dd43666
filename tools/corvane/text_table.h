#pragma once

#include <string>
#include <vector>

namespace corvane::tool {

/// Lines of a table whose columns are as wide as their widest cell; the first row is its head. The last
/// column is not padded.
std::vector<std::string> tableLines(const std::vector<std::vector<std::string>>& rows);

}  // namespace corvane::tool
