#include "tests/host/services/LutSamples.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fmt/format.h>

namespace Qx::Host::Test {

namespace {

using Index = std::array<int, 3>;

/// The entries of a table, the first or the last axis running fastest.
std::vector<Index> grid(int edge, bool redFastest)
{
    std::vector<Index> result;
    for (int slow = 0; slow < edge; ++slow) {
        for (int middle = 0; middle < edge; ++middle) {
            for (int fast = 0; fast < edge; ++fast) {
                result.push_back(redFastest ? Index{fast, middle, slow} : Index{slow, middle, fast});
            }
        }
    }
    return result;
}

std::array<double, 3> lookAt(const Index& at, int edge)
{
    std::array<double, 3> c{};
    for (std::size_t i = 0; i < 3; ++i) {
        c[i] = at[i] / static_cast<double>(edge - 1);
    }
    sampleLook(c[0], c[1], c[2]);
    return c;
}

std::string floats(int edge, bool redFastest)
{
    std::string text;
    for (const Index& at : grid(edge, redFastest)) {
        const auto c = lookAt(at, edge);
        text += fmt::format("{:.6f} {:.6f} {:.6f}\n", c[0], c[1], c[2]);
    }
    return text;
}

std::string codes(int edge, const std::string& separator, bool numbered)
{
    std::string text;
    int number = 0;
    for (const Index& at : grid(edge, false)) {
        const auto c = lookAt(at, edge);
        text += numbered ? fmt::format("{}{}", number++, separator) : "";
        text += fmt::format("{}{sep}{}{sep}{}\n", std::lround(c[0] * 4095), std::lround(c[1] * 4095),
                            std::lround(c[2] * 4095), fmt::arg("sep", separator));
    }
    return text;
}

std::string indexed(int edge)
{
    std::string text;
    for (const Index& at : grid(edge, false)) {
        const auto c = lookAt(at, edge);
        text += fmt::format("{} {} {} {:.6f} {:.6f} {:.6f}\n", at[0], at[1], at[2], c[0], c[1], c[2]);
    }
    return text;
}

/// The floats as the hexadecimal digits of their bytes.
std::string hexadecimal(int edge)
{
    std::string text;
    for (const Index& at : grid(edge, true)) {
        for (const double value : lookAt(at, edge)) {
            const auto number = static_cast<float>(value);
            std::array<std::uint8_t, 4> bytes{};
            std::memcpy(bytes.data(), &number, bytes.size());
            for (const std::uint8_t byte : bytes) {
                text += fmt::format("{:02X}", byte);
            }
        }
        text += '\n';
    }
    return text;
}

std::string gammas(int points, const std::string& format)
{
    std::string text;
    for (int i = 0; i < points; ++i) {
        const double x = i / static_cast<double>(points - 1);
        text += fmt::format(fmt::runtime(format), 0.9 * x * x, x, x * (1.4 - 0.4 * x));
    }
    return text;
}

std::string discreet()
{
    std::string text = "LUT: 3 256\n";
    for (const double gamma : {1.5, 1.0, 2.0}) {
        for (int i = 0; i < 256; ++i) {
            text += fmt::format("{}\n", std::lround(255 * std::pow(i / 255.0, gamma)));
        }
    }
    return text;
}

std::string lustre()
{
    std::string text = "3DMESH\nMesh 4 12\n";
    for (int i = 0; i <= 16; ++i) {
        text += fmt::format("{} ", std::min(i * 64, 1023));
    }
    return text + "\n" + codes(17, " ", false) + "\nLUT8\ngamma 1.0\n";
}

constexpr const char* correction =
    "<ColorCorrection id=\"x\"><SOPNode><Slope>1.1 0.9 1.0</Slope><Offset>0.01 0 0.02</Offset>"
    "<Power>1.2 1 1.1</Power></SOPNode><SatNode><Saturation>0.9</Saturation></SatNode></ColorCorrection>\n";

constexpr const char* matrix3 = "0.5 0.2 0.1\n0 0.9 0.05\n0.1 0.1 0.8";

const std::string ranges = "2\n0 1\n0 1\n2\n0 1\n0 1\n2\n0 1\n0 1\n";

std::string houdini()
{
    return "Version\t\t3\nFormat\t\tany\nType\t\t3D\nFrom\t\t0 1\nTo\t\t0 1\nBlack\t\t0\nWhite\t\t1\n"
           "Length\t\t3\nLUT:\n 3D {\n" +
           floats(3, true) + " }\n";
}

std::string pandora()
{
    return "channel 3d\nin 27\nout 4096\n\nformat lut\n\nvalues\tred\tgreen\tblue\n" + codes(3, "\t", true);
}

/// Lines of one number, a function at equal distances from 0 to 1.
std::string column(int points, const std::function<double(double)>& function)
{
    std::string text;
    for (int i = 0; i < points; ++i) {
        text += fmt::format("{:.9g}\n", function(i / static_cast<double>(points - 1)));
    }
    return text;
}

/// The number that 16 bits mean as a half float; 0 for what is not finite.
double half(int bits)
{
    const int exponent = bits >> 10 & 31;
    const double fraction = (bits & 1023) / 1024.0;
    const double size = exponent == 31  ? 0.0
                        : exponent == 0 ? std::ldexp(fraction, -14)
                                        : std::ldexp(1.0 + fraction, exponent - 15);
    return (bits & 0x8000) != 0 ? -size : size;
}

std::string halfDomain()
{
    std::string text;
    for (int bits = 0; bits < 65536; ++bits) {
        const double x = std::clamp(half(bits), 0.0, 4.0);
        text += fmt::format("{:.7g}\n", std::log2(1.0 + 64.0 * x) / std::log2(65.0));
    }
    return text;
}

const std::string depths = " inBitDepth=\"32f\" outBitDepth=\"32f\"";

std::string exponent(const std::string& style, const std::string& value)
{
    return "<Exponent" + depths + " style=\"" + style + "\"><ExponentParams exponent=\"" + value +
           "\"/></Exponent>";
}

/// Mixes the channels a little, so that it can be inverted.
void gentle(double& r, double& g, double& b)
{
    const double red = 0.8 * r * r + 0.15 * g + 0.05 * b;
    const double green = 0.1 * r + 0.7 * std::sqrt(g) + 0.1;
    b = 0.1 * g + 0.8 * b + 0.02 * std::sin(6.0 * b);
    r = red;
    g = green;
}

std::string gentleEntries(int edge)
{
    std::string text;
    for (const Index& at : grid(edge, false)) {
        std::array<double, 3> c{};
        for (std::size_t i = 0; i < 3; ++i) {
            c[i] = at[i] / static_cast<double>(edge - 1);
        }
        gentle(c[0], c[1], c[2]);
        text += fmt::format("{:.9g} {:.9g} {:.9g}\n", c[0], c[1], c[2]);
    }
    return text;
}

/// Products of channels, which tetrahedra and cubes interpolate differently.
std::string products(int edge)
{
    std::string text;
    for (const Index& at : grid(edge, false)) {
        const double last = edge - 1;
        const std::array<double, 3> c{at[0] / last, at[1] / last, at[2] / last};
        text += fmt::format("{:.6f} {:.6f} {:.6f}\n", c[0] * c[1], c[1] * c[2], c[2] * c[0]);
    }
    return text;
}

std::string rangeElement(const std::string& limits)
{
    return "<Range" + depths + ">" + limits + "</Range>";
}

std::string correctionElement(const std::string& style)
{
    return "<ASC_CDL" + depths + " style=\"" + style +
           "\"><SOPNode><Slope>1.2 0.9 1.1</Slope><Offset>0.05 0 -0.02</Offset><Power>0.8 1 "
           "1.3</Power></SOPNode>"
           "<SatNode><Saturation>1.3</Saturation></SatNode></ASC_CDL>";
}

std::string matrixElement()
{
    return "<Matrix" + depths +
           "><Array dim=\"3 3\">0.6 0.3 0.1\n0.1 0.8 0.1\n0.05 0.15 0.8</Array></Matrix>";
}

} // namespace

std::string clf(const std::string& inside)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<ProcessList xmlns=\"urn:AMPAS:CLF:v3.0\" id=\"m\" "
           "compCLFversion=\"3\">" +
           inside + "</ProcessList>\n";
}

std::string ctf(const std::string& inside)
{
    return "<?xml version=\"1.0\"?>\n<ProcessList version=\"2\" id=\"m\">\n" + inside + "</ProcessList>\n";
}

std::vector<LutSample> stepSamples()
{
    const auto steep = [](double x) { return std::pow(x, 1.0 / 2.4); };
    const std::string limits = "<minInValue>0.1</minInValue><maxInValue>0.8</maxInValue>"
                               "<minOutValue>0</minOutValue><maxOutValue>1</maxOutValue>";
    std::string curve;
    for (int i = 0; i < 4096; ++i) {
        curve += fmt::format("{0:.9g} {0:.9g} {0:.9g}\n", steep(i / 4095.0));
    }
    const std::string table =
        "<LUT3D" + depths + "><Array dim=\"3 3 3 3\">\n" + floats(3, false) + "</Array></LUT3D>";
    return {
        {"steep.cube", "LUT_1D_SIZE 4096\n" + curve},
        {"shaped.cube", "LUT_1D_SIZE 4096\nLUT_3D_SIZE 3\n" + curve + floats(3, true)},
        {"range.clf", clf(rangeElement(limits))},
        {"half-range.clf",
         clf(rangeElement("<maxInValue>0.7</maxInValue><maxOutValue>0.7</maxOutValue>") + matrixElement())},
        {"inverse-curve.ctf",
         ctf("<InverseLUT1D" + depths + "><Array dim=\"65 1\">\n" +
             column(65, [](double x) { return x * x * x; }) + "</Array></InverseLUT1D>")},
        {"around-table.clf", clf("<LUT1D" + depths + "><Array dim=\"1024 1\">\n" + column(1024, steep) +
                                 "</Array></LUT1D>" + table + "<LUT1D" + depths + "><Array dim=\"65 1\">\n" +
                                 column(65, [](double x) { return x * x; }) + "</Array></LUT1D>")},
        {"lin-to-log.clf", clf("<Log" + depths +
                               " style=\"linToLog\"><LogParams base=\"2\" linSideSlope=\"8\" "
                               "linSideOffset=\"0.001\" logSideSlope=\"0.07\" "
                               "logSideOffset=\"0.75\"/></Log>")},
        {"camera-log.clf", clf("<Log" + depths +
                               " style=\"cameraLinToLog\"><LogParams base=\"10\" linSideSlope=\"5.5\" "
                               "linSideOffset=\"0.05\" logSideSlope=\"0.25\" logSideOffset=\"0.4\" "
                               "linSideBreak=\"0.005\"/></Log>")},
        {"display.clf", clf(exponent("basicFwd", "2.4") + matrixElement() + exponent("basicRev", "2.2"))},
        {"log-and-back.clf", clf("<Log" + depths + " style=\"antiLog2\"></Log>" + matrixElement() + "<Log" +
                                 depths + " style=\"log2\"></Log>")},
        {"saturated.cc",
         "<ColorCorrection id=\"x\"><SOPNode><Slope>1.3 0.9 1</Slope><Offset>0.02 0 "
         "-0.05</Offset><Power>0.6 1 1.1</Power></SOPNode><SatNode><Saturation>1.4</Saturation>"
         "</SatNode></ColorCorrection>\n"},
        {"strict.clf", clf(correctionElement("Fwd"))},
        {"strict-back.clf", clf(correctionElement("Rev"))},
        {"inverse-table.ctf", ctf("<InverseLUT3D" + depths + "><Array dim=\"5 5 5 3\">\n" + gentleEntries(5) +
                                  "</Array></InverseLUT3D>")},
        {"half-domain.clf", clf("<LUT1D inBitDepth=\"16f\" outBitDepth=\"32f\" halfDomain=\"true\"><Array "
                                "dim=\"65536 1\">\n" +
                                halfDomain() + "</Array></LUT1D>")},
        {"trilinear.clf", clf("<LUT3D interpolation=\"trilinear\"" + depths + "><Array dim=\"3 3 3 3\">\n" +
                              products(3) + "</Array></LUT3D>")},
        {"hue.ctf", ctf("<LUT1D hueAdjust=\"dw3\"" + depths + "><Array dim=\"65 1\">\n" +
                        column(65, [](double x) { return x * x * (3.0 - 2.0 * x); }) + "</Array></LUT1D>")},
    };
}

void sampleLook(double& r, double& g, double& b)
{
    const double red = 0.9 * r + 0.05 * g;
    const double green = 0.8 * g + 0.1 * b * b;
    b = 0.7 * b + 0.2 * r;
    r = red;
    g = green;
}

std::string cubeEntries(int edge, const std::function<void(double& r, double& g, double& b)>& change)
{
    std::string text;
    for (const Index& at : grid(edge, true)) {
        std::array<double, 3> c{};
        for (std::size_t i = 0; i < 3; ++i) {
            c[i] = at[i] / static_cast<double>(edge - 1);
        }
        change(c[0], c[1], c[2]);
        text += fmt::format("{:.9g} {:.9g} {:.9g}\n", c[0], c[1], c[2]);
    }
    return text;
}

std::vector<LutSample> lutSamples()
{
    const std::string curve = "  -0.2\n  0.1\n  0.45\n  0.8\n  1.3\n";
    return {
        {"table.cube", "LUT_3D_SIZE 3\n" + floats(3, true), 3, false},
        {"wide.cube", "DOMAIN_MIN -0.5 0 0\nDOMAIN_MAX 1.5 1 2\nLUT_3D_SIZE 3\n" + floats(3, true), 3, false},
        {"curves.cube", "LUT_1D_SIZE 33\n" + gammas(33, "{:.6f} {:.6f} {:.6f}\n"), 33, true},
        {"long.cube", "LUT_1D_SIZE 1024\n" + gammas(1024, "{:.6f} {:.6f} {:.6f}\n")},
        {"shaper.cube", "LUT_1D_SIZE 9\nLUT_1D_INPUT_RANGE 0 2\nLUT_3D_SIZE 3\nLUT_3D_INPUT_RANGE 0 1\n" +
                            gammas(9, "{:.6f} {:.6f} {:.6f}\n") + floats(3, true)},
        {"lustre.3dl", lustre(), 17, false},
        {"correction.cc", correction},
        {"corrections.ccc", "<ColorCorrectionCollection xmlns=\"urn:ASC:CDL:v1.01\">" +
                                std::string(correction) + "</ColorCorrectionCollection>\n"},
        {"decisions.cdl", "<ColorDecisionList xmlns=\"urn:ASC:CDL:v1.01\"><ColorDecision>" +
                              std::string(correction) + "</ColorDecision></ColorDecisionList>\n"},
        {"matrix.clf",
         clf("<Matrix inBitDepth=\"32f\" outBitDepth=\"32f\"><Array dim=\"3 3\">" + std::string(matrix3) +
             "</Array></Matrix>"),
         2, true},
        {"table.clf",
         clf("<LUT3D inBitDepth=\"32f\" outBitDepth=\"32f\"><Array dim=\"3 3 3 3\">\n" + floats(3, false) +
             "</Array></LUT3D>"),
         3, false},
        {"matrix.ctf",
         "<?xml version=\"1.0\"?>\n<ProcessList version=\"1.3\" id=\"m\"><Matrix "
         "inBitDepth=\"32f\" outBitDepth=\"32f\"><Array dim=\"3 3 3\">" +
             std::string(matrix3) + "</Array></Matrix></ProcessList>\n",
         2, true},
        {"shaped.csp", "CSPLUTV100\n3D\n\n3\n0 0.25 1\n0 0.5 1\n3\n0 0.25 1\n0 0.5 1\n3\n0 0.25 1\n0 0.5 1\n"
                       "\n3 3 3\n" +
                           floats(3, true)},
        {"plain.csp", "CSPLUTV100\n3D\n\n" + ranges + "\n3 3 3\n" + floats(3, true), 3, false},
        {"curves.csp", "CSPLUTV100\n1D\n\n" + ranges + "\n33\n" + gammas(33, "{:g} {:g} {:g}\n"), 33, true},
        {"discreet.lut", discreet()},
        {"houdini.lut", houdini(), 3, false},
        {"table.mga", pandora(), 3, false},
        {"table.m3d", pandora(), 3, false},
        {"curve.spi1d", "Version 1\nFrom -0.5 1.5\nLength 5\nComponents 1\n{\n" + curve + "}\n", 5, true},
        {"table.spi3d", "SPILUT 1.0\n3 3\n3 3 3\n" + indexed(3), 3, false},
        {"matrix.spimtx", "0.5 0.2 0.1 1000\n0 0.9 0.05 0\n0.1 0.1 0.8 0\n", 2, true},
        {"table.cub",
         "# Truelight Cube v2.0\n# iDims 3\n# oDims 3\n# width 3 3 3\n# lutLength 5\n# InputLUT\n"
         "0 0 0\n0.5 0.5 0.5\n1 1 1\n1.5 1.5 1.5\n2 2 2\n\n# Cube\n" +
             floats(3, true) + "# end\n"},
        {"table.vf",
         "#Inventor V2.1 ascii\ngrid_size 3 3 3\nglobal_transform 1 0 0 0 0 1 0 0 0 0 1 0 0 0 0 1\n"
         "data\n" +
             floats(3, false),
         3, false},
        {"table.itx", "LUT_3D_SIZE 3\n" + floats(3, true), 3, false},
        {"table.look",
         "<?xml version=\"1.0\" ?>\n<look>\n<LUT>\n<size>\"3\"</size>\n<data>\"\n" + hexadecimal(3) +
             "\"\n</data>\n</LUT>\n</look>\n",
         3, false},
    };
}

} // namespace Qx::Host::Test
