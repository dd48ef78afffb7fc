#include "host/luts/CLFText.h"
#include "host/luts/ColourIOFile.h"
#include "host/luts/CubeFile.h"
#include "host/luts/LUTReader.h"
#include "host/luts/StepBuilding.h"
#include "tests/fuzz/Targets.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <string>
#include <string_view>

namespace Qx::Fuzz {
namespace {

using Host::Luts::Colour;
using Host::Luts::CubeFile;
using Host::Luts::Refusal;

void checkRefusal(const Refusal& refusal, Input input, std::size_t longest)
{
    promise(!refusal.cause.empty(), "refused without a cause");
    promise(refusal.cause.find('\n') == std::string::npos, "a cause of several lines");
    promise(refusal.cause.size() < longest, "a cause without end");
    promise(refusal.line <= input.size() + 1, "a line behind the end");
}

bool allFinite(const float* numbers, std::size_t count)
{
    return std::all_of(numbers, numbers + count, [](float number) { return std::isfinite(number); });
}

bool isSound(const TableDomain& domain)
{
    for (std::size_t c = 0; c < 3; ++c) {
        if (!std::isfinite(domain.min[c]) || !std::isfinite(domain.max[c]) ||
            domain.min[c] >= domain.max[c]) {
            return false;
        }
    }
    return true;
}

void throughCurves(const CubeFile& cube)
{
    promise(isSound(cube.curvesDomain), "curves over no domain");
    promise(cube.curves.size() >= 2 && cube.curves.size() <= Host::mostCurvePoints, "a count of points");
    promise(allFinite(cube.curves.front().data(), cube.curves.size() * 3), "a point that is no number");
    Colour colours[] = {{0.0F, 0.5F, 1.0F}, {-1e30F, 1e30F, 0.25F}};
    Host::Luts::throughCurves(cube, colours, 2);
    promise(allFinite(colours[0].data(), 6), "a colour that is no number");
}

void throughTable(const iHostImage3D& table)
{
    promise(isSound(table.getDomain()), "a table over no domain");
    promise(table.getSize() >= 2 && table.getSize() <= Host::mostTableEdge, "a table's size");
    promise(allFinite(table.getData(), Host::Luts::entriesOf(table.getSize()) * 4),
            "an entry that is no number");
    for (const Colour& colour : {Colour{0.0F, 0.5F, 1.0F}, Colour{-1e30F, 1e30F, 0.25F}}) {
        promise(allFinite(Host::lookUp(table, colour).data(), 3), "a colour that is no number");
    }
}

void throughStep(const Host::LUTStep& step)
{
    if (const auto* curves = std::get_if<Host::LUTCurves>(&step)) {
        promise(isSound(curves->domain), "curves over no domain");
        promise(curves->points.size() >= 2, "curves without points");
    } else if (const auto* table = std::get_if<Host::LUTTable>(&step)) {
        throughTable(*table->table);
    }
    for (const Colour& colour : {Colour{0.0F, 0.5F, 1.0F}, Colour{-1e30F, 1e30F, 0.25F}}) {
        Host::apply({step}, colour);
    }
    promise(Host::packed({step}) || std::holds_alternative<Host::LUTCurves>(step) ||
                std::holds_alternative<Host::LUTInverse>(step),
            "a step that no image has room for");
}

/// What the program draws with.
void buildWhole(const Host::Luts::Source& source)
{
    const Host::Luts::BuiltSteps built = Host::Luts::buildSteps(source);
    if (!(built.error <= Host::largestLUTError)) {
        return; // refused
    }
    for (const float grey : {0.0F, 0.5F, 1.0F}) {
        Colour exact{grey, grey, grey};
        source.evaluate(&exact, 1);
        const Colour drawn = Host::apply(built.steps, {grey, grey, grey});
        for (std::size_t c = 0; c < 3; ++c) {
            const double difference = static_cast<double>(std::clamp(drawn[c], 0.0F, 1.0F)) -
                                      static_cast<double>(std::clamp(exact[c], 0.0F, 1.0F));
            promise(std::abs(difference) <= 2 * Host::largestLUTError, "steps that are not the file's");
        }
    }
    Host::packed(built.steps);
}

} // namespace

void cube(Input input)
{
    Refusal refusal;
    const std::optional<CubeFile> read = Host::Luts::parseCube(textOf(input), refusal);
    if (!read) {
        checkRefusal(refusal, input, 300);
        return;
    }
    promise(read->table || !read->curves.empty(), "a LUT of nothing");
    if (!read->curves.empty()) {
        throughCurves(*read);
    }
    if (read->table) {
        throughTable(*read->table);
    }
}

void clfText(Input input)
{
    const std::string_view text = textOf(input);
    const std::string obstacle = Host::Luts::obstacleInXML(text);
    promise(obstacle.find('\n') == std::string::npos && obstacle.size() < 200, "a cause that is no line");
    if (!obstacle.empty()) {
        return; // the rest is not asked for then
    }
    const std::string known = Host::Luts::asKnownCLF(text);
    if (known.empty()) {
        return;
    }
    promise(std::count(known.begin(), known.end(), '\n') == std::count(text.begin(), text.end(), '\n'),
            "lines that moved");
    promise(std::count(known.begin(), known.end(), '<') <= std::count(text.begin(), text.end(), '<'),
            "markup that came");
    promise(known.size() < text.size() + 100, "text that came");
    promise(known.find("<ProcessList") != std::string::npos, "a root that is gone");
}

/// The first byte chooses the kind of file by its lower half; the steps are built whole if 0x40 is set in it,
/// which takes long.
void lut(Input input)
{
    constexpr std::array kinds{"clf", "ctf", "csp", "spi1d",  "spi3d", "3dl", "cc",  "ccc",
                               "cdl", "lut", "mga", "spimtx", "cub",   "vf",  "itx", "look"};
    if (input.empty()) {
        return;
    }
    const std::string kind = kinds[input[0] % kinds.size()];
    Refusal refusal;
    const auto read = Host::Luts::readThroughColourIO("fuzz." + kind, kind, textOf(input.subspan(1)),
                                                      Host::Luts::Wanted::Steps, refusal);
    if (!read) {
        checkRefusal(refusal, input, 2000);
        return;
    }
    promise(!read->facts.contents.empty() && read->facts.contents.size() < 1000, "contents unsaid");
    promise(isSound(read->domain), "a file over no domain");
    promise(read->table || !read->parts.empty() || read->facts.contents == "nothing that changes colours",
            "a LUT of nothing");
    if (read->table) {
        throughTable(*read->table);
    }
    for (const Host::Luts::Part& part : read->parts) {
        if (!part.isFormula()) {
            throughStep(part.step);
        }
    }
    if ((input[0] & 0x40U) != 0) {
        buildWhole(*read);
    }
}

} // namespace Qx::Fuzz
