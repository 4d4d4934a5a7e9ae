#include "common/TextTable.h"

#include <algorithm>

namespace atomscan_tool {

std::size_t DisplayWidth(const std::string& utf8)
{
    std::size_t width = 0;
    for (const char c : utf8)
        if ((static_cast<unsigned char>(c) & 0xc0) != 0x80) ++width;
    return width;
}

void TextTable::Print(std::FILE* out, const std::string& indent) const
{
    std::vector<std::size_t> widths;
    for (const auto& row : mRows) {
        if (widths.size() < row.size()) widths.resize(row.size(), 0);
        for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], DisplayWidth(row[i]));
    }
    for (const auto& row : mRows) {
        std::string line = indent;
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::string pad(widths[i] - DisplayWidth(row[i]), ' ');
            const bool right = i < mRightAligned.size() && mRightAligned[i];
            if (i > 0) line += "  ";
            line += right ? pad + row[i] : row[i] + pad;
        }
        line.erase(line.find_last_not_of(' ') + 1);
        std::fprintf(out, "%s\n", line.c_str());
    }
}

} // namespace atomscan_tool
