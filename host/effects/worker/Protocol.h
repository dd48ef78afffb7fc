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

/// Raised with every change of a frame's contents. Both ends must have the same version.
constexpr std::uint32_t protocolVersion = 7;

/// A physical device, the same in every process of this machine (VkPhysicalDeviceIDProperties::deviceUUID).
using DeviceUUID = std::array<std::byte, 16>;

struct Hello
{
    std::uint32_t version = protocolVersion;
    std::optional<DeviceUUID> device; ///< none: effects are compiled, not drawn
    bool validation = false;          ///< with Vulkan's validation layer, as in the host
    std::uint64_t memoryBytes = 0;    ///< limit for one effect
};

struct Ready
{
    std::uint32_t version = protocolVersion;
    std::string problem; ///< empty if the worker can work
};

/// One effect to compile.
struct CompileRequest
{
    std::filesystem::path file;
    std::filesystem::path directory; ///< base of relative names
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
    std::string technique;  ///< empty without one, as while a file is read
    std::string pass;       ///< the same
    Diagnostic::Place at{}; ///< of the shader that is compiled; without a file if there is none
};

std::vector<std::byte> encode(const Hello& hello);
std::vector<std::byte> encode(const Ready& ready);
std::vector<std::byte> encode(const CompileRequest& request);
std::vector<std::byte> encode(const Step& step);

/// Return nothing if the bytes are invalid.
std::optional<Hello> decodeHello(std::span<const std::byte> bytes);
std::optional<Ready> decodeReady(std::span<const std::byte> bytes);
std::optional<CompileRequest> decodeRequest(std::span<const std::byte> bytes);
std::optional<Step> decodeStep(std::span<const std::byte> bytes);

/// The largest payloads of frames that are not results.
constexpr std::size_t mostRequestBytes = 64U << 20U;
constexpr std::size_t mostReportBytes = 16U << 10U;

/// What a worker sends at most of the shaders that it compiles for a request, in bytes of payload; more are
/// not told.
constexpr std::size_t mostShaderReports = 4U << 20U;

/// "compiling", "creating pipelines", "drawing".
const char* nameOf(Stage stage);

} // namespace Qx::Host::Worker
