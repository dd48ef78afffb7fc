// Compiled effects on disk: an entry is valid exactly as long as a compilation would have the same result.

#include "host/effects/archive/EffectCache.h"
#include "host/effects/archive/EffectArchive.h"
#include "tests/TemporaryDirectory.h"
#include "tests/host/cache/Files.h"

#include <gtest/gtest.h>

#include <fstream>

namespace Qx::CacheTests {
namespace {

using namespace Host;
namespace fs = std::filesystem;

constexpr const char* effectText = R"(
#pragma odd
#include "gain.fxh"
texture Input;
sampler InputSampler = sampler_state { Texture = <Input>; };
float4 shade(float2 xy : TEXCOORD1) : COLOR { return tex2D(InputSampler, xy) * GAIN; }
technique Shade { pass P { PixelShader = compile ps_3_0 shade(); } }
)";

class EffectCacheTest : public testing::Test
{
protected:
    void SetUp() override
    {
        writeFile(effect(), effectText);
        writeFile(directory("second") / "gain.fxh", "#define GAIN 2.0\n");
        options_.definitions = {{"MODE", "1"}};
        options_.includeDirectories = {directory("first"), directory("second")};
    }

    fs::path effect() const { return temporary_.path() / "effects" / "effect.fx"; }
    fs::path directory(const char* name) const { return temporary_.path() / name; }

    EffectCache cache(const std::string& driver = "driver 1.0") const { return EffectCache(store_, driver); }

    /// Compiles and stores the effect as it is now.
    EffectCompilation compileAndKeep() const
    {
        EffectCompilation compilation = compileEffect(effect(), options_);
        EXPECT_NE(compilation.effect, nullptr) << compilation.messages;
        cache().keep(effect(), options_, compilation);
        return compilation;
    }

    bool isFound() const { return cache().find(effect(), options_).has_value(); }

    const Qx::Test::TemporaryDirectory temporary_;
    EffectCompilerOptions options_;
    std::vector<std::string> lines_;
    std::shared_ptr<Cache::FileStore> store_ = std::make_shared<Cache::FileStore>(
        temporary_.path() / "cache", 64U << 20U, [this](const std::string& line) { lines_.push_back(line); });
};

TEST_F(EffectCacheTest, AnswersWhatTheCompilerAnsweredWarningsIncluded)
{
    EXPECT_FALSE(isFound());
    const EffectCompilation made = compileAndKeep();
    const std::optional<EffectCompilation> found = cache().find(effect(), options_);
    ASSERT_TRUE(found);
    EXPECT_EQ(writeEffectArchive(*found), writeEffectArchive(made));
    EXPECT_NE(found->messages.find("#pragma"), std::string::npos);
    EXPECT_TRUE(lines_.empty());
}

TEST_F(EffectCacheTest, ASavedButUnchangedEffectIsFound)
{
    compileAndKeep();
    writeFile(effect(), effectText);
    EXPECT_TRUE(isFound());
}

TEST_F(EffectCacheTest, AnEditedEffectIsNotFoundAndItsOldTextIs)
{
    compileAndKeep();
    writeFile(effect(), std::string(effectText) + "// more\n");
    EXPECT_FALSE(isFound());
    compileAndKeep();
    EXPECT_TRUE(isFound());
    writeFile(effect(), effectText);
    EXPECT_TRUE(isFound());
}

TEST_F(EffectCacheTest, AnEditedIncludeIsSeen)
{
    compileAndKeep();
    writeFile(directory("second") / "gain.fxh", "#define GAIN 3.0\n");
    EXPECT_FALSE(isFound());
    const EffectCompilation second = compileAndKeep();
    const std::optional<EffectCompilation> found = cache().find(effect(), options_);
    ASSERT_TRUE(found);
    EXPECT_EQ(writeEffectArchive(*found), writeEffectArchive(second));
}

TEST_F(EffectCacheTest, AnIncludeThatAppearsEarlierInTheSearchIsSeen)
{
    compileAndKeep();
    writeFile(directory("first") / "gain.fxh", "#define GAIN 4.0\n");
    EXPECT_FALSE(isFound());
    compileAndKeep();
    EXPECT_TRUE(isFound());
    writeFile(effect().parent_path() / "gain.fxh", "#define GAIN 5.0\n");
    EXPECT_FALSE(isFound());
}

TEST_F(EffectCacheTest, AFileThatAppearsWhereNothingLooksChangesNothing)
{
    compileAndKeep();
    writeFile(directory("first") / "other.fxh", "x");
    writeFile(directory("second") / "other.fxh", "x");
    EXPECT_TRUE(isFound());
}

TEST_F(EffectCacheTest, AnIncludeThatGoesIsSeen)
{
    compileAndKeep();
    fs::remove(directory("second") / "gain.fxh");
    EXPECT_FALSE(isFound());
}

TEST_F(EffectCacheTest, AnIncludeThatBecomesADirectoryIsSeen)
{
    compileAndKeep();
    fs::remove(directory("second") / "gain.fxh");
    fs::create_directory(directory("second") / "gain.fxh");
    EXPECT_FALSE(isFound());
}

TEST_F(EffectCacheTest, DefinitionsTellEntriesApart)
{
    compileAndKeep();
    const auto before = options_.definitions;
    options_.definitions = {{"MODE", "2"}};
    EXPECT_FALSE(isFound());
    options_.definitions = {{"MODE1", ""}};
    EXPECT_FALSE(isFound());
    options_.definitions = {};
    EXPECT_FALSE(isFound());
    options_.definitions = before;
    EXPECT_TRUE(isFound());
}

TEST_F(EffectCacheTest, IncludeDirectoriesAndTheirOrderTellEntriesApart)
{
    compileAndKeep();
    std::swap(options_.includeDirectories[0], options_.includeDirectories[1]);
    EXPECT_FALSE(isFound());
}

TEST_F(EffectCacheTest, WithIncludesBesideItOtherDirectoriesChangeNothing)
{
    writeFile(effect().parent_path() / "gain.fxh", "#include \"more/gain.fxh\"\n");
    writeFile(effect().parent_path() / "more" / "gain.fxh", "#define GAIN 3.0\n");
    compileAndKeep();
    options_.includeDirectories = {directory("third")};
    EXPECT_TRUE(isFound());
    options_.includeDirectories = {};
    EXPECT_TRUE(isFound());
    writeFile(effect().parent_path() / "more" / "gain.fxh", "#define GAIN 3.5\n");
    EXPECT_FALSE(isFound());
}

TEST_F(EffectCacheTest, AnIncludeThatOnlyItsDirectoryAllowsTellsEntriesApart)
{
    writeFile(
        effect(),
        std::string(effectText).replace(std::string(effectText).find("gain.fxh"), 8, "../second/gain.fxh"));
    compileAndKeep();
    EXPECT_TRUE(isFound());
    options_.includeDirectories = {};
    EXPECT_FALSE(isFound());
}

TEST_F(EffectCacheTest, AnIncludeThatIsFoundAfterARefusedOneTellsEntriesApart)
{
    // Relative to the effect it is outside; relative to the directory below it is beside the effect.
    writeFile(effect(),
              std::string(effectText).replace(std::string(effectText).find("gain.fxh"), 8, "../gain.fxh"));
    const fs::path below = effect().parent_path() / "below";
    writeFile(effect().parent_path() / "gain.fxh", "#define GAIN 6.0\n");
    options_.includeDirectories = {below};
    compileAndKeep();
    EXPECT_TRUE(isFound());
    options_.includeDirectories = {};
    EXPECT_FALSE(isFound());
}

TEST_F(EffectCacheTest, DriversTellEntriesApart)
{
    compileAndKeep();
    EXPECT_FALSE(cache("driver 1.1").find(effect(), options_));
    EXPECT_TRUE(cache("driver 1.0").find(effect(), options_));
}

TEST_F(EffectCacheTest, TheSameTextElsewhereIsAnEntryOfItsOwn)
{
    // Its messages name another file, and its includes may differ.
    compileAndKeep();
    writeFile(directory("third") / "effect.fx", effectText);
    EXPECT_FALSE(cache().find(directory("third") / "effect.fx", options_));
}

TEST_F(EffectCacheTest, AFailureIsNotKept)
{
    writeFile(effect(), "technique T { pass P { PixelShader = compile ps_3_0 missing(); } }");
    const EffectCompilation failed = compileEffect(effect(), options_);
    ASSERT_EQ(failed.effect, nullptr);
    cache().keep(effect(), options_, failed);
    EXPECT_FALSE(isFound());
    EXPECT_EQ(store_->usage(Cache::Kind::Effect).entries, 0U);
}

TEST_F(EffectCacheTest, TheTextThatWasCompiledCountsNotTheOneThatIsThereLater)
{
    const EffectCompilation compilation = compileEffect(effect(), options_);
    writeFile(effect(), std::string(effectText) + "// saved meanwhile\n");
    cache().keep(effect(), options_, compilation);
    EXPECT_FALSE(isFound());
    writeFile(effect(), effectText);
    EXPECT_TRUE(isFound());
}

TEST_F(EffectCacheTest, AMissingEffectIsNotFound)
{
    compileAndKeep();
    fs::remove(effect());
    EXPECT_FALSE(isFound());
    fs::create_directory(effect());
    EXPECT_FALSE(isFound());
}

TEST_F(EffectCacheTest, AValidEntryWithOtherContentIsNotAnEffect)
{
    compileAndKeep();
    std::string name;
    for (const fs::directory_entry& entry : fs::directory_iterator(store_->directory())) {
        name = entry.path().stem();
    }
    Cache::Digest key;
    for (std::size_t i = 0; i < key.size(); ++i) {
        key[i] = static_cast<std::byte>(std::stoi(name.substr(2 * i, 2), nullptr, 16));
    }
    ASSERT_TRUE(store_->load(Cache::Kind::Effect, key));
    const std::string other = "no archive";
    store_->store(Cache::Kind::Effect, key, std::as_bytes(std::span(other)));
    EXPECT_FALSE(isFound());
    compileAndKeep();
    EXPECT_TRUE(isFound());
}

TEST_F(EffectCacheTest, ADamagedEntryIsCompiledAgainAtEveryByte)
{
    const std::vector<std::byte> right = writeEffectArchive(compileAndKeep());
    const fs::path file = fs::directory_iterator(store_->directory())->path();
    const std::string whole = readFile(file);
    for (std::size_t at = 0; at < whole.size(); ++at) {
        std::string changed = whole;
        changed[at] = static_cast<char>(~changed[at]);
        writeFile(file, changed);
        ASSERT_FALSE(isFound()) << at;
        writeFile(file, std::string_view(whole).substr(0, at));
        ASSERT_FALSE(isFound()) << at;
    }
    EXPECT_EQ(lines_.size(), 1U);
    compileAndKeep();
    EXPECT_EQ(writeEffectArchive(cache().find(effect(), options_).value()), right);
}

} // namespace
} // namespace Qx::CacheTests
