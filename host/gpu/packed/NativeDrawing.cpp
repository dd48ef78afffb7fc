#include "host/gpu/packed/NativeDrawing.h"

#include "host/gpu/packed/PackedDrawing.h"
#include "host/gpu/packed/PackedViews.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <random>
#include <utility>

namespace Qx::Host::Vulkan {

namespace {

// A picture of a few lines is not worth code, nor is a technique that draws for less than two seconds: code
// takes as much of the processors to be made as it saves in about a hundred pictures of 1080p. Loading what
// is known takes as much as some pictures.
constexpr std::uint64_t fewestBytes = 64U << 10U;
constexpr unsigned drawsBeforeFinding = 5;
constexpr unsigned drawsBeforeMaking = 50;

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

/// The textures that a draw reads, after `target`.
std::pmr::vector<Texture*> texturesOf(const Draw& draw, const ShaderProgram& program, Texture& target)
{
    auto textures = draw.memory.list<Texture*>(program.bindings.size() + 1);
    textures[0] = &target;
    for (std::size_t i = 0; i < program.bindings.size(); ++i) {
        textures[i + 1] = &*draw.pictureOf(program.bindings[i])->texture();
    }
    return textures;
}

/// Random codes in one row of a picture, the same in every run.
void fillWithNoise(std::span<std::byte> row, std::uint32_t y)
{
    std::mt19937 random(y);
    for (std::size_t at = 0; at + sizeof(std::uint32_t) <= row.size(); at += sizeof(std::uint32_t)) {
        const auto word = static_cast<std::uint32_t>(random());
        std::memcpy(row.data() + at, &word, sizeof word);
    }
}

/// A picture of random codes, which the host fills in its turn. Null if memory is exhausted or the device is
/// lost.
std::unique_ptr<Picture> noiseLike(Context& context, const Picture& picture)
{
    Pooled<Texture> texture = acquireTextureAtOnce(context, picture.key);
    if (!texture || (texture->companion != nullptr) != picture.hasCompanion) {
        return nullptr;
    }
    auto noise = std::make_unique<Picture>(std::move(texture));
    const auto textures = [&] { return std::array<Texture*, 1>{&*noise->texture()}; };
    const auto work = [&](Batch& batch) {
        Texture& target = *noise->texture();
        batch.writeOnHost(target);
        auto* const begin = static_cast<std::byte*>(target.memory.mapped);
        const std::size_t pitch = PackedViews::of(target)->rowBytes();
        return HostWork{target.key.height, [begin, pitch](std::uint32_t first, std::uint32_t end) {
                            for (std::uint32_t y = first; y < end; ++y) {
                                fillWithNoise({begin + y * pitch, pitch}, y);
                            }
                        }};
    };
    if (context.recorder().recordOnHost(picture.key.bytes(), textures, work) == 0) {
        return nullptr;
    }
    return noise;
}

} // namespace

/// One draw on its way.
struct NativeDrawing::Job
{
    std::shared_ptr<Shared> shared;
    std::vector<std::byte> uniforms;
    Native::Frame frame;
    std::uint32_t rows = 0;
    std::size_t rowBytes = 0;          ///< of the target's texels alone
    std::vector<std::byte> drawn{};    ///< what is to be compared with the target; empty if nothing is
    const std::byte* target = nullptr; ///< with which it is compared
    bool isLast = false;               ///< of the comparisons
    std::string technique{};

    void draw(std::uint32_t first, std::uint32_t end) const { shared->code->draw(frame, first, end); }

    /// Returns whether all is equal.
    bool compare() const
    {
        for (std::uint32_t y = 0; y < rows; ++y) {
            if (std::memcmp(drawn.data() + y * frame.pitch, target + y * frame.pitch, rowBytes) != 0) {
                shared->state = State::Refused;
                report("GPU: technique \"" + technique +
                       "\": native code draws something else than the device in line " + std::to_string(y) +
                       "; it is not used");
                return false;
            }
        }
        State compared = State::Compared;
        if (isLast) {
            shared->state.compare_exchange_strong(compared, State::Good);
        }
        return true;
    }
};

NativeDrawing::Way NativeDrawing::wayOf(const Draw& draw, const TechniqueDrawing& drawing)
{
    switch (shared_->state.load()) {
    case State::Waiting:
        if (draw.target.key.bytes() >= fewestBytes) {
            ask(draw, drawing);
        }
        return Way::Device;
    case State::Made: {
        if (!shared_->code->draws(draw.uniforms.data())) {
            return Way::Device;
        }
        State made = State::Made;
        return shared_->state.compare_exchange_strong(made, State::Compared) ? Way::DeviceAndCheck
                                                                             : Way::Device;
    }
    case State::Good:
        return shared_->code->draws(draw.uniforms.data()) ? Way::Host : Way::Device;
    case State::Asked:
    case State::Compared:
    case State::Refused:
        break;
    }
    return Way::Device;
}

void NativeDrawing::ask(const Draw& draw, const TechniqueDrawing& drawing)
{
    const unsigned draws = ++draws_;
    const bool makes = draws >= drawsBeforeMaking;
    State waiting = State::Waiting;
    if ((!makes && draws != drawsBeforeFinding) ||
        !shared_->state.compare_exchange_strong(waiting, State::Asked)) {
        return;
    }
    const std::vector<std::uint32_t>& bindings = drawing.program(0).bindings;
    if (!std::all_of(bindings.begin(), bindings.end(),
                     [](std::uint32_t sampler) { return sampler < Native::Frame::mostBuffers; })) {
        shared_->state = State::Refused;
        return;
    }
    fillPackedRows(draw);
    NativeWish wish = wish_;
    wish.usual.assign(draw.uniforms.begin(), draw.uniforms.end());
    wish.usualWidth = draw.target.key.width;
    const auto done = [shared = shared_, makes](std::shared_ptr<const Native::Code> code) {
        shared->code = std::move(code);
        shared->state = shared->code != nullptr ? State::Made : makes ? State::Refused : State::Waiting;
    };
    makes ? maker_->make(std::move(wish), done) : maker_->find(std::move(wish), done);
}

std::shared_ptr<NativeDrawing::Job> NativeDrawing::jobOf(const Draw& draw, const ShaderProgram& program,
                                                         const Texture& target) const
{
    auto job = std::make_shared<Job>();
    job->shared = shared_;
    job->technique = wish_.technique;
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

bool NativeDrawing::record(const Draw& draw, const TechniqueDrawing& drawing) const
{
    fillPackedRows(draw);
    const ShaderProgram& program = drawing.program(0);
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
        return HostWork{
            rows, [job = std::move(job)](std::uint32_t first, std::uint32_t end) { job->draw(first, end); }};
    };
    if (context_.recorder().recordOnHost(draw.target.key.bytes(), textures, work) == 0) {
        return false;
    }
    ++context_.draws;
    ++context_.pathDraws;
    ++context_.nativeDraws;
    return true;
}

void NativeDrawing::check(const Draw& draw, const TechniqueDrawing& drawing) const
{
    if (!checkNoise(draw, drawing) || !compare(draw, drawing.program(0), true)) {
        shared_->state = State::Refused;
    }
}

/// The same draw from pictures of random codes, by the device and by the code.
bool NativeDrawing::checkNoise(const Draw& draw, const TechniqueDrawing& drawing) const
{
    std::map<const Picture*, std::unique_ptr<Picture>> noise;
    auto textures = draw.memory.list<Picture*>(draw.textures.size());
    for (std::size_t i = 0; i < textures.size(); ++i) {
        Picture* const picture = draw.textures[i];
        textures[i] = picture;
        if (picture != nullptr && picture->key.depth == 0 && picture->hasCompanion) {
            std::unique_ptr<Picture>& made = noise[picture];
            made = made != nullptr ? std::move(made) : noiseLike(context_, *picture);
            textures[i] = made.get();
            if (made == nullptr) {
                return false;
            }
        }
    }
    const std::unique_ptr<Picture> target = noiseLike(context_, draw.target);
    if (target == nullptr) {
        return false;
    }
    const Draw other{draw.effect, textures,    *target,   draw.pixels, draw.uniforms,
                     draw.memory, draw.clears, draw.area, draw.sources};
    const auto record = [&](Batch& batch) { return drawing.record(batch, other, {0, 1}); };
    return context_.recorder().record(target->key.bytes(), Recorder::Submit::WhenDue, record) != 0 &&
           compare(other, drawing.program(0), false);
}

/// Records that the code draws beside the target, and that what it draws is compared with that.
bool NativeDrawing::compare(const Draw& draw, const ShaderProgram& program, bool isLast) const
{
    Texture& target = *draw.target.texture();
    std::vector<std::byte> drawn(PackedViews::of(target)->rowBytes() * target.key.height);
    const auto textures = [&] { return texturesOf(draw, program, target); };
    const auto work = [&](Batch& batch) {
        for (Texture* const texture : texturesOf(draw, program, target)) {
            batch.readOnHost(*texture);
        }
        std::shared_ptr<Job> job = jobOf(draw, program, target);
        job->target = job->frame.target;
        job->drawn = std::move(drawn);
        job->frame.target = job->drawn.data();
        job->isLast = isLast;
        const std::uint32_t rows = job->rows;
        return HostWork{rows, [job](std::uint32_t first, std::uint32_t end) { job->draw(first, end); },
                        [job] { guarded(false, [&] { return job->compare(); }); }};
    };
    return context_.recorder().recordOnHost(draw.target.key.bytes(), textures, work) != 0;
}

} // namespace Qx::Host::Vulkan
