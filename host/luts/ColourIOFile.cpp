#include "host/luts/ColourIOFile.h"

#include "host/core/Printable.h"
#include "host/log/HostLog.h"
#include "host/luts/Baking.h"
#include "host/luts/Numbers.h"

#include <OpenColorIO/OpenColorIO.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <system_error>
#include <unistd.h>

namespace Qx::Host::Luts {

namespace {

namespace OCIO = OCIO_NAMESPACE;

/// The path under which OpenColorIO opens the file. It takes what follows '$' and '%' in a path for
/// variables; such a file gets another name for as long as this lives.
class PlainPath
{
public:
    explicit PlainPath(const std::filesystem::path& file) : path_(std::filesystem::absolute(file))
    {
        if (path_.native().find_first_of("$%") == std::string::npos) {
            return;
        }
        std::string pattern = (std::filesystem::temp_directory_path() / "qxhost-lut-XXXXXX").native();
        if (::mkdtemp(pattern.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), "cannot make " + pattern);
        }
        directory_ = pattern;
        const std::filesystem::path link = directory_ / ("lut" + path_.extension().native());
        std::filesystem::create_symlink(path_, link);
        path_ = link;
    }

    ~PlainPath()
    {
        std::error_code ignored;
        if (!directory_.empty()) {
            std::filesystem::remove_all(directory_, ignored);
        }
    }

    PlainPath(const PlainPath&) = delete;
    PlainPath& operator=(const PlainPath&) = delete;

    const std::string& native() const { return path_.native(); }

private:
    std::filesystem::path path_;
    std::filesystem::path directory_;
};

/// Files are looked up by path in a cache of OpenColorIO's that does not notice changes.
struct WithoutCache
{
    WithoutCache() { OCIO::ClearAllCaches(); }
    ~WithoutCache() { OCIO::ClearAllCaches(); }
    WithoutCache(const WithoutCache&) = delete;
    WithoutCache& operator=(const WithoutCache&) = delete;
};

std::string inOneLine(std::string_view text)
{
    std::string result;
    for (const char c : text) {
        const bool blank = c == ' ' || c == '\n' || c == '\t' || c == '\r';
        if (!blank) {
            result += c;
        } else if (!result.empty() && result.back() != ' ') {
            result += ' ';
        }
    }
    constexpr std::size_t most = 400;
    if (result.size() > most) {
        result = result.substr(0, most) + "...";
    }
    while (!result.empty() && (result.back() == ' ' || result.back() == '.')) {
        result.pop_back();
    }
    return printable(result);
}

/// The core of a message: OpenColorIO names the path, the advice to its developers and, one after the other,
/// what every reader of the extension said.
Refusal refusalFrom(const std::string& message)
{
    constexpr std::string_view lineMark = "At line (";
    constexpr std::string_view readerMark = "' failed with: ";
    constexpr std::string_view buildMark = "with this error: ";
    Refusal refusal;
    if (const std::size_t at = message.find(lineMark); at != std::string::npos) {
        refusal.line = std::strtoul(message.c_str() + at + lineMark.size(), nullptr, 10);
    }
    std::vector<std::string> said;
    for (std::size_t at = message.find(readerMark); at != std::string::npos;) {
        const std::size_t begin = at + readerMark.size();
        at = message.find(readerMark, begin);
        // The next reader's name stands before its mark.
        const std::size_t end = at == std::string::npos ? at : message.rfind('\'', at - 1);
        std::string text = inOneLine(message.substr(begin, end == std::string::npos ? end : end - begin));
        if (std::find(said.begin(), said.end(), text) == said.end()) {
            said.push_back(std::move(text));
        }
    }
    for (const std::string& text : said) {
        refusal.cause += (refusal.cause.empty() ? "" : "; or: ") + text;
    }
    if (said.empty()) {
        const std::size_t at = message.rfind(buildMark);
        refusal.cause = inOneLine(at == std::string::npos ? message : message.substr(at + buildMark.size()));
    }
    return refusal;
}

std::size_t lineOfNonFinite(std::string_view text)
{
    constexpr std::string_view separators = " \t\r<>\"'={}(),;";
    std::size_t line = 1;
    for (std::size_t begin = 0; begin < text.size(); ++line) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        for (std::size_t at = begin; at < end;) {
            const std::size_t wordEnd = std::min(text.find_first_of(separators, at), end);
            const std::string_view word = text.substr(at, wordEnd - at);
            const std::optional<float> value = beginsNumber(word) ? number(word) : std::nullopt;
            if (value && !std::isfinite(*value)) {
                return line;
            }
            at = wordEnd + 1;
        }
        begin = end + 1;
    }
    return 0;
}

/// What the steps of a file tell about the table to make.
struct Outline
{
    std::string contents;
    TableDomain domain;
    std::vector<int> sizes;               ///< edges of its tables and lengths of its curves
    std::size_t knots = 0;                ///< points of its longest curves
    bool finite = true;                   ///< no number of it is infinite or none
    OCIO::ConstLut3DTransformRcPtr table; ///< when the file is one table, with its domain before it at most
};

/// The diagonal matrices at the beginning of a file, which place its first table.
class Placement
{
public:
    bool add(const OCIO::MatrixTransform& matrix)
    {
        std::array<double, 16> m{};
        std::array<double, 4> offset{};
        matrix.getMatrix(m.data());
        matrix.getOffset(offset.data());
        for (std::size_t i = 0; i < 16; ++i) {
            if (i % 5 == 0 ? !(m[i] > 0.0) : m[i] != 0.0) {
                return false;
            }
        }
        for (std::size_t c = 0; c < 3; ++c) {
            scale_[c] *= m[5 * c];
            offset_[c] = offset_[c] * m[5 * c] + offset[c];
        }
        return matrix.getDirection() == OCIO::TRANSFORM_DIR_FORWARD;
    }

    TableDomain domain() const
    {
        TableDomain result;
        for (std::size_t c = 0; c < 3; ++c) {
            result.min[c] = static_cast<float>((0.0 - offset_[c]) / scale_[c]);
            result.max[c] = static_cast<float>((1.0 - offset_[c]) / scale_[c]);
            if (!std::isfinite(result.min[c]) || !std::isfinite(result.max[c]) ||
                !(result.max[c] > result.min[c])) {
                return {};
            }
        }
        return result;
    }

private:
    std::array<double, 3> scale_{1, 1, 1};
    std::array<double, 3> offset_{0, 0, 0};
};

bool isFinite(const OCIO::MatrixTransform& matrix)
{
    std::array<double, 20> numbers{};
    matrix.getMatrix(numbers.data());
    matrix.getOffset(numbers.data() + 16);
    return std::all_of(numbers.begin(), numbers.end(), [](double n) { return std::isfinite(n); });
}

template <class T>
std::shared_ptr<const T> as(const OCIO::ConstTransformRcPtr& transform)
{
    return OCIO_DYNAMIC_POINTER_CAST<const T>(transform);
}

class Survey
{
public:
    explicit Survey(const OCIO::GroupTransform& steps)
    {
        const int count = steps.getNumTransforms();
        for (int i = 0; i < count; ++i) {
            take(steps.getTransform(i), i + 1 == count);
        }
        if (outline_.contents.empty()) {
            describe("nothing that changes colours");
        }
    }

    Outline result() const { return outline_; }

private:
    void take(const OCIO::ConstTransformRcPtr& step, bool last)
    {
        if (const auto matrix = as<OCIO::MatrixTransform>(step)) {
            outline_.finite &= isFinite(*matrix);
            if (leading_ && placement_.add(*matrix) && !last) {
                return; // part of the domain, if a table follows
            }
            describe("a matrix");
        } else if (const auto table = as<OCIO::Lut3DTransform>(step)) {
            takeTable(table, last);
        } else if (const auto curves = as<OCIO::Lut1DTransform>(step)) {
            takeCurves(*curves);
        } else if (as<OCIO::CDLTransform>(step)) {
            describe("a colour correction of slope, offset, power and saturation");
        } else if (as<OCIO::RangeTransform>(step)) {
            describe("a range");
        } else {
            describe("a formula");
        }
        leading_ = false;
    }

    void takeTable(const OCIO::ConstLut3DTransformRcPtr& table, bool last)
    {
        const auto edge = static_cast<int>(table->getGridSize());
        if (leading_) {
            outline_.domain = placement_.domain();
            outline_.table = last ? table : nullptr;
        }
        outline_.sizes.push_back(edge);
        outline_.finite &= isFinite(*table);
        describe("a 3D table of " + std::to_string(edge) + " points an edge");
    }

    void takeCurves(const OCIO::Lut1DTransform& curves)
    {
        const unsigned long points = curves.getLength();
        if (leading_ && !curves.getInputHalfDomain()) {
            outline_.domain = placement_.domain();
        }
        if (points <= static_cast<unsigned long>(mostTableEdge)) {
            outline_.sizes.push_back(static_cast<int>(points));
        }
        constexpr unsigned long mostKnots = 65536;
        outline_.knots = std::max<std::size_t>(outline_.knots, std::min(points, mostKnots));
        for (unsigned long i = 0; i < points && outline_.finite && !curves.getInputHalfDomain(); ++i) {
            Colour at{};
            curves.getValue(i, at[0], at[1], at[2]);
            outline_.finite = std::isfinite(at[0]) && std::isfinite(at[1]) && std::isfinite(at[2]);
        }
        describe("curves of " + std::to_string(points) + " points");
    }

    static bool isFinite(const OCIO::MatrixTransform& matrix) { return Luts::isFinite(matrix); }

    static bool isFinite(const OCIO::Lut3DTransform& table)
    {
        const unsigned long edge = table.getGridSize();
        for (unsigned long i = 0; i < edge * edge * edge; ++i) {
            Colour at{};
            table.getValue(i % edge, i / edge % edge, i / edge / edge, at[0], at[1], at[2]);
            if (!std::isfinite(at[0]) || !std::isfinite(at[1]) || !std::isfinite(at[2])) {
                return false;
            }
        }
        return true;
    }

    void describe(const std::string& step)
    {
        outline_.contents += (outline_.contents.empty() ? "" : ", then ") + step;
    }

    Outline outline_;
    Placement placement_;
    bool leading_ = true;
};

Qx::Ptr<Table> tableAsItIs(const OCIO::Lut3DTransform& source, const TableDomain& domain)
{
    const auto edge = source.getGridSize();
    const Qx::Ptr<Table> table = Qx::makePtr<Table>(static_cast<int>(edge), domain);
    for (unsigned long i = 0; i < edge * edge * edge; ++i) {
        Colour at{};
        source.getValue(i % edge, i / edge % edge, i / edge / edge, at[0], at[1], at[2]);
        table->set(i, at);
    }
    return table;
}

/// Its warnings go to the log, like all messages that end no work.
void logWarnings()
{
    static const bool done = [] {
        OCIO::SetLoggingFunction([](const char* message) { HostLog::instance().write(message); });
        return true;
    }();
    static_cast<void>(done);
}

OCIO::ConstProcessorRcPtr processorFor(const std::string& path)
{
    logWarnings();
    const OCIO::ConfigRcPtr config = OCIO::Config::CreateRaw()->createEditableCopy();
    config->setProcessorCacheFlags(OCIO::PROCESSOR_CACHE_OFF);
    const OCIO::FileTransformRcPtr transform = OCIO::FileTransform::Create();
    transform->setSrc(path.c_str());
    transform->setInterpolation(OCIO::INTERP_BEST); // tetrahedral in tables, linear in curves
    transform->setCCCId("0");                       // of a collection of corrections the first
    return config->getProcessor(transform);
}

std::optional<LUTReading> read(const std::filesystem::path& file, std::string_view text, Refusal& refusal)
{
    if (text.find("<Reference") != std::string_view::npos) {
        refusal.cause = "it refers to another file, which is not supported";
        return std::nullopt;
    }
    const WithoutCache fresh;
    const PlainPath path(file);
    const OCIO::ConstProcessorRcPtr processor = processorFor(path.native());
    const Outline outline = Survey(*processor->createGroupTransform()).result();
    if (!outline.finite) {
        refusal = {lineOfNonFinite(text), "it holds a number that is not finite"};
        return std::nullopt;
    }
    LUTReading reading;
    reading.facts.contents = outline.contents;
    if (outline.table && outline.table->getDirection() == OCIO::TRANSFORM_DIR_FORWARD) {
        reading.table = tableAsItIs(*outline.table, outline.domain);
        return reading;
    }
    const auto cpu = processor->getOptimizedCPUProcessor(OCIO::OPTIMIZATION_NONE);
    const Evaluation evaluate = [&](Colour* colours, std::size_t count) {
        OCIO::PackedImageDesc image(colours->data(), static_cast<long>(count), 1, 3);
        cpu->apply(image);
    };
    const Baked baked = bake(evaluate, outline.domain, outline.sizes, outline.knots);
    if (!std::isfinite(baked.error)) {
        refusal.cause = "some of its colours are not finite";
        return std::nullopt;
    }
    reading.table = baked.table;
    reading.facts.baked = true;
    reading.facts.error = baked.error;
    return reading;
}

} // namespace

std::optional<LUTReading> readThroughColourIO(const std::filesystem::path& file, std::string_view text,
                                              Refusal& refusal)
{
    try {
        return read(file, text, refusal);
    } catch (const std::exception& failure) {
        refusal = refusalFrom(failure.what());
        return std::nullopt;
    }
}

std::vector<std::string> colourIOExtensions()
{
    std::vector<std::string> extensions;
    for (int i = 0; i < OCIO::FileTransform::GetNumFormats(); ++i) {
        std::string extension = OCIO::FileTransform::GetFormatExtensionByIndex(i);
        if (std::find(extensions.begin(), extensions.end(), extension) == extensions.end()) {
            extensions.push_back(std::move(extension));
        }
    }
    return extensions;
}

} // namespace Qx::Host::Luts
