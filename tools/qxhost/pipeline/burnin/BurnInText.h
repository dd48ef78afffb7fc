#pragma once

#include "tools/qxhost/pipeline/burnin/TimeCode.h"

#include <string>
#include <vector>

namespace Qx::Program {

/// A text with fields, such as "{timecode} {frame} {clip}". "{{" stands for a brace.
class BurnInText
{
public:
    /// Throws Failure (usage) for an unknown field, an unclosed brace, or bytes that are not UTF-8.
    explicit BurnInText(const std::string& text);

    /// What the fields say of a clip.
    struct Clip
    {
        std::string name;   ///< of its file, without the ending
        std::string source; ///< the file's whole name, without its directory
        std::string date;
        TimeCode timeCode;
    };

    /// The text of the frame with that number in the clip, from 0.
    std::string filledFor(std::int64_t frame, const Clip& clip) const;

private:
    enum class Field
    {
        none,
        timeCode,
        frame,
        clip,
        source,
        date
    };
    struct Piece
    {
        std::string text; ///< before the field
        Field field = Field::none;
    };

    static Field fieldNamed(const std::string& name);

    std::vector<Piece> pieces_;
};

/// Whether the bytes are UTF-8.
bool isUTF8(const std::string& text);

} // namespace Qx::Program
