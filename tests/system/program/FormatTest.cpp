#include "QxFxResources/GPUColourConverter.h"
#include "host/surfaces/RowGeometry.h"
#include "platform/GPUService.h"
#include "platform/OS.h"
#include "tests/TemporaryDirectory.h"
#include "tests/pixels/ClipReference.h"
#include "tools/qxhost/media/Matrices.h"
#include "tools/qxhost/pipeline/device/HostSession.h"
#include "tools/qxhost/pipeline/effects/WideEffect.h"
#include "tools/qxhost/pipeline/input/FrameUpload.h"
#include "tools/qxhost/pipeline/output/FrameDelivery.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <random>
#include <tuple>

namespace Qx::Program {

namespace {

namespace fs = std::filesystem;

using Bytes = std::vector<std::uint8_t>;
using Image::Surface;

/// A frame in memory, read and written bit by bit from what the format table says, and nothing else.
class BitFrame
{
public:
    BitFrame(const PixelFormat& format, unsigned width, unsigned height)
        : format_(format),
          width_(width),
          height_(height),
          geometry_(*Host::rowGeometryOf(describeFrame(format, width, height))),
          bytes_(geometry_.pitch * geometry_.rows)
    {
    }

    Bytes& bytes() { return bytes_; }
    std::size_t pitch() const { return geometry_.pitch; }
    std::size_t rows() const { return geometry_.rows; }
    unsigned width() const { return width_; }
    unsigned height() const { return height_; }

    /// Calls for every component of every pixel that the picture has: its letters, its place among the
    /// pixels, and what its bits hold, which may be changed.
    void each(const std::function<void(const std::string&, unsigned, unsigned, unsigned&)>& visit)
    {
        const Host::FormatInfo& info = *format_.info;
        const auto parts = Host::componentsOf(info, format_.bits);
        for (std::size_t p = 0; p < parts.size(); ++p) {
            if (parts[p].valueBit != 0) {
                continue; // the upper part of a split component goes with its lower one
            }
            const Host::ComponentBits* upper = nullptr;
            for (const Host::ComponentBits& other : parts) {
                upper = other.component == parts[p].component && other.valueBit != 0 ? &other : upper;
            }
            eachOf(parts[p], upper, static_cast<unsigned>(p), visit);
        }
    }

private:
    void eachOf(const Host::ComponentBits& part, const Host::ComponentBits* upper, unsigned plane,
                const std::function<void(const std::string&, unsigned, unsigned, unsigned&)>& visit)
    {
        const Host::RowLayout& layout = format_.info->layout(format_.bits);
        const std::size_t digits = part.component.find_first_of("0123456789");
        const std::string letters = part.component.substr(0, digits);
        const unsigned pixel = digits == std::string::npos
                                   ? 0
                                   : static_cast<unsigned>(std::stoul(part.component.substr(digits)));
        const bool inPlanes = format_.info->planes != Host::Planes::One;
        const bool half = format_.info->planes == Host::Planes::OneAndTwoHalf && plane > 0;
        const unsigned rows = half ? (height_ + 1) / 2 : height_;
        const unsigned step = half ? 2 : 1;
        const unsigned firstRow = !inPlanes || plane == 0 ? 0
                                  : half                  ? height_ + (plane - 1) * rows
                                                          : plane * height_;
        for (unsigned y = 0; y < rows; ++y) {
            for (unsigned block = 0; block * layout.blockPixels * step + pixel < width_; ++block) {
                const std::size_t row =
                    (firstRow + y) * geometry_.pitch + std::size_t{block} * layout.blockBytes;
                unsigned value = get(row, part) | (upper != nullptr ? get(row, *upper) : 0);
                visit(letters, block * layout.blockPixels * step + pixel, y * step, value);
                set(row, part, value);
                if (upper != nullptr) {
                    set(row, *upper, value);
                }
            }
        }
    }

    unsigned get(std::size_t row, const Host::ComponentBits& part) const
    {
        unsigned value = 0;
        for (unsigned i = 0; i < part.bits; ++i) {
            const unsigned bit = part.bit + i;
            value |= (bytes_[row + bit / 8] >> (bit % 8) & 1U) << (part.valueBit + i);
        }
        return value;
    }

    void set(std::size_t row, const Host::ComponentBits& part, unsigned value)
    {
        for (unsigned i = 0; i < part.bits; ++i) {
            const unsigned bit = part.bit + i;
            std::uint8_t& byte = bytes_[row + bit / 8];
            byte = static_cast<std::uint8_t>((byte & ~(1U << (bit % 8))) | (value >> (part.valueBit + i) & 1U)
                                                                               << (bit % 8));
        }
    }

    PixelFormat format_;
    unsigned width_;
    unsigned height_;
    Host::RowGeometry geometry_;
    Bytes bytes_;
};

/// Codes by component and place, "Y@3,1".
using Codes = std::map<std::tuple<std::string, unsigned, unsigned>, unsigned>;

Codes codesOf(BitFrame& frame)
{
    Codes codes;
    frame.each([&](const std::string& component, unsigned x, unsigned y, unsigned& value) {
        codes[{component, x, y}] = value;
    });
    return codes;
}

BitFrame randomFrame(const PixelFormat& format, unsigned width, unsigned height, unsigned seed)
{
    BitFrame frame(format, width, height);
    std::mt19937 random(seed);
    frame.each([&](const std::string&, unsigned, unsigned, unsigned& value) {
        value = static_cast<unsigned>(random());
    });
    return frame;
}

void expectSame(const Codes& wanted, const Codes& had, unsigned tolerance = 0)
{
    ASSERT_EQ(wanted.size(), had.size());
    for (const auto& [place, code] : wanted) {
        const auto found = had.find(place);
        ASSERT_NE(found, had.end());
        const unsigned away = found->second > code ? found->second - code : code - found->second;
        ASSERT_LE(away, tolerance) << std::get<0>(place) << " of pixel " << std::get<1>(place) << ", "
                                   << std::get<2>(place) << " is " << found->second << ", not " << code;
    }
}

/// A code of `from` bits among the steps of video at `to` bits, halves up.
unsigned atSteps(unsigned code, unsigned from, unsigned to)
{
    if (to >= from) {
        return code << (to - from);
    }
    return std::min((code + (1U << (from - to - 1))) >> (from - to), (1U << to) - 1);
}

/// Its share of the largest code.
unsigned atShare(unsigned code, unsigned from, unsigned to)
{
    const double share = static_cast<double>(code) / ((1U << from) - 1);
    return static_cast<unsigned>(std::lround(share * ((1U << to) - 1)));
}

const PixelFormat& named(const char* name)
{
    static const std::vector<PixelFormat> all = pixelFormats();
    return *std::find_if(all.begin(), all.end(),
                         [&](const PixelFormat& each) { return each.name() == name; });
}

/// One session for the whole process, as a host can be started once.
class Formats : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        directory_ = std::make_unique<Qx::Test::TemporaryDirectory>();
        ::setenv("XDG_STATE_HOME", directory_->path().c_str(), 1);
        host_ = std::make_unique<HostSession>("");
    }

    static void TearDownTestSuite()
    {
        host_.reset();
        directory_.reset();
    }

    /// The frame on the GPU: pairs in YUY2 order or A R G B.
    static Surface upload(const PixelFormat& format, BitFrame& frame, iGPUImage::eFormat working,
                          const Media::FramePacker::Target& meaning)
    {
        const FrameUpload upload(describeFrame(format, frame.width(), frame.height()), meaning);
        const Qx::Ptr<iHostImage> image = upload.makeHostImage();
        std::memcpy(image->map(iHostImage::Write), frame.bytes().data(), frame.bytes().size());
        return upload.upload(image, {}, working);
    }

    /// As video range if it is YCbCr, else as full.
    static Surface upload(const PixelFormat& format, BitFrame& frame, iGPUImage::eFormat working)
    {
        Media::FramePacker::Target meaning;
        meaning.range = format.isYCrCb() ? Media::Range::video : Media::Range::full;
        return upload(format, frame, working, meaning);
    }

    static Codes codesIn(const PixelFormat& format, const Surface& delivered)
    {
        BitFrame frame(format, delivered.getWidth(), delivered.getHeight());
        const Qx::Ptr<iHostImage> image = delivered.getHostImage();
        EXPECT_EQ(image->getPitch(), frame.pitch());
        EXPECT_GE(static_cast<std::size_t>(image->getSize().y), frame.rows());
        std::memcpy(frame.bytes().data(), image->map(iHostImage::Read), frame.bytes().size());
        return codesOf(frame);
    }

    static iGPUImage::eFormat workingFor(const PixelFormat& format)
    {
        return format.isDeep() ? iGPUImage::eARGB16 : iGPUImage::eARGB8;
    }

    static std::unique_ptr<Qx::Test::TemporaryDirectory> directory_;
    static std::unique_ptr<HostSession> host_;
};

std::unique_ptr<Qx::Test::TemporaryDirectory> Formats::directory_;
std::unique_ptr<HostSession> Formats::host_;

constexpr unsigned widths[] = {1, 2, 5, 6, 7, 16, 17, 47, 48, 50};

TEST_F(Formats, what_goes_in_in_a_format_comes_out_in_it_with_every_code)
{
    for (const PixelFormat& format : pixelFormats()) {
        for (const unsigned width : widths) {
            for (const unsigned height : {1U, 5U}) {
                SCOPED_TRACE(format.name() + " " + std::to_string(width) + "x" + std::to_string(height));
                BitFrame frame = randomFrame(format, width, height, width * 31 + height);
                const Surface source = upload(format, frame, workingFor(format));
                const FrameDelivery delivery(format);
                const Surface delivered = format.isYCrCb() ? delivery.fromPairs(source)
                                                           : delivery.fromPicture(source, Media::Range::full);
                expectSame(codesOf(frame), codesIn(format, delivered));
                if (HasFatalFailure()) {
                    return;
                }
            }
        }
    }
}

TEST_F(Formats, every_format_of_video_is_made_from_every_depth_without_rgb)
{
    for (const char* from : {"uyvy", "v210", "y216"}) {
        const PixelFormat& source = named(from);
        BitFrame frame = randomFrame(source, 17, 4, 7);
        const Codes given = codesOf(frame);
        const Surface pairs = upload(source, frame, workingFor(source));
        for (const PixelFormat& format : pixelFormats()) {
            if (!format.isYCrCb()) {
                continue;
            }
            SCOPED_TRACE(std::string(from) + " to " + format.name());
            const Codes had = codesIn(format, FrameDelivery(format).fromPairs(pairs));
            Codes wanted;
            const bool halved = format.info->planes != Host::Planes::One;
            for (const auto& [place, code] : given) {
                const auto& [component, x, y] = place;
                if (!halved || component == "Y") {
                    wanted[place] = atSteps(code, source.bits, format.bits);
                } else if (y % 2 == 0) {
                    // What lies on the GPU has 8 or 16 bits; its mean is what is written.
                    const unsigned deep = source.isDeep() ? 16 : 8;
                    const unsigned upper = atSteps(code, source.bits, deep);
                    const unsigned lower = atSteps(given.at({component, x, y + 1}), source.bits, deep);
                    wanted[place] = atSteps((upper + lower + 1) / 2, deep, format.bits);
                }
            }
            expectSame(wanted, had);
        }
    }
}

TEST_F(Formats, every_order_of_rgb_is_made_from_every_depth)
{
    for (const char* from : {"argb", "b64a", "argb10", "24bg"}) {
        const PixelFormat& source = named(from);
        BitFrame frame = randomFrame(source, 13, 3, 11);
        const Codes given = codesOf(frame);
        const unsigned deep = source.isDeep() ? 16 : 8;
        const Surface picture = upload(source, frame, workingFor(source));
        for (const PixelFormat& format : pixelFormats()) {
            if (format.isYCrCb()) {
                continue;
            }
            SCOPED_TRACE(std::string(from) + " to " + format.name());
            const Codes had = codesIn(format, FrameDelivery(format).fromPicture(picture, Media::Range::full));
            Codes wanted;
            for (const auto& [place, code] : had) {
                const std::string& component = std::get<0>(place);
                const bool isAlpha = component == "A";
                const unsigned sourceBits = isAlpha && source.name() == "argb10" ? 2 : source.bits;
                const unsigned bits = isAlpha && format.name() == "argb10" ? 2 : format.bits;
                const auto found = given.find(place);
                const unsigned here =
                    found == given.end() ? (1U << deep) - 1 : atShare(found->second, sourceBits, deep);
                wanted[place] = atShare(here, deep, bits);
            }
            expectSame(wanted, had);
        }
    }
}

/// Every code of a format that has at most ten bits, else random ones.
BitFrame countingFrame(const PixelFormat& format)
{
    constexpr unsigned width = 1024;
    BitFrame frame = randomFrame(format, width, 2, 3);
    if (format.bits <= 10) {
        frame.each([&](const std::string& component, unsigned x, unsigned y, unsigned& value) {
            value = (component == "Y" ? x : x + (component == "Cr") + 512 * y) % (1U << format.bits);
        });
    }
    return frame;
}

unsigned atLevel(const std::string& component, unsigned code, unsigned from, unsigned to)
{
    return static_cast<unsigned>(std::lround(Pixels::exactLevel(
        code, static_cast<int>(from), static_cast<int>(to), Pixels::Range::Full, component != "Y")));
}

TEST_F(Formats, full_range_video_keeps_its_levels_from_every_depth_to_every_format_and_back)
{
    for (const char* from : {"uyvy", "v210", "m101", "y216", "yvyu:16"}) {
        const PixelFormat& source = named(from);
        BitFrame frame = countingFrame(source);
        const Codes given = codesOf(frame);
        for (const PixelFormat& format : pixelFormats()) {
            if (!format.isYCrCb() || format.info->planes != Host::Planes::One) {
                continue;
            }
            SCOPED_TRACE(std::string(from) + " to " + format.name());
            const auto meaning = [](const PixelFormat& wanted) {
                return Media::FramePacker::Target{
                    wanted.isDeep() ? Media::Depth::bits16 : Media::Depth::bits8, Media::Range::full,
                    Media::Matrix::bt709, static_cast<int>(wanted.bits)};
            };
            const Surface pairs = upload(source, frame, workingFor(source), meaning(format));
            const Surface delivered = FrameDelivery(format).fromPairs(pairs);
            Codes wanted;
            for (const auto& [place, code] : given) {
                wanted[place] = atLevel(std::get<0>(place), code, source.bits, format.bits);
            }
            expectSame(wanted, codesIn(format, delivered));
            if (format.bits >= source.bits && !HasFatalFailure()) {
                BitFrame middle(format, frame.width(), frame.height());
                std::memcpy(middle.bytes().data(), delivered.getHostImage()->map(iHostImage::Read),
                            middle.bytes().size());
                const Surface back = upload(format, middle, workingFor(format), meaning(source));
                expectSame(given, codesIn(source, FrameDelivery(source).fromPairs(back)));
            }
            if (HasFatalFailure()) {
                return;
            }
        }
    }
}

TEST_F(Formats, rgb_of_video_range_keeps_its_levels_in_every_order_and_depth)
{
    const std::map<unsigned, unsigned> whites{{8, 235}, {10, 940}, {16, 60160}};
    for (const char* from : {"argb", "b64a", "argb10", "24bg", "bgr3:16"}) {
        const PixelFormat& source = named(from);
        BitFrame frame = randomFrame(source, 13, 3, 12);
        frame.each([&](const std::string& component, unsigned, unsigned y, unsigned& value) {
            value = component != "A" && y == 0 ? whites.at(source.bits) : value;
        });
        const Codes given = codesOf(frame);
        for (const iGPUImage::eFormat working : {iGPUImage::eARGB8, iGPUImage::eARGB16}) {
            const unsigned deep = working == iGPUImage::eARGB8 ? 8 : 16;
            Media::FramePacker::Target meaning;
            meaning.range = Media::Range::video;
            const Surface picture = upload(source, frame, working, meaning);
            for (const PixelFormat& format : pixelFormats()) {
                if (format.isYCrCb()) {
                    continue;
                }
                SCOPED_TRACE(std::string(from) + " to " + format.name() + " at " + std::to_string(deep));
                const Codes had =
                    codesIn(format, FrameDelivery(format).fromPicture(picture, Media::Range::video));
                for (const auto& [place, code] : had) {
                    const auto& [component, x, y] = place;
                    if (component == "A") {
                        continue; // without a range
                    }
                    const unsigned wanted =
                        atSteps(atSteps(given.at(place), source.bits, deep), deep, format.bits);
                    ASSERT_EQ(code, wanted) << component << " of pixel " << x << ", " << y;
                    ASSERT_TRUE(y != 0 || code == whites.at(format.bits)) << "white is " << code;
                }
            }
        }
    }
}

TEST_F(Formats, rows_of_ten_bits_hold_0_behind_the_picture)
{
    for (const char* name : {"v210", "m101", "m102"}) {
        const PixelFormat& format = named(name);
        for (unsigned width = 2; width <= 50; width += 2) {
            SCOPED_TRACE(std::string(name) + ", width " + std::to_string(width));
            BitFrame frame = randomFrame(format, width, 2, width); // 0 where no component lies
            const Surface delivered =
                FrameDelivery(format).fromPairs(upload(format, frame, workingFor(format)));
            Bytes bytes(frame.bytes().size());
            std::memcpy(bytes.data(), delivered.getHostImage()->map(iHostImage::Read), bytes.size());
            ASSERT_EQ(bytes, frame.bytes());
        }
    }
}

TEST_F(Formats, rgb_becomes_the_exact_video_within_a_code)
{
    for (const unsigned width : {48U, 37U, 722U}) {
        const PixelFormat& source = named("b64a");
        constexpr unsigned height = 2;
        BitFrame frame = randomFrame(source, width, height, width);
        Pixels::Picture exactSource = Pixels::Picture::blank(
            "rgb", Pixels::Layout::Rgb, static_cast<int>(width), static_cast<int>(height), 16);
        frame.each([&](const std::string& component, unsigned x, unsigned y, unsigned& value) {
            const int place = component == "R" ? 0 : component == "G" ? 1 : component == "B" ? 2 : 3;
            exactSource.at(static_cast<int>(x), static_cast<int>(y), place) =
                static_cast<std::uint16_t>(value);
        });
        const Surface picture = upload(source, frame, iGPUImage::eARGB16);
        const auto matrix = width > 720 ? Pixels::Matrix::Bt709 : Pixels::Matrix::Bt601;
        for (const PixelFormat& format : pixelFormats()) {
            if (!format.isYCrCb() || format.info->planes != Host::Planes::One) {
                continue;
            }
            SCOPED_TRACE(format.name() + ", width " + std::to_string(width));
            const std::vector<double> exact =
                Pixels::exactConversion({.direction = Pixels::Direction::Encode,
                                         .source = Pixels::Range::Full,
                                         .target = Pixels::Range::Video,
                                         .matrix = matrix,
                                         .filter = Pixels::Filter::Point},
                                        exactSource, static_cast<int>(format.bits));
            const Codes had = codesIn(format, FrameDelivery(format).fromPicture(picture, Media::Range::full));
            Codes wanted;
            for (const auto& [place, code] : had) {
                const auto& [component, x, y] = place;
                const std::size_t component4 =
                    component == "Y" ? (x % 2) * 2U : (component == "Cb" ? 1U : 3U);
                const std::size_t pair = std::size_t{y} * ((width + 1) / 2) + x / 2;
                wanted[place] = static_cast<unsigned>(std::lround(exact.at(pair * 4 + component4)));
            }
            expectSame(wanted, had, 1);
        }
    }
}

/// Kr and Kb by code point of ITU-T H.273, table 4.
struct Coefficients
{
    double red = 0;
    double blue = 0;
};

Coefficients coefficientsOf(int tag)
{
    static const std::map<int, Coefficients> known{
        {1, {0.2126, 0.0722}}, {6, {0.299, 0.114}}, {9, {0.2627, 0.0593}}};
    const auto found = known.find(tag);
    EXPECT_NE(found, known.end()) << "add the coefficients of tag " << tag;
    return found != known.end() ? found->second : Coefficients();
}

/// A pair of one colour: Y0 Cb Y1 Cr in video range, as 8-bit codes before rounding.
std::array<double, 4> exactPair(const Coefficients& k, const std::array<double, 3>& rgb)
{
    const auto& [r, g, b] = rgb;
    const double y = k.red * r + (1 - k.red - k.blue) * g + k.blue * b;
    const double cb = (b - y) / (2 * (1 - k.blue));
    const double cr = (r - y) / (2 * (1 - k.red));
    return {16 + 219 * y, 128 + 224 * cb, 16 + 219 * y, 128 + 224 * cr};
}

/// The full-range R, G and B of a pixel in video range, as 8-bit codes before rounding.
std::array<double, 3> exactRgb(const Coefficients& k, unsigned y, unsigned cb, unsigned cr)
{
    const double luma = (y - 16.0) / 219;
    const double r = luma + 2 * (1 - k.red) * (cr - 128.0) / 224;
    const double b = luma + 2 * (1 - k.blue) * (cb - 128.0) / 224;
    const double g = (luma - k.red * r - k.blue * b) / (1 - k.red - k.blue);
    return {255 * r, 255 * g, 255 * b};
}

void expectRounded(double exact, unsigned code, double largest)
{
    constexpr double slack = 1e-3; // of ties
    EXPECT_NEAR(std::clamp(exact, 0.0, largest), code, 0.5 + slack);
}

// A matrix of the table whose shader constants are missing or another's fails here.
TEST_F(Formats, every_matrix_decodes_by_its_own_coefficients)
{
    const PixelFormat& yuy2 = named("yuy2");
    for (const Media::MatrixInfo& info : Media::matrices()) {
        SCOPED_TRACE(info.name);
        BitFrame frame = randomFrame(yuy2, 64, 2, 5);
        Codes given = codesOf(frame);
        const Surface pairs =
            upload(yuy2, frame, iGPUImage::eARGB8, {Media::Depth::bits8, Media::Range::video, info.matrix});
        Surface picture = pairs.createDestARGBGPUSurface(iGPUImage::eARGB8);
        const bool wide = info.matrix == Media::Matrix::bt2020;
        ASSERT_TRUE(wide ? decodeWide(pairs, picture, Image::GamutScaling::Unscaled, Image::Filter::Point)
                         : Image::ColourConversion::convertYCrCb422ToRGB(
                               pairs, picture, Image::GamutScaling::Unscaled, Image::Filter::Point));
        Codes had = codesIn(named("argb"), picture.copyToHost());
        for (const auto& [place, luma] : given) {
            const auto& [component, x, y] = place;
            if (component == "Y") {
                const auto [r, g, b] =
                    exactRgb(coefficientsOf(info.tags.front()), luma, given.at({"Cb", x / 2 * 2, y}),
                             given.at({"Cr", x / 2 * 2, y}));
                expectRounded(r, had.at({"R", x, y}), 255);
                expectRounded(g, had.at({"G", x, y}), 255);
                expectRounded(b, had.at({"B", x, y}), 255);
            }
        }
    }
}

TEST_F(Formats, every_matrix_encodes_by_its_own_coefficients)
{
    const PixelFormat& argb = named("argb");
    for (const Media::MatrixInfo& info : Media::matrices()) {
        SCOPED_TRACE(info.name);
        BitFrame frame = randomFrame(argb, 64, 2, 6);
        Codes given = codesOf(frame);
        Surface picture = upload(argb, frame, iGPUImage::eARGB8);
        Surface pairs = picture.createDestYUY2GPUSurface(iGPUImage::eARGB8);
        pairs.setColourSpace(info.colourSpace);
        pairs.setGamutScaling(Image::GamutScaling::Video);
        ASSERT_TRUE(info.matrix == Media::Matrix::bt2020 ? encodeWide(picture, pairs)
                                                         : Image::ColourConversion::convertRGBToYCrCb422(
                                                               picture, pairs, Image::Filter::Point));
        Codes had = codesIn(named("yuy2"), pairs.copyToHost());
        for (const auto& [place, luma] : had) {
            const auto& [component, x, y] = place;
            if (component != "Y") {
                continue;
            }
            const std::array<double, 3> colour{given.at({"R", x, y}) / 255.0, given.at({"G", x, y}) / 255.0,
                                               given.at({"B", x, y}) / 255.0};
            const std::array<double, 4> exact = exactPair(coefficientsOf(info.tags.front()), colour);
            expectRounded(exact[0], luma, 255);
            if (x % 2 == 0) {
                expectRounded(exact[1], had.at({"Cb", x, y}), 255);
                expectRounded(exact[3], had.at({"Cr", x, y}), 255);
            }
        }
    }
}

} // namespace

} // namespace Qx::Program
