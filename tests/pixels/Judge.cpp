#include "tests/pixels/Judge.h"

#include <png.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <sstream>

namespace Qx::Pixels {

namespace {

const char* componentName(Layout layout, int component)
{
    static constexpr std::array<const char*, 4> rgb{"R", "G", "B", "A"};
    static constexpr std::array<const char*, 4> packed{"Y of the even pixel", "Cb", "Y of the odd pixel",
                                                       "Cr"};
    return (layout == Layout::Rgb ? rgb : packed)[static_cast<std::size_t>(component)];
}

std::string describe(const Picture& got, int texel, int row, int component, double exact)
{
    std::ostringstream text;
    text.precision(9);
    text << "\"" << got.name << "\" (" << got.width << " x " << got.height << ", " << got.depth
         << " bits), pixel " << (got.layout == Layout::Packed422 ? 2 * texel : texel) << ", row " << row
         << ", " << componentName(got.layout, component) << ": " << got.at(texel, row, component) << " for "
         << exact;
    return text.str();
}

} // namespace

double Errors::correctPercent() const
{
    return samples == 0 ? 0.0
                        : 100.0 * static_cast<double>(samples - misrounded) / static_cast<double>(samples);
}

double Errors::meanDistance() const
{
    return samples == 0 ? 0.0 : distance / static_cast<double>(samples);
}

Errors& Errors::operator+=(const Errors& other)
{
    samples += other.samples;
    misrounded += other.misrounded;
    worst = std::max(worst, other.worst);
    distance += other.distance;
    return *this;
}

Verdict judge(const Picture& got, const std::vector<double>& exact)
{
    Verdict verdict;
    double farthest = -1.0;
    std::size_t next = 0;
    for (int row = 0; row < got.height; ++row) {
        for (int texel = 0; texel < got.texels(); ++texel) {
            for (int component = 0; component < 4; ++component) {
                const double value = exact[next++];
                const double distance = std::abs(got.at(texel, row, component) - value);
                const int off = std::max(0, static_cast<int>(std::ceil(distance - 0.5 - Errors::tie)));
                const bool alpha = got.layout == Layout::Rgb && component == 3;
                if (!alpha) {
                    ++verdict.errors.samples;
                    verdict.errors.misrounded += off > 0 ? 1 : 0;
                    verdict.errors.distance += distance;
                }
                verdict.errors.worst = std::max(verdict.errors.worst, off);
                if (distance > farthest) {
                    farthest = distance;
                    verdict.worstSample = describe(got, texel, row, component, value);
                }
            }
        }
    }
    return verdict;
}

int farthestApart(const Picture& one, const Picture& other, int edge, std::string& where)
{
    const int skipped = Picture::texelsFor(one.layout, edge);
    int farthest = 0;
    for (int row = 0; row < one.height; ++row) {
        for (int texel = skipped; texel < one.texels() - skipped; ++texel) {
            for (int component = 0; component < 4; ++component) {
                const int apart = std::abs(one.at(texel, row, component) - other.at(texel, row, component));
                if (apart > farthest) {
                    farthest = apart;
                    where = describe(one, texel, row, component, other.at(texel, row, component));
                }
            }
        }
    }
    return farthest;
}

Picture rounded(const Picture& like, const std::vector<double>& exact)
{
    Picture picture = Picture::blank(like.name, like.layout, like.width, like.height, like.depth);
    std::transform(exact.begin(), exact.end(), picture.codes.begin(),
                   [](double value) { return static_cast<std::uint16_t>(std::lround(value)); });
    return picture;
}

std::string leaveBehind(const std::string& trial, const Picture& got, const Picture& wanted)
{
    const std::filesystem::path folder = QX_FAILURES_FOLDER;
    std::error_code ignored;
    std::filesystem::create_directories(folder, ignored);
    const std::string stem = trial + "." + got.name;
    const bool written =
        writePng(folder / (stem + ".got.png"), got) && writePng(folder / (stem + ".wanted.png"), wanted);
    return written ? "see " + (folder / stem).string() + ".{got,wanted}.png"
                   : "the pictures could not be written to " + folder.string();
}

bool writePng(const std::filesystem::path& file, const Picture& picture)
{
    // 16-bit samples would be taken for linear light by libpng's simplified interface, so the upper eight
    // bits are shown.
    const auto shown = [&](int texel, int row, int component) {
        return static_cast<std::uint8_t>(picture.at(texel, row, component) >> (picture.depth - 8));
    };
    std::vector<std::uint8_t> bytes;
    for (int row = 0; row < picture.height; ++row) {
        for (int x = 0; x < picture.width; ++x) {
            if (picture.layout == Layout::Rgb) {
                bytes.insert(bytes.end(), {shown(x, row, 0), shown(x, row, 1), shown(x, row, 2)});
            } else {
                bytes.insert(bytes.end(), {shown(x / 2, row, x % 2 == 0 ? 0 : 2), shown(x / 2, row, 1),
                                           shown(x / 2, row, 3)});
            }
        }
    }
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(picture.width);
    image.height = static_cast<png_uint_32>(picture.height);
    image.format = PNG_FORMAT_RGB;
    return png_image_write_to_file(&image, file.c_str(), 0, bytes.data(), 0, nullptr) != 0;
}

std::optional<Picture> readPng(const std::filesystem::path& file)
{
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (png_image_begin_read_from_file(&image, file.c_str()) == 0)
        return std::nullopt;
    image.format = PNG_FORMAT_RGBA;
    std::vector<std::uint8_t> bytes(PNG_IMAGE_SIZE(image));
    if (png_image_finish_read(&image, nullptr, bytes.data(), 0, nullptr) == 0)
        return std::nullopt;
    Picture picture = Picture::blank(file.stem(), Layout::Rgb, static_cast<int>(image.width),
                                     static_cast<int>(image.height), 8);
    std::copy(bytes.begin(), bytes.end(), picture.codes.begin());
    return picture;
}

} // namespace Qx::Pixels
