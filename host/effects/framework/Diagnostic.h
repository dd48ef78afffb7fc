#pragma once

#include "platform/Api.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Qx::Host {

/// One message of the effect compiler. Plain data of bounded size: long texts are cut. Texts are printable;
/// names of files are the bytes that the system has.
struct Diagnostic
{
    /// Whether the effect is refused.
    enum class Severity : std::uint8_t
    {
        Error,
        Warning
    };

    /// Lines and columns count from 1, columns in characters: a tab is one. The place of a whole file is 1:1.
    struct Place
    {
        std::string file;         ///< path of the file
        std::uint32_t line = 1;   ///< from 1
        std::uint32_t column = 1; ///< from 1, in characters
    };

    Severity severity = Severity::Error; ///< an error, or a warning after which the effect may be good
    Place at;                            ///< the place that it is about
    std::string text;                    ///< one line

    /// The first technique and pass that it concerns, both empty for none; the name of an unnamed pass is
    /// empty. `otherPasses` is the number of further passes with the same message.
    std::string technique;
    std::string pass;              ///< of the technique; see above
    std::uint32_t otherPasses = 0; ///< see above

    /// The author's line around the place in UTF-8: tabs as blanks, bytes of another encoding as Latin-1,
    /// unprintable characters as '?', a long line cut at "...". `caret` is the place in it, in terminal cells
    /// from 0. Empty for a blank line.
    std::string excerpt;
    std::uint32_t caret = 0; ///< see above

    /// The macro whose body the token came from, and where in the body. Empty for none.
    std::string macro;
    Place macroBody; ///< see above

    /// Where the file was included, nearest first; empty for the effect itself.
    std::vector<Place> includedFrom;

    /// Hints, and how many messages were left out.
    std::vector<std::string> notes;
};

/// "FILE:LINE:COLUMN: error: TEXT", followed by indented lines: the author's line with a caret under the
/// place, the technique and pass, the macro, the chain of includes and the notes.
QX_LOCAL std::string messageText(const Diagnostic& diagnostic);

/// The texts of all, one after the other.
QX_LOCAL std::string messageText(const std::vector<Diagnostic>& diagnostics);

} // namespace Qx::Host
