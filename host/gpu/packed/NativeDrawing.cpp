#include "host/gpu/packed/NativeDrawing.h"

#include "host/gpu/packed/PackedDrawing.h"
#include "host/gpu/packed/PackedViews.h"

#include <cstring>
#include <utility>

namespace Qx::Host::Vulkan {

namespace {

// A picture of a few lines is not worth code, nor is a technique that draws a still.
constexpr std::uint64_t fewestBytes = 64U << 10U;
constexpr unsigned fewestDraws = 4;

std::uint64_t bytesInMemory(const Texture& texture, const PackedViews& views)
{
    const std::uint64_t rows =
        texture.key.depth > 0 ? std::uint64_t{views.layerRows()} * texture.key.depth : texture.key.height;
    return rows * views.rowBytes();
}

std::uint64_t texelBytes(const Texture& texture)
{
    return texture.key.depth > 0 ? packedBytes : bytesPerTexel(texture.key.format);
}

} // namespace

/// One draw on its way.
struct NativeDrawing::Job
{
    std::shared_ptr<Shared> shared;
    std::vector<std::byte> uniforms;
    Native::Frame frame;
    std::uint32_t rows = 0;
    std::size_t rowBytes = 0;           ///< of the target's texels alone
    std::vector<std::byte> drawn{};     ///< what is to be compared with the target; empty if nothing is
    const std::byte* target = nullptr;  ///< with which it is compared
    std::string name{};                 ///< of the technique

    void compare() const
    {
        for (std::uint32_t y = 0; y < rows; ++y) {
            if (std::memcmp(drawn.data() + y * frame.pitch, target + y * frame.pitch, rowBytes) != 0) {
                shared->state = State::Refused;
                report("GPU: technique \"" + name + "\": native code draws something else than the device in line " +
                       std::to_string(y) + "; it is not used");
                return;
            }
        }
        shared->state = State::Good;
    }
};

NativeDrawing::Way NativeDrawing::wayOf(const Draw& draw, const ShaderProgram& program)
{
    switch (shared_->state.load()) {
    case State::Waiting:
        if (draw.target.key.bytes() >= fewestBytes && ++draws_ == fewestDraws) {
            ask(draw);
        }
        return Way::Device;
    case State::Made: {
        for (const std::uint32_t sampler : program.bindings) {
            if (sampler >= Native::Frame::mostBuffers) {
                return Way::Device;
            }
        }
        State made = State::Made;
        return shared_->state.compare_exchange_strong(made, State::Checked) ? Way::DeviceAndCheck : Way::Device;
    }
    case State::Good:
        return Way::Host;
    case State::Asked:
    case State::Checked:
    case State::Refused:
        break;
    }
    return Way::Device;
}

void NativeDrawing::ask(const Draw& draw)
{
    shared_->state = State::Asked;
    fillPackedRows(draw);
    NativeWish wish = wish_;
    wish.usual.assign(draw.uniforms.begin(), draw.uniforms.end());
    wish.usualWidth = draw.target.key.width;
    maker_->make(std::move(wish), [shared = shared_, name = wish_.technique](std::shared_ptr<const Native::Code> code, const std::string& problem) {
        if (code == nullptr) {
            report("GPU: technique \"" + name + "\" has no native code: " + problem);
        }
        shared->code = std::move(code);
        shared->state = shared->code != nullptr ? State::Made : State::Refused;
    });
}

NativeDrawing::Textures NativeDrawing::texturesOf(const Draw& draw, const ShaderProgram& program,
                                                  Texture& target) const
{
    auto textures = draw.memory.list<Texture*>(program.bindings.size() + 1);
    textures[0] = &target;
    for (std::size_t i = 0; i < program.bindings.size(); ++i) {
        textures[i + 1] = &*draw.pictureOf(program.bindings[i])->texture();
    }
    return textures;
}

std::shared_ptr<NativeDrawing::Job> NativeDrawing::jobOf(const Draw& draw, const ShaderProgram& program,
                                                         const Texture& target) const
{
    auto job = std::make_shared<Job>();
    job->shared = shared_;
    job->name = wish_.technique;
    job->uniforms.assign(draw.uniforms.begin(), draw.uniforms.end());
    job->rows = target.key.height;
    job->rowBytes = target.key.rowBytes();
    Native::Frame& frame = job->frame;
    for (const std::uint32_t sampler : program.bindings) {
        const Texture& texture = *draw.pictureOf(sampler)->texture();
        frame.buffers[sampler] = {static_cast<const std::byte*>(texture.memory.mapped),
                                  bytesInMemory(texture, *PackedViews::of(texture)) / texelBytes(texture)};
    }
    frame.uniforms = job->uniforms.data();
    frame.target = static_cast<std::byte*>(target.memory.mapped);
    frame.pitch = PackedViews::of(target)->rowBytes();
    frame.width = target.key.width;
    return job;
}

bool NativeDrawing::record(const Draw& draw, const ShaderProgram& program) const
{
    fillPackedRows(draw);
    Texture* target = nullptr;
    const auto textures = [&] {
        target = draw.target.forReplacing();
        return target != nullptr ? texturesOf(draw, program, *target) : draw.memory.list<Texture*>(0);
    };
    const auto work = [&](Batch& batch) {
        for (Texture* const texture : texturesOf(draw, program, *target)) {
            batch.readOnHost(*texture);
        }
        batch.writeOnHost(*target);
        std::shared_ptr<Job> job = jobOf(draw, program, *target);
        const std::uint32_t rows = job->rows;
        return HostWork{rows, [job = std::move(job)](std::uint32_t first, std::uint32_t end) {
                            job->shared->code->draw(job->frame, first, end);
                        }};
    };
    if (context_.recorder().recordOnHost(draw.target.key.bytes(), textures, work) == 0) {
        return false;
    }
    ++context_.draws;
    ++context_.pathDraws;
    ++context_.nativeDraws;
    return true;
}

bool NativeDrawing::check(const Draw& draw, const ShaderProgram& program) const
{
    Texture& target = *draw.target.texture();
    const auto textures = [&] { return texturesOf(draw, program, target); };
    const auto work = [&](Batch& batch) {
        for (Texture* const texture : texturesOf(draw, program, target)) {
            batch.readOnHost(*texture);
        }
        std::shared_ptr<Job> job = jobOf(draw, program, target);
        job->target = job->frame.target;
        job->drawn.resize(job->frame.pitch * job->rows);
        job->frame.target = job->drawn.data();
        const std::uint32_t rows = job->rows;
        return HostWork{rows,
                        [job](std::uint32_t first, std::uint32_t end) {
                            job->shared->code->draw(job->frame, first, end);
                        },
                        [job] { job->compare(); }};
    };
    return context_.recorder().recordOnHost(draw.target.key.bytes(), textures, work) != 0;
}

} // namespace Qx::Host::Vulkan
