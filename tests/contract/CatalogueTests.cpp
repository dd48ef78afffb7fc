#include "QxFxResources/Manager.h"
#include "QxFxResources/ShaderEffectInfo.h"
#include "tests/contract/recording/LibraryTest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using namespace Qx::Test;
using Qx::FxResources::Manager;
using Qx::FxResources::ShaderEffectInfo;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char* managersDefinitions =
    "{_OUTPUTWIDTH=1, _OUTPUTHEIGHT=1, _OUTPUTASPECTRATIO=1, _PROGRESS=1, _OUTPUTFPS=1, _LENGTH=1, "
    "_LENGTHFRAMES=1}";

std::vector<std::string> pathsOf(const Qx::Vector<ShaderEffectInfo>& records)
{
    std::vector<std::string> paths;
    for (const ShaderEffectInfo& record : records) {
        paths.push_back(text(record.directory) + "|" + text(record.name));
    }
    return paths;
}

ShaderEffectInfo recordOf(const wchar_t* directory, const wchar_t* name)
{
    ShaderEffectInfo record;
    record.directory = directory;
    record.name = name;
    return record;
}

class EffectScan : public LibraryTest
{
};

class EffectRecord : public LibraryTest
{
};

/// Records in the journal whether the strings of its record still exist when it is destroyed.
class DyingEffect final : public iShaderEffect
{
public:
    DyingEffect(const wchar_t* name, const wchar_t* directory) : name_(name), directory_(directory) {}
    ~DyingEffect() override
    {
        host().journal.record(host().allocator.owns(directory_) ? "directory kept" : "directory released");
        host().journal.record(host().allocator.owns(name_) ? "name kept" : "name released");
        host().journal.record("effect released");
    }

    bool setTechnique(const LightweightString<char>&) override { return false; }
    Qx::Vector<LightweightString<char>> getTechniqueNames() const override { return {}; }
    Qx::Ptr<iShaderParam> getParam(const char*) override { return {}; }
    bool render(Qx::Ptr<iGPUImage>, const Qx::Vector<Source>&) override { return false; }

private:
    const void* name_;
    const void* directory_;
};

} // namespace

TEST_F(EffectScan, TakesBothDirectoriesBeforeItListsShadersAndThenTemplates)
{
    Qx::Vector<ShaderEffectInfo> records;
    Manager::getFXFiles(records);
    EXPECT_THAT(host().journal.lines(), ElementsAre("getShadersDir()", "getFXTemplatesDirectory(0)",
                                                    "listDirectory(\"/shaders/*.fx\", 1, 0)",
                                                    "listDirectory(\"/templates/*.fx\", 1, 0)"));
}

TEST_F(EffectScan, TakesNoManager)
{
    Qx::Vector<ShaderEffectInfo> records;
    Manager::getFXFiles(records);
    EXPECT_THAT(host().shutdownCallbacks, IsEmpty());
}

TEST_F(EffectScan, KeepsTheOrderOfTheListingsShadersFirst)
{
    host().addFile(L"/templates/", L"b.fx");
    host().addFile(L"/templates/", L"a.fx");
    host().addFile(L"/shaders/", L"z.fx");
    host().addFile(L"/shaders/", L"m.fx");
    Qx::Vector<ShaderEffectInfo> records;
    Manager::getFXFiles(records);
    EXPECT_THAT(pathsOf(records),
                ElementsAre("/shaders/|z.fx", "/shaders/|m.fx", "/templates/|b.fx", "/templates/|a.fx"));
}

TEST_F(EffectScan, RecordHoldsNameDirectoryAndStampAndNoEffect)
{
    host().addFile(L"/shaders/", L"Colour Convert.FX", 0xFEDCBA9876543210ULL);
    Qx::Vector<ShaderEffectInfo> records;
    Manager::getFXFiles(records);
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(text(records[0].name), "Colour Convert.FX");
    EXPECT_EQ(text(records[0].directory), "/shaders/");
    EXPECT_EQ(records[0].timeStamp, 0xFEDCBA9876543210ULL);
    EXPECT_FALSE(records[0].effect);
}

TEST_F(EffectScan, SkipsNamesThatBeginWithAnUnderscoreInEitherDirectory)
{
    for (const wchar_t* directory : {L"/shaders/", L"/templates/"}) {
        host().addFile(directory, L"_include.fx");
        host().addFile(directory, L"_");
        host().addFile(directory, L"with_underscore.fx");
    }
    Qx::Vector<ShaderEffectInfo> records;
    Manager::getFXFiles(records);
    EXPECT_THAT(pathsOf(records),
                ElementsAre("/shaders/|with_underscore.fx", "/templates/|with_underscore.fx"));
}

TEST_F(EffectScan, SkipsNoOtherNames)
{
    for (const wchar_t* name : {L".hidden.fx", L"-a.fx", L" _a.fx", L"#a.fx", L"~a.fx", L"\uFF3Fa.fx"}) {
        host().addFile(L"/shaders/", name);
    }
    Qx::Vector<ShaderEffectInfo> records;
    Manager::getFXFiles(records);
    EXPECT_THAT(pathsOf(records), ElementsAre("/shaders/|.hidden.fx", "/shaders/|-a.fx", "/shaders/| _a.fx",
                                              "/shaders/|#a.fx", "/shaders/|~a.fx", "/shaders/|\uFF3Fa.fx"));
}

TEST_F(EffectScan, SameNameInBothDirectoriesGivesTwoRecords)
{
    host().addFile(L"/templates/", L"same.fx", 2);
    host().addFile(L"/shaders/", L"same.fx", 1);
    Qx::Vector<ShaderEffectInfo> records;
    Manager::getFXFiles(records);
    EXPECT_THAT(pathsOf(records), ElementsAre("/shaders/|same.fx", "/templates/|same.fx"));
    EXPECT_EQ(records[0].timeStamp, 1U);
    EXPECT_EQ(records[1].timeStamp, 2U);
}

TEST_F(EffectScan, AppendsAndNeverClears)
{
    host().addFile(L"/shaders/", L"a.fx");
    Qx::Vector<ShaderEffectInfo> records;
    records.push_back(recordOf(L"/own/", L"own.fx"));
    Manager::getFXFiles(records);
    Manager::getFXFiles(records);
    EXPECT_THAT(pathsOf(records), ElementsAre("/own/|own.fx", "/shaders/|a.fx", "/shaders/|a.fx"));
}

TEST_F(EffectScan, EveryRecordHasALockOfItsOwn)
{
    host().addFile(L"/shaders/", L"a.fx");
    host().addFile(L"/shaders/", L"b.fx");
    Qx::Vector<ShaderEffectInfo> records;
    Manager::getFXFiles(records);
    const CriticalSectionScope inside(records[0].lock);
    EXPECT_EQ(depthOf(records[0].lock), 1);
    EXPECT_EQ(depthOf(records[1].lock), 0);
}

TEST_F(EffectScan, MissingOrUnreadableDirectoryContributesNothingSilently)
{
    host().addFile(L"/shaders/", L"a.fx");
    host().script.fail("listDirectory", 1);
    Qx::Vector<ShaderEffectInfo> records;
    Manager::getFXFiles(records);
    EXPECT_THAT(records, IsEmpty());
    EXPECT_EQ(host().journal.lines().size(), 4U);
}

TEST_F(EffectScan, FoundFilesAreNotSharedBetweenTwoDirectoriesOfOnePath)
{
    host().templatesDirectory = host().shadersDirectory;
    host().addFile(L"/shaders/", L"a.fx");
    Qx::Vector<ShaderEffectInfo> records;
    Manager::getFXFiles(records);
    EXPECT_THAT(pathsOf(records), ElementsAre("/shaders/|a.fx", "/shaders/|a.fx"));
}

TEST_F(EffectRecord, FieldsStandInTheirOrder)
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
    EXPECT_EQ(offsetof(ShaderEffectInfo, lock), 0U);
    EXPECT_LT(offsetof(ShaderEffectInfo, lock), offsetof(ShaderEffectInfo, effect));
    EXPECT_LT(offsetof(ShaderEffectInfo, effect), offsetof(ShaderEffectInfo, name));
    EXPECT_LT(offsetof(ShaderEffectInfo, name), offsetof(ShaderEffectInfo, directory));
    EXPECT_LT(offsetof(ShaderEffectInfo, directory), offsetof(ShaderEffectInfo, timeStamp));
#pragma GCC diagnostic pop
}

TEST_F(EffectRecord, IsEmptyAtFirst)
{
    const ShaderEffectInfo record;
    EXPECT_FALSE(record.effect);
    EXPECT_TRUE(record.name.empty());
    EXPECT_TRUE(record.directory.empty());
    EXPECT_EQ(record.timeStamp, 0U);
}

TEST_F(EffectRecord, CopySharesTheLockAndTheRest)
{
    ShaderEffectInfo record = recordOf(L"/shaders/", L"a.fx");
    record.effect = Qx::makePtr<FakeEffect>("a.fx");
    record.timeStamp = 7;
    const std::size_t before = host().allocator.allocations();
    const ShaderEffectInfo copy = record;
    EXPECT_EQ(host().allocator.allocations(), before);
    EXPECT_EQ(copy.effect, record.effect);
    EXPECT_EQ(copy.name.c_str(), record.name.c_str());
    EXPECT_EQ(copy.directory.c_str(), record.directory.c_str());
    EXPECT_EQ(copy.timeStamp, 7U);
    const CriticalSectionScope inside(record.lock);
    EXPECT_EQ(depthOf(copy.lock), 1);
}

TEST_F(EffectRecord, DestructionReleasesDirectoryThenNameThenEffect)
{
    {
        ShaderEffectInfo record = recordOf(L"/shaders/", L"a.fx");
        record.effect = Qx::makePtr<DyingEffect>(record.name.c_str(), record.directory.c_str());
    }
    EXPECT_THAT(host().journal.lines(),
                ElementsAre("directory released", "name released", "effect released"));
}

TEST_F(EffectRecord, FullPathIsDirectoryAndNameWithNothingBetween)
{
    EXPECT_EQ(text(recordOf(L"/shaders/", L"a.fx").getFullPath()), "/shaders/a.fx");
    EXPECT_EQ(text(recordOf(L"/no separator", L"a.fx").getFullPath()), "/no separatora.fx");
    EXPECT_EQ(text(recordOf(L"", L"a.fx").getFullPath()), "a.fx");
    EXPECT_EQ(text(recordOf(L"/shaders/", L"").getFullPath()), "/shaders/");
}

TEST_F(EffectRecord, FullPathIsSizedByTheCapacityRule)
{
    EXPECT_EQ(recordOf(L"/shaders/", L"a.fx").getFullPath().capacity(), 16U);    // 13 characters
    EXPECT_EQ(recordOf(L"/shaders/", L"abcd.fx").getFullPath().capacity(), 32U); // 16 characters
}

TEST_F(EffectRecord, FullPathOfAnEmptyRecordIsTheNullString)
{
    const std::size_t before = host().allocator.allocations();
    EXPECT_EQ(ShaderEffectInfo().getFullPath().capacity(), 0U);
    EXPECT_EQ(host().allocator.allocations(), before);
}

TEST_F(EffectRecord, LoadCompilesTheFullPathWithTheGivenDefinitions)
{
    const ShaderEffectInfo record = recordOf(L"/shaders/", L"a.fx");
    Qx::Vector<iShaderEffect::CompilerDefinition> definitions;
    definitions.push_back({"A", "2"});
    record.load(definitions);
    EXPECT_TRUE(record.effect);
    EXPECT_THAT(host().journal.lines(), ElementsAre("loadEffectFile(\"/shaders/a.fx\", {A=2})"));
    record.load(definitions);
    EXPECT_EQ(host().journal.count("loadEffectFile"), 1U);
}

TEST_F(EffectRecord, LoadHoldsTheRecordsLockWhileItCompiles)
{
    const ShaderEffectInfo record = recordOf(L"/shaders/", L"a.fx");
    int depth = 0;
    host().script.during("loadEffectFile", [&] { depth = depthOf(record.lock); });
    record.load({});
    EXPECT_EQ(depth, 1);
    EXPECT_EQ(depthOf(record.lock), 0);
}

TEST_F(EffectRecord, LoadChangesNothingButTheEffect)
{
    ShaderEffectInfo record = recordOf(L"/shaders/", L"a.fx");
    record.timeStamp = 9;
    record.load({});
    EXPECT_EQ(text(record.name), "a.fx");
    EXPECT_EQ(text(record.directory), "/shaders/");
    EXPECT_EQ(record.timeStamp, 9U);
}

TEST_F(EffectRecord, AssignmentTakesEverythingOverAndSharesTheLock)
{
    ShaderEffectInfo record = recordOf(L"/shaders/", L"a.fx");
    record.timeStamp = 9;
    record.load({});
    ShaderEffectInfo other = recordOf(L"/templates/", L"b.fx");
    other = record;
    EXPECT_EQ(text(other.name), "a.fx");
    EXPECT_EQ(text(other.directory), "/shaders/");
    EXPECT_EQ(other.timeStamp, 9U);
    ASSERT_TRUE(other.effect);
    EXPECT_EQ(other.effect, record.effect);
    const CriticalSectionScope inside(record.lock);
    EXPECT_EQ(depthOf(other.lock), 1);
}

TEST_F(EffectRecord, ShaderIsCompiledOnceOnDemandWithTheSevenDefinitions)
{
    host().addFile(L"/shaders/", L"a.fx");
    const ShaderEffectInfo& record = Manager::instance().findEffect(L"a.fx");
    const Qx::Ptr<iShaderEffect> first = record.getShader();
    const Qx::Ptr<iShaderEffect> second = record.getShader();
    ASSERT_TRUE(first);
    EXPECT_EQ(first, second);
    EXPECT_THAT(host().journal.linesOf({"loadEffectFile"}),
                ElementsAre(std::string("loadEffectFile(\"/shaders/a.fx\", ") + managersDefinitions + ")"));
}

TEST_F(EffectRecord, ShaderThatIsThereIsReturnedWithoutALock)
{
    const ShaderEffectInfo record = recordOf(L"/shaders/", L"a.fx");
    record.load({});
    EXPECT_EQ(locksEnteredDuring([&] { EXPECT_TRUE(record.getShader()); }), 0U);
}

TEST_F(EffectRecord, FailedCompileIsTriedAgainByTheNextDemandAndPrintsNothing)
{
    host().addFile(L"/shaders/", L"a.fx");
    const ShaderEffectInfo& record = Manager::instance().findEffect(L"a.fx");
    host().journal.clear();
    host().script.fail("loadEffectFile", 2);
    EXPECT_FALSE(record.getShader());
    EXPECT_FALSE(record.getShader());
    EXPECT_TRUE(record.getShader());
    EXPECT_EQ(host().journal.lines().size(), 3U) << "three compilations and nothing else";
    EXPECT_EQ(host().journal.count("loadEffectFile"), 3U);
}

TEST_F(EffectRecord, TwoThreadsThatWantOneEffectCompileItOnceAndGetTheSame)
{
    host().addFile(L"/shaders/", L"a.fx");
    const ShaderEffectInfo& record = Manager::instance().findEffect(L"a.fx");
    Gate compiling = host().script.hold("loadEffectFile");
    Qx::Ptr<iShaderEffect> first;
    Qx::Ptr<iShaderEffect> second;
    {
        const std::jthread one([&] { first = record.getShader(); });
        ASSERT_TRUE(compiling.waitUntilReached());
        const std::jthread other([&] { second = record.getShader(); });
        EXPECT_TRUE(waitForBlockedThreads(1));
        compiling.release();
    }
    ASSERT_TRUE(first);
    EXPECT_EQ(first, second);
    EXPECT_EQ(host().journal.count("loadEffectFile"), 1U);
}

TEST_F(EffectRecord, ManyThreadsThatWantOneEffectCompileItOnce)
{
    host().addFile(L"/shaders/", L"a.fx");
    const ShaderEffectInfo& record = Manager::instance().findEffect(L"a.fx");
    std::vector<Qx::Ptr<iShaderEffect>> shaders(8);
    {
        std::vector<std::jthread> threads;
        for (auto& shader : shaders) {
            threads.emplace_back([&shader, &record] { shader = record.getShader(); });
        }
    }
    for (const auto& shader : shaders) {
        EXPECT_TRUE(shader);
        EXPECT_EQ(shader, shaders.front());
    }
    EXPECT_EQ(host().journal.count("loadEffectFile"), 1U);
}

TEST_F(EffectRecord, MayBeCopiedWhileAnotherThreadLoadsIt)
{
    host().addFile(L"/shaders/", L"a.fx");
    const ShaderEffectInfo& record = Manager::instance().findEffect(L"a.fx");
    Gate compiling = host().script.hold("loadEffectFile");
    std::jthread loading([&] { record.getShader(); });
    ASSERT_TRUE(compiling.waitUntilReached());
    std::atomic<int> rounds = 0; // relaxed: only the library orders the two threads
    Qx::Ptr<iShaderEffect> constructed;
    Qx::Ptr<iShaderEffect> assigned;
    std::jthread copying([&] {
        ShaderEffectInfo second;
        while (!constructed || !assigned) {
            const ShaderEffectInfo first = record;
            constructed = first.effect;
            second = record;
            assigned = second.effect;
            rounds.fetch_add(1, std::memory_order_relaxed);
        }
    });
    while (rounds.load(std::memory_order_relaxed) < 100) {
        std::this_thread::yield();
    }
    compiling.release();
    loading.join();
    copying.join();
    EXPECT_EQ(constructed, record.effect);
    EXPECT_EQ(assigned, record.effect);
}
