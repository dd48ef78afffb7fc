#include "host/luts/CubeFile.h"

#include "host/core/Printable.h"
#include "host/luts/LUTReader.h"
#include "host/luts/Numbers.h"

#include <algorithm>
#include <cmath>

namespace Qx::Host::Luts {

namespace {

std::string inQuotes(std::string_view text)
{
    constexpr std::size_t most = 40;
    return '"' + printable(text.substr(0, most)) + (text.size() > most ? "...\"" : "\"");
}

constexpr bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\v' || c == '\f';
}

/// Puts the words of a line up to its comment into `found`. Called for each entry: a search for one of
/// several characters takes several times as long as these loops.
void findWords(std::string_view line, std::vector<std::string_view>& found)
{
    found.clear();
    for (std::size_t at = 0; at < line.size();) {
        if (isBlank(line[at])) {
            ++at;
            continue;
        }
        if (line[at] == '#') {
            break; // a comment to the end of the line; inside a word '#' belongs to it, as in 1.#INF
        }
        const std::size_t begin = at;
        while (at < line.size() && !isBlank(line[at])) {
            ++at;
        }
        found.push_back(line.substr(begin, at - begin));
    }
}

/// Lines that end in LF, CR LF or CR.
class Lines
{
public:
    explicit Lines(std::string_view text) : rest_(text) {}

    bool next(std::string_view& line)
    {
        if (rest_.empty()) {
            return false;
        }
        std::size_t end = 0;
        while (end < rest_.size() && rest_[end] != '\r' && rest_[end] != '\n') {
            ++end;
        }
        line = rest_.substr(0, end);
        const bool both = rest_.substr(end, 2) == "\r\n";
        rest_.remove_prefix(std::min(end + (both ? 2 : 1), rest_.size()));
        ++number_;
        return true;
    }

    std::size_t number() const { return number_; }

private:
    std::string_view rest_;
    std::size_t number_ = 0;
};

/// Thrown inside this file only.
struct Wrong
{
    std::string cause;
    std::size_t line = 0; ///< 0: the line at hand
};

/// A range that a file gives to one or all of its tables.
struct Range
{
    std::optional<Colour> min;
    std::optional<Colour> max;
    std::size_t line = 0; ///< where the last of them stands

    TableDomain domain() const
    {
        TableDomain result;
        result.min = min.value_or(result.min);
        result.max = max.value_or(result.max);
        for (std::size_t c = 0; c < 3; ++c) {
            const float extent = result.max[c] - result.min[c];
            if (!(extent > 0.0F) || !std::isfinite(extent)) {
                throw Wrong{"the domain's upper end is not above its lower one", line};
            }
        }
        return result;
    }
};

class Parser
{
public:
    explicit Parser(std::string_view text) : lines_(text) {}

    CubeFile parse()
    {
        std::string_view line;
        std::vector<std::string_view> found;
        while (lines_.next(line)) {
            findWords(line, found);
            if (found.empty()) {
                continue;
            }
            if (beginsNumber(found.front())) {
                takeEntry(found);
            } else {
                takeKeyword(line, found);
            }
        }
        finish();
        return std::move(cube_);
    }

    std::size_t line() const { return lines_.number(); }

private:
    void takeKeyword(std::string_view line, const std::vector<std::string_view>& found)
    {
        const std::string_view keyword = found.front();
        if (!std::all_of(keyword.begin(), keyword.end(), [](char c) {
                return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
            })) {
            throw Wrong{inQuotes(keyword) + " is neither a number nor a keyword of .cube files"};
        }
        if (started_) {
            throw Wrong{"keyword " + inQuotes(keyword) + " after the first entry"};
        }
        if (keyword == "TITLE") {
            takeTitle(line);
        } else if (keyword == "LUT_1D_SIZE") {
            curvePoints_ = takeSize(found, curvePoints_, mostCurvePoints);
        } else if (keyword == "LUT_3D_SIZE") {
            edge_ = takeSize(found, edge_, mostTableEdge);
        } else if (keyword == "DOMAIN_MIN") {
            both_.min = takeColour(found);
            both_.line = line_();
        } else if (keyword == "DOMAIN_MAX") {
            both_.max = takeColour(found);
            both_.line = line_();
        } else if (keyword == "LUT_1D_INPUT_RANGE") {
            curveRange_ = takeRange(found);
        } else if (keyword == "LUT_3D_INPUT_RANGE") {
            tableRange_ = takeRange(found);
        } else if (keyword == "LUT_IN_VIDEO_RANGE" || keyword == "LUT_OUT_VIDEO_RANGE") {
            cube_.remarks.push_back("line " + std::to_string(line_()) + ": " + std::string(keyword) +
                                    " is ignored: codes are looked up unchanged");
        } else {
            throw Wrong{"unknown keyword " + inQuotes(keyword)};
        }
    }

    std::size_t line_() const { return lines_.number(); }

    void takeTitle(std::string_view line)
    {
        // A title may hold what looks like a comment.
        const std::size_t open = line.find('"');
        const std::size_t close = line.rfind('"');
        if (open == std::string_view::npos) {
            const std::size_t begin = line.find("TITLE") + 5;
            cube_.title = line.substr(std::min(line.find_first_not_of(" \t", begin), line.size()));
        } else {
            cube_.title = line.substr(open + 1, close > open ? close - open - 1 : std::string_view::npos);
        }
    }

    static int takeSize(const std::vector<std::string_view>& found, int before, int most)
    {
        if (before != 0) {
            throw Wrong{std::string(found[0]) + " is given twice"};
        }
        const std::optional<long> size = found.size() == 2 ? wholeNumber(found[1]) : std::nullopt;
        if (!size) {
            throw Wrong{std::string(found[0]) + ": expected one whole number"};
        }
        if (*size < 2 || *size > most) {
            throw Wrong{std::string(found[0]) + " is " + std::to_string(*size) + ": expected 2 to " +
                        std::to_string(most)};
        }
        return static_cast<int>(*size);
    }

    static Colour numbers(const std::vector<std::string_view>& found, std::size_t first, std::size_t count)
    {
        if (found.size() != first + count) {
            throw Wrong{"expected " + std::to_string(count) + " numbers, found " +
                        std::to_string(found.size() - first)};
        }
        Colour result{};
        for (std::size_t i = 0; i < count; ++i) {
            const std::string_view word = found[first + i];
            const std::optional<float> value = number(word);
            if (!value) {
                throw Wrong{inQuotes(word) + (word.find(',') != std::string_view::npos
                                                  ? " is not a number; decimals are written with a point"
                                                  : " is not a number")};
            }
            if (!std::isfinite(*value)) {
                throw Wrong{inQuotes(word) + " is not a finite number"};
            }
            result[i] = *value;
        }
        return result;
    }

    static Colour takeColour(const std::vector<std::string_view>& found) { return numbers(found, 1, 3); }

    Range takeRange(const std::vector<std::string_view>& found) const
    {
        const Colour ends = numbers(found, 1, 2);
        return {Colour{ends[0], ends[0], ends[0]}, Colour{ends[1], ends[1], ends[1]}, line_()};
    }

    void takeEntry(const std::vector<std::string_view>& found)
    {
        begin();
        const Colour colour = numbers(found, 0, 3);
        const auto curvePoints = static_cast<std::size_t>(curvePoints_);
        if (taken_ < curvePoints) {
            cube_.curves.push_back(colour);
        } else if (cube_.table && taken_ - curvePoints < entriesOf(edge_)) {
            cube_.table->set(taken_ - curvePoints, colour);
        } else {
            throw Wrong{"more entries than the " + expected() + " announced"};
        }
        ++taken_;
    }

    void begin()
    {
        if (started_) {
            return;
        }
        started_ = true;
        if (curvePoints_ == 0 && edge_ == 0) {
            throw Wrong{"entries before any LUT_1D_SIZE or LUT_3D_SIZE"};
        }
        // DOMAIN_MIN and DOMAIN_MAX speak of what comes into the file: of its first table.
        if (curvePoints_ > 0) {
            cube_.curvesDomain = curveRange_.value_or(both_).domain();
        }
        if (edge_ > 0) {
            const Range range = tableRange_.value_or(curvePoints_ > 0 ? Range() : both_);
            cube_.table = Qx::makePtr<Table>(edge_, range.domain());
        }
    }

    std::size_t total() const
    {
        return static_cast<std::size_t>(curvePoints_) + (edge_ > 0 ? entriesOf(edge_) : 0);
    }

    std::string expected() const { return std::to_string(total()) + (total() == 1 ? " entry" : " entries"); }

    void finish()
    {
        if (curvePoints_ == 0 && edge_ == 0) {
            throw Wrong{"there is no LUT_1D_SIZE and no LUT_3D_SIZE"};
        }
        if (taken_ < total()) {
            throw Wrong{"the file ends after " + std::to_string(taken_) + " of " + expected()};
        }
    }

    Lines lines_;
    CubeFile cube_;
    Range both_;
    std::optional<Range> curveRange_;
    std::optional<Range> tableRange_;
    int curvePoints_ = 0;
    int edge_ = 0;
    std::size_t taken_ = 0;
    bool started_ = false;
};

} // namespace

std::optional<CubeFile> parseCube(std::string_view text, Refusal& refusal)
{
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    if (text.substr(0, byteOrderMark.size()) == byteOrderMark) {
        text.remove_prefix(byteOrderMark.size());
    }
    Parser parser(text);
    try {
        return parser.parse();
    } catch (const Wrong& wrong) {
        refusal = {wrong.line != 0 ? wrong.line : parser.line(), wrong.cause};
        return std::nullopt;
    }
}

void throughCurves(const CubeFile& cube, Colour* colours, std::size_t count)
{
    const double last = static_cast<double>(cube.curves.size() - 1);
    for (std::size_t i = 0; i < count; ++i) {
        for (std::size_t c = 0; c < 3; ++c) {
            const double low = static_cast<double>(cube.curvesDomain.min[c]);
            const double extent = static_cast<double>(cube.curvesDomain.max[c]) - low;
            const double place =
                std::clamp((static_cast<double>(colours[i][c]) - low) / extent, 0.0, 1.0) * last;
            const auto before = static_cast<std::size_t>(std::min(std::floor(place), last - 1.0));
            const double part = place - static_cast<double>(before);
            colours[i][c] = static_cast<float>((1.0 - part) * static_cast<double>(cube.curves[before][c]) +
                                               part * static_cast<double>(cube.curves[before + 1][c]));
        }
    }
}

} // namespace Qx::Host::Luts
