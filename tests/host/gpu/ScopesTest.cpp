#include "tests/host/gpu/GpuFixture.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <numeric>

namespace Qx::GpuTests {

namespace {

using Host::ScopeCounts;
using Host::ScopeRequest;
using Host::SignalCode;

/// Red, green and blue, 0 to 1.
using Levels = std::array<double, 3>;

/// A picture with components in the order a, r, g, b, and its levels.
struct Picture
{
    XY<int> size;
    iGPUImage::eFormat format;
    Bytes bytes;

    Levels at(int x, int y) const
    {
        const std::size_t pixel =
            static_cast<std::size_t>(y) * static_cast<std::size_t>(size.x) + static_cast<std::size_t>(x);
        Levels levels{};
        for (std::size_t c = 0; c < 3; ++c) {
            const std::size_t component = pixel * 4 + c + 1;
            if (format == iGPUImage::eARGB16) {
                std::uint16_t code = 0;
                std::memcpy(&code, bytes.data() + component * 2, 2);
                levels.at(c) = code / 65535.0;
            } else if (format == iGPUImage::eARGB10) {
                std::uint32_t word = 0;
                std::memcpy(&word, bytes.data() + pixel * 4, 4);
                levels.at(c) = (word >> (20 - 10 * c) & 1023) / 1023.0;
            } else {
                levels.at(c) = bytes[component] / 255.0;
            }
        }
        return levels;
    }
};

Picture noisePicture(XY<int> size, iGPUImage::eFormat format)
{
    return {size, format, noise(bytesOf(size, format), 7)};
}

/// BT.709 in video range.
ScopeRequest videoRequest(unsigned levels)
{
    const double unit = levels / 256.0;
    const Levels luma{0.2126, 0.7152, 0.0722};
    ScopeRequest request;
    request.levels = levels;
    request.columns = 48;
    const auto scaled = [&](const Levels& weights, double offset, double scale) {
        SignalCode code;
        code.offset = offset * unit;
        for (std::size_t i = 0; i < 3; ++i) {
            code.weights.at(i) = weights.at(i) * scale * unit;
        }
        return code;
    };
    request.luma = scaled(luma, 16, 219);
    request.red = scaled({1, 0, 0}, 16, 219);
    request.green = scaled({0, 1, 0}, 16, 219);
    request.blue = scaled({0, 0, 1}, 16, 219);
    request.cb = scaled({-luma[0], -luma[1], 1 - luma[2]}, 128, 224 / 1.8556);
    request.cr = scaled({1 - luma[0], -luma[1], -luma[2]}, 128, 224 / 1.5748);
    request.vectorscope = 256;
    return request;
}

unsigned codeOf(const SignalCode& signal, const Levels& pixel, unsigned levels)
{
    const double code = std::floor(
        signal.offset + 0.5 + std::inner_product(pixel.begin(), pixel.end(), signal.weights.begin(), 0.0));
    return static_cast<unsigned>(std::clamp(code, 0.0, levels - 1.0));
}

ScopeCounts::Counts waveformOf(const Picture& picture, const ScopeRequest& request, const SignalCode& signal)
{
    ScopeCounts::Counts counts(std::size_t{request.columns} * request.levels);
    for (int y = 0; y < picture.size.y; ++y) {
        for (int x = 0; x < picture.size.x; ++x) {
            const auto column =
                static_cast<unsigned>(x) * request.columns / static_cast<unsigned>(picture.size.x);
            ++counts[codeOf(signal, picture.at(x, y), request.levels) * request.columns + column];
        }
    }
    return counts;
}

ScopeCounts::Counts vectorscopeOf(const Picture& picture, const ScopeRequest& request)
{
    ScopeCounts::Counts counts(std::size_t{request.vectorscope} * request.vectorscope);
    for (int y = 0; y < picture.size.y; ++y) {
        for (int x = 0; x < picture.size.x; ++x) {
            const auto cellOf = [&](const SignalCode& signal) {
                return codeOf(signal, picture.at(x, y), request.levels) * request.vectorscope /
                       request.levels;
            };
            ++counts[cellOf(request.cr) * request.vectorscope + cellOf(request.cb)];
        }
    }
    return counts;
}

/// BT.709: ITU-R BT.709-6, item 1.3, whose primaries and white these are the light of; light by BT.1886.
ScopeRequest colourRequest(unsigned cells, std::size_t codes)
{
    ScopeRequest request = videoRequest(256);
    request.chromaticity = cells;
    request.toXYZ = {{{0.4123908, 0.3575843, 0.1804808},
                      {0.2126390, 0.7151687, 0.0721923},
                      {0.0193308, 0.1191948, 0.9505322}}};
    for (std::size_t i = 0; i < codes; ++i) {
        request.light.push_back(std::pow(static_cast<double>(i) / static_cast<double>(codes - 1), 2.4));
    }
    return request;
}

/// By whole numbers, from the request's numbers in units of 2^-26 of light and 2^-20 of the matrix.
ScopeCounts::Counts chromaticityOf(const Picture& picture, const ScopeRequest& request)
{
    using Whole = unsigned long long;
    const auto units = [](double number, double unit) { return static_cast<Whole>(number / unit + 0.5); };
    ScopeCounts::Counts counts(std::size_t{request.chromaticity} * request.chromaticity);
    for (int y = 0; y < picture.size.y; ++y) {
        for (int x = 0; x < picture.size.x; ++x) {
            const Levels levels = picture.at(x, y);
            std::array<Whole, 3> xyz{};
            for (std::size_t row = 0; row < 3; ++row) {
                for (std::size_t c = 0; c < 3; ++c) {
                    const double code = levels.at(c) * static_cast<double>(request.light.size() - 1) + 0.5;
                    xyz.at(row) += units(request.toXYZ.at(row).at(c), 1.0 / (1U << 20U)) *
                                   units(request.light[static_cast<std::size_t>(code)], 1.0 / (1U << 26U));
                }
            }
            const Whole whole = xyz[0] + xyz[1] + xyz[2];
            if (xyz[1] * 1024 < Whole{1} << 46U) {
                continue;
            }
            const Whole column = xyz[0] * 10 * request.chromaticity / (whole * 9);
            const Whole row = xyz[1] * 10 * request.chromaticity / (whole * 9);
            if (column < request.chromaticity && row < request.chromaticity) {
                ++counts[row * request.chromaticity + column];
            }
        }
    }
    return counts;
}

class ScopesTest : public GpuTest
{
protected:
    std::optional<ScopeCounts> count(const Picture& picture, const ScopeRequest& request)
    {
        const Qx::Ptr<iGPUImage> image = upload(picture.size, picture.format, picture.bytes);
        EXPECT_TRUE(image);
        return gpu().countScopes(image, request);
    }
};

} // namespace

TEST_F(ScopesTest, WaveformsAndVectorscopeAreThoseOfADirectCount)
{
    for (const iGPUImage::eFormat format : {iGPUImage::eARGB8, iGPUImage::eARGB16, iGPUImage::eARGB10}) {
        for (const unsigned levels : {256U, 1024U}) {
            for (const XY<int> size : {XY<int>{1, 1}, XY<int>{7, 3}, XY<int>{129, 77}, XY<int>{640, 33}}) {
                const Picture picture = noisePicture(size, format);
                const ScopeRequest request = videoRequest(levels);
                const std::optional<ScopeCounts> counts = count(picture, request);
                ASSERT_TRUE(counts);
                EXPECT_EQ(counts->luma, waveformOf(picture, request, request.luma));
                EXPECT_EQ(counts->red, waveformOf(picture, request, request.red));
                EXPECT_EQ(counts->green, waveformOf(picture, request, request.green));
                EXPECT_EQ(counts->blue, waveformOf(picture, request, request.blue));
                EXPECT_EQ(counts->vectorscope, vectorscopeOf(picture, request));
                EXPECT_TRUE(counts->chromaticity.empty());
            }
        }
    }
}

TEST_F(ScopesTest, ChromaticityIsThatOfADirectCountInEveryCell)
{
    for (const auto& [format, codes] :
         {std::pair{iGPUImage::eARGB8, 256U}, {iGPUImage::eARGB10, 1024U}, {iGPUImage::eARGB16, 65536U}}) {
        for (const unsigned cells : {1U, 9U, 90U, 256U, 511U, 512U}) {
            for (const XY<int> size : {XY<int>{1, 1}, XY<int>{129, 77}, XY<int>{640, 333}}) {
                const Picture picture = noisePicture(size, format);
                const ScopeRequest request = colourRequest(cells, codes);
                const std::optional<ScopeCounts> counts = count(picture, request);
                ASSERT_TRUE(counts);
                EXPECT_EQ(counts->chromaticity, chromaticityOf(picture, request)) << codes << " " << cells;
            }
        }
    }
}

TEST_F(ScopesTest, ChromaticityAtTheEdgeOfACellBelongsToTheNext)
{
    // X is 3/10 of the sum and Y 6/10: exactly at edges of cells.
    for (const unsigned cells : {9U, 90U, 450U}) {
        ScopeRequest request = colourRequest(cells, 256);
        request.toXYZ[0].fill(0.1875);
        request.toXYZ[1].fill(0.375);
        request.toXYZ[2].fill(0.0625);
        const XY<int> size{30, 20};
        const Picture picture{size, iGPUImage::eARGB8, filled(size, {255, 240, 9, 77})};
        const auto cellOf = [&](std::size_t column, std::size_t row) {
            const std::optional<ScopeCounts> counts = count(picture, request);
            return counts ? counts->chromaticity.at(row * cells + column) : 0U;
        };
        EXPECT_EQ(cellOf(cells / 3, cells * 2 / 3), 600U) << cells;
        request.toXYZ[2].fill(0.0625 +
                              std::ldexp(1, -ScopeRequest::xyzBits)); // the least that it can have more
        EXPECT_EQ(cellOf(cells / 3 - 1, cells * 2 / 3 - 1), 600U) << cells;
    }
}

TEST_F(ScopesTest, ChromaticityIsWhereTheLightLies)
{
    const ScopeRequest request = colourRequest(90, 256);
    struct Colour
    {
        std::vector<std::uint8_t> texel;
        double x;
        double y;
    };
    const std::vector<Colour> colours{{{255, 255, 0, 0}, 0.640, 0.330},
                                      {{255, 0, 255, 0}, 0.300, 0.600},
                                      {{255, 0, 0, 255}, 0.150, 0.060},
                                      {{255, 200, 200, 200}, 0.3127, 0.3290}};
    for (const Colour& colour : colours) {
        const XY<int> size{30, 20};
        const std::optional<ScopeCounts> counts =
            count({size, iGPUImage::eARGB8, filled(size, colour.texel)}, request);
        ASSERT_TRUE(counts);
        const auto most = std::max_element(counts->chromaticity.begin(), counts->chromaticity.end());
        EXPECT_EQ(*most, 600U);
        const auto cell = static_cast<unsigned>(most - counts->chromaticity.begin());
        const double step = ScopeCounts::chromaticityEnd / request.chromaticity;
        EXPECT_NEAR((cell % request.chromaticity + 0.5) * step, colour.x, 0.5001 * step + 1e-4);
        EXPECT_NEAR((cell / request.chromaticity + 0.5) * step, colour.y, 0.5001 * step + 1e-4);
    }
    const std::optional<ScopeCounts> black =
        count({{4, 4}, iGPUImage::eARGB8, filled({4, 4}, {255, 0, 0, 0})}, request);
    ASSERT_TRUE(black);
    EXPECT_EQ(std::count(black->chromaticity.begin(), black->chromaticity.end(), 0U), 90 * 90);
}

TEST_F(ScopesTest, APictureIsCountedAsItWasDrawnLast)
{
    const XY<int> size{64, 64};
    const Qx::Ptr<iGPUImage> image = upload(size, iGPUImage::eARGB8, filled(size, {255, 255, 255, 255}));
    const ScopeRequest request = videoRequest(256);
    for (const std::uint8_t code : Bytes{0, 100, 255}) {
        const Qx::Ptr<iGPUImage> next =
            upload(size, iGPUImage::eARGB8, filled(size, {255, code, code, code}));
        ASSERT_TRUE(gpu().copyImage(next, image));
        const std::optional<ScopeCounts> counts = gpu().countScopes(image, request);
        ASSERT_TRUE(counts);
        const auto row = static_cast<std::size_t>(std::floor(16.5 + 219.0 * code / 255));
        const auto begin = counts->luma.begin() + static_cast<std::ptrdiff_t>(row * request.columns);
        EXPECT_EQ(std::accumulate(begin, begin + request.columns, 0U), 64U * 64U) << int{code};
        EXPECT_EQ(download(image), filled(size, {255, code, code, code}));
    }
}

TEST_F(ScopesTest, CodesBeyondTheScopeCountAsTheNearest)
{
    ScopeRequest request = videoRequest(256);
    request.luma = {250, {20, 0, 0}};
    request.red = {20, {-60, 0, 0}};
    const XY<int> size{8, 8};
    const std::optional<ScopeCounts> none =
        count({size, iGPUImage::eARGB8, filled(size, {255, 255, 0, 0})}, request);
    EXPECT_FALSE(none) << "a code below 0 cannot be counted";
    request.red = {60, {-60, 0, 0}};
    const std::optional<ScopeCounts> counts =
        count({size, iGPUImage::eARGB8, filled(size, {255, 255, 0, 0})}, request);
    ASSERT_TRUE(counts);
    EXPECT_EQ(counts->luma[std::size_t{255} * request.columns], 8U);
    EXPECT_EQ(counts->red[0], 8U);
}

TEST_F(ScopesTest, RequestsOutOfTheirLimitsAreRefused)
{
    const Picture picture = noisePicture({16, 16}, iGPUImage::eARGB8);
    const auto isCounted = [&](const std::function<void(ScopeRequest&)>& change) {
        ScopeRequest request = videoRequest(256);
        change(request);
        return count(picture, request).has_value();
    };
    EXPECT_TRUE(isCounted([](ScopeRequest&) {}));
    EXPECT_FALSE(isCounted([](ScopeRequest& request) { request.columns = 0; }));
    EXPECT_FALSE(isCounted([](ScopeRequest& request) { request.columns = 4097; }));
    EXPECT_FALSE(isCounted([](ScopeRequest& request) { request.levels = 1; }));
    EXPECT_FALSE(isCounted([](ScopeRequest& request) { request.levels = 1025; }));
    EXPECT_FALSE(isCounted([](ScopeRequest& request) { request.vectorscope = 1025; }));
    EXPECT_FALSE(isCounted([](ScopeRequest& request) { request.luma.weights[0] = NAN; }));
    EXPECT_FALSE(isCounted([](ScopeRequest& request) { request.luma.offset = INFINITY; }));
    EXPECT_FALSE(isCounted([](ScopeRequest& request) { request.chromaticity = 90; })) << "without light";
    const auto withLight = [&](const std::function<void(ScopeRequest&)>& change) {
        return isCounted([&](ScopeRequest& request) {
            request = colourRequest(90, 256);
            change(request);
        });
    };
    EXPECT_TRUE(withLight([](ScopeRequest&) {}));
    EXPECT_FALSE(withLight([](ScopeRequest& request) { request.light.push_back(1); }));
    EXPECT_FALSE(withLight([](ScopeRequest& request) { request.light[7] = 1.01; }));
    EXPECT_FALSE(withLight([](ScopeRequest& request) { request.light[7] = NAN; }));
    EXPECT_FALSE(withLight([](ScopeRequest& request) { request.toXYZ[1][2] = 1.11; }));
    EXPECT_FALSE(withLight([](ScopeRequest& request) { request.chromaticity = 513; }));
    EXPECT_FALSE(gpu().countScopes({}, videoRequest(256)));
}

} // namespace Qx::GpuTests
