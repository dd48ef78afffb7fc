#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Qx::Host {

/// One thing that the effect compiler has to say. Plain data, bounded in size: texts are cut to what a person
/// reads. Texts are printable; names of files are as they are, in whatever bytes.
struct Diagnostic
{
    enum class Severity : std::uint8_t
    {
        Error,
        Warning
    };

    /// Lines and columns count from 1, columns in characters: a tab is one. What concerns a file as a whole
    /// stands at 1:1.
    struct Place
    {
        std::string file;
        std::uint32_t line = 1;
        std::uint32_t column = 1;
    };

    Severity severity = Severity::Error;
    Place at;
    std::string text;

    /// The first technique and pass that it concerns, both empty when it is about none; an unnamed pass is
    /// empty. `otherPasses` more have the same.
    std::string technique;
    std::string pass;
    std::uint32_t otherPasses = 0;

    /// The author's line around the place: tabs as blanks, what cannot be shown as '?', a long line cut at
    /// "...". `caret` is the place in it, in terminal cells from 0. Empty when there is nothing to show.
    std::string excerpt;
    std::uint32_t caret = 0;

    /// The macro whose body the place came from, and where in the body. Empty for none.
    std::string macro;
    Place macroBody;

    /// Where the file was included, nearest first; empty for the effect itself.
    std::vector<Place> includedFrom;

    /// What else helps: hints, and how many messages were left out.
    std::vector<std::string> notes;
};

/// "FILE:LINE:COLUMN: error: TEXT" and behind it, indented, the author's line with a caret under the place,
/// the technique and pass, the macro, the chain of includes and the notes, each on a line of its own.
std::string messageText(const Diagnostic& diagnostic);

/// All of them, one after the other.
std::string messageText(const std::vector<Diagnostic>& diagnostics);

} // namespace Qx::Host
