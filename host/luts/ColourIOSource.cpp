#include "host/luts/ColourIOSource.h"

#include "host/log/HostLog.h"
#include "host/luts/InverseTable.h"
#include "host/luts/LUTReader.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <utility>

namespace Qx::Host::Luts {

namespace {

/// Its warnings go to the log, like all messages that end no work.
void logWarnings()
{
    static const bool done = [] {
        OCIO::SetLoggingFunction([](const char* message) { HostLog::instance().write(message); });
        return true;
    }();
    static_cast<void>(done);
}

/// What the steps of a file tell about the table to make.
struct Outline
{
    std::string refusal; ///< why the file is not to be read; the rest counts for nothing then
    std::string contents;
    TableDomain domain;
    std::vector<int> sizes;               ///< edges of its tables and lengths of its curves
    std::size_t knots = 0;                ///< points of its longest curves
    bool finite = true;                   ///< no number of it is infinite or none
    std::vector<LUTInverse> inverses;     ///< of its inverse tables, in their order
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

    /// What the table covers; empty if that cannot be told in floats.
    std::optional<TableDomain> domain() const
    {
        TableDomain result;
        for (std::size_t c = 0; c < 3; ++c) {
            result.min[c] = static_cast<float>((0.0 - offset_[c]) / scale_[c]);
            result.max[c] = static_cast<float>((1.0 - offset_[c]) / scale_[c]);
            if (!std::isfinite(result.min[c]) || !std::isfinite(result.max[c]) ||
                !(result.max[c] > result.min[c])) {
                return std::nullopt;
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

/// Looks through all steps before any is evaluated.
class Survey
{
public:
    explicit Survey(const OCIO::GroupTransform& steps)
    {
        const int count = steps.getNumTransforms();
        if (count > mostSteps) {
            outline_.refusal =
                "it has " + std::to_string(count) + " steps: expected at most " + std::to_string(mostSteps);
        }
        for (int i = 0; i < count && outline_.refusal.empty(); ++i) {
            take(steps.getTransform(i), i + 1 == count);
        }
        if (described_ == 0) {
            describe("nothing that changes colours");
        }
        if (described_ > mostNamed) {
            outline_.contents += ", then " + std::to_string(described_ - mostNamed) + " more steps";
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
        const unsigned long points = table->getGridSize();
        const std::string what = "a 3D table of " + std::to_string(points) + " points an edge";
        if (points < 2 || points > static_cast<unsigned long>(mostTableEdge)) {
            outline_.refusal = "it holds " + what + ": expected 2 to " + std::to_string(mostTableEdge);
            return;
        }
        if (leading_ && table->getDirection() == OCIO::TRANSFORM_DIR_FORWARD && place() && last) {
            outline_.table = table;
        }
        outline_.sizes.push_back(static_cast<int>(points));
        outline_.finite &= isFinite(*table);
        if (outline_.finite && table->getDirection() != OCIO::TRANSFORM_DIR_FORWARD) {
            takeInverse(*table);
        }
        describe(ofDirection(table->getDirection(), what));
    }

    /// Takes the matrices in front of the first table or curves for its domain. If they are none, they are a
    /// step of their own.
    bool place()
    {
        const std::optional<TableDomain> domain = placement_.domain();
        outline_.domain = domain.value_or(TableDomain{});
        if (!domain) {
            describe("a matrix");
        }
        return domain.has_value();
    }

    /// OpenColorIO searches without limit, so what has too many cells to search is not left to it either.
    void takeInverse(const OCIO::Lut3DTransform& table)
    {
        if (std::optional<LUTInverse> inverse = inverseOf(*tableAsItIs(table, {}))) {
            outline_.inverses.push_back(*std::move(inverse));
        } else {
            outline_.refusal =
                "it holds the inverse of a 3D table in which too many places have the same colours";
        }
    }

    void takeCurves(const OCIO::Lut1DTransform& curves)
    {
        const unsigned long points = curves.getLength();
        if (leading_ && !curves.getInputHalfDomain()) {
            place();
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
        describe(ofDirection(curves.getDirection(), "curves of " + std::to_string(points) + " points"));
    }

    static std::string ofDirection(OCIO::TransformDirection direction, const std::string& what)
    {
        return direction == OCIO::TRANSFORM_DIR_FORWARD ? what : "the inverse of " + what;
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
        if (described_++ < mostNamed) {
            outline_.contents += (outline_.contents.empty() ? "" : ", then ") + step;
        }
    }

    static constexpr int mostSteps = 64;
    static constexpr std::size_t mostNamed = 8;

    Outline outline_;
    std::size_t described_ = 0;
    Placement placement_;
    bool leading_ = true;
};

std::vector<OCIO::ConstTransformRcPtr> only(OCIO::ConstTransformRcPtr transform)
{
    return {std::move(transform)};
}

Evaluation evaluationOf(const OCIO::ConstProcessorRcPtr& processor)
{
    // Without optimisation: with it, inverse tables are replaced by coarse ones.
    const OCIO::ConstCPUProcessorRcPtr cpu = processor->getOptimizedCPUProcessor(OCIO::OPTIMIZATION_NONE);
    return [cpu](Colour* colours, std::size_t count) {
        OCIO::PackedImageDesc image(colours->data(), static_cast<long>(count), 1, 3);
        cpu->apply(image);
    };
}

Evaluation evaluationOf(const std::vector<OCIO::ConstTransformRcPtr>& transforms)
{
    const OCIO::GroupTransformRcPtr group = OCIO::GroupTransform::Create();
    for (const OCIO::ConstTransformRcPtr& transform : transforms) {
        group->appendTransform(transform->createEditableCopy());
    }
    return evaluationOf(plainConfig()->getProcessor(group));
}

/// Whether each channel of the result depends on that channel alone.
bool isSeparable(const Evaluation& evaluate)
{
    std::mt19937 random(2); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same colours are wanted every time
    const auto any = [&] { return static_cast<float>(random() % 4096) / 2048.0F - 0.5F; }; // -0.5 to 1.5
    constexpr std::size_t count = 256;
    std::vector<Colour> mixed(count);
    for (Colour& colour : mixed) {
        const float r = any();
        const float g = any();
        colour = {r, g, any()};
    }
    const std::vector<Colour> places = mixed;
    evaluate(mixed.data(), count);
    for (std::size_t c = 0; c < 3; ++c) {
        std::vector<Colour> grey(count);
        for (std::size_t i = 0; i < count; ++i) {
            grey[i].fill(places[i][c]);
        }
        evaluate(grey.data(), count);
        for (std::size_t i = 0; i < count; ++i) {
            const float a = mixed[i][c];
            const float b = grey[i][c];
            const bool same = a == b || (std::isnan(a) && std::isnan(b)) ||
                              std::abs(a - b) <= 1e-6F * std::max(1.0F, std::abs(a));
            if (!same) {
                return false;
            }
        }
    }
    return true;
}

bool isDiagonal(const LUTMatrix& matrix)
{
    for (std::size_t row = 0; row < 3; ++row) {
        for (std::size_t column = 0; column < 3; ++column) {
            if (row != column && matrix.rows[row][column] != 0.0) {
                return false;
            }
        }
    }
    return true;
}

/// First `before`, then `after`.
LUTMatrix product(const LUTMatrix& before, const LUTMatrix& after)
{
    LUTMatrix result;
    for (std::size_t row = 0; row < 3; ++row) {
        for (std::size_t column = 0; column < 4; ++column) {
            double sum = column == 3 ? after.rows[row][3] : 0.0;
            for (std::size_t i = 0; i < 3; ++i) {
                sum += after.rows[row][i] * before.rows[i][column];
            }
            result.rows[row][column] = sum;
        }
    }
    return result;
}

std::optional<LUTMatrix> inverseOf(const LUTMatrix& matrix)
{
    const auto& m = matrix.rows;
    const auto minor = [&](std::size_t row, std::size_t column) {
        const std::size_t r1 = (row + 1) % 3;
        const std::size_t r2 = (row + 2) % 3;
        const std::size_t c1 = (column + 1) % 3;
        const std::size_t c2 = (column + 2) % 3;
        return m[r1][c1] * m[r2][c2] - m[r1][c2] * m[r2][c1];
    };
    const double determinant = m[0][0] * minor(0, 0) + m[0][1] * minor(0, 1) + m[0][2] * minor(0, 2);
    if (determinant == 0.0) {
        return std::nullopt;
    }
    LUTMatrix result;
    for (std::size_t row = 0; row < 3; ++row) {
        result.rows[row][3] = 0.0;
        for (std::size_t column = 0; column < 3; ++column) {
            result.rows[row][column] = minor(column, row) / determinant;
            result.rows[row][3] -= result.rows[row][column] * m[column][3];
        }
    }
    return result;
}

std::optional<LUTMatrix> matrixOf(const OCIO::MatrixTransform& transform)
{
    std::array<double, 16> m{};
    std::array<double, 4> offset{};
    transform.getMatrix(m.data());
    transform.getOffset(offset.data());
    LUTMatrix matrix;
    for (std::size_t row = 0; row < 3; ++row) {
        matrix.rows[row] = {m[4 * row], m[4 * row + 1], m[4 * row + 2], offset[row]};
    }
    return transform.getDirection() == OCIO::TRANSFORM_DIR_FORWARD ? matrix : inverseOf(matrix);
}

bool isTrilinear(const OCIO::Lut3DTransform& table)
{
    const OCIO::Interpolation interpolation = table.getInterpolation();
    return interpolation != OCIO::INTERP_BEST && interpolation != OCIO::INTERP_TETRAHEDRAL;
}

/// Turns a file's transforms into parts: neighbouring matrices into one, and neighbouring ones that are
/// separable into one formula.
class PartsFinder
{
public:
    /// Whether curves whose points are in the file stay apart, with these points, or are merged with their
    /// neighbours. `inverses` are those of the group's inverse tables, which it must not outlive.
    PartsFinder(bool keepsPoints, const std::vector<LUTInverse>& inverses)
        : keepsPoints_(keepsPoints), inverses_(inverses)
    {
    }

    std::vector<Part> find(const OCIO::GroupTransform& group)
    {
        for (int i = 0; i < group.getNumTransforms(); ++i) {
            take(group.getTransform(i));
        }
        flush();
        if (parts_.empty()) {
            addMatrix({}); // nothing that changes colours
        }
        return std::move(parts_);
    }

private:
    void take(const OCIO::ConstTransformRcPtr& transform)
    {
        if (const auto matrix = as<OCIO::MatrixTransform>(transform)) {
            if (const std::optional<LUTMatrix> rows = matrixOf(*matrix)) {
                takeMatrix(transform, *rows);
                return;
            }
        }
        if (const auto table = as<OCIO::Lut3DTransform>(transform)) {
            flush();
            takeTable(*table);
        } else if (const auto correction = as<OCIO::CDLTransform>(transform);
                   correction && correction->getSat() != 1.0) {
            takeCorrection(*correction);
        } else if (const auto curves = as<OCIO::Lut1DTransform>(transform);
                   curves && curves->getHueAdjust() != OCIO::HUE_NONE) {
            flush();
            const OCIO::TransformRcPtr plain = transform->createEditableCopy();
            OCIO_DYNAMIC_POINTER_CAST<OCIO::Lut1DTransform>(plain)->setHueAdjust(OCIO::HUE_NONE);
            parts_.emplace_back(Formula{evaluationOf(only(plain)), true, true});
        } else {
            takeOther(transform);
        }
    }

    void takeMatrix(const OCIO::ConstTransformRcPtr& transform, const LUTMatrix& matrix)
    {
        if (!isDiagonal(matrix)) {
            flush();
            addMatrix(matrix);
            return;
        }
        waiting_.push_back(transform);
        diagonal_ = product(diagonal_, matrix);
    }

    void addMatrix(const LUTMatrix& matrix)
    {
        const bool isFirst = parts_.empty() || parts_.back().isFormula();
        auto* before = isFirst ? nullptr : std::get_if<LUTMatrix>(&parts_.back().step);
        if (before != nullptr) {
            *before = product(*before, matrix);
        } else {
            parts_.emplace_back(LUTStep(matrix));
        }
    }

    void takeTable(const OCIO::Lut3DTransform& source)
    {
        if (source.getDirection() == OCIO::TRANSFORM_DIR_FORWARD) {
            parts_.emplace_back(LUTStep(LUTTable{tableAsItIs(source, {}), isTrilinear(source)}));
        } else {
            parts_.emplace_back(LUTStep(inverses_[inverted_++]));
        }
    }

    /// Slope, offset and power are curves, the saturation is a matrix, and the strict style clamps what it
    /// gives.
    void takeCorrection(const OCIO::CDLTransform& correction)
    {
        const double saturation = correction.getSat();
        std::array<double, 3> luma{};
        correction.getSatLumaCoefs(luma.data());
        LUTMatrix matrix;
        for (std::size_t row = 0; row < 3; ++row) {
            for (std::size_t column = 0; column < 3; ++column) {
                matrix.rows[row][column] =
                    luma[column] * (1.0 - saturation) + (row == column ? saturation : 0.0);
            }
        }
        const OCIO::TransformRcPtr copy = correction.createEditableCopy();
        OCIO_DYNAMIC_POINTER_CAST<OCIO::CDLTransform>(copy)->setSat(1.0);
        const OCIO::RangeTransformRcPtr clamp = OCIO::RangeTransform::Create();
        clamp->setMinInValue(0.0);
        clamp->setMinOutValue(0.0);
        clamp->setMaxInValue(1.0);
        clamp->setMaxOutValue(1.0);
        const bool strict = correction.getStyle() == OCIO::CDL_ASC;
        const std::optional<LUTMatrix> inverse = inverseOf(matrix);
        const bool forward = correction.getDirection() == OCIO::TRANSFORM_DIR_FORWARD;
        if (!forward && !inverse) {
            takeOther(correction.createEditableCopy());
            return;
        }
        if (forward) {
            takeOther(copy);
            flush();
            addMatrix(matrix);
        }
        if (strict) {
            takeOther(clamp);
        }
        if (!forward) {
            flush();
            addMatrix(*inverse);
            takeOther(copy);
        }
    }

    void takeOther(const OCIO::ConstTransformRcPtr& transform)
    {
        const Evaluation evaluate = evaluationOf(only(transform));
        if (!isSeparable(evaluate)) {
            flush();
            parts_.emplace_back(Formula{evaluate, false, false});
            return;
        }
        if (keepsPoints_ && curves_ > 0 && hasOwnPoints(transform)) {
            flush();
        }
        waiting_.push_back(transform);
        ++curves_;
        if (keepsPoints_ && curves_ == 1 && hasOwnPoints(transform)) {
            flush();
        }
    }

    /// Ends a sequence of what is separable.
    void flush()
    {
        if (waiting_.empty()) {
            return;
        }
        if (curves_ == 0) {
            addMatrix(diagonal_);
        } else if (const std::optional<LUTCurves> own = ownPoints()) {
            parts_.emplace_back(LUTStep(*own));
        } else {
            parts_.emplace_back(Formula{evaluationOf(waiting_), true, false});
        }
        waiting_.clear();
        curves_ = 0;
        diagonal_ = {};
    }

    static bool hasOwnPoints(const OCIO::ConstTransformRcPtr& transform)
    {
        const auto curves = as<OCIO::Lut1DTransform>(transform);
        const auto range = as<OCIO::RangeTransform>(transform);
        return (curves && !curves->getInputHalfDomain() && curves->getLength() >= 2 &&
                curves->getDirection() == OCIO::TRANSFORM_DIR_FORWARD) ||
               (range && range->hasMinInValue() && range->hasMaxInValue() &&
                range->getMaxInValue() > range->getMinInValue() && range->getStyle() == OCIO::RANGE_CLAMP &&
                range->getDirection() == OCIO::TRANSFORM_DIR_FORWARD);
    }

    /// The points of the file itself, if the sequence is a curve with its domain in front of it at most.
    std::optional<LUTCurves> ownPoints() const
    {
        if (curves_ != 1 || !hasOwnPoints(waiting_.back())) {
            return std::nullopt;
        }
        const auto curves = as<OCIO::Lut1DTransform>(waiting_.back());
        const auto range = as<OCIO::RangeTransform>(waiting_.back());
        const double low = range ? range->getMinInValue() : 0.0;
        const double high = range ? range->getMaxInValue() : 1.0;
        LUTCurves result;
        for (std::size_t c = 0; c < 3; ++c) {
            const double scale = diagonal_.rows[c][c];
            result.domain.min[c] = static_cast<float>((low - diagonal_.rows[c][3]) / scale);
            result.domain.max[c] = static_cast<float>((high - diagonal_.rows[c][3]) / scale);
            if (!std::isfinite(result.domain.min[c]) || !std::isfinite(result.domain.max[c]) ||
                !(result.domain.max[c] > result.domain.min[c])) {
                return std::nullopt;
            }
        }
        if (range) {
            for (const double end : {range->getMinOutValue(), range->getMaxOutValue()}) {
                const auto value = static_cast<float>(end);
                result.points.push_back({value, value, value});
            }
            return result;
        }
        result.points.resize(curves->getLength());
        for (std::size_t i = 0; i < result.points.size(); ++i) {
            Colour& point = result.points[i];
            curves->getValue(i, point[0], point[1], point[2]);
        }
        return result;
    }

    bool keepsPoints_;
    const std::vector<LUTInverse>& inverses_;
    std::size_t inverted_ = 0;
    std::vector<Part> parts_;
    std::vector<OCIO::ConstTransformRcPtr> waiting_; ///< separable ones, not yet a part
    std::size_t curves_ = 0;                         ///< of these, not matrices
    LUTMatrix diagonal_;                             ///< all matrices of these
};

} // namespace

OCIO::ConfigRcPtr plainConfig()
{
    logWarnings();
    const OCIO::ConfigRcPtr config = OCIO::Config::CreateRaw()->createEditableCopy();
    config->setProcessorCacheFlags(OCIO::PROCESSOR_CACHE_OFF);
    return config;
}

std::optional<Source> sourceOf(const OCIO::ConstProcessorRcPtr& processor, Wanted wanted, Refusal& refusal)
{
    const OCIO::GroupTransformRcPtr group = processor->createGroupTransform();
    const Outline outline = Survey(*group).result();
    if (!outline.refusal.empty()) {
        refusal.cause = outline.refusal;
        return std::nullopt;
    }
    if (!outline.finite) {
        refusal.cause = notFinite;
        return std::nullopt;
    }
    Source source;
    source.facts.contents = outline.contents;
    source.evaluate = evaluationOf(processor);
    source.domain = outline.domain;
    source.sizes = outline.sizes;
    source.knots = outline.knots;
    source.judged = true;
    if (outline.table) {
        source.table = tableAsItIs(*outline.table, outline.domain);
        source.parts.emplace_back(LUTStep(LUTTable{source.table, isTrilinear(*outline.table)}));
    } else if (wanted == Wanted::Steps) {
        source.parts = PartsFinder(true, outline.inverses).find(*group);
        source.merged = PartsFinder(false, outline.inverses).find(*group);
    }
    return source;
}

} // namespace Qx::Host::Luts
