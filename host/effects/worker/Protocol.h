#pragma once

#include "host/effects/EffectCompiler.h"
#include "host/effects/worker/Channel.h"

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Qx::Host::Worker {

/// Raised with every change of a frame's contents. Both ends must have the same.
constexpr std::uint32_t protocolVersion = 5;

/// A physical device, the same in every process of this machine (VkPhysicalDeviceIDProperties::deviceUUID).
using DeviceUUID = std::array<std::byte, 16>;

struct Hello
{
    std::uint32_t version = protocolVersion;
    std::optional<DeviceUUID> device; ///< none: effects are compiled and not tried
    bool validation = false;          ///< with Vulkan's validation layer, as the host has it
    std::uint64_t memoryBytes = 0;    ///< that one effect may take
};

struct Ready
{
    std::uint32_t version = protocolVersion;
    std::string problem; ///< empty when the worker can work
};

/// One effect to compile.
struct CompileRequest
{
    std::filesystem::path file;
    std::filesystem::path directory; ///< that relative names start from
    EffectCompilerOptions options;
};

enum class Stage : std::uint8_t
{
    Compiling,
    CreatingPipelines,
    Drawing,
};

struct Step
{
    Stage stage = Stage::Compiling;
    std::string technique; ///< empty while compiling
    std::string pass;      ///< where there is one
};

std::vector<std::byte> encode(const Hello& hello);
std::vector<std::byte> encode(const Ready& ready);
std::vector<std::byte> encode(const CompileRequest& request);
std::vector<std::byte> encode(const Step& step);

/// Nothing when the bytes are not what they should be.
std::optional<Hello> decodeHello(std::span<const std::byte> bytes);
std::optional<Ready> decodeReady(std::span<const std::byte> bytes);
std::optional<CompileRequest> decodeRequest(std::span<const std::byte> bytes);
std::optional<Step> decodeStep(std::span<const std::byte> bytes);

/// The most bytes of the frames that are not results.
constexpr std::size_t mostRequestBytes = 64U << 20U;
constexpr std::size_t mostReportBytes = 16U << 10U;

/// "compiling", "creating pipelines", "drawing".
const char* nameOf(Stage stage);

} // namespace Qx::Host::Worker
