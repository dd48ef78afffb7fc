#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace Qx::Host::Native {

/// What code of a shader reads and draws. The code reads this layout.
struct Frame
{
    static constexpr std::size_t mostBuffers = 8;

    /// Texels, by binding from 0 on. A read outside of it gives one of them.
    struct Buffer
    {
        const std::byte* bytes = nullptr;
        std::uint64_t texels = 0;
    };

    Buffer buffers[mostBuffers];
    const std::byte* uniforms = nullptr;
    std::byte* target = nullptr;
    std::uint64_t pitch = 0; ///< bytes from one row of the target to the next
    std::uint32_t width = 0; ///< of the target, in texels
};

/// How the texels of a binding lie in memory.
struct Texels
{
    std::uint32_t bytes = 0;         ///< of a texel: 4, 8 or 16; 0 if nothing is bound
    std::uint32_t componentBits = 0; ///< 8, 16 or 32

    friend bool operator==(const Texels&, const Texels&) = default;
};

/// How a shader becomes code.
struct Options
{
    std::uint32_t lanes = 8;  ///< 8, or 16 where the processor has AVX-512
    std::uint32_t period = 1; ///< neighbouring texels that one lane computes, one after the other
    bool gathers = false;     ///< reads at scattered places are gathers of words, instead of loads of texels
    bool wide = false;        ///< with all that the processor has, instead of AVX2 alone
    int level = 0;            ///< of optimisation; 0 for the few passes that gain
};

/// What making code took.
struct Cost
{
    double translation = 0; ///< milliseconds of processor time
    double optimisation = 0;
    double generation = 0; ///< of machine code
    std::size_t bytes = 0; ///< of the object file

    double milliseconds() const { return translation + optimisation + generation; }
};

/// A shader that gives the codes of one texel.
struct Shader
{
    std::span<const std::uint32_t> spirv;
    std::span<const Texels> texels; ///< of each binding
    std::uint32_t targetBits = 8;   ///< of a component: 8 or 16
    std::span<const std::byte>
        usual;                    ///< uniforms of a usual frame, as large as every frame's: they decide what
                                  ///< is taken as the rule away from a picture's edges, not what is drawn
    std::uint32_t usualWidth = 0; ///< of that frame's target
};

/// Machine code, as an object file for this machine.
struct Made
{
    std::vector<std::byte> object;
    std::string problem; ///< why there is none, as a phrase that begins with the shader as "it"; else empty
    Cost cost{};
    /// With a period of 1: after how many texels what depends on the column alone repeats itself; different
    /// numbers from 2 on, ascending. Each of them may be a faster period.
    std::vector<std::uint32_t> repetitions{};
};

/// Code in memory, ready to be run.
class Code
{
public:
    virtual ~Code() = default;
    Code(const Code&) = delete;
    Code& operator=(const Code&) = delete;

    /// Whether draw() draws what the shader does with these uniforms: not if they lead to something that
    /// drivers approximate. Thread-safe.
    bool draws(const std::byte* uniforms) const
    {
        Frame frame;
        frame.uniforms = uniforms;
        return draws_(&frame) != 0;
    }

    /// Draws the rows from `first` to the one before `end`. Every read is within the frame's buffers.
    /// Thread-safe.
    void draw(const Frame& frame, std::uint32_t first, std::uint32_t end) const { draw_(&frame, first, end); }

protected:
    Code() = default;
    void (*draw_)(const Frame*, std::uint32_t, std::uint32_t) = nullptr;
    std::uint32_t (*draws_)(const Frame*) = nullptr;
};

/// What makes and loads code. It is a module of its own, which links LLVM and is loaded when it is needed.
/// Thread-safe; throws std::bad_alloc only.
struct Library
{
    /// Makes code of a shader. It draws what the shader draws, to the last bit: shaders are refused if they
    /// have loops whose rounds are not known, or always need functions that drivers approximate. LLVM may end
    /// the process on what it cannot do: a worker's process makes it.
    Made (*make)(const Shader& shader, const Options& options);

    /// The processor and LLVM, for which code is made: code of other ones is not to be loaded.
    std::string (*target)();

    /// LLVM and its version, for people.
    std::string (*compiler)();

    /// How many lanes suit the processor.
    std::uint32_t (*lanes)();

    /// Null, with the reason, if the code cannot be loaded. `object` must be what make() gave on this target.
    std::unique_ptr<Code> (*load)(std::span<const std::byte> object, std::string& problem);
};

/// The module, loaded once from `folder`; null, with the reason, if there is none.
const Library* library(const std::filesystem::path& folder, std::string& problem);

/// What the module exports.
inline constexpr const char* libraryName = "qxnative.so";
inline constexpr const char* librarySymbol = "qx_native_library";

} // namespace Qx::Host::Native
