#include "text_table.h"

#include <algorithm>
#include <cstddef>

namespace corvane::tool {

std::vector<std::string> tableLines(const std::vector<std::vector<std::string>>& rows) {
    std::vector<std::size_t> widths;
    for (const auto& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
    }
    std::vector<std::string> lines;
    for (const auto& row : rows) {
        std::string& line = lines.emplace_back();
        for (std::size_t i = 0; i < row.size(); ++i) {
            line += row[i];
            if (i + 1 < row.size()) line.append(widths[i] - row[i].size() + 2, ' ');
        }
    }
    return lines;
}

}  // namespace corvane::tool
