/// Writes real records into the corpora of effectArchive, cacheRecord and worker. Its argument is the folder
/// of the corpora.

#include "host/cache/Record.h"
#include "host/effects/archive/EffectArchive.h"
#include "host/effects/worker/Protocol.h"

#include <cstdio>
#include <fstream>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using namespace Qx::Host;
using Bytes = std::vector<std::byte>;

constexpr const char* effectText = R"(#pragma unknown
texture Input < string Kind = "noise"; >;
sampler InputSampler = sampler_state { Texture = <Input>; AddressU = Wrap; MinFilter = Linear; };
float amount < string Label = "Amount"; float Max = 2.0; > = 0.75;
float weights[2] = { 1, 2 };
float2 inputSize : TEXTURESIZE < string Texture = "Input"; >;
float4 f(float2 xy : TEXCOORD1) : COLOR { return tex2D(InputSampler, xy / inputSize) * amount * weights[1]; }
technique T < string Group = "A"; > { pass P { PixelShader = compile ps_3_0 f(); } }
)";
constexpr const char* plainText = "float4 f() : COLOR { return 1; }\n"
                                  "technique T { pass P { PixelShader = compile ps_3_0 f(); } }\n";
constexpr const char* brokenText = "#include \"nowhere.fxh\"\nfloat4 f() : COLOR { return x; }\n";

class Corpora
{
public:
    explicit Corpora(std::filesystem::path folder) : folder_(std::move(folder)) {}

    void write(const char* corpus, const char* name, std::span<const std::byte> bytes) const
    {
        std::filesystem::create_directories(folder_ / corpus);
        std::ofstream file(folder_ / corpus / name, std::ios::binary);
        file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }

private:
    std::filesystem::path folder_;
};

Bytes archiveOf(const char* text)
{
    const std::filesystem::path file = "effect.fx";
    std::ofstream(file) << text;
    const EffectCompilation compilation = compileEffect(file, {});
    std::filesystem::remove(file);
    return writeEffectArchive(compilation);
}

/// The bytes of these frames on the wire.
class Wire
{
public:
    template <class Value>
    Wire& frame(Worker::FrameType type, const Value& value)
    {
        return raw(type, Worker::encode(value));
    }

    Wire& raw(Worker::FrameType type, std::span<const std::byte> payload)
    {
        std::array<int, 2> ends{};
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) == 0) {
            Worker::Channel(ends[0]).send(type, payload);
            std::array<std::byte, 4096> part{};
            for (ssize_t count = 0; (count = ::read(ends[1], part.data(), part.size())) > 0;) {
                bytes_.insert(bytes_.end(), part.begin(), part.begin() + count);
            }
            ::close(ends[1]);
        }
        return *this;
    }

    const Bytes& bytes() const { return bytes_; }

private:
    Bytes bytes_;
};

void writeWorkerFrames(const Corpora& corpora)
{
    using namespace Worker;
    const CompileRequest request{
        "some/effect.fx", "/some/where", {{{{"A", "1"}, {"B", ""}}, {"/x", "/y z"}}}};
    Hello hello;
    hello.device = DeviceUUID{std::byte{1}, std::byte{2}};
    hello.memoryBytes = 1U << 30U;
    Wire host;
    host.frame(FrameType::Hello, hello).frame(FrameType::Compile, request);
    corpora.write("worker", "host", host.bytes());
    Wire worker;
    worker.frame(FrameType::Ready, Ready{})
        .frame(FrameType::Step, Step{})
        .frame(FrameType::Step, Step{Stage::CreatingPipelines, "T", "P"})
        .frame(FrameType::Step, Step{Stage::Drawing, "T", ""})
        .raw(FrameType::Inputs, archiveOf(plainText))
        .raw(FrameType::Result, archiveOf(brokenText));
    corpora.write("worker", "worker", worker.bytes());
    Wire refusal;
    refusal.frame(FrameType::Ready, Ready{protocolVersion + 1, "the host is of another version"});
    corpora.write("worker", "refusal", refusal.bytes());
    corpora.write("worker", "payload_hello", encode(hello));
    corpora.write("worker", "payload_request", encode(request));
}

} // namespace

int main(int count, char** arguments)
{
    if (count != 2) {
        std::fputs("usage: qx_fuzz_seeds tests/fuzz/corpus\n", stderr);
        return 2;
    }
    const Corpora corpora(std::filesystem::absolute(arguments[1]));
    // Records name files as requested: in a folder of their own the seeds are the same on every machine.
    std::string folder = (std::filesystem::temp_directory_path() / "qx-seeds-XXXXXX").string();
    if (::mkdtemp(folder.data()) == nullptr || ::chdir(folder.c_str()) != 0) {
        std::perror(folder.c_str());
        return 1;
    }
    const Bytes whole = archiveOf(effectText);
    corpora.write("effectArchive", "whole", whole);
    corpora.write("effectArchive", "plain", archiveOf(plainText));
    corpora.write("effectArchive", "failed", archiveOf(brokenText));
    using namespace Cache;
    const Digest key = digestOf(std::string_view("key"));
    const Bytes plain = archiveOf(plainText);
    corpora.write("cacheRecord", "effect", writeRecord(Kind::Effect, key, plain));
    corpora.write("cacheRecord", "empty", writeRecord(Kind::Pipelines, key, {}));
    Bytes open = writeRecord(Kind::Pipelines, key, std::span(plain).first(16));
    open.resize(open.size() - key.size());
    corpora.write("cacheRecord", "pipelines_undigested", open);
    writeWorkerFrames(corpora);
    std::filesystem::remove_all(folder);
    return 0;
}
