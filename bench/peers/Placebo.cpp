#include "bench/peers/Participant.h"

// This one header does not say that it is C.
extern "C" {
#include <libplacebo/config.h>
}

#include <libplacebo/dispatch.h>
#include <libplacebo/log.h>
#include <libplacebo/renderer.h>
#include <libplacebo/shaders/custom.h>
#include <libplacebo/vulkan.h>
#include <vulkan/vulkan.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <numbers>
#include <string>
#include <utility>

// The participant for libplacebo, on the same device: hand-written passes for the same work, its renderer,
// and a pass that computes nothing and moves the same bytes in the largest texels available.

namespace Qx::Bench {
namespace {

constexpr int framesTogether = 16;
constexpr std::size_t underWay = 3;

/// The device, for the lifetime of the program.
class Gpu
{
public:
    explicit Gpu(const std::string& name)
    {
        pl_log_params logging{};
        logging.log_level = PL_LOG_ERR;
        logging.log_cb = pl_log_simple;
        log_ = pl_log_create(PL_API_VER, &logging);
        pl_vulkan_params params = pl_vulkan_default_params;
        params.allow_software = true;
        params.device_name = name.empty() ? nullptr : name.c_str();
        vulkan_ = pl_vulkan_create(log_, &params);
        if (vulkan_ != nullptr) {
            dispatch_ = pl_dispatch_create(log_, gpu());
        }
    }
    Gpu(const Gpu&) = delete;
    Gpu& operator=(const Gpu&) = delete;
    ~Gpu()
    {
        pl_dispatch_destroy(&dispatch_);
        pl_vulkan_destroy(&vulkan_);
        pl_log_destroy(&log_);
    }

    bool works() const { return vulkan_ != nullptr; }
    pl_gpu gpu() const { return vulkan_->gpu; }
    pl_dispatch dispatch() const { return dispatch_; }
    pl_log log() const { return log_; }

    std::string deviceName() const
    {
        VkPhysicalDeviceProperties properties{};
        vkGetPhysicalDeviceProperties(vulkan_->phys_device, &properties);
        return properties.deviceName;
    }

private:
    pl_log log_ = nullptr;
    pl_vulkan vulkan_ = nullptr;
    pl_dispatch dispatch_ = nullptr;
};

class Texture
{
public:
    Texture(const Gpu& gpu, const char* format, int width, int height) : gpu_(gpu)
    {
        pl_tex_params params{};
        params.w = width;
        params.h = height;
        params.format = pl_find_named_fmt(gpu.gpu(), format);
        params.sampleable = true;
        params.renderable = true;
        params.host_writable = true;
        params.host_readable = true;
        params.blit_src = true;
        params.blit_dst = true;
        texture_ = params.format != nullptr ? pl_tex_create(gpu.gpu(), &params) : nullptr;
    }
    Texture(const Texture&) = delete;
    Texture& operator=(const Texture&) = delete;
    ~Texture() { pl_tex_destroy(gpu_.gpu(), &texture_); }

    pl_tex get() const { return texture_; }

    bool fill(const std::byte* bytes) const
    {
        pl_tex_transfer_params transfer{};
        transfer.tex = texture_;
        transfer.ptr = const_cast<std::byte*>(bytes);
        return texture_ != nullptr && pl_tex_upload(gpu_.gpu(), &transfer);
    }

    bool read(std::byte* bytes) const
    {
        pl_tex_transfer_params transfer{};
        transfer.tex = texture_;
        transfer.ptr = bytes;
        return texture_ != nullptr && pl_tex_download(gpu_.gpu(), &transfer);
    }

private:
    const Gpu& gpu_;
    pl_tex texture_ = nullptr;
};

// Mesa's software device occasionally sleeps forever on work that has finished; asking again detects this.
constexpr std::uint64_t patience = 1'000'000; // nanoseconds

/// Blocks until the textures are no longer in use.
template <class Textures>
void await(const Gpu& gpu, const Textures& textures)
{
    pl_gpu_flush(gpu.gpu());
    for (const auto& texture : textures) {
        while (pl_tex_poll(gpu.gpu(), texture->get(), patience)) {
        }
    }
}

/// Host memory that the device reads and writes directly.
class Buffer
{
public:
    Buffer(const Gpu& gpu, std::size_t bytes) : gpu_(gpu)
    {
        pl_buf_params params{};
        params.size = bytes;
        params.host_mapped = true;
        params.memory_type = PL_BUF_MEM_HOST;
        buffer_ = pl_buf_create(gpu.gpu(), &params);
    }
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;
    ~Buffer() { pl_buf_destroy(gpu_.gpu(), &buffer_); }

    pl_buf get() const { return buffer_; }

    void wait() const
    {
        while (pl_buf_poll(gpu_.gpu(), buffer_, patience)) {
        }
    }

private:
    const Gpu& gpu_;
    pl_buf buffer_ = nullptr;
};

/// Draws one texture into another.
class Drawing
{
public:
    Drawing() = default;
    virtual ~Drawing() = default;
    Drawing(const Drawing&) = delete;
    Drawing& operator=(const Drawing&) = delete;
    virtual bool draw(pl_tex source, pl_tex target) = 0;
};

/// Our fragment shader, through pl_dispatch.
class HandWrittenPass : public Drawing
{
public:
    HandWrittenPass(const Gpu& gpu, std::string header, std::string body)
        : gpu_(gpu), header_(std::move(header)), body_(std::move(body))
    {
    }

    bool draw(pl_tex source, pl_tex target) override
    {
        pl_dispatch_reset_frame(gpu_.dispatch());
        pl_shader shader = pl_dispatch_begin(gpu_.dispatch());
        pl_shader_desc input{};
        input.desc.name = "source";
        input.desc.type = PL_DESC_SAMPLED_TEX;
        input.binding.object = source;
        input.binding.address_mode = PL_TEX_ADDRESS_CLAMP;
        input.binding.sample_mode = PL_TEX_SAMPLE_NEAREST;
        pl_custom_shader custom{};
        custom.header = header_.c_str();
        custom.body = body_.c_str();
        custom.input = PL_SHADER_SIG_NONE;
        custom.output = PL_SHADER_SIG_COLOR;
        custom.descriptors = &input;
        custom.num_descriptors = 1;
        custom.output_w = target->params.w;
        custom.output_h = target->params.h;
        if (!pl_shader_custom(shader, &custom)) {
            return false;
        }
        pl_dispatch_params params{};
        params.shader = &shader;
        params.target = target;
        return pl_dispatch_finish(gpu_.dispatch(), &params);
    }

private:
    const Gpu& gpu_;
    std::string header_;
    std::string body_;
};

struct Format
{
    const char* name;
    int width;
};

Format formatOf(FrameLayout layout, unsigned depth)
{
    const char* const texel = depth == 8 ? "rgba8" : "rgba16";
    switch (layout) {
    case FrameLayout::Video:
        return {texel, frameWidth / 2};
    case FrameLayout::V210:
        return {"r32u", static_cast<int>(rowBytes(layout, depth) / 4)};
    case FrameLayout::Colour:
        break;
    }
    return {texel, frameWidth};
}

/// BT.709 between video range and full-range RGB; codes are normalised to 0 to 1.
std::string constantsFor(unsigned depth)
{
    const double largest = depth == 8 ? 255.0 : 65535.0;
    const double step = depth == 8 ? 1.0 : 256.0;
    char text[512];
    std::snprintf(text, sizeof text,
                  "const float kr = 0.2126; const float kb = 0.0722; const float kg = 1.0 - kr - kb;\n"
                  "const float black = %.9g; const float zero = %.9g;\n"
                  "const float luma = %.9g; const float chroma = %.9g;\n",
                  16.0 * step / largest, 128.0 * step / largest, 219.0 * step / largest,
                  224.0 * step / largest);
    return text;
}

const char* decodeHeader()
{
    return R"(
vec4 toRgb(float y, vec2 c)
{
    float l = (y - black) / luma;
    c = (c - zero) / chroma;
    return vec4(l + 2.0 * (1.0 - kr) * c.y,
                l - 2.0 * (1.0 - kb) * kb / kg * c.x - 2.0 * (1.0 - kr) * kr / kg * c.y,
                l + 2.0 * (1.0 - kb) * c.x, 1.0);
}
vec4 pairAt(int x, int y)
{
    return texelFetch(source, ivec2(clamp(x, 0, LAST), y), 0);
}
)";
}

std::string decodeBody(ChromaFilter filter)
{
    std::string body =
        "ivec2 at = ivec2(gl_FragCoord.xy); int pair = at.x >> 1; bool odd = (at.x & 1) != 0;\n"
        "vec4 p = pairAt(pair, at.y); float y = odd ? p.z : p.x; vec2 c = p.yw;\n";
    if (filter == ChromaFilter::CatmullRom) {
        body += "if (odd) c = (9.0 * (c + pairAt(pair + 1, at.y).yw)"
                " - pairAt(pair - 1, at.y).yw - pairAt(pair + 2, at.y).yw) / 16.0;\n";
    } else if (filter == ChromaFilter::Mitchell) {
        body += "vec2 before = pairAt(pair - 1, at.y).yw; vec2 after = pairAt(pair + 1, at.y).yw;\n"
                "c = odd ? (77.0 * (c + after) - 5.0 * (before + pairAt(pair + 2, at.y).yw)) / 144.0\n"
                "        : (before + 16.0 * c + after) / 18.0;\n";
    }
    return body + "color = toRgb(y, c);\n";
}

/// Weights of a filter of three lobes, stretched to the lower rate.
const char* encodeHeader()
{
    return R"(
const float lanczos[6] = float[6](WEIGHTS);
vec3 pixelAt(int x, int y)
{
    return texelFetch(source, ivec2(clamp(x, 0, LAST), y), 0).rgb;
}
float lumaOf(vec3 c)
{
    return dot(c, vec3(kr, kg, kb));
}
vec2 chromaOf(vec3 c)
{
    float l = lumaOf(c);
    return zero + chroma * vec2((c.b - l) / (2.0 * (1.0 - kb)), (c.r - l) / (2.0 * (1.0 - kr)));
}
)";
}

std::string encodeBody(ChromaFilter filter)
{
    std::string body = "ivec2 at = ivec2(gl_FragCoord.xy); int x = at.x * 2;\n"
                       "vec3 even = pixelAt(x, at.y); vec3 odd = pixelAt(x + 1, at.y); vec3 sum = even;\n";
    if (filter == ChromaFilter::Lanczos) {
        body += "sum = lanczos[0] * even + lanczos[1] * (odd + pixelAt(x - 1, at.y));\n"
                "for (int i = 2; i < 6; i++) sum += lanczos[i] * (pixelAt(x - i, at.y) + pixelAt(x + i, "
                "at.y));\n";
    }
    return body + "vec2 c = chromaOf(sum);\n"
                  "color = vec4(black + luma * lumaOf(even), c.x, black + luma * lumaOf(odd), c.y);\n";
}

double sinc(double x)
{
    return x == 0 ? 1.0 : std::sin(std::numbers::pi * x) / (std::numbers::pi * x);
}

std::string lanczosWeights()
{
    std::array<double, 6> weights{};
    double sum = 0;
    for (std::size_t i = 0; i < weights.size(); ++i) {
        const double x = static_cast<double>(i) / 2.0;
        weights.at(i) = sinc(x) * sinc(x / 3.0);
        sum += (i == 0 ? 1.0 : 2.0) * weights.at(i);
    }
    std::string text;
    for (const double weight : weights) {
        text += (text.empty() ? "" : ", ") + std::to_string(weight / sum);
    }
    return text;
}

const char* fromV210Body()
{
    // Words hold three components each, in the order Cb Y Cr Y.
    return R"(ivec2 at = ivec2(gl_FragCoord.xy); int first = at.x * 4;
uvec4 codes;
for (int i = 0; i < 4; i++) {
    int component = first + (i ^ 1);
    int word = component / 3;
    codes[i] = (texelFetch(source, ivec2(word, at.y), 0).r >> uint(10 * (component - word * 3))) & 1023u;
}
color = vec4(codes * 64u) / 65535.0;
)";
}

std::unique_ptr<Drawing> handWritten(const Gpu& gpu, const Work& work)
{
    const Format source = formatOf(sourceLayout(work.kind), work.depth);
    const std::string last = "#define LAST " + std::to_string(source.width - 1) + "\n";
    switch (work.kind) {
    case WorkKind::Decode:
        return std::make_unique<HandWrittenPass>(gpu, last + constantsFor(work.depth) + decodeHeader(),
                                                 decodeBody(work.filter));
    case WorkKind::Encode:
        return std::make_unique<HandWrittenPass>(gpu,
                                                 last + "#define WEIGHTS " + lanczosWeights() + "\n" +
                                                     constantsFor(work.depth) + encodeHeader(),
                                                 encodeBody(work.filter));
    case WorkKind::FromV210:
        return std::make_unique<HandWrittenPass>(gpu, "", fromV210Body());
    case WorkKind::ToV210:
    case WorkKind::V210ToRGB:
    case WorkKind::Look:
    case WorkKind::Grade:
        break;
    }
    return nullptr;
}

/// A pass that moves bytes and computes nothing, in texels of 128 bits over images of the same size in
/// memory. A raw pass, because pl_dispatch writes no integers.
class PassThrough : public Job
{
public:
    PassThrough(const Gpu& gpu, const Work& work)
        : gpu_(gpu), source_(gpu, "rgba32u", texels(sourceLayout(work.kind), work.depth), frameHeight)
    {
        bool ready = source_.get() != nullptr;
        for (auto& each : targets_) {
            each = std::make_unique<Texture>(gpu, "rgba32u", texels(resultLayout(work.kind), work.depth),
                                             frameHeight);
            ready = ready && each->get() != nullptr;
        }
        if (!ready) {
            return;
        }
        const int in = source_.get()->params.w;
        const int out = targets_.front()->get()->params.w;
        const std::string fetch = "texelFetch(source, ivec2(";
        const std::string column =
            "int(gl_FragCoord.x) * " + std::to_string(in) + " / " + std::to_string(out);
        std::string body = "color = " + fetch + column + ", int(gl_FragCoord.y)), 0)";
        if (in > out) { // every texel of the source is read
            body += " ^ " + fetch + column + " + 1, int(gl_FragCoord.y)), 0)";
        }
        const std::string fragment = "#version 450\nlayout(binding=0) uniform usampler2D source;\n"
                                     "layout(location=0) out uvec4 color;\nvoid main() { " +
                                     body + "; }\n";
        const char* const vertex = "#version 450\nlayout(location=0) in vec2 position;\n"
                                   "void main() { gl_Position = vec4(position, 0.0, 1.0); }\n";
        pl_desc input{};
        input.name = "source";
        input.type = PL_DESC_SAMPLED_TEX;
        pl_vertex_attrib corner{};
        corner.name = "position";
        corner.fmt = pl_find_vertex_fmt(gpu.gpu(), PL_FMT_FLOAT, 2);
        pl_pass_params params{};
        params.type = PL_PASS_RASTER;
        params.descriptors = &input;
        params.num_descriptors = 1;
        params.glsl_shader = fragment.c_str();
        params.vertex_shader = vertex;
        params.vertex_type = PL_PRIM_TRIANGLE_STRIP;
        params.vertex_attribs = &corner;
        params.num_vertex_attribs = 1;
        params.vertex_stride = 2 * sizeof(float);
        params.target_format = targets_.front()->get()->params.format;
        pass_ = pl_pass_create(gpu.gpu(), &params);
    }
    PassThrough(const PassThrough&) = delete;
    PassThrough& operator=(const PassThrough&) = delete;
    ~PassThrough() override { pl_pass_destroy(gpu_.gpu(), &pass_); }

    int frames() override
    {
        if (pass_ == nullptr) {
            return 0;
        }
        static const float corners[] = {-1, -1, 1, -1, -1, 1, 1, 1};
        pl_desc_binding binding{};
        binding.object = source_.get();
        pl_pass_run_params run{};
        run.pass = pass_;
        run.desc_bindings = &binding;
        run.vertex_count = 4;
        run.vertex_data = corners;
        for (std::size_t i = 0; i < framesTogether; ++i) {
            run.target = targets_.at(i % targetsInTurn)->get();
            pl_pass_run(gpu_.gpu(), &run);
        }
        await(gpu_, targets_);
        return framesTogether;
    }

private:
    static int texels(FrameLayout layout, unsigned depth)
    {
        return static_cast<int>(rowBytes(layout, depth) / 16);
    }

    const Gpu& gpu_;
    Texture source_;
    std::array<std::unique_ptr<Texture>, targetsInTurn> targets_;
    pl_pass pass_ = nullptr;
};

/// Its renderer, which reads and writes 4:2:2 in planes.
class Rendering : public Job
{
public:
    Rendering(const Gpu& gpu, const Work& work)
        : gpu_(gpu), work_(work), renderer_(pl_renderer_create(gpu.log(), gpu.gpu()))
    {
        const bool decode = work.kind == WorkKind::Decode;
        ready_ = makeVideo() && makeColour();
        params_ = pl_render_fast_params;
        params_.plane_upscaler = filter();
        params_.upscaler = filter();
        source_ = decode ? video_ : colour_;
        target_ = decode ? colour_ : video_;
    }
    Rendering(const Rendering&) = delete;
    Rendering& operator=(const Rendering&) = delete;
    ~Rendering() override { pl_renderer_destroy(&renderer_); }

    int frames() override
    {
        for (int i = 0; i < framesTogether; ++i) {
            if (!ready_ || !pl_render_image(renderer_, &source_, &target_, &params_)) {
                return 0;
            }
        }
        await(gpu_, textures_);
        return framesTogether;
    }

    std::vector<std::byte> result() override
    {
        if (work_.kind != WorkKind::Decode) {
            return {};
        }
        std::vector<std::byte> frame(frameBytes(FrameLayout::Colour, work_.depth));
        return textures_.back()->read(frame.data()) ? frame : std::vector<std::byte>();
    }

private:
    const pl_filter_config* filter() const
    {
        switch (work_.filter) {
        case ChromaFilter::CatmullRom:
            return &pl_filter_catmull_rom;
        case ChromaFilter::Mitchell:
            return &pl_filter_mitchell;
        case ChromaFilter::Lanczos:
            return &pl_filter_lanczos;
        case ChromaFilter::Point:
        case ChromaFilter::None:
            break;
        }
        return nullptr;
    }

    pl_color_repr representation(bool video) const
    {
        pl_color_repr repr{};
        repr.sys = video ? PL_COLOR_SYSTEM_BT_709 : PL_COLOR_SYSTEM_RGB;
        repr.levels = video ? PL_COLOR_LEVELS_LIMITED : PL_COLOR_LEVELS_FULL;
        repr.bits.sample_depth = static_cast<int>(work_.depth);
        repr.bits.color_depth = static_cast<int>(work_.depth);
        return repr;
    }

    bool makeVideo()
    {
        const char* const format = work_.depth == 8 ? "r8" : "r16";
        const std::vector<std::byte> packed =
            work_.kind == WorkKind::Decode
                ? sourceFrame(work_)
                : std::vector<std::byte>(frameBytes(FrameLayout::Video, work_.depth));
        const std::size_t component = work_.depth / 8;
        for (int plane = 0; plane < 3; ++plane) {
            std::vector<std::byte> samples;
            const std::size_t first = plane == 0 ? 0 : plane == 1 ? 1 : 3;
            const std::size_t step = plane == 0 ? 2 : 4;
            for (std::size_t at = first * component; at < packed.size(); at += step * component) {
                samples.insert(samples.end(), packed.begin() + static_cast<std::ptrdiff_t>(at),
                               packed.begin() + static_cast<std::ptrdiff_t>(at + component));
            }
            textures_.push_back(std::make_unique<Texture>(
                gpu_, format, plane == 0 ? frameWidth : frameWidth / 2, frameHeight));
            if (!textures_.back()->fill(samples.data())) {
                return false;
            }
            pl_plane& added = video_.planes[plane];
            added.texture = textures_.back()->get();
            added.components = 1;
            added.component_mapping[0] = plane;
            added.shift_x = plane == 0 ? 0.0F : -0.5F; // chroma on the even pixel
        }
        video_.num_planes = 3;
        video_.repr = representation(true);
        video_.color = pl_color_space_bt709;
        return true;
    }

    bool makeColour()
    {
        textures_.push_back(
            std::make_unique<Texture>(gpu_, work_.depth == 8 ? "rgba8" : "rgba16", frameWidth, frameHeight));
        const std::vector<std::byte> frame =
            work_.kind == WorkKind::Encode
                ? sourceFrame(work_)
                : std::vector<std::byte>(frameBytes(FrameLayout::Colour, work_.depth));
        pl_plane& plane = colour_.planes[0];
        plane.texture = textures_.back()->get();
        plane.components = 4;
        for (int i = 0; i < 4; ++i) {
            plane.component_mapping[i] = i;
        }
        colour_.num_planes = 1;
        colour_.repr = representation(false);
        colour_.color = pl_color_space_bt709;
        return textures_.back()->fill(frame.data());
    }

    const Gpu& gpu_;
    Work work_;
    pl_renderer renderer_;
    pl_render_params params_{};
    std::vector<std::unique_ptr<Texture>> textures_;
    pl_frame video_{};
    pl_frame colour_{};
    pl_frame source_{};
    pl_frame target_{};
    bool ready_ = false;
};

class OnDevice : public Job
{
public:
    OnDevice(const Gpu& gpu, const Work& work, std::unique_ptr<Drawing> drawing)
        : gpu_(gpu),
          work_(work),
          drawing_(std::move(drawing)),
          source_(gpu, formatOf(sourceLayout(work.kind), work.depth).name,
                  formatOf(sourceLayout(work.kind), work.depth).width, frameHeight)
    {
        ready_ = source_.fill(sourceFrame(work).data());
        const Format target = formatOf(resultLayout(work.kind), work.depth);
        for (auto& each : targets_) {
            each = std::make_unique<Texture>(gpu, target.name, target.width, frameHeight);
            ready_ = ready_ && each->get() != nullptr;
        }
    }

    int frames() override
    {
        for (std::size_t i = 0; i < framesTogether; ++i) {
            if (!ready_ || !drawing_->draw(source_.get(), targets_.at(i % targetsInTurn)->get())) {
                return 0;
            }
        }
        await(gpu_, targets_);
        return framesTogether;
    }

    std::vector<std::byte> result() override
    {
        std::vector<std::byte> frame(frameBytes(resultLayout(work_.kind), work_.depth));
        return targets_.front()->read(frame.data()) ? frame : std::vector<std::byte>();
    }

private:
    const Gpu& gpu_;
    Work work_;
    std::unique_ptr<Drawing> drawing_;
    Texture source_;
    std::array<std::unique_ptr<Texture>, targetsInTurn> targets_;
    bool ready_ = false;
};

/// Moves every frame from one buffer through the device to another, with three in flight.
class ThereAndBack : public Job
{
public:
    ThereAndBack(const Gpu& gpu, const Work& work, std::unique_ptr<Drawing> drawing)
        : gpu_(gpu), work_(work), drawing_(std::move(drawing))
    {
        const std::vector<std::byte> frame = sourceFrame(work);
        const Format source = formatOf(sourceLayout(work.kind), work.depth);
        const Format target = formatOf(resultLayout(work.kind), work.depth);
        const std::size_t bytes = frameBytes(resultLayout(work.kind), work.depth);
        for (auto& lane : lanes_) {
            lane = std::make_unique<Lane>(gpu, frame.size(), bytes, source, target);
            ready_ = ready_ && lane->from.get() != nullptr && lane->to.get() != nullptr &&
                     lane->source.get() != nullptr && lane->target.get() != nullptr;
            if (ready_) {
                std::memcpy(lane->from.get()->data, frame.data(), frame.size());
            }
        }
    }

    int frames() override
    {
        if (!ready_) {
            return 0;
        }
        Lane& lane = *lanes_.at(next_++ % underWay);
        lane.to.wait();
        pl_tex_transfer_params up{};
        up.tex = lane.source.get();
        up.buf = lane.from.get();
        pl_tex_transfer_params down{};
        down.tex = lane.target.get();
        down.buf = lane.to.get();
        const bool done = pl_tex_upload(gpu_.gpu(), &up) &&
                          drawing_->draw(lane.source.get(), lane.target.get()) &&
                          pl_tex_download(gpu_.gpu(), &down);
        pl_gpu_flush(gpu_.gpu());
        return done ? 1 : 0;
    }

    bool settle() override
    {
        for (const auto& lane : lanes_) {
            lane->to.wait();
        }
        return true;
    }

    std::vector<std::byte> result() override
    {
        const Lane& lane = *lanes_.front();
        lane.to.wait();
        const auto* const bytes = reinterpret_cast<const std::byte*>(lane.to.get()->data);
        return {bytes, bytes + frameBytes(resultLayout(work_.kind), work_.depth)};
    }

private:
    struct Lane
    {
        Lane(const Gpu& gpu, std::size_t in, std::size_t out, Format sourceFormat, Format targetFormat)
            : from(gpu, in),
              to(gpu, out),
              source(gpu, sourceFormat.name, sourceFormat.width, frameHeight),
              target(gpu, targetFormat.name, targetFormat.width, frameHeight)
        {
        }

        Buffer from;
        Buffer to;
        Texture source;
        Texture target;
    };

    const Gpu& gpu_;
    Work work_;
    std::unique_ptr<Drawing> drawing_;
    std::array<std::unique_ptr<Lane>, underWay> lanes_;
    std::size_t next_ = 0;
    bool ready_ = true;
};

std::unique_ptr<Job> makeJob(const Gpu& gpu, const Work& work)
{
    std::unique_ptr<Drawing> drawing = handWritten(gpu, work);
    if (work.place == Place::Device) {
        return std::make_unique<OnDevice>(gpu, work, std::move(drawing));
    }
    return std::make_unique<ThereAndBack>(gpu, work, std::move(drawing));
}

} // namespace
} // namespace Qx::Bench

int main()
{
    using namespace Qx::Bench;
    const Gpu gpu(wantedDevice());
    if (!gpu.works()) {
        std::fprintf(stderr, "libplacebo finds no device of that name: %s\n", wantedDevice().c_str());
        return 1;
    }
    Participant participant{
        std::string("libplacebo ") + pl_version(), gpu.deviceName(), gpu.deviceName(), {}};
    for (const Work& work : allWorks()) {
        if (handWritten(gpu, work)) {
            participant.offers.push_back(
                {work.key(), "hand-written pass", "", [&gpu, work] { return makeJob(gpu, work); }});
        }
    }
    for (const Work& work : allWorks()) {
        if (work.place != Place::Device || work.content != Content::Scattered) {
            continue;
        }
        participant.offers.push_back({work.key(), "pass-through of 128-bit texels",
                                      "bytes moved, nothing computed",
                                      [&gpu, work] { return std::make_unique<PassThrough>(gpu, work); }});
        const bool decode = work.kind == WorkKind::Decode;
        if (decode || work.kind == WorkKind::Encode) {
            participant.offers.push_back({work.key(), "renderer",
                                          decode ? "from planes" : "to planes, which its own filter halves",
                                          [&gpu, work] { return std::make_unique<Rendering>(gpu, work); }});
        }
    }
    return serve(participant);
}
