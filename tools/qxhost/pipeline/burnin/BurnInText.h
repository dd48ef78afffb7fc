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

    /// The values of a frame's fields.
    struct Frame
    {
        std::int64_t number = 0; ///< in the clip, from 0
        const TimeCode& timeCode;
        const std::string& clip;
    };
    std::string filledFor(const Frame& frame) const;

private:
    enum class Field
    {
        none,
        timeCode,
        frame,
        clip
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
