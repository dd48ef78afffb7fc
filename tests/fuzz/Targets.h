#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

/// The targets of the fuzzers. A target takes any bytes and touches no device, and no file but those of a
/// temporary directory of its own. It throws Find if a result breaks a promise; the fuzzer itself detects
/// crashes, hangs and exhausted memory.
namespace Qx::Fuzz {

using Input = std::span<const std::uint8_t>;

inline std::string_view textOf(Input input)
{
    return {reinterpret_cast<const char*>(input.data()), input.size()};
}

class Find : public std::logic_error
{
public:
    using std::logic_error::logic_error;
};

inline void promise(bool holds, const std::string& what)
{
    if (!holds) {
        throw Find(what);
    }
}

void preprocessor(Input input);  ///< an effect's text, and its includes after lines "//// NAME"
void parser(Input input);        ///< the same, up to the text for the HLSL compiler
void rowGeometry(Input input);   ///< the description of an image, field by field
void settings(Input input);      ///< a settings file
void effectArchive(Input input); ///< a compiled effect, from a cache or a worker
void cacheRecord(Input input);   ///< a file of the cache
void worker(Input input);        ///< the frames between the host and the worker process
void cube(Input input);          ///< a .cube file
void clfText(Input input);       ///< a CLF file, before it is given to OpenColorIO
void lut(Input input);           ///< a LUT file of another kind, through OpenColorIO, as steps
void clip(Input input);          ///< any file that is opened as a clip
void sequence(Input input);      ///< the pictures of a numbered sequence
void raw(Input input);           ///< the layout of raw frames, and their file

struct Target
{
    const char* name; ///< of its folder in corpus/
    void (*run)(Input);
};

inline constexpr std::array targets{Target{"preprocessor", preprocessor},
                                    Target{"parser", parser},
                                    Target{"rowGeometry", rowGeometry},
                                    Target{"settings", settings},
                                    Target{"effectArchive", effectArchive},
                                    Target{"cacheRecord", cacheRecord},
                                    Target{"worker", worker},
                                    Target{"cube", cube},
                                    Target{"clfText", clfText},
                                    Target{"lut", lut},
                                    Target{"clip", clip},
                                    Target{"sequence", sequence},
                                    Target{"raw", raw}};

} // namespace Qx::Fuzz
