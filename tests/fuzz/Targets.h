#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>

/// What the fuzzers drive. A target takes any bytes, touches neither files nor devices, and throws Find for
/// an answer that breaks a promise; crashes, hangs and exhausted memory speak for themselves.
namespace Qx::Fuzz {

using Input = std::span<const std::uint8_t>;

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

void preprocessor(Input input);  ///< an effect's text, and its includes behind lines "//// NAME"
void parser(Input input);        ///< the same, up to the text that the HLSL compiler gets
void rowGeometry(Input input);   ///< the description of an image, field after field
void settings(Input input);      ///< a settings file
void effectArchive(Input input); ///< a compiled effect, from a cache or a worker
void cacheRecord(Input input);   ///< a file of the cache
void worker(Input input);        ///< the frames that host and worker process send each other
void cube(Input input);          ///< a .cube file

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
                                    Target{"cube", cube}};

} // namespace Qx::Fuzz
