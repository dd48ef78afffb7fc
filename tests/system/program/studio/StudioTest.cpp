#include "tests/system/program/studio/StudioTest.h"

#include <chrono>
#include <csignal>
#include <fstream>
#include <sstream>
#include <thread>

namespace Qx::System {

void StudioTest::start(const std::vector<std::string>& arguments)
{
    std::vector<std::string> command{programPath(), "studio"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    program_ = std::make_unique<Running>(command, directory_);
    ASSERT_TRUE(becomes([&] { return program_->outputSoFar().ends_with("/\n"); })) << program_->errorSoFar();
    address_ = program_->outputSoFar();
    address_.pop_back();
    parts_ = parseAddress(address_);
}

void StudioTest::stop()
{
    program_->signal(SIGINT);
    const Outcome outcome = program_->wait();
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    program_.reset();
}

std::string StudioTest::head(const std::string& method, const std::string& target,
                             const std::string& lines) const
{
    return method + " " + target + " HTTP/1.1\r\nHost: " + parts_.host + "\r\nConnection: close\r\n" + lines +
           "\r\n";
}

StudioTest::Reply StudioTest::ask(const std::string& request) const
{
    const std::string text = exchanged(parts_.port, request);
    Reply reply;
    const std::size_t end = text.find("\r\n\r\n");
    if (end != std::string::npos) {
        reply.status = std::stoi(text.substr(text.find(' ') + 1, 3));
        reply.headers = text.substr(0, end + 2);
        reply.body = text.substr(end + 4);
    }
    return reply;
}

StudioTest::Reply StudioTest::get(const std::string& path, const std::string& method) const
{
    return ask(head(method, parts_.path + path));
}

bool StudioTest::becomes(const std::function<bool()>& condition) const
{
    using namespace std::chrono_literals;
    const auto limit = std::chrono::steady_clock::now() + 60s; // far beyond what it takes
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit || !program_->isRunning()) {
            return false;
        }
        std::this_thread::sleep_for(10ms);
    }
    return true;
}

std::size_t StudioTest::descriptors() const
{
    const fs::directory_iterator all("/proc/" + std::to_string(program_->id()) + "/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

std::size_t StudioTest::memory() const
{
    std::ifstream status("/proc/" + std::to_string(program_->id()) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) {
            return std::stoul(line.substr(line.find_first_of("0123456789")));
        }
    }
    ADD_FAILURE() << "the system does not say how much memory the program has";
    return 0;
}

void StudioTest::makeClip(const std::string& name, const std::string& size, const std::string& pixelFormat)
{
    ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=" + size + ":rate=25:duration=1", "-vf",
            "setparams=colorspace=bt709:range=tv,format=" + pixelFormat, "-c:v", "libx264", "-bf", "2", "-g",
            "12", "-colorspace", "bt709", "-color_range", "tv", name});
}

std::string StudioTest::problemOf(const Json& state)
{
    return state["problems"].empty() ? std::string() : state["problems"].back().get<std::string>();
}

std::string StudioTest::dimming(const std::string& factor)
{
    return "texture Input;\n"
           "sampler S = sampler_state { Texture = <Input>; };\n"
           "float amount < string Label = \"Amount\"; float Min = 0; float Max = 2; > = 1;\n"
           "float4 f(float2 uv : TEXCOORD0) : COLOR { return float4(tex2D(S, uv).rgb * " +
           factor +
           ", 1); }\n"
           "technique Dim { pass P { PixelShader = compile ps_3_0 f(); } }\n";
}

} // namespace Qx::System
