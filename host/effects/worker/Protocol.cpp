#include "host/effects/worker/Protocol.h"

#include "host/cache/Bytes.h"

#include <algorithm>
#include <string_view>

namespace Qx::Host::Worker {

namespace {

using Cache::ByteReader;
using Cache::ByteWriter;

/// Cuts a text so that the report fits its frame.
std::string_view shortened(std::string_view text, std::size_t most)
{
    return text.substr(0, most);
}

constexpr std::size_t mostNameBytes = 256;
constexpr std::size_t mostProblemBytes = mostReportBytes / 2;

template <class Value>
std::optional<Value> checked(const ByteReader& reader, Value value)
{
    return reader.finished() ? std::optional(std::move(value)) : std::nullopt;
}

} // namespace

std::vector<std::byte> encode(const Hello& hello)
{
    ByteWriter writer;
    writer.number(hello.version);
    writer.number(static_cast<std::uint8_t>(hello.device ? 1 : 0));
    writer.raw(hello.device.value_or(DeviceUUID{}));
    writer.number(static_cast<std::uint8_t>(hello.validation ? 1 : 0));
    writer.number(hello.memoryBytes);
    return writer.take();
}

std::optional<Hello> decodeHello(std::span<const std::byte> bytes)
{
    ByteReader reader(bytes);
    Hello hello;
    hello.version = reader.number<std::uint32_t>();
    const bool hasDevice = reader.number<std::uint8_t>() != 0;
    DeviceUUID device{};
    const std::span<const std::byte> uuid = reader.raw(device.size());
    std::copy(uuid.begin(), uuid.end(), device.begin());
    hello.device = hasDevice ? std::optional(device) : std::nullopt;
    hello.validation = reader.number<std::uint8_t>() != 0;
    hello.memoryBytes = reader.number<std::uint64_t>();
    return checked(reader, std::move(hello));
}

std::vector<std::byte> encode(const Ready& ready)
{
    ByteWriter writer;
    writer.number(ready.version);
    writer.text(shortened(ready.problem, mostProblemBytes));
    return writer.take();
}

std::optional<Ready> decodeReady(std::span<const std::byte> bytes)
{
    ByteReader reader(bytes);
    Ready ready;
    ready.version = reader.number<std::uint32_t>();
    ready.problem = reader.text();
    return checked(reader, std::move(ready));
}

std::vector<std::byte> encode(const CompileRequest& request)
{
    ByteWriter writer;
    writer.text(request.file.native());
    writer.text(request.directory.native());
    writer.count(request.options.definitions.size());
    for (const auto& [name, value] : request.options.definitions) {
        writer.text(name);
        writer.text(value);
    }
    writer.count(request.options.includeDirectories.size());
    for (const std::filesystem::path& directory : request.options.includeDirectories) {
        writer.text(directory.native());
    }
    writer.number(static_cast<std::uint8_t>(request.options.packed ? 1 : 0));
    writer.number(static_cast<std::uint8_t>(request.options.native ? 1 : 0));
    if (request.options.native) {
        const NativeWish& wish = *request.options.native;
        writer.text(wish.technique);
        writer.text(wish.target);
        writer.number(wish.depths.source);
        writer.number(wish.depths.target);
        writer.number(static_cast<std::uint8_t>(wish.isOwnPlace ? 1 : 0));
        writer.count(wish.usual.size());
        writer.raw(wish.usual);
        writer.number(wish.usualWidth);
    }
    return writer.take();
}

std::optional<CompileRequest> decodeRequest(std::span<const std::byte> bytes)
{
    constexpr std::size_t leastText = sizeof(std::uint32_t);
    ByteReader reader(bytes);
    CompileRequest request;
    request.file = reader.text();
    request.directory = reader.text();
    for (std::size_t left = reader.count(2 * leastText); left > 0; --left) {
        std::string name = reader.text();
        request.options.definitions.emplace_back(std::move(name), reader.text());
    }
    for (std::size_t left = reader.count(leastText); left > 0; --left) {
        request.options.includeDirectories.emplace_back(reader.text());
    }
    request.options.packed = reader.number<std::uint8_t>() != 0;
    if (reader.number<std::uint8_t>() != 0) {
        NativeWish wish;
        wish.technique = reader.text();
        wish.target = reader.text();
        wish.depths.source = reader.number<std::uint32_t>();
        wish.depths.target = reader.number<std::uint32_t>();
        wish.isOwnPlace = reader.number<std::uint8_t>() != 0;
        const std::span<const std::byte> usual = reader.raw(reader.count(1));
        wish.usual.assign(usual.begin(), usual.end());
        wish.usualWidth = reader.number<std::uint32_t>();
        request.options.native = std::move(wish);
    }
    return checked(reader, std::move(request));
}

std::vector<std::byte> encode(const Step& step)
{
    ByteWriter writer;
    writer.enumeration(step.stage);
    writer.text(shortened(step.technique, mostNameBytes));
    writer.text(shortened(step.pass, mostNameBytes));
    writer.text(shortened(step.at.file, mostProblemBytes));
    writer.number(step.at.line);
    writer.number(step.at.column);
    return writer.take();
}

std::optional<Step> decodeStep(std::span<const std::byte> bytes)
{
    ByteReader reader(bytes);
    Step step;
    step.stage = reader.enumeration(Stage::Drawing);
    step.technique = reader.text();
    step.pass = reader.text();
    step.at.file = reader.text();
    step.at.line = reader.number<std::uint32_t>();
    step.at.column = reader.number<std::uint32_t>();
    return checked(reader, std::move(step));
}

const char* nameOf(Stage stage)
{
    switch (stage) {
    case Stage::Compiling:
        return "compiling";
    case Stage::CreatingPipelines:
        return "creating pipelines";
    case Stage::Drawing:
        break;
    }
    return "drawing";
}

} // namespace Qx::Host::Worker
