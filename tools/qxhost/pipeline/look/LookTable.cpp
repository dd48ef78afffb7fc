#include "tools/qxhost/pipeline/look/LookTable.h"

#include "Qx/Ptr.h"
#include "host/luts/LUTReader.h"
#include "host/luts/LUTSteps.h"
#include "tools/qxhost/pipeline/look/LookMapping.h"
#include "tools/qxhost/pipeline/output/SmallFile.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <random>

namespace Qx::Program {

namespace {

constexpr float largestCode = 65535;
const ColourPlaces placesOfTables{.width = 1024, .seed = 0, .facts = {}};

/// The entries as the host's LUTs have them.
class EntriesInMemory final : public iHostImage3D
{
public:
    explicit EntriesInMemory(const LookTable& table) : size_(table.size)
    {
        for (const std::array<float, 3>& entry : table.entries) {
            entries_.insert(entries_.end(), {entry[0], entry[1], entry[2], 1.0F});
        }
    }

    int getSize() const override { return size_; }
    const float* getData() const override { return entries_.data(); }
    float* getData() override { return entries_.data(); }
    TableDomain getDomain() const override { return {}; }

private:
    int size_;
    std::vector<float> entries_;
};

std::vector<DeepColour> latticeOf(int size)
{
    std::vector<DeepColour> colours;
    const auto code = [&](int i) {
        return static_cast<std::uint16_t>(
            std::lround(largestCode * static_cast<float>(i) / static_cast<float>(size - 1)));
    };
    for (int blue = 0; blue < size; ++blue) {
        for (int green = 0; green < size; ++green) {
            for (int red = 0; red < size; ++red) {
                colours.push_back({code(red), code(green), code(blue)});
            }
        }
    }
    return colours;
}

double errorOf(const Host::LUTSteps& steps, const std::vector<DeepColour>& colours,
               const std::vector<DeepColour>& drawn)
{
    float largest = 0;
    for (std::size_t i = 0; i < colours.size(); ++i) {
        const std::array<float, 3> made = Host::apply(steps, sharesOf(colours[i]));
        const std::array<float, 3> expected = sharesOf(drawn[i]);
        for (std::size_t c = 0; c < 3; ++c) {
            largest = std::max(largest, std::abs(made[c] - expected[c]));
        }
    }
    return static_cast<double>(largest);
}

/// Random ones, and ramps of grey and of each channel.
std::vector<DeepColour> makeColoursBetween()
{
    constexpr std::size_t randomOnes = 120'000;
    constexpr unsigned step = 29; // of a ramp; no table's
    std::vector<DeepColour> colours;
    for (unsigned code = 0; code <= 0xFFFF; code += step) {
        const auto c = static_cast<std::uint16_t>(code);
        const std::uint16_t no = 0;
        for (const DeepColour& each :
             {DeepColour{c, c, c}, DeepColour{c, no, no}, DeepColour{no, c, no}, DeepColour{no, no, c}}) {
            colours.push_back(each);
        }
    }
    std::mt19937 random(5);
    const auto code = [&random] { return static_cast<std::uint16_t>(random()); };
    for (std::size_t i = 0; i < randomOnes; ++i) {
        const std::uint16_t red = code();
        const std::uint16_t green = code();
        colours.push_back({red, green, code()});
    }
    return colours;
}

} // namespace

std::array<float, 3> sharesOf(const DeepColour& colour)
{
    return {static_cast<float>(colour[0]) / largestCode, static_cast<float>(colour[1]) / largestCode,
            static_cast<float>(colour[2]) / largestCode};
}

const std::vector<DeepColour>& coloursBetween()
{
    static const std::vector<DeepColour> colours = makeColoursBetween();
    return colours;
}

double LookTable::largestError() const
{
    return std::max(tetrahedralError, trilinearError);
}

LookTable tableOf(const Look& look, int size)
{
    ColourDrawing drawing(effectRequests(look));
    LookTable table;
    table.size = size;
    for (const DeepColour& colour : drawing.draw(latticeOf(size), placesOfTables)) {
        table.entries.push_back(sharesOf(colour));
    }
    const std::vector<DeepColour> drawn = drawing.draw(coloursBetween(), placesOfTables);
    const Qx::Ptr<iHostImage3D> entries = Qx::makePtr<EntriesInMemory>(table);
    table.tetrahedralError = errorOf({Host::LUTTable{entries, false}}, coloursBetween(), drawn);
    table.trilinearError = errorOf({Host::LUTTable{entries, true}}, coloursBetween(), drawn);
    return table;
}

std::string cubeText(const LookTable& table, const std::string& title)
{
    std::string name;
    for (const char c : title) { // quotes and line ends cannot be written
        name += static_cast<unsigned char>(c) < ' ' || c == '"' ? ' ' : c;
    }
    std::string text = fmt::format("TITLE \"{}\"\nLUT_3D_SIZE {}\n", name, table.size);
    for (const std::array<float, 3>& entry : table.entries) {
        text += fmt::format("{} {} {}\n", entry[0], entry[1], entry[2]);
    }
    return text;
}

std::string titleOf(const Look& look, const std::filesystem::path& file)
{
    return look.about.empty() ? file.stem().string() : look.about;
}

LookExport exportCube(const Look& look, int size, const std::filesystem::path& file, bool replace,
                      const std::shared_ptr<const Media::FileSet>& kept)
{
    checkWritable(file, replace, kept);
    LookExport made;
    made.obstacle = examineMapping(look).obstacle;
    if (!made.obstacle.empty()) {
        return made;
    }
    const LookTable table = tableOf(look, size);
    made.largestError = table.largestError();
    made.errorInWords = Host::lutErrorInCodes(made.largestError);
    writeText(file, cubeText(table, titleOf(look, file)), replace, kept);
    return made;
}

} // namespace Qx::Program
