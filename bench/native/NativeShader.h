#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace Qx::Bench {

/// What a native shader reads and draws. The code that is made reads this layout.
struct NativeFrame
{
    static constexpr std::size_t mostBuffers = 8;

    /// Texels, by binding. A read outside of it gives one of them.
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

/// How a binding's texels lie in memory.
struct NativeTexels
{
    std::uint32_t bytes = 0;         ///< of a texel: 4, 8 or 16; 0 if nothing is bound
    std::uint32_t componentBits = 0; ///< 8, 16 or 32
};

/// How a shader becomes code.
struct NativeOptions
{
    std::uint32_t lanes = 8;
    std::uint32_t period = 1; ///< neighbouring texels that one lane computes, one after the other
    bool gathers = false;     ///< reads at scattered places are gathers of words, instead of loads of texels
    bool wide = false;        ///< with AVX-512
    int level = 0;            ///< of optimisation; 0 for the few passes that gain
};

/// What making the code took.
struct NativeCost
{
    double translation = 0; ///< milliseconds of processor time
    double optimisation = 0;
    double generation = 0; ///< of machine code, and linking
    std::size_t bytes = 0; ///< of machine code
};

/// A shader that gives the codes of one texel, as code of this machine's processor. A lane of its vectors is
/// a texel, or `period` neighbouring ones.
class NativeShader
{
public:
    /// `texels` are those of each binding, from 1 on. `likely` are uniforms of a usual frame: they decide
    /// what is taken as the rule away from a picture's edges, and not what is drawn. Throws
    /// std::runtime_error if the shader has an instruction that is not supported.
    NativeShader(const std::vector<std::uint32_t>& spirv, std::span<const NativeTexels> texels,
                 std::uint32_t targetBits, std::span<const std::byte> likely, std::uint32_t likelyWidth,
                 const NativeOptions& options);
    ~NativeShader();
    NativeShader(const NativeShader&) = delete;
    NativeShader& operator=(const NativeShader&) = delete;

    /// Draws the rows from `first` to the one before `end`. Thread-safe.
    void draw(const NativeFrame& frame, std::uint32_t first, std::uint32_t end) const
    {
        code_(&frame, first, end);
    }

    const NativeCost& cost() const { return cost_; }

private:
    struct Code;
    std::unique_ptr<Code> owner_;
    NativeCost cost_;
    void (*code_)(const NativeFrame*, std::uint32_t, std::uint32_t) = nullptr;
};

} // namespace Qx::Bench
