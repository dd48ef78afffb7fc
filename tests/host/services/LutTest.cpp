#include "host/luts/LUTReader.h"
#include "platform/CubeLUT.h"
#include "tests/host/services/LutSamples.h"
#include "tests/host/services/Support.h"

#include <OpenColorIO/OpenColorIO.h>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <random>
#include <set>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Qx::Host::Test {
namespace {

using Colour = std::array<float, 3>;

/// Colours without a pattern and grey ones, all over a table's domain.
std::vector<Colour> coloursIn(const TableDomain& domain)
{
    std::mt19937 random(7);
    std::uniform_real_distribution<float> part(0.0F, 1.0F);
    std::vector<Colour> colours;
    for (int i = 0; i < 8000; ++i) {
        const float grey = static_cast<float>(i) / 7999.0F;
        Colour colour;
        Colour ramp;
        for (std::size_t c = 0; c < 3; ++c) {
            colour[c] = domain.min[c] + part(random) * (domain.max[c] - domain.min[c]);
            ramp[c] = domain.min[c] + grey * (domain.max[c] - domain.min[c]);
        }
        colours.push_back(colour);
        colours.push_back(ramp);
    }
    return colours;
}

/// The colours as OpenColorIO changes them.
std::vector<Colour> judged(const std::filesystem::path& file, std::vector<Colour> colours)
{
    namespace OCIO = OCIO_NAMESPACE;
    OCIO::ClearAllCaches();
    const auto transform = OCIO::FileTransform::Create();
    transform->setSrc(file.c_str());
    transform->setInterpolation(OCIO::INTERP_BEST);
    transform->setCCCId("0");
    const auto cpu = OCIO::Config::CreateRaw()->getProcessor(transform)->getOptimizedCPUProcessor(
        OCIO::OPTIMIZATION_NONE); // by default, inverse tables are coarse ones
    OCIO::PackedImageDesc image(colours.data(), static_cast<long>(colours.size()), 1, 3);
    cpu->apply(image);
    return colours;
}

double worstDifference(const std::vector<Colour>& a, const std::vector<Colour>& b)
{
    double worst = 0.0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        for (std::size_t c = 0; c < 3; ++c) {
            worst = std::max(worst, std::abs(static_cast<double>(a[i][c]) - static_cast<double>(b[i][c])));
        }
    }
    return worst;
}

std::vector<Colour> through(const iHostImage3D& table, std::vector<Colour> colours)
{
    for (Colour& colour : colours) {
        colour = lookUp(table, colour);
    }
    return colours;
}

std::vector<float> entriesOf(const iHostImage3D& table)
{
    const int edge = table.getSize();
    return {table.getData(), table.getData() + 4L * edge * edge * edge};
}

class LutTest : public testing::Test
{
protected:
    LUTTableReading read(const std::string& name, std::string_view text)
    {
        return readLUTTable(directory_.write(name, text));
    }

    /// What is wrong with a file, its path cut off.
    std::string refusal(const std::string& name, std::string_view text)
    {
        const LUTTableReading reading = read(name, text);
        EXPECT_FALSE(reading.table) << name;
        EXPECT_EQ(reading.failure.find('\n'), std::string::npos) << reading.failure;
        const std::string path = (directory_ / name).native();
        EXPECT_EQ(reading.failure.substr(0, path.size()), path);
        return reading.failure.substr(std::min(path.size(), reading.failure.size()));
    }

    std::string cubeRefusal(std::string_view text) { return refusal("bad.cube", text); }

    TemporaryDirectory directory_;
};

const std::string identity2 = "0 0 0\n1 0 0\n0 1 0\n1 1 0\n0 0 1\n1 0 1\n0 1 1\n1 1 1\n";

TEST_F(LutTest, EveryKindOfFileGivesWhatOpenColorIOGives)
{
    for (const LutSample& sample : lutSamples()) {
        const std::filesystem::path file = directory_.write(sample.name, sample.text);
        const LUTTableReading reading = readLUTTable(file);
        ASSERT_TRUE(reading.table) << reading.failure;
        if (sample.edge > 0) {
            EXPECT_EQ(reading.table->getSize(), sample.edge) << sample.name;
        }
        EXPECT_EQ(reading.baked, sample.baked) << sample.name;
        const std::vector<Colour> colours = coloursIn(reading.table->getDomain());
        const double worst = worstDifference(through(*reading.table, colours), judged(file, colours));
        EXPECT_LE(worst, reading.error + 3e-6) << sample.name << ": " << reading.facts.contents;
        EXPECT_TRUE(sample.baked || reading.error == 0.0) << sample.name;
        // All of these are gentle. discreet.lut's curves are rounded to 8 bits, which a grid smooths.
        EXPECT_LE(reading.error, sample.name == "discreet.lut" ? 0.006 : 0.25 / 1023) << sample.name;
    }
}

/// As surfaces show it.
std::vector<Colour> shown(std::vector<Colour> colours)
{
    for (Colour& colour : colours) {
        for (float& value : colour) {
            value = std::clamp(value, 0.0F, 1.0F);
        }
    }
    return colours;
}

/// Codes of 10 and 16 bits: ramps of grey and of the channels, and others without a pattern. They are not
/// those that the reader tries.
std::vector<Colour> codesOfBothDepths()
{
    std::mt19937 random(77);
    std::vector<Colour> colours;
    for (const unsigned most : {1023U, 65535U}) {
        const auto code = [&](std::size_t c) { return static_cast<float>(static_cast<double>(c) / most); };
        for (std::size_t i = 0; i <= most; i += most == 1023U ? 1 : 7) {
            const float x = code(i);
            colours.push_back({x, x, x});
            colours.push_back({x, 0.25F, 1});
            colours.push_back({1, x, 0});
            colours.push_back({0.5F, 0.75F, x});
        }
        for (int i = 0; i < 10000; ++i) {
            const float r = code(random() % (most + 1));
            const float g = code(random() % (most + 1));
            colours.push_back({r, g, code(random() % (most + 1))});
        }
    }
    return colours;
}

std::vector<Colour> through(const LUTSteps& steps, std::vector<Colour> colours)
{
    for (Colour& colour : colours) {
        colour = Host::apply(steps, colour);
    }
    return colours;
}

TEST_F(LutTest, StepsOfEveryKindAreWithinAQuarterOfATenBitCodeOfOpenColorIO)
{
    const std::vector<Colour> colours = codesOfBothDepths();
    std::vector<LutSample> samples = stepSamples();
    for (const LutSample& sample : lutSamples()) {
        samples.push_back(sample);
    }
    for (const LutSample& sample : samples) {
        const std::filesystem::path file = directory_.write(sample.name, sample.text);
        const LUTReading reading = readLUT(file);
        ASSERT_FALSE(reading.steps.empty()) << reading.failure;
        const double worst =
            worstDifference(shown(through(reading.steps, colours)), shown(judged(file, colours)));
        EXPECT_LE(worst, largestLUTError) << sample.name << ": " << reading.facts.contents;
        EXPECT_LE(reading.error, largestLUTError) << sample.name;
    }
}

TEST_F(LutTest, StepsAreWhatTheFileIsMadeOf)
{
    const auto kinds = [&](const std::string& name) {
        for (const LutSample& sample : stepSamples()) {
            if (sample.name == name) {
                std::string result;
                const LUTReading reading = readLUT(directory_.write(sample.name, sample.text));
                for (const LUTStep& step : reading.steps) {
                    result += "cmti"[step.index()];
                }
                return result;
            }
        }
        return std::string("no such sample");
    };
    EXPECT_EQ(kinds("steep.cube"), "c");
    EXPECT_EQ(kinds("shaped.cube"), "ct");
    EXPECT_EQ(kinds("range.clf"), "c");
    EXPECT_EQ(kinds("half-range.clf"), "cm");
    EXPECT_EQ(kinds("around-table.clf"), "ctc");
    EXPECT_EQ(kinds("display.clf"), "cmc");
    EXPECT_EQ(kinds("saturated.cc"), "cm");
    EXPECT_EQ(kinds("strict.clf"), "cmc");
    EXPECT_EQ(kinds("strict-back.clf"), "cmc");
    EXPECT_EQ(kinds("inverse-table.ctf"), "i");
    EXPECT_EQ(kinds("trilinear.clf"), "t");
}

TEST_F(LutTest, CurvesOfAFileKeepTheirPoints)
{
    const LUTReading reading =
        readLUT(directory_.write("points.cube", "LUT_1D_SIZE 3\nLUT_1D_INPUT_RANGE -1 3\n"
                                                "0 0.5 1\n-2 0.25 7\n1 1 1\n"));
    ASSERT_EQ(reading.steps.size(), 1U) << reading.failure;
    const auto& curves = std::get<LUTCurves>(reading.steps[0]);
    EXPECT_EQ(curves.points, (std::vector<Colour>{{0, 0.5F, 1}, {-2, 0.25F, 7}, {1, 1, 1}}));
    EXPECT_EQ(curves.domain.min, (Colour{-1, -1, -1}));
    EXPECT_EQ(curves.domain.max, (Colour{3, 3, 3}));
    EXPECT_EQ(Host::apply(reading.steps, {-1, 1, 2}), (Colour{0, 0.25F, 4}));
    EXPECT_EQ(Host::apply(reading.steps, {-9, 9, 9}), (Colour{0, 1, 1})) << "clamped to the domain";
}

TEST_F(LutTest, WhatStepsCannotFollowIsRefusedWithItsErrorAndColour)
{
    const std::filesystem::path file = directory_.write(
        "hue.ctf", ctf("<FixedFunction inBitDepth=\"32f\" outBitDepth=\"32f\" style=\"RGB_TO_HSV\"/>"));
    const LUTReading reading = readLUT(file);
    EXPECT_TRUE(reading.steps.empty());
    const std::string expected = file.native() +
                                 ": it holds a formula, which cannot be drawn to a quarter of a "
                                 "code of 10 bits: the colour ";
    EXPECT_EQ(reading.failure.substr(0, expected.size()), expected) << reading.failure;
    EXPECT_NE(reading.failure.find("would be off by "), std::string::npos) << reading.failure;
    EXPECT_EQ(reading.failure.find("e+"), std::string::npos) << reading.failure;
    EXPECT_TRUE(readLUTTable(file).table) << "hosts that draw one table get the best there is";
}

TEST_F(LutTest, InverseTablesAndCurvesAreCalledSo)
{
    for (const LutSample& sample : stepSamples()) {
        const std::string contents = readLUT(directory_.write(sample.name, sample.text)).facts.contents;
        if (sample.name == "inverse-table.ctf") {
            EXPECT_EQ(contents, "the inverse of a 3D table of 5 points an edge");
        } else if (sample.name == "inverse-curve.ctf") {
            EXPECT_EQ(contents, "the inverse of curves of 65 points");
        } else {
            EXPECT_EQ(contents.find("inverse"), std::string::npos) << contents;
        }
    }
}

TEST_F(LutTest, ErrorsAreInTenBitCodesWithoutExponents)
{
    EXPECT_EQ(lutErrorInCodes(150.0 / 1023), "150 codes of 10 bits");
    EXPECT_EQ(lutErrorInCodes(0.126 / 1023), "0.13 codes of 10 bits");
}

TEST_F(LutTest, AFileIsOpenedOnce)
{
    for (const LutSample& sample : {stepSamples().front(), stepSamples()[2]}) {
        const std::filesystem::path file = directory_.write(sample.name, sample.text);
        const int watch = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        ASSERT_GE(watch, 0);
        ASSERT_GE(::inotify_add_watch(watch, file.c_str(), IN_OPEN | IN_CLOSE), 0);
        EXPECT_FALSE(readLUT(file).steps.empty());
        std::array<char, 4096> events{};
        const ssize_t bytes = ::read(watch, events.data(), events.size());
        ::close(watch);
        EXPECT_EQ(bytes, static_cast<ssize_t>(2 * sizeof(inotify_event)))
            << sample.name << ": opened, closed";
    }
}

TEST_F(LutTest, CLFOfOtherNamespacesIsTheSame)
{
    const std::string element =
        "<P:Matrix inBitDepth=\"32f\" outBitDepth=\"32f\"><P:Array dim=\"3 3\">0.5 0 0 0 1 0 0 0 "
        "1</P:Array></P:Matrix>\n</P:ProcessList>\n";
    const auto with = [&](const std::string& root, const std::string& prefix) {
        std::string text = "<?xml version=\"1.0\"?>\n<" + prefix + "ProcessList " + root + ">\n" + element;
        for (std::size_t at = 0; (at = text.find("P:", at)) != std::string::npos;) {
            const bool own = at > 0 && (text[at - 1] == '<' || text[at - 1] == '/') && prefix != "P:";
            text.replace(at, own ? 2 : 0, own ? prefix : "");
            at += own ? prefix.size() : 2;
        }
        return text;
    };
    const std::string ampas = "\"urn:AMPAS:CLF:v3.0\" id=\"m\" compCLFversion=\"3.0\"";
    const std::string smpte = "\"http://www.smpte-ra.org/ns/2136-1/2024\"";
    for (const std::string& text :
         {with("xmlns=" + ampas, ""), with("xmlns:clf=" + ampas, "clf:"), with("xmlns=" + smpte, ""),
          with("xmlns=" + smpte + " id=\"m\"", ""), with("xmlns:lut=" + smpte, "lut:")}) {
        const LUTReading reading = readLUT(directory_.write("other.clf", text));
        ASSERT_FALSE(reading.steps.empty()) << reading.failure << "\n" << text;
        EXPECT_EQ(Host::apply(reading.steps, {1, 1, 1}), (Colour{0.5F, 1, 1})) << text;
    }
}

TEST_F(LutTest, CLFOfOtherNamespacesMaySpellItsRootAsXMLAllows)
{
    const std::string smpte = "http://www.smpte-ra.org/ns/2136-1/2024";
    const auto elements = [](const std::string& prefix, const std::string& numbers) {
        return "<" + prefix + "Matrix inBitDepth=\"32f\" outBitDepth=\"32f\">\n<" + prefix +
               "Array dim=\"3 3\">" + numbers + "</" + prefix + "Array></" + prefix + "Matrix></" + prefix +
               "ProcessList>\n";
    };
    const std::vector<std::string> roots{
        "<ProcessList xmlns = '" + smpte + "' id = \"m\">",
        "<a:ProcessList xmlns:a = \"" + smpte + "\" id=\"m\">",
        "<ProcessList name=\"1 > 0\" xmlns=\"" + smpte + "\">",
        "<a:ProcessList name=\"an id=5 of 1 > 0\"\nxmlns:a=\"" + smpte + "\">",
    };
    for (const std::string& root : roots) {
        const std::string prefix = root.substr(1, 2) == "a:" ? "a:" : "";
        const std::string text = root + elements(prefix, "0.5 0 0 0 1 0 0 0 1");
        const LUTReading reading = readLUT(directory_.write("root.clf", text));
        ASSERT_FALSE(reading.steps.empty()) << reading.failure << "\n" << text;
        EXPECT_EQ(Host::apply(reading.steps, {1, 1, 1}), (Colour{0.5F, 1, 1})) << text;
    }
    const std::string split = "<ProcessList xmlns=\"" + smpte + "\n\" id=\"m\">";
    EXPECT_EQ(refusal("split.clf", split + elements("", "0.5 0 0 0 x 0 0 0 1")).substr(0, 3), ":3:")
        << "the lines of a value count";
}

TEST_F(LutTest, ARootThatIsNotWellFormedIsLeftToTheReaderOfXML)
{
    const std::string cause =
        refusal("root.clf", "<ProcessList/a:b xmlns=\"http://www.smpte-ra.org/ns/2136-1/2024\"/>\n");
    EXPECT_EQ(cause.substr(0, 3), ":1:") << cause;
    EXPECT_EQ(cause.find("basic_string"), std::string::npos) << cause;
}

TEST_F(LutTest, RefusalsOfOtherReadersNameThePathOnceAndTheLine)
{
    const auto failure = [&](const std::string& name, const std::string& text) {
        const std::filesystem::path file = directory_.write(name, text);
        const std::string said = readLUT(file).failure;
        EXPECT_EQ(said.find(file.native()), 0U) << said;
        EXPECT_EQ(said.find(file.native(), 1), std::string::npos) << said;
        EXPECT_EQ(said.find("qxhost-lut"), std::string::npos) << said;
        return said.substr(std::min(said.size(), file.native().size()));
    };
    EXPECT_EQ(
        failure("bad.clf", clf("\n<Matrix inBitDepth=\"32f\" outBitDepth=\"32f\">\n<Array dim=\"3 3\">1 0 0\n"
                               "0 x 0\n0 0 1</Array></Matrix>"))
            .substr(0, 3),
        ":4:")
        << "where the element begins";
    EXPECT_EQ(
        failure("short.spi1d", "Version 1\nFrom 0 1\nLength 2\nComponents 1\n{\n0\nx\n}\n").substr(0, 3),
        ":7:");
}

TEST_F(LutTest, ALineBehindTheEndThatAFileSpeaksOfIsNotTheMistakesLine)
{
    const std::string cause = refusal("quoted.spi3d", "SPILOT on line 9999\n3 3\n2 2 2\n0 0 0 0 0.5 0\n");
    EXPECT_EQ(cause.substr(0, 2), ": ") << cause;
    EXPECT_NE(cause.find("9999"), std::string::npos) << cause;
}

TEST_F(LutTest, ACauseIsOfALineAlsoIfAFileLooksLikeTheCausesOfManyReaders)
{
    std::string text = "SPILOT";
    for (int i = 0; i < 1000; ++i) {
        text += "' failed with: it is no " + std::to_string(i);
    }
    const std::string cause = refusal("many.spi3d", text + "\n3 3\n2 2 2\n0 0 0 0 0.5 0\n");
    EXPECT_LT(cause.size(), 1200U) << cause;
    EXPECT_EQ(cause.substr(cause.size() - 10), "; and more");
}

TEST_F(LutTest, EveryKindIsAmongTheSupportedTypes)
{
    Qx::Vector<LightweightString<wchar_t>> types;
    types.push_back(L"first");
    CubeLUT::getSupportedFileTypes(types);
    EXPECT_EQ(types.at(0), L"first");
    std::set<std::wstring> known;
    for (const auto& type : types) {
        EXPECT_TRUE(known.insert(std::wstring(type.view())).second) << narrow(type);
    }
    for (const LutSample& sample : lutSamples()) {
        const std::string extension = sample.name.substr(sample.name.rfind('.') + 1);
        EXPECT_TRUE(known.count({extension.begin(), extension.end()})) << extension;
    }
}

TEST_F(LutTest, ACommaAsDecimalPointChangesNothing)
{
    for (const LutSample& sample : lutSamples()) {
        const std::filesystem::path file = directory_.write(sample.name, sample.text);
        const LUTTableReading before = readLUTTable(file);
        const DecimalComma comma;
        const LUTTableReading with = readLUTTable(file);
        ASSERT_TRUE(before.table && with.table) << before.failure << with.failure;
        EXPECT_EQ(entriesOf(*before.table), entriesOf(*with.table)) << sample.name;
        EXPECT_EQ(before.table->getDomain().min, with.table->getDomain().min) << sample.name;
        EXPECT_EQ(before.table->getDomain().max, with.table->getDomain().max) << sample.name;
    }
}

TEST_F(LutTest, ACubesEntriesStayAsTheyAreOutsideZeroToOneToo)
{
    const LUTTableReading reading =
        read("a.cube", "LUT_3D_SIZE 2\n-0.25 1e-7 12.5\n1 0 0\n0 1 0\n1 1 0\n0 0 1\n"
                       "+1.0 .5 1.\n0 1 1\n3e4 -2 0.1\n");
    ASSERT_TRUE(reading.table) << reading.failure;
    const std::vector<float> entries = entriesOf(*reading.table);
    EXPECT_EQ((std::vector<float>(entries.begin(), entries.begin() + 8)),
              (std::vector<float>{-0.25F, 1e-7F, 12.5F, 1.0F, 1.0F, 0.0F, 0.0F, 1.0F}));
    EXPECT_EQ(entries[4 * 5 + 1], 0.5F);
    EXPECT_EQ(entries[4 * 7], 3e4F);
    EXPECT_EQ(entries[4 * 7 + 2], 0.1F);
    EXPECT_FALSE(reading.baked);
    EXPECT_EQ(reading.error, 0.0);
}

TEST_F(LutTest, EveryDialectOfCubeGivesTheSameTable)
{
    const LUTTableReading plain = read("plain.cube", "LUT_3D_SIZE 2\n" + identity2);
    ASSERT_TRUE(plain.table) << plain.failure;
    std::string crlf = "# made elsewhere\nTITLE \"a # title\"\nLUT_3D_SIZE 2\n\n" + identity2;
    for (std::size_t at = 0; (at = crlf.find('\n', at)) != std::string::npos; at += 2) {
        crlf.replace(at, 1, "\r\n");
    }
    std::string cr = "LUT_3D_SIZE 2\n" + identity2;
    std::replace(cr.begin(), cr.end(), '\n', '\r');
    std::string tabs = "\tLUT_3D_SIZE\t2  \n" + identity2;
    std::replace(tabs.begin() + 1, tabs.end(), ' ', '\t');
    for (const std::string& text :
         {crlf, cr, tabs, "\xEF\xBB\xBFLUT_3D_SIZE 2\n" + identity2,
          "LUT_3D_SIZE 2\n" + identity2.substr(0, identity2.size() - 1),
          "DOMAIN_MIN 0 0 0\nDOMAIN_MAX 1 1 1\nLUT_3D_SIZE 2\n" + identity2,
          "LUT_3D_INPUT_RANGE 0.0 1.0\nLUT_3D_SIZE 2\n\n#\n" + identity2 + "\n\n# the end",
          "LUT_3D_SIZE 2 # points\n0 0 0 # black\n" + identity2.substr(6)}) {
        const LUTTableReading reading = read("dialect.cube", text);
        ASSERT_TRUE(reading.table) << reading.failure << "\n" << text;
        EXPECT_EQ(entriesOf(*reading.table), entriesOf(*plain.table)) << text;
        EXPECT_EQ(reading.table->getDomain().max, plain.table->getDomain().max);
    }
    EXPECT_EQ(read("titled.cube", crlf).facts.title, "a # title");
}

TEST_F(LutTest, ACubesDomainTravelsWithItsTable)
{
    const LUTTableReading domain =
        read("a.cube", "LUT_3D_SIZE 2\nDOMAIN_MIN -1 0 0.25\nDOMAIN_MAX 2 4 0.5\n" + identity2);
    ASSERT_TRUE(domain.table) << domain.failure;
    EXPECT_EQ(domain.table->getDomain().min, (Colour{-1, 0, 0.25F}));
    EXPECT_EQ(domain.table->getDomain().max, (Colour{2, 4, 0.5F}));
    EXPECT_EQ(lookUp(*domain.table, {0.5F, 1, 0.25F}), (Colour{0.5F, 0.25F, 0}));
    EXPECT_EQ(lookUp(*domain.table, {-9, 99, 0.5F}), (Colour{0, 1, 1})) << "clamped to the domain";

    const LUTTableReading range = read("b.cube", "LUT_3D_SIZE 2\nLUT_3D_INPUT_RANGE -0.5 1.5\n" + identity2);
    ASSERT_TRUE(range.table) << range.failure;
    EXPECT_EQ(range.table->getDomain().min, (Colour{-0.5F, -0.5F, -0.5F}));
    EXPECT_EQ(range.table->getDomain().max, (Colour{1.5F, 1.5F, 1.5F}));
}

TEST_F(LutTest, ASteepCurveStatesAnErrorThatHolds)
{
    std::string text = "LUT_1D_SIZE 4096\n";
    for (int i = 0; i < 4096; ++i) {
        const std::string value = std::to_string(std::pow(i / 4095.0, 1 / 2.4));
        text += value + " " + value + " " + value + "\n";
    }
    const std::filesystem::path file = directory_.write("steep.cube", text);
    const LUTTableReading reading = readLUTTable(file);
    ASSERT_TRUE(reading.table) << reading.failure;
    EXPECT_EQ(reading.table->getSize(), mostTableEdge) << "the finest grid, where none is fine enough";
    EXPECT_GT(reading.error, 0.25 / 1023);
    const std::vector<Colour> colours = coloursIn(reading.table->getDomain());
    const double worst = worstDifference(through(*reading.table, colours), judged(file, colours));
    EXPECT_LE(worst, reading.error);
    EXPECT_GE(worst, reading.error / 4) << "stated far too large";
}

TEST_F(LutTest, MistakesInACubeAreNamedWithTheirLine)
{
    EXPECT_EQ(cubeRefusal("LUT_3D_SIZE 2\n0 0 0\n"), ":2: the file ends after 1 of 8 entries");
    EXPECT_EQ(cubeRefusal("LUT_3D_SIZE 2\n" + identity2 + "1 1 1\n"),
              ":10: more entries than the 8 entries announced");
    EXPECT_EQ(cubeRefusal("LUT_3D_SIZE 2\n0 0 nan\n"), ":2: \"nan\" is not a finite number");
    EXPECT_EQ(cubeRefusal("LUT_3D_SIZE 2\n\n0 -inf 0\n"), ":3: \"-inf\" is not a finite number");
    EXPECT_EQ(cubeRefusal("LUT_3D_SIZE 2\n0 1.#INF 0\n"), ":2: \"1.#INF\" is not a finite number");
    EXPECT_EQ(cubeRefusal("LUT_3D_SIZE 2\n0 0 1e60\n"), ":2: \"1e60\" is not a finite number");
    EXPECT_EQ(cubeRefusal("LUT_3D_SIZE 2\n0,5 0 0\n"),
              ":2: \"0,5\" is not a number; decimals are written with a point");
    EXPECT_EQ(cubeRefusal("LUT_3D_SIZE 2\n0 0x1 0\n"), ":2: \"0x1\" is not a number");
    EXPECT_EQ(cubeRefusal("LUT_3D_SIZE 2\n0 0\n"), ":2: expected 3 numbers, found 2");
    EXPECT_EQ(cubeRefusal("LUT_3D_SIZE 2\n0 0 0 0\n"), ":2: expected 3 numbers, found 4");
    EXPECT_EQ(cubeRefusal("LUT_3D_SIZE 130\n"), ":1: LUT_3D_SIZE is 130: expected 2 to 129");
    EXPECT_EQ(cubeRefusal("LUT_3D_SIZE 99999999999999999999\n"),
              ":1: LUT_3D_SIZE is 9223372036854775807: expected 2 to 129");
    EXPECT_EQ(cubeRefusal("LUT_3D_SIZE -2\n"), ":1: LUT_3D_SIZE is -2: expected 2 to 129");
    EXPECT_EQ(cubeRefusal("LUT_1D_SIZE 65537\n"), ":1: LUT_1D_SIZE is 65537: expected 2 to 65536");
    EXPECT_EQ(cubeRefusal("LUT_3D_SIZE\n"), ":1: LUT_3D_SIZE: expected one whole number");
    EXPECT_EQ(cubeRefusal("LUT_3D_SIZE 2.5\n"), ":1: LUT_3D_SIZE: expected one whole number");
    EXPECT_EQ(cubeRefusal("LUT_3D_SIZE 2\nLUT_3D_SIZE 2\n"), ":2: LUT_3D_SIZE is given twice");
    EXPECT_EQ(cubeRefusal("0 0 0\n"), ":1: entries before any LUT_1D_SIZE or LUT_3D_SIZE");
    EXPECT_EQ(cubeRefusal("# nothing\n"), ":1: there is no LUT_1D_SIZE and no LUT_3D_SIZE");
    EXPECT_EQ(cubeRefusal("LUT_3D_SIZE 2\nSIZE 3\n"), ":2: unknown keyword \"SIZE\"");
    EXPECT_EQ(cubeRefusal("LUT_3D_SIZE 2\n0 0 0\nTITLE \"late\"\n"),
              ":3: keyword \"TITLE\" after the first entry");
    EXPECT_EQ(cubeRefusal("LUT_3D_SIZE 2\nDOMAIN_MAX 1 0 1\nTITLE \"x\"\n0 0 0\n"),
              ":2: the domain's upper end is not above its lower one");
    EXPECT_EQ(cubeRefusal("DOMAIN_MIN 0 0\n"), ":1: expected 3 numbers, found 2");
    EXPECT_EQ(cubeRefusal(std::string("\x7f"
                                      "ELF\0\0\0\n\x1b[31m",
                                      13)),
              ":1: \"\\x7fELF\\x00\\x00\\x00\" is neither a number nor a keyword of .cube files");
}

TEST_F(LutTest, WhatIsNoFileIsRefusedAtOnce)
{
    const auto cause = [&](const std::string& name) {
        const std::string path = (directory_ / name).native();
        const LUTTableReading reading = readLUTTable(path);
        EXPECT_FALSE(reading.table);
        return reading.failure.substr(path.size());
    };
    EXPECT_EQ(cause("missing.cube"), ": there is no such file");
    std::filesystem::create_directory(directory_ / "dir.cube");
    EXPECT_EQ(cause("dir.cube"), ": this is a directory, not a LUT file");
    ASSERT_EQ(::mkfifo((directory_ / "pipe.cube").c_str(), 0600), 0);
    EXPECT_EQ(cause("pipe.cube"), ": this is not a regular file (a pipe, socket or device)");
    std::filesystem::create_symlink("/dev/zero", directory_ / "zero.spi3d");
    EXPECT_EQ(cause("zero.spi3d"), ": this is not a regular file (a pipe, socket or device)");
    std::filesystem::create_symlink("loop.cube", directory_ / "loop.cube");
    EXPECT_EQ(cause("loop.cube"),
              ": Too many levels of symbolic links; check the symbolic links of the path");
    EXPECT_EQ(refusal("empty.cube", ""), ": the file is empty");
    EXPECT_EQ(refusal("notes.txt", "LUT_3D_SIZE 2\n"), ": unknown LUT extension .txt");
    EXPECT_EQ(refusal("nothing", "LUT_3D_SIZE 2\n"), ": the name has no extension");
    directory_.write("huge.cube", "x");
    std::filesystem::resize_file(directory_ / "huge.cube", mostLUTBytes + 1); // a hole, no space
    EXPECT_EQ(cause("huge.cube"), ": the file has 134217729 bytes: expected at most 134217728");
}

TEST_F(LutTest, BrokenFilesOfOtherKindsAreRefusedInOneLine)
{
    const auto reason = [&](const std::string& name, const std::string& text) {
        const std::string cause = refusal(name, text);
        EXPECT_GT(cause.size(), 10U) << name;
        EXPECT_LT(cause.size(), 900U) << name;
        EXPECT_EQ(cause.find("All formats have been tried"), std::string::npos) << cause;
        return cause;
    };
    std::string junk;
    for (int i = 0; i < 5000; ++i) {
        junk += static_cast<char>(i * 7919 % 256);
    }
    for (const std::string& extension : lutExtensions()) {
        reason("junk." + extension, junk);
        reason("zeros." + extension, std::string(5000, '\0'));
    }
    for (const LutSample& sample : lutSamples()) {
        // An .itx, a .vf and their like cut off; formats that end early without harm are left out.
        const std::string extension = sample.name.substr(sample.name.rfind('.') + 1);
        if (extension != "spimtx") {
            reason("cut." + extension, sample.text.substr(0, sample.text.size() / 2));
        }
    }
    reason("large.spi3d", "SPILUT 1.0\n3 3\n100000 100000 100000\n");
    reason("large.csp",
           "CSPLUTV100\n3D\n\n2\n0 1\n0 1\n2\n0 1\n0 1\n2\n0 1\n0 1\n\n1000000 1000000 1000000\n");
    reason("large.vf", "#Inventor V2.1 ascii\ngrid_size 100000 100000 100000\ndata\n0 0 0\n");
    reason("large.itx", "LUT_3D_SIZE 100000\n0 0 0\n");
    reason("large.mga", "channel 3d\nin 2000000000\nout 4096\nformat lut\nvalues red green blue\n0 0 0 0\n");
    reason("large.spi1d", "Version 1\nFrom 0 1\nLength 2000000000\nComponents 1\n{\n0\n}\n");
    reason("negative.spi1d", "Version 1\nFrom 0 1\nLength -5\nComponents 1\n{\n0\n}\n");
    reason("large.cub", "# Truelight Cube v2.0\n# iDims 3\n# oDims 3\n# width 100000 100000 100000\n"
                        "# lutLength 2000000000\n# InputLUT\n0 0 0\n# Cube\n0 0 0\n# end\n");
    reason("negative.spi3d", "SPILUT 1.0\n3 3\n-3 3 3\n0 0 0 1 1 1\n");
    reason("outside.spi3d", "SPILUT 1.0\n3 3\n2 2 2\n5 -9 0 1 1 1\n");
    EXPECT_EQ(reason("nan.spi3d", "SPILUT 1.0\n3 3\n2 2 2\n0 0 0 0 0 0\n0 0 1 nan 0 0\n0 1 0 0 0 0\n"
                                  "0 1 1 0 0 0\n1 0 0 0 0 0\n1 0 1 0 0 0\n1 1 0 0 0 0\n1 1 1 0 0 0\n"),
              ":5: it holds a number that is not finite");
    EXPECT_EQ(reason("inf.spimtx", "1 0 0 0\n0 inf 0 0\n0 0 1 0\n"),
              ":2: it holds a number that is not finite");
    EXPECT_EQ(reason("elsewhere.ctf", "<ProcessList version=\"2\" id=\"m\"><Reference path=\"/dev/zero\"/>"),
              ": it refers to another file, which is not supported");
}

/// Elements of a CLF one after the other.
std::string repeated(const std::string& element, int count)
{
    std::string text;
    for (int i = 0; i < count; ++i) {
        text += element;
    }
    return text;
}

const std::string floatDepths = " inBitDepth=\"32f\" outBitDepth=\"32f\"";

std::string matrixOf(const std::string& numbers)
{
    return "<Matrix" + floatDepths + "><Array dim=\"3 3\">" + numbers + "</Array></Matrix>\n";
}

TEST_F(LutTest, NoSpellingOfAReferenceMakesTheReaderOpenAnotherFile)
{
    const std::filesystem::path other = directory_.write("other.spimtx", "0.5 0 0 0\n0 1 0 0\n0 0 1 0\n");
    const int watch = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    ASSERT_GE(watch, 0);
    ASSERT_GE(::inotify_add_watch(watch, other.c_str(), IN_OPEN), 0);
    const std::string attributes =
        " path=\"" + other.native() + "\" inBitDepth=\"32f\" outBitDepth=\"32f\"/>";
    const std::string root = "ProcessList version=\"2\" id=\"m\"";
    const std::string refers = ": it refers to another file, which is not supported";
    const std::string declares = ": it has a <!DOCTYPE> or <!ENTITY> declaration, which is not supported";
    EXPECT_EQ(refusal("prefix.ctf",
                      "<a:" + root + " xmlns:a=\"x\">\n<a:Reference" + attributes + "</a:ProcessList>\n"),
              refers);
    EXPECT_EQ(refusal("case.ctf", ctf("<rEFERENCE" + attributes)), refers);
    EXPECT_EQ(refusal("case.spi3d", ctf("<rEFERENCE" + attributes)), refers)
        << "every reader tries every text";
    const std::string entity = "DOCTYPE x [<!ENTITY r \"&#60;Reference path='" + other.native() +
                               "' inBitDepth='32f' outBitDepth='32f'/>\">]>\n";
    EXPECT_EQ(refusal("entity.ctf", "<!" + entity + "<" + root + ">&r;</ProcessList>\n"), declares);
    EXPECT_EQ(refusal("entity.csp", "<!" + entity + "<" + root + ">&r;</ProcessList>\n"), declares);
    EXPECT_EQ(refusal("shy.ctf", "<a:!" + entity + "<a:" + root + ">&r;</a:ProcessList>\n"), declares);
    // Two bytes a character; the comment is what the reader looks for before it reads.
    for (const bool marked : {true, false}) {
        std::string wide = marked ? "\xFF\xFE" : "";
        for (const char c : "<" + root + "><!--") {
            wide += {c, '\0'};
        }
        wide += "<ProcessList ";
        for (const char c : "--><Reference" + attributes + "</ProcessList>") {
            wide += {c, '\0'};
        }
        for (const char* name : {"wide.ctf", "wide.spimtx"}) {
            EXPECT_EQ(refusal(name, wide), ": it is XML in another encoding than UTF-8: save it as UTF-8");
        }
    }
    EXPECT_EQ(refusal("named.ctf", "<?xml version='1.0' encoding = 'utf-16'?>\n" + ctf("").substr(22)),
              ": it is XML in another encoding than UTF-8: save it as UTF-8");
    std::array<char, 4096> events{};
    EXPECT_EQ(::read(watch, events.data(), events.size()), -1) << "the other file was opened";
    ::close(watch);
    for (const char* encoding : {"utf-8", "US-ASCII"}) {
        const std::string text = clf(matrixOf("1 0 0 0 1 0 0 0 1"));
        EXPECT_TRUE(read("said.clf", "<?xml version='1.0' encoding='" + std::string(encoding) + "'?>" +
                                         text.substr(text.find('\n')))
                        .table)
            << encoding;
    }
}

TEST_F(LutTest, TablesOfOnePointAnEdgeAreRefused)
{
    const std::string table = "<LUT3D" + floatDepths + "><Array dim=\"1 1 1 3\">0.5 0.5 0.5</Array></LUT3D>";
    EXPECT_EQ(refusal("point.clf", clf(table)),
              ": it holds a 3D table of 1 points an edge: expected 2 to 129");
    EXPECT_EQ(refusal("later.clf", clf(matrixOf("1 1 0 0 1 0 0 0 1") + table)),
              ": it holds a 3D table of 1 points an edge: expected 2 to 129");
}

TEST_F(LutTest, TheNumberOfStepsIsLimited)
{
    const std::string correction =
        "<ASC_CDL" + floatDepths +
        " style=\"Fwd\"><SOPNode><Slope>1 1 1</Slope><Offset>0 0 0</Offset>"
        "<Power>1 1 1</Power></SOPNode><SatNode><Saturation>1.01</Saturation></SatNode></ASC_CDL>\n";
    EXPECT_EQ(refusal("many.clf", clf(repeated(correction, 65))), ": it has 65 steps: expected at most 64");
    const LUTReading most =
        readLUT(directory_.write("most.clf", clf(repeated(matrixOf("1 0.001 0 0 1 0 0 0 1"), 64))));
    EXPECT_EQ(most.steps.size(), 1U) << most.failure;
    EXPECT_EQ(most.facts.contents.substr(most.facts.contents.rfind(", then ")), ", then 56 more steps");
    EXPECT_LT(most.facts.contents.size(), 400U);
}

/// What a table of 33 points an edge has at a place, between its entries in tetrahedra.
class FilmTable
{
public:
    FilmTable()
    {
        for (std::size_t i = 0; i < entries_.size(); ++i) {
            const double r = static_cast<double>(i / edge / edge) / (edge - 1);
            const double g = static_cast<double>(i / edge % edge) / (edge - 1);
            const double b = static_cast<double>(i % edge) / (edge - 1);
            entries_[i] = {std::pow(r, 0.9) * 0.95 + 0.05 * g, g, std::pow(b, 1.2)};
        }
    }

    std::string text() const // blue runs fastest, as in CLF
    {
        std::string all =
            fmt::format("<InverseLUT3D{}><Array dim=\"{} {} {} 3\">\n", floatDepths, edge, edge, edge);
        for (const std::array<double, 3>& entry : entries_) {
            all += fmt::format("{:.9g} {:.9g} {:.9g}\n", entry[0], entry[1], entry[2]);
        }
        return all + "</Array></InverseLUT3D>";
    }

    Colour at(const std::array<double, 3>& place) const
    {
        std::array<std::size_t, 3> cell{};
        std::array<double, 3> part{};
        std::array<std::size_t, 3> order{0, 1, 2};
        for (std::size_t c = 0; c < 3; ++c) {
            const double scaled = place[c] * (edge - 1);
            cell[c] = std::min<std::size_t>(static_cast<std::size_t>(scaled), edge - 2);
            part[c] = scaled - static_cast<double>(cell[c]);
        }
        std::sort(order.begin(), order.end(),
                  [&](std::size_t a, std::size_t b) { return part[a] > part[b]; });
        std::array<double, 3> sum = entry(cell);
        for (const std::size_t axis : order) {
            const std::array<double, 3> before = entry(cell);
            ++cell[axis];
            for (std::size_t c = 0; c < 3; ++c) {
                sum[c] += part[axis] * (entry(cell)[c] - before[c]);
            }
        }
        return {static_cast<float>(sum[0]), static_cast<float>(sum[1]), static_cast<float>(sum[2])};
    }

private:
    static constexpr std::size_t edge = 33;

    const std::array<double, 3>& entry(const std::array<std::size_t, 3>& at) const
    {
        return entries_[(at[0] * edge + at[1]) * edge + at[2]];
    }

    std::vector<std::array<double, 3>> entries_ = std::vector<std::array<double, 3>>(edge * edge * edge);
};

TEST_F(LutTest, TheInverseOfATableNeverLeavesThePlaceOfAColourAtItsEdge)
{
    const FilmTable film;
    const LUTReading reading = readLUT(directory_.write("film.ctf", ctf(film.text())));
    ASSERT_EQ(reading.steps.size(), 1U) << reading.failure;
    std::mt19937 random(3);
    std::uniform_real_distribution<double> any(0.0, 1.0);
    for (const double codes : {255.0, 65535.0, 0.0}) { // rounded to codes, or not
        double worst = 0.0;
        std::array<double, 3> where{};
        for (int i = 0; i < 8000; ++i) {
            std::array<double, 3> place{any(random), any(random), any(random)};
            for (std::size_t c = 0; c < 3; ++c) {
                const int kind = static_cast<int>(random() % 4); // at either end, or beside it
                place[c] = kind == 0 ? 0.0 : kind == 1 ? 1.0 : kind == 2 ? 1.0 - place[c] * 1e-4 : place[c];
            }
            Colour wanted = film.at(place);
            for (float& value : wanted) {
                value = codes > 0.0 ? static_cast<float>(std::round(value * codes) / codes) : value;
            }
            const Colour found = Host::apply(reading.steps, wanted);
            for (std::size_t c = 0; c < 3; ++c) {
                const double off = std::abs(static_cast<double>(found[c]) - place[c]);
                where = off > worst ? place : where;
                worst = std::max(worst, off);
            }
        }
        // Rounding to codes moves a colour by half a code, perhaps out of the table, whence it comes back by
        // another half on the way to mid-grey. The table is at least half as steep as the identity.
        EXPECT_LE(worst, codes > 0.0 ? 2.2 / codes : 4e-6)
            << codes << " codes: " << where[0] << ' ' << where[1] << ' ' << where[2];
    }
}

TEST_F(LutTest, AnInverseWhoseSearchHasNoEndIsRefused)
{
    constexpr int edge = 65;
    std::string entries; // each cell has every colour, so that every place of the search has every cell
    for (int r = 0; r < edge; ++r) {
        for (int g = 0; g < edge; ++g) {
            for (int b = 0; b < edge; ++b) {
                entries += r % 2 == 0 ? "0 " : "1 ";
                entries += g % 2 == 0 ? "0 " : "1 ";
                entries += b % 2 == 0 ? "0\n" : "1\n";
            }
        }
    }
    const std::filesystem::path file =
        directory_.write("noise.ctf", ctf("<InverseLUT3D" + floatDepths + "><Array dim=\"65 65 65 3\">\n" +
                                          entries + "</Array></InverseLUT3D>"));
    const std::string cause =
        ": it holds the inverse of a 3D table in which too many places have the same colours";
    EXPECT_EQ(readLUT(file).failure, file.native() + cause);
    EXPECT_EQ(readLUTTable(file).failure, file.native() + cause);
}

TEST_F(LutTest, MarkupIsReadInOnePass)
{
    const std::string name = "xmlns:a=\"urn:AMPAS:CLF:v3.0\" id=\"m\" compCLFversion=\"3\"";
    const std::string matrix =
        "<a:Matrix" + floatDepths + "><a:Array dim=\"3 3\">0.5 0 0 0 1 0 0 0 1</a:Array></a:Matrix>";
    std::string prefixes;
    for (int i = 0; i < 120'000; ++i) {
        prefixes += "<!--<a:<a:<a:<a:<a:<a:<a:<a:<a:<a:-->\n"; // a million to take off
    }
    const LUTReading many = readLUT(directory_.write(
        "prefixes.clf", "<a:ProcessList " + name + ">\n" + prefixes + matrix + "</a:ProcessList>\n"));
    ASSERT_FALSE(many.steps.empty()) << many.failure;
    EXPECT_EQ(Host::apply(many.steps, {1, 1, 1}), (Colour{0.5F, 1, 1}));
    // Looked at from the back, every name is as long as all before it.
    EXPECT_EQ(refusal("roots.clf", repeated("ProcessList", 500'000)).substr(0, 2), ": ");
    const std::string longTag = ": it has a tag or comment of more than 65536 bytes";
    EXPECT_EQ(refusal("tag.clf", "<a:ProcessList " + name + repeated(" x=\">\"\n", 1'000'000)), longTag);
    EXPECT_EQ(refusal("comment.clf", clf("<!--" + repeated("<\n", 1'000'000) + "-->")), longTag);
    EXPECT_EQ(refusal("comment.cc", "<!--" + repeated("<\n", 1'000'000) + "-->"), longTag);
    EXPECT_EQ(refusal("comments.clf", clf(repeated("<!--" + repeated("<\n", 30'000) + "-->", 100))),
              ": its tags and comments have too many lines");
}

TEST_F(LutTest, TheLineOfANumberThatIsNotFiniteIsFoundInOnePass)
{
    constexpr int points = 200'000;
    EXPECT_EQ(refusal("long.spi1d", "Version 1\nFrom 0 1\nLength " + std::to_string(points) +
                                        "\nComponents 1\n{\n" + repeated("0\n", points - 1) + "inf\n}\n"),
              ":" + std::to_string(5 + points) + ": it holds a number that is not finite");
}

TEST_F(LutTest, AFileThatOpenColorIOCannotBeGivenLeavesNothingBehind)
{
    std::filesystem::path place = directory_ / "temporary";
    while (place.native().size() < 3800) {
        place /= std::string(200, 'd');
    }
    std::filesystem::create_directories(place);
    const char* before = std::getenv("TMPDIR");
    const std::optional<std::string> old =
        before != nullptr ? std::optional<std::string>(before) : std::nullopt;
    ::setenv("TMPDIR", place.c_str(), 1);
    const std::string cause = refusal(std::string(240, 'n') + ".spimtx", "1 0 0 0\n0 1 0 0\n0 0 1 0\n");
    old ? ::setenv("TMPDIR", old->c_str(), 1) : ::unsetenv("TMPDIR");
    EXPECT_NE(cause.find("File name too long"), std::string::npos) << cause;
    EXPECT_TRUE(std::filesystem::is_empty(place));
}

TEST_F(LutTest, ATableWhoseDomainIsNoFloatIsNotCalledExact)
{
    const std::string entries = "0.25 0.25 0.25\n" + repeated("1 1 1\n", 7);
    const LUTTableReading reading =
        read("far.clf", clf(matrixOf("1e-50 0 0 0 1e-50 0 0 0 1e-50") + "<LUT3D" + floatDepths +
                            "><Array dim=\"2 2 2 3\">\n" + entries + "</Array></LUT3D>"));
    ASSERT_TRUE(reading.table) << reading.failure;
    EXPECT_TRUE(reading.baked);
    EXPECT_EQ(lookUp(*reading.table, {1, 1, 1}), (Colour{0.25F, 0.25F, 0.25F}));
    EXPECT_EQ(reading.facts.contents, "a matrix, then a 3D table of 2 points an edge");
}

TEST_F(LutTest, NamesWithSignsThatMeanVariablesElsewhereAreNames)
{
    const LutSample matrix{"", "0.5 0 0 0\n0 1 0 0\n0 0 1 0\n"};
    for (const std::string name : {"$HOME.spimtx", "100%HOME%.spimtx", "two words.spimtx", "\xFF.spimtx"}) {
        const LUTTableReading reading = read(name, matrix.text);
        ASSERT_TRUE(reading.table) << reading.failure;
        EXPECT_EQ(lookUp(*reading.table, {1, 1, 1})[0], 0.5F);
    }
}

TEST_F(LutTest, AFileThatChangedIsReadAnew)
{
    EXPECT_EQ(lookUp(*read("m.spimtx", "0.5 0 0 0\n0 1 0 0\n0 0 1 0\n").table, {1, 1, 1})[0], 0.5F);
    EXPECT_EQ(lookUp(*read("m.spimtx", "0.2 0 0 0\n0 1 0 0\n0 0 1 0\n").table, {1, 1, 1})[0], 0.2F);
}

TEST_F(LutTest, RefusedFilesLeaveOneLineInTheLog)
{
    const auto lines = [] { return contentsOf(logFile()); };
    const std::filesystem::path file = directory_.write("bad.cube", "LUT_3D_SIZE 2\n0 0 nan\n");
    const std::string before = lines();
    EXPECT_FALSE(CubeLUT::load(wide(file)));
    const std::string added = lines().substr(before.size());
    EXPECT_EQ(std::count(added.begin(), added.end(), '\n'), 1) << added;
    EXPECT_NE(added.find("LUT " + file.native() + ":2: \"nan\" is not a finite number"), std::string::npos)
        << added;
    EXPECT_TRUE(CubeLUT::load(wide(directory_.write("good.cube", "LUT_3D_SIZE 2\n" + identity2))));
    EXPECT_EQ(lines().size(), before.size() + added.size()) << "success is silent";
    std::string text = "LUT_1D_SIZE 4096\n";
    for (int i = 0; i < 4096; ++i) {
        text += i < 2048 ? "0 0 0\n" : "1 1 1\n";
    }
    const std::string all = lines();
    EXPECT_TRUE(CubeLUT::load(wide(directory_.write("steep.cube", text))));
    EXPECT_NE(lines().substr(all.size()).find("steep.cube: as a single table it is off by at most"),
              std::string::npos)
        << "an error that is left is not silent";
}

} // namespace
} // namespace Qx::Host::Test
