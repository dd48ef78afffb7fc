#pragma once

#include "host/effects/framework/Diagnostic.h"
#include "host/effects/framework/SourceText.h"

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace Qx::Host::Effects {

/// Collects the messages about one effect in the order in which they are found. Their number is bounded, and
/// a message that several passes share is kept once.
class Problems
{
public:
    /// The technique and pass in which a problem was found; both empty for none.
    struct Context
    {
        std::string_view technique;
        std::string_view pass;
    };

    /// `files` lives longer than this object.
    explicit Problems(const SourceFiles& files) : files_(files) {}

    void warn(const CompileError& warning) { add(Diagnostic::Severity::Warning, warning, {}); }
    void fail(const CompileError& error, const Context& context = {});

    bool failed() const { return failed_; }

    /// As messages say it.
    Diagnostic::Place placeOf(Location at) const;

    /// Whether there are so many errors that the compilation should stop.
    bool enough() const { return errors_ >= most; }

    /// Moves the messages out.
    std::vector<Diagnostic> take();

private:
    static constexpr std::size_t most = 50; ///< of errors, and of warnings

    void add(Diagnostic::Severity severity, const CompileError& problem, const Context& context);
    std::vector<Diagnostic::Place> includesOf(Location at) const;

    const SourceFiles& files_;
    std::vector<Diagnostic> diagnostics_;
    std::map<std::string, std::size_t> known_; ///< index of each, by its first line
    std::size_t errors_ = 0;
    std::size_t warnings_ = 0;
    std::size_t leftOut_ = 0;
    bool failed_ = false;
};

} // namespace Qx::Host::Effects
