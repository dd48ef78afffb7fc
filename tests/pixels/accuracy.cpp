// Measures every 4:2:2 conversion, packing to 10 bits, and LUT files, and writes the result as
// a Markdown page.

#include "tests/pixels/Gpu.h"
#include "tests/pixels/Judge.h"
#include "tests/pixels/LutAccuracy.h"
#include "tests/pixels/Rearrangements.h"
#include "tests/pixels/Reference.h"
#include "tests/pixels/RunningHost.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

namespace {

using namespace Qx::Pixels;

std::string line(const Conversion& conversion, const Errors& errors)
{
    return fmt::format("| {} | {} | {:.4f} % | {} | {:.4f} |\n", conversion.technique(), errors.samples,
                       errors.correctPercent(), errors.worst, errors.meanDistance());
}

std::optional<Errors> measure(const Conversion& conversion, int sourceDepth, int targetDepth)
{
    const Layout layout = conversion.direction == Direction::Decode ? Layout::Packed422 : Layout::Rgb;
    Errors total;
    for (const Picture& picture : trialPictures(layout, sourceDepth)) {
        const auto got = convert(conversion, picture, targetDepth);
        if (!got)
            return std::nullopt;
        total += judge(*got, exactConversion(conversion, picture, targetDepth)).errors;
    }
    return total;
}

/// RGB encoded for output and packed as v210: what a 10-bit file or card gets.
std::optional<Errors> measureTenBits(const Conversion& conversion)
{
    Errors total;
    for (const Picture& picture : trialPictures(Layout::Rgb, 16)) {
        const auto codes = convertToTenBits(conversion, picture);
        if (!codes)
            return std::nullopt;
        std::vector<double> exact = exactConversion(conversion, picture, 16);
        for (double& value : exact)
            value = std::min(value / 64.0, 1023.0);
        total += judge(*codes, exact).errors;
    }
    return total;
}

bool writeTenBits(std::ostream& page)
{
    page << "\n## 16 bits to 10 bits, packed as v210\n\nBy way of 16 bits, so that some samples are rounded "
            "twice.\n\n| technique | samples | correct | worst | mean |\n|---|---:|---:|---:|---:|\n";
    for (const Matrix matrix : {Matrix::Bt601, Matrix::Bt709, Matrix::Bt2020}) {
        const Conversion conversion{Direction::Encode, Range::Full, Range::Video, matrix, Filter::Point};
        const auto errors = measureTenBits(conversion);
        if (!errors) {
            fmt::print(stderr, "accuracy: {} could not be packed\n", conversion.technique());
            return false;
        }
        page << line(conversion, *errors);
    }
    return true;
}

constexpr const char* introduction = R"(# Accuracy of the 4:2:2 conversions

Written by `scripts/accuracy`; do not edit.

Every technique of `ColourConvert.fx` and `ColourConvert2020.fx`, at each depth of source and target, against the same conversion in
double precision, on random codes, ramps through every code, greys, colour bars, single chroma edges and
impulses, widths of 1 to 67 pixels and padded rows.

- *correct*: share of samples that are the code nearest to the exact value (either one, where the exact value
  is half way between two).
- *samples*: components of colour; alpha, always right, is left out.
- *worst*: codes between the farthest sample and the nearest code.
- *mean*: mean distance of a sample from the exact value, in codes. Rounding alone makes that 0.25 where exact
  values are spread evenly, and less where many are whole or beyond the range.
)";

bool write(std::ostream& page, const std::string& device)
{
    page << introduction << "\nMeasured on " << device << ".\n";
    for (const int sourceDepth : {8, 16}) {
        for (const int targetDepth : {8, 16}) {
            page << fmt::format("\n## {} bits to {} bits\n\n", sourceDepth, targetDepth)
                 << "| technique | samples | correct | worst | mean |\n|---|---:|---:|---:|---:|\n";
            for (const Conversion& conversion : allConversions()) {
                const auto errors = measure(conversion, sourceDepth, targetDepth);
                if (!errors) {
                    fmt::print(stderr, "accuracy: {} could not be run from {} to {} bits\n",
                               conversion.technique(), sourceDepth, targetDepth);
                    return false;
                }
                page << line(conversion, *errors);
            }
        }
    }
    return writeTenBits(page) && writeLuts(page);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        fmt::print(stderr, "usage: accuracy PAGE.md\n");
        return 2;
    }
    const RunningHost host(false);
    const std::string device = host.device();
    if (device.empty()) {
        fmt::print(stderr, "accuracy: no device to measure: {}\n", host.failure());
        return 1;
    }
    std::ofstream page(argv[1]);
    const bool written = write(page, device);
    page.close();
    if (written && !page)
        fmt::print(stderr, "accuracy: {} could not be written\n", argv[1]);
    return written && page ? 0 : 1;
}
