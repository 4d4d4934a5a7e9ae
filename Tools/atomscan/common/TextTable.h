// Rows of text cells printed in aligned columns.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace atomscan_tool {

class TextTable {
public:
    // `rightAligned[i]`: column i is aligned to the right (numbers).
    explicit TextTable(std::vector<bool> rightAligned) : mRightAligned(std::move(rightAligned)) {}
    void AddRow(std::vector<std::string> cells) { mRows.push_back(std::move(cells)); }
    bool Empty() const { return mRows.empty(); }
    // Each row on its own line behind `indent`, columns two spaces apart, no trailing blanks.
    void Print(std::FILE* out, const std::string& indent) const;

private:
    std::vector<bool> mRightAligned;
    std::vector<std::vector<std::string>> mRows;
};

// Display width of UTF-8 text: one column a code point.
std::size_t DisplayWidth(const std::string& utf8);

} // namespace atomscan_tool
