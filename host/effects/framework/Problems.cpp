#include "host/effects/framework/Problems.h"

#include "host/core/Printable.h"
#include "host/effects/framework/Excerpt.h"

#include <algorithm>

namespace Qx::Host::Effects {
namespace {

/// One printable line of bounded length, whatever text of the author's it has.
std::string oneLine(std::string text)
{
    constexpr std::size_t longest = 2000;
    if (text.size() > longest) {
        text.resize(longest);
        text += "...";
    }
    std::replace(text.begin(), text.end(), '\n', ' ');
    text.erase(text.find_last_not_of(' ') + 1);
    return printable(text);
}

std::string name(std::string_view text)
{
    const std::string quoted = inQuotes(text);
    return oneLine(quoted.substr(1, quoted.size() - 2));
}

} // namespace

void Problems::fail(const CompileError& error, const Context& context)
{
    failed_ = true;
    add(Diagnostic::Severity::Error, error, context);
}

void Problems::add(Diagnostic::Severity severity, const CompileError& problem, const Context& context)
{
    const Location at = problem.at();
    Diagnostic diagnostic;
    diagnostic.severity = severity;
    diagnostic.at = placeOf(at);
    diagnostic.text = oneLine(problem.what());
    const auto [known, isNew] = known_.emplace(messageText(diagnostic), diagnostics_.size());
    if (!isNew) {
        diagnostics_[known->second].otherPasses += context.technique.empty() ? 0U : 1U;
        return;
    }
    std::size_t& count = severity == Diagnostic::Severity::Error ? errors_ : warnings_;
    if (count >= most) {
        known_.erase(known);
        ++leftOut_;
        return;
    }
    ++count;
    diagnostic.technique = context.technique.empty() ? "" : name(context.technique);
    diagnostic.pass = context.pass.empty() ? "" : name(context.pass);
    if (at.line > 0 && at.file < files_.size()) {
        const Excerpt excerpt = excerptOf(files_[at.file].text, at.line, at.column);
        diagnostic.excerpt = excerpt.text;
        diagnostic.caret = excerpt.caret;
    }
    if (const SourceFiles::MacroNote* const note = files_.macroNote(at)) {
        diagnostic.macro = name(note->macro);
        diagnostic.macroBody = placeOf(note->body);
    }
    diagnostic.includedFrom = includesOf(at);
    diagnostics_.push_back(std::move(diagnostic));
}

Diagnostic::Place Problems::placeOf(Location at) const
{
    // Editors need a place to jump to, even for a message about the whole file.
    return {at.file < files_.size() ? files_[at.file].name : std::string(), std::max(at.line, 1U),
            std::max(at.column, 1U)};
}

std::vector<Diagnostic::Place> Problems::includesOf(Location at) const
{
    constexpr std::size_t longest = 8;
    std::vector<Diagnostic::Place> places;
    while (at.file < files_.size() && files_[at.file].includedFrom.line != 0 && places.size() < longest) {
        at = files_[at.file].includedFrom;
        const Diagnostic::Place place = placeOf(at);
        const bool again =
            !places.empty() && places.back().file == place.file && places.back().line == place.line;
        if (again) {
            break; // a file that includes itself
        }
        places.push_back(place);
    }
    return places;
}

std::vector<Diagnostic> Problems::take()
{
    if (leftOut_ != 0 && !diagnostics_.empty()) {
        diagnostics_.back().notes.push_back("and " + std::to_string(leftOut_) + " more messages");
        leftOut_ = 0;
    }
    known_.clear();
    return std::move(diagnostics_);
}

} // namespace Qx::Host::Effects
