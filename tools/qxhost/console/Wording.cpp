#include "tools/qxhost/console/Wording.h"

#include "host/core/Printable.h"

#include <algorithm>

namespace Qx::Program {

namespace {

/// Counts the characters of UTF-8.
std::size_t characters(const std::string& text)
{
    return static_cast<std::size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; }));
}

} // namespace

std::string listed(const std::vector<std::string>& words, const std::string& conjunction)
{
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i) {
        text += i == 0 ? std::string() : i + 1 == words.size() ? " " + conjunction + " " : ", ";
        text += words[i];
    }
    return text;
}

std::string table(const std::vector<std::vector<std::string>>& rows)
{
    std::vector<std::size_t> widths;
    for (const std::vector<std::string>& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], characters(Host::printable(row[i])));
        }
    }
    std::string text;
    for (const std::vector<std::string>& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::string cell = Host::printable(row[i]);
            line += cell + std::string(widths[i] - characters(cell) + 2, ' ');
        }
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + '\n';
    }
    return text;
}

} // namespace Qx::Program
