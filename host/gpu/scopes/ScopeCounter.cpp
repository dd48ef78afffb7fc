#include "host/gpu/scopes/ScopeCounter.h"

#include "host/gpu/images/Images.h"
#include "host/gpu/shaders/scopes.comp.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

namespace Qx::Host::Vulkan {

namespace {

// As in scopes.comp.
constexpr std::uint32_t groupWidth = 64;
constexpr std::uint32_t rowsEach = 16;
constexpr double largestWeight = 15; // codes for a step of a component of 8 bits

struct SignalWords
{
    std::array<std::uint32_t, 4> weights{};
    std::array<std::uint32_t, 4> inverted{};
    std::array<std::uint32_t, 4> offset{};
};

struct RequestWords
{
    std::array<SignalWords, 6> signals;
    std::array<std::array<std::uint32_t, 4>, 3> toXYZ{};
    std::array<std::uint32_t, 2> size{};
    std::uint32_t columns = 0;
    std::uint32_t levels = 0;
    std::uint32_t vectorscope = 0;
    std::uint32_t chromaticity = 0;
    std::uint32_t largest = 0;
    std::uint32_t rows = 0;
    std::uint32_t fraction = 0;
};

/// Bits after the point of weights and offsets, for a picture with that largest code: as many as leave room
/// for largestWeight.
int fractionFor(std::uint32_t largest)
{
    return 20 + static_cast<int>(std::bit_width(largest));
}

/// Empty if a code cannot be computed so: an offset below 0 or weights that are out of range.
std::optional<SignalWords> wordsOf(const SignalCode& code, std::uint32_t largest)
{
    SignalWords words;
    double offset = code.offset + 0.5;
    for (std::size_t i = 0; i < code.weights.size(); ++i) {
        const double weight = code.weights.at(i) / largest;
        if (!(std::abs(code.weights.at(i)) < largestWeight * 255)) {
            return {};
        }
        words.weights.at(i) =
            static_cast<std::uint32_t>(std::llround(std::ldexp(std::abs(weight), fractionFor(largest))));
        words.inverted.at(i) = weight < 0 ? 1 : 0;
        offset += std::min(code.weights.at(i), 0.0);
    }
    if (!(offset >= 0 && offset <= 1 << 20)) {
        return {};
    }
    const auto fixed = static_cast<std::uint64_t>(std::llround(std::ldexp(offset, fractionFor(largest))));
    words.offset = {static_cast<std::uint32_t>(fixed), static_cast<std::uint32_t>(fixed >> 32)};
    return words;
}

bool takeColours(const ScopeRequest& request, RequestWords& words)
{
    for (std::size_t row = 0; row < words.toXYZ.size(); ++row) {
        for (std::size_t i = 0; i < request.toXYZ.at(row).size(); ++i) {
            const double part = request.toXYZ.at(row).at(i);
            if (!(part >= 0 && part <= 1.1)) {
                return false;
            }
            words.toXYZ.at(i).at(row) =
                static_cast<std::uint32_t>(std::llround(std::ldexp(part, ScopeRequest::xyzBits)));
        }
    }
    return request.light.size() == words.largest + std::size_t{1} &&
           std::all_of(request.light.begin(), request.light.end(),
                       [](double part) { return part >= 0 && part <= 1; });
}

std::optional<RequestWords> wordsOf(const ScopeRequest& request, const TextureKey& picture)
{
    RequestWords words;
    if (request.columns < 1 || request.columns > 4096 || request.levels < 2 || request.levels > 1024 ||
        request.vectorscope > 1024 || request.chromaticity > 512) {
        return {};
    }
    words.largest = static_cast<std::uint32_t>(maxCode(picture.format));
    if (request.chromaticity > 0 && !takeColours(request, words)) {
        return {};
    }
    const std::array<const SignalCode*, 6> codes{&request.luma, &request.red, &request.green,
                                                 &request.blue, &request.cb,  &request.cr};
    for (std::size_t i = 0; i < codes.size(); ++i) {
        const std::optional<SignalWords> signal = wordsOf(*codes.at(i), words.largest);
        if (!signal) {
            return {};
        }
        words.signals.at(i) = *signal;
    }
    words.size = {picture.width, picture.height};
    words.columns = request.columns;
    words.levels = request.levels;
    words.vectorscope = request.vectorscope;
    words.chromaticity = request.chromaticity;
    words.rows = rowsEach;
    words.fraction = static_cast<std::uint32_t>(fractionFor(words.largest));
    return words;
}

ScopeCounts countsFrom(const std::uint32_t* from, const ScopeRequest& request)
{
    ScopeCounts counts;
    const auto take = [&](ScopeCounts::Counts& to, std::size_t count) {
        to.assign(from, from + count);
        from += count;
    };
    const std::size_t waveform = std::size_t{request.columns} * request.levels;
    for (ScopeCounts::Counts* each : {&counts.luma, &counts.red, &counts.green, &counts.blue}) {
        take(*each, waveform);
    }
    take(counts.vectorscope, std::size_t{request.vectorscope} * request.vectorscope);
    take(counts.chromaticity, std::size_t{request.chromaticity} * request.chromaticity);
    return counts;
}

VkDeviceSize bytesOf(const ScopeRequest& request)
{
    const VkDeviceSize count = 4 * VkDeviceSize{request.columns} * request.levels +
                               VkDeviceSize{request.vectorscope} * request.vectorscope +
                               VkDeviceSize{request.chromaticity} * request.chromaticity;
    return count * sizeof(std::uint32_t);
}

/// Of the light of codes, which lies behind the counts.
VkDeviceSize lightBytesOf(const ScopeRequest& request)
{
    return request.chromaticity > 0 ? request.light.size() * sizeof(std::uint32_t) : 0;
}

void writeLight(const ScopeRequest& request, void* to)
{
    auto* const words = static_cast<std::uint32_t*>(to);
    std::transform(request.light.begin(), request.light.end(), words, [](double part) {
        return static_cast<std::uint32_t>(std::llround(std::ldexp(part, ScopeRequest::lightBits)));
    });
}

} // namespace

/// One picture that is counted.
struct ScopeCounter::Work
{
    GPUImage& picture;
    const RequestWords& words;
    VkSampler sampler;
    HostBuffer& result;
    VkDeviceSize bytes;
    HostBuffer* light; ///< null without a chromaticity diagram
    VkDeviceSize lightBytes;
};

bool ScopeCounter::createLayouts()
{
    const std::array<VkDescriptorType, 3> types{VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER,
                                                VK_DESCRIPTOR_TYPE_UNIFORM_BUFFER,
                                                VK_DESCRIPTOR_TYPE_STORAGE_BUFFER};
    std::array<VkDescriptorSetLayoutBinding, types.size()> bindings{};
    for (std::uint32_t i = 0; i < bindings.size(); ++i) {
        bindings.at(i) = {i, types.at(i), 1, VK_SHADER_STAGE_COMPUTE_BIT, nullptr};
    }
    VkDescriptorSetLayoutCreateInfo set{};
    set.sType = VK_STRUCTURE_TYPE_DESCRIPTOR_SET_LAYOUT_CREATE_INFO;
    set.bindingCount = static_cast<std::uint32_t>(bindings.size());
    set.pBindings = bindings.data();
    if (!device_.succeeded(vkCreateDescriptorSetLayout(device_.handle(), &set, nullptr, &setLayout_),
                           "setting up scopes")) {
        setLayout_ = nullptr;
        return false;
    }
    VkPipelineLayoutCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_PIPELINE_LAYOUT_CREATE_INFO;
    info.setLayoutCount = 1;
    info.pSetLayouts = &setLayout_;
    if (!device_.succeeded(vkCreatePipelineLayout(device_.handle(), &info, nullptr, &layout_),
                           "setting up scopes")) {
        layout_ = nullptr;
        return false;
    }
    return true;
}

bool ScopeCounter::createPipeline()
{
    if (pipeline_ != nullptr) {
        return true;
    }
    if (layout_ == nullptr && !createLayouts()) {
        return false;
    }
    VkShaderModule module = nullptr;
    VkResult result = createShaderModule(device_, scopesShader, module);
    if (result == VK_SUCCESS) {
        VkComputePipelineCreateInfo info{};
        info.sType = VK_STRUCTURE_TYPE_COMPUTE_PIPELINE_CREATE_INFO;
        info.stage.sType = VK_STRUCTURE_TYPE_PIPELINE_SHADER_STAGE_CREATE_INFO;
        info.stage.stage = VK_SHADER_STAGE_COMPUTE_BIT;
        info.stage.module = module;
        info.stage.pName = "main";
        info.layout = layout_;
        result = vkCreateComputePipelines(device_.handle(), device_.pipelineCache(), 1, &info, nullptr,
                                          &pipeline_);
        vkDestroyShaderModule(device_.handle(), module, nullptr);
    }
    if (!device_.succeeded(result, "setting up scopes")) {
        pipeline_ = nullptr;
        return false;
    }
    return true;
}

bool ScopeCounter::makeRoom(Context& context, VkDeviceSize bytes)
{
    if (counts_.bytes >= bytes) {
        return true;
    }
    Counts larger;
    larger.bytes = bytes;
    if (!device_.succeeded(createBuffer(device_, memory_, bytes,
                                        VK_BUFFER_USAGE_STORAGE_BUFFER_BIT |
                                            VK_BUFFER_USAGE_TRANSFER_SRC_BIT |
                                            VK_BUFFER_USAGE_TRANSFER_DST_BIT,
                                        MemoryUse::Image, larger.buffer, larger.memory),
                           "allocating memory for scopes")) {
        return false;
    }
    if (counts_.buffer != nullptr) {
        context.recorder().later([&device = device_, &memory = memory_, old = counts_] {
            vkDestroyBuffer(device.handle(), old.buffer, nullptr);
            memory.release(old.memory);
        });
    }
    counts_ = larger;
    return true;
}

VkDescriptorSet ScopeCounter::describe(Context& context, Batch& batch, const Work& work) const
{
    VkDescriptorBufferInfo request{};
    VkDescriptorSet set = batch.descriptorSet(setLayout_);
    if (set == nullptr || !batch.uniform(std::as_bytes(std::span(&work.words, 1)), request)) {
        return nullptr;
    }
    Texture& texture = *work.picture.picture().texture();
    const VkDescriptorImageInfo image{work.sampler, texture.sampled, VK_IMAGE_LAYOUT_GENERAL};
    const VkDescriptorBufferInfo counts{counts_.buffer, 0, work.bytes + work.lightBytes};
    std::array<VkWriteDescriptorSet, 3> writes{};
    for (std::uint32_t i = 0; i < writes.size(); ++i) {
        writes.at(i).sType = VK_STRUCTURE_TYPE_WRITE_DESCRIPTOR_SET;
        writes.at(i).dstSet = set;
        writes.at(i).dstBinding = i;
        writes.at(i).descriptorCount = 1;
    }
    writes[0].descriptorType = VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER;
    writes[0].pImageInfo = &image;
    writes[1].descriptorType = VK_DESCRIPTOR_TYPE_UNIFORM_BUFFER;
    writes[1].pBufferInfo = &request;
    writes[2].descriptorType = VK_DESCRIPTOR_TYPE_STORAGE_BUFFER;
    writes[2].pBufferInfo = &counts;
    vkUpdateDescriptorSets(context.device().handle(), static_cast<std::uint32_t>(writes.size()),
                           writes.data(), 0, nullptr);
    return set;
}

bool ScopeCounter::record(Context& context, Batch& batch, Work& work) const
{
    VkDescriptorSet set = describe(context, batch, work);
    if (set == nullptr) {
        return false;
    }
    batch.count(*work.picture.picture().texture());
    batch.copyTo(work.result);
    batch.flush();
    VkCommandBuffer commands = batch.commands();
    constexpr VkPipelineStageFlags2 clear = VK_PIPELINE_STAGE_2_ALL_TRANSFER_BIT;
    constexpr VkPipelineStageFlags2 compute = VK_PIPELINE_STAGE_2_COMPUTE_SHADER_BIT;
    constexpr VkPipelineStageFlags2 copy = VK_PIPELINE_STAGE_2_COPY_BIT;
    constexpr VkAccessFlags2 write = VK_ACCESS_2_TRANSFER_WRITE_BIT;
    constexpr VkAccessFlags2 counting =
        VK_ACCESS_2_SHADER_STORAGE_READ_BIT | VK_ACCESS_2_SHADER_STORAGE_WRITE_BIT;
    batch.order(copy, VK_ACCESS_2_NONE, clear, write);
    vkCmdFillBuffer(commands, counts_.buffer, 0, work.bytes, 0);
    if (work.light != nullptr) {
        const VkBufferCopy table{0, work.bytes, work.lightBytes};
        vkCmdCopyBuffer(commands, work.light->buffer, counts_.buffer, 1, &table);
    }
    batch.order(clear, write, compute, counting);
    vkCmdBindPipeline(commands, VK_PIPELINE_BIND_POINT_COMPUTE, pipeline_);
    vkCmdBindDescriptorSets(commands, VK_PIPELINE_BIND_POINT_COMPUTE, layout_, 0, 1, &set, 0, nullptr);
    vkCmdDispatch(commands, (work.words.size[0] + groupWidth - 1) / groupWidth,
                  (work.words.size[1] + rowsEach - 1) / rowsEach, 1);
    batch.order(compute, VK_ACCESS_2_SHADER_STORAGE_WRITE_BIT, copy, VK_ACCESS_2_TRANSFER_READ_BIT);
    const VkBufferCopy region{0, 0, work.bytes};
    vkCmdCopyBuffer(commands, counts_.buffer, work.result.buffer, 1, &region);
    batch.publish(work.result);
    return true;
}

std::optional<ScopeCounts> ScopeCounter::count(Context& context, GPUImage& picture,
                                               const ScopeRequest& request)
{
    const TextureKey key = picture.picture().key;
    const std::optional<RequestWords> words = wordsOf(request, key);
    if (!words || !device_.physical().graphics->computes) {
        return {};
    }
    const VkDeviceSize bytes = bytesOf(request);
    const VkDeviceSize lightBytes = lightBytesOf(request);
    const Pooled<HostBuffer> result = acquireHostBuffer(context, bytes);
    Pooled<HostBuffer> light;
    if (lightBytes > 0) {
        light = acquireHostBuffer(context, lightBytes);
        if (!light) {
            return {};
        }
        writeLight(request, light->memory.mapped);
    }
    VkSampler sampler = context.samplers().get(CompiledEffect::Filter::Point, CompiledEffect::Address::Clamp,
                                               CompiledEffect::Address::Clamp);
    if (!result || sampler == nullptr) {
        return {};
    }
    std::uint64_t value = 0;
    {
        const std::lock_guard lock(mutex_);
        if (!createPipeline() || !makeRoom(context, bytes + lightBytes)) {
            return {};
        }
        Work work{picture, *words, sampler, *result, bytes, light ? &*light : nullptr, lightBytes};
        value = context.recorder().record(key.bytes(), Recorder::Submit::Now,
                                          [&](Batch& batch) { return record(context, batch, work); });
    }
    if (value == 0 || !context.recorder().wait(value)) {
        return {};
    }
    return countsFrom(static_cast<const std::uint32_t*>(result->memory.mapped), request);
}

void ScopeCounter::destroy()
{
    const std::lock_guard lock(mutex_);
    vkDestroyBuffer(device_.handle(), counts_.buffer, nullptr);
    memory_.release(counts_.memory);
    vkDestroyPipeline(device_.handle(), pipeline_, nullptr);
    vkDestroyPipelineLayout(device_.handle(), layout_, nullptr);
    vkDestroyDescriptorSetLayout(device_.handle(), setLayout_, nullptr);
    counts_ = {};
    pipeline_ = nullptr;
    layout_ = nullptr;
    setLayout_ = nullptr;
}

} // namespace Qx::Host::Vulkan
