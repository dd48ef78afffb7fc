// The library's effect catalogue in the reference host: real files, compiler, device and task queue. Each
// test runs in a process of its own.

#include "QxFxResources/Manager.h"
#include "host/Host.h"
#include "platform/BackgroundTasks.h"
#include "platform/Text.h"
#include "tests/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <semaphore>
#include <thread>

namespace Qx::System {

namespace {

namespace fs = std::filesystem;
using FxResources::Manager;
using FxResources::ShaderEffectInfo;

LightweightString<wchar_t> wide(const char* text)
{
    return fromUTF8(LightweightString<char>(text));
}

/// A task that keeps the queue busy until it is let go.
class Blocker : public BackgroundTaskBase
{
public:
    explicit Blocker(std::binary_semaphore& release) : release_(release) {}
    LightweightString<char> getID() const override { return "Blocker"; }
    LightweightString<wchar_t> getDescription() const override { return L"Blocker"; }
    bool run() override
    {
        release_.acquire();
        return true;
    }

private:
    std::binary_semaphore& release_;
};

class Catalogue : public testing::Test
{
protected:
    void SetUp() override
    {
        for (const char* each : {"shaders", "templates", "home"}) {
            fs::create_directory(directory_ / each);
        }
        ::setenv("QX_SHADERS_DIR", (directory_ / "shaders").c_str(), 1);
        ::setenv("QX_TEMPLATES_DIR", (directory_ / "templates").c_str(), 1);
        for (const char* variable :
             {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_STATE_HOME", "XDG_CACHE_HOME"}) {
            ::setenv(variable, (directory_ / "home").c_str(), 1);
        }
    }

    void TearDown() override { Host::stop(); }

    void write(const std::string& name, const std::string& text) const
    {
        std::ofstream(directory_ / name) << text;
    }

    static std::string effect(const std::string& colour, int techniques = 1)
    {
        std::string text = "float4 f() : COLOR { return " + colour + "; }\n";
        for (int i = 0; i < techniques; ++i) {
            text += "technique T" + std::to_string(i) + " { pass P { PixelShader = compile ps_3_0 f(); } }\n";
        }
        return text;
    }

    void writeManyEffects() const
    {
        for (int i = 0; i < effects; ++i) {
            write("shaders/e" + std::to_string(i) + ".fx", effect(std::to_string(i)));
        }
    }

    /// `quick`: the effects are not compiled in the background.
    static void start(bool quick)
    {
        static constexpr std::array arguments{"catalogue", "-transcode"};
        Host::start({.argc = quick ? 2 : 1, .argv = arguments.data()});
        testing::internal::CaptureStderr();
        Manager::startup(false);
    }

    static std::string printed() { return testing::internal::GetCapturedStderr(); }

    static Qx::Ptr<iShaderEffect> shader(const char* name)
    {
        return Manager::instance().findEffect(wide(name)).getShader();
    }

    static bool becomes(const std::function<bool()>& condition)
    {
        using namespace std::chrono_literals;
        const auto limit = std::chrono::steady_clock::now() + 60s; // far beyond what it takes
        while (!condition()) {
            if (std::chrono::steady_clock::now() > limit) {
                return false;
            }
            std::this_thread::sleep_for(1ms);
        }
        return true;
    }

    static bool passIs(Host::TaskInfo::eState state)
    {
        for (const Host::TaskInfo& task : Host::listTasks()) {
            if (task.id == "ShaderCompilationTask") {
                return task.state == state;
            }
        }
        return false;
    }

    static constexpr int effects = 6;
    const Qx::Test::TemporaryDirectory temporary_;
    const fs::path directory_ = temporary_.path();
};

TEST_F(Catalogue, eight_threads_that_ask_for_one_effect_get_the_same_one)
{
    write("shaders/one.fx", effect("0.5"));
    start(true);
    std::array<Qx::Ptr<iShaderEffect>, 8> got;
    std::vector<std::thread> threads;
    threads.reserve(got.size());
    for (Qx::Ptr<iShaderEffect>& each : got) {
        threads.emplace_back([&each] { each = shader("one.fx"); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    ASSERT_TRUE(got[0]);
    for (const Qx::Ptr<iShaderEffect>& each : got) {
        EXPECT_EQ(each.get(), got[0].get());
    }
    printed();
}

TEST_F(Catalogue, background_pass_compiles_everything_beside_a_foreground_request)
{
    writeManyEffects();
    write("shaders/broken.fx", "nonsense");
    Host::holdBackTasks(true); // the pass waits before its first effect
    start(false);
    ASSERT_TRUE(becomes([] { return passIs(Host::TaskInfo::Running); }));
    EXPECT_TRUE(shader("E5.FX"));
    EXPECT_TRUE(passIs(Host::TaskInfo::Running));
    Host::holdBackTasks(false);
    ASSERT_TRUE(becomes([] { return passIs(Host::TaskInfo::Succeeded); }));
    Manager::instance().waitForEffectsToLoad();
    for (const ShaderEffectInfo& info : Manager::instance().effects()) {
        EXPECT_EQ(static_cast<bool>(info.effect), info.name != L"broken.fx");
    }
    EXPECT_EQ(printed(), "QxFxResources::Manager : 7 pixel shaders loaded\n");
}

TEST_F(Catalogue, shutdown_during_the_pass_ends_it_without_a_line)
{
    writeManyEffects();
    Host::holdBackTasks(true); // which a stopping host ends
    start(false);
    ASSERT_TRUE(becomes([] { return passIs(Host::TaskInfo::Running); }));
    Host::stop();
    EXPECT_EQ(printed(), "");
}

TEST_F(Catalogue, pass_that_is_still_queued_at_shutdown_does_not_bring_the_manager_back)
{
    writeManyEffects();
    std::binary_semaphore release(0);
    UIBackgroundTasksQueue::instance().queue(Qx::makePtr<Blocker>(release), false);
    start(false);
    std::thread later([&release] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        release.release();
    });
    Host::stop();
    later.join();
    EXPECT_EQ(printed(), "");
    for (const Host::TaskInfo& task : Host::listTasks()) {
        EXPECT_NE(task.id, "ShaderCompilationTask");
    }
}

TEST_F(Catalogue, recompilation_prints_one_line_a_file_and_keeps_what_was_good)
{
    write("shaders/edited.fx", effect("0.1"));
    write("shaders/broken.fx", effect("0.2"));
    write("shaders/gone.fx", effect("0.3"));
    write("shaders/same.fx", effect("0.4"));
    write("shaders/includes.fx", "#include \"colour.fxh\"\n" + effect("colour"));
    write("shaders/colour.fxh", "static const float4 colour = 0.5;\n");
    start(true);
    for (const char* each : {"edited.fx", "broken.fx", "gone.fx", "same.fx", "includes.fx"}) {
        ASSERT_TRUE(shader(each)) << each;
    }
    const auto shaderPointer = [](const char* name) { return shader(name).get(); };
    const iShaderEffect* const broken = shaderPointer("broken.fx");
    const iShaderEffect* const edited = shaderPointer("edited.fx");
    const iShaderEffect* const includes = shaderPointer("includes.fx");
    ASSERT_TRUE(becomes([] { return passIs(Host::TaskInfo::Succeeded); }));
    EXPECT_EQ(printed(), "QxFxResources::Manager : 5 pixel shaders loaded\n");

    write("shaders/edited.fx", effect("0.9"));
    write("shaders/broken.fx", "nonsense");
    fs::remove(directory_ / "shaders/gone.fx");
    write("shaders/colour.fxh", "static const float4 colour = 0.6;\n");
    write("templates/fresh.fx", effect("0.7"));
    write("templates/hopeless.fx", "nonsense");
    testing::internal::CaptureStderr();
    Manager::instance().recompileAll();
    const std::string file = (directory_ / "shaders/broken.fx").string();
    const std::string lines = printed();
    const std::string error =
        lines.substr(lines.find("   " + file), lines.find("Recompiled") - lines.find("   " + file));
    EXPECT_NE(error.find(file + ":1:1: error: "), std::string::npos) << lines;
    EXPECT_EQ(lines, "Failed to recompile broken.fx\n" + error +
                         "Recompiled edited.fx\n"
                         "Recompiled includes.fx\n"
                         "Failed to compile hopeless.fx\n");
    EXPECT_EQ(shaderPointer("broken.fx"), broken);
    EXPECT_NE(shaderPointer("edited.fx"), edited);
    EXPECT_NE(shaderPointer("includes.fx"), includes);
    EXPECT_TRUE(shader("gone.fx"));
    EXPECT_TRUE(shader("fresh.fx"));
    EXPECT_FALSE(shader("hopeless.fx"));
    EXPECT_EQ(Manager::instance().effects().size(), 6U);
}

} // namespace

} // namespace Qx::System
