// The program while its calls fail: outputs are the old ones, the new ones or none, and one message says what
// is wrong.
//
// QX_FAULT_STRIDE=N tries every N-th call (the default samples; 1 tries all); QX_FAULT_OFFSET shifts the
// sample.

#include "tests/system/program/Program.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace Qx::System {

namespace {

constexpr int signalBase = 128;

int number(const char* variable, int otherwise)
{
    const char* value = std::getenv(variable);
    return value != nullptr ? std::atoi(value) : otherwise;
}

/// A call of the program, and the files that it makes.
struct Work
{
    std::string name;
    std::vector<std::string> arguments;
    std::vector<std::string> files;
    std::string under = ".";  ///< where calls fail
    bool mustSucceed = false; ///< because only caches are there
    bool newEffect = false;   ///< the effect is one that no cache has
    int notes = 0;            ///< lines that it says when it succeeds
};

/// What came of a fault.
struct Tally
{
    int faults = 0;
    std::map<int, int> exitCodes;
    std::map<std::string, int> outputs;
};

class Faults : public ProgramTest
{
protected:
    const std::string effect_ = "texture Input;\nsampler S = sampler_state { Texture = <Input>; };\n"
                                "float4 f(float2 uv : TEXCOORD0) : COLOR0 { return tex2D(S, uv) * 0.5; }\n"
                                "technique T { pass P { PixelShader = compile ps_3_0 f(); } }\n";

    void SetUp() override
    {
        ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=64x48:rate=25", "-frames", "3", "-pix_fmt", "yuv422p",
                "-c:v", "ffv1", "-colorspace", "bt709", "-color_range", "tv", "in.mkv"});
        write("halve.fx", effect_);
        write("look.cube", "LUT_1D_SIZE 2\n0 0 0\n1 0.5 1\n");
    }

    Outcome faulty(const Work& work, const std::string& variable) const
    {
        if (work.newEffect) { // so that it is compiled and kept
            static int count = 0;
            write("halve.fx", effect_ + "// " + std::to_string(++count) + "\n");
        }
        fs::remove(log());
        const std::string place = fs::canonical(directory_ / work.under).string();
        std::vector<std::string> command{"env",
                                         "LD_PRELOAD=" QX_FAULTS,
                                         "QX_FAULT_PROGRAM=qxhost",
                                         "QX_FAULT_UNDER=" + place,
                                         "QX_FAULT_LOG=" + log().string(),
                                         variable,
                                         programPath()};
        command.insert(command.end(), work.arguments.begin(), work.arguments.end());
        return run(command);
    }

    /// The call that failed; empty if none did.
    std::string firedCall() const
    {
        std::ifstream lines(log());
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with("fired ")) {
                return line.substr(6);
            }
        }
        return {};
    }

    /// The numbers of calls that count, by their names.
    std::map<std::string, int> callsMade() const
    {
        std::ifstream lines(log());
        std::map<std::string, int> made;
        for (std::string line; std::getline(lines, line);) {
            ++made[line.substr(0, line.find(' '))];
            ++made["all"];
        }
        return made;
    }

    /// Which call that counts is the first of that name, from 1; 0 if none is.
    int firstCall(const std::string& name) const
    {
        std::ifstream lines(log());
        int n = 0;
        for (std::string line; std::getline(lines, line);) {
            ++n;
            if (line == name) {
                return n;
            }
        }
        return 0;
    }

    static int messagesIn(const std::string& text)
    {
        const std::string mark = "qxhost: ";
        int messages = 0;
        for (std::size_t i = text.find(mark); i != std::string::npos; i = text.find(mark, i + 1)) {
            messages += i == 0 || text[i - 1] == '\n' ? 1 : 0;
        }
        return messages;
    }

    static std::vector<std::string> namesIn(const fs::path& directory)
    {
        std::vector<std::string> names;
        for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
            names.push_back(entry.path().filename().string());
        }
        return names;
    }

    fs::path log() const { return directory_.string() + ".faults"; }

    void TearDown() override { fs::remove(log()); }

    /// Runs the work without a fault, and notes what it makes and which calls it makes. `variable` counts
    /// all.
    void prepare(const Work& work, const std::string& variable)
    {
        faulty(work, variable); // fills what is between runs
        remove(work);
        const Outcome good = faulty(work, variable);
        ASSERT_EQ(good.exitCode, 0) << good.err;
        made_ = callsMade();
        ASSERT_GT(made_["all"], 5) << "calls are not seen";
        wanted_.clear();
        for (const std::string& file : work.files) {
            wanted_.push_back(read(at(file)));
            ASSERT_FALSE(wanted_.back().empty()) << file;
        }
        remove(work);
    }

    /// Makes the n-th call of a kind fail, in turn. `variable` makes the variable from n. At most `most`
    /// calls are tried, unless QX_FAULT_STRIDE says which.
    template <class Variable>
    void walk(const Work& work, const std::string& call, const std::set<int>& exitCodes, bool harmless,
              int most, Variable&& variable)
    {
        const int all = made_[call];
        const int stride = number("QX_FAULT_STRIDE", std::max(1, (all + most - 1) / most));
        Tally tally;
        for (int n = 1 + number("QX_FAULT_OFFSET", 0) % stride; n <= all; n += stride) {
            remove(work);
            const bool old = isOldTurn_ = !isOldTurn_;
            if (old) {
                for (const std::string& file : work.files) {
                    write(file, "old");
                }
            }
            const Outcome outcome = faulty(work, variable(n));
            const std::string fired = firedCall(); // another run may make a few calls less
            check(work, outcome,
                  {variable(n) + " (" + fired + ")", exitCodes, harmless || fired.empty(), old}, tally);
            tally.faults += fired.empty() ? 0 : 1;
        }
        remove(work);
        if (tally.faults > 0) {
            std::printf("%s: %s: %d calls, %d made to fail; exit codes", work.name.c_str(),
                        variable(0).c_str(), all, tally.faults);
            for (const auto& [code, count] : tally.exitCodes) {
                std::printf(" %d: %d", code, count);
            }
            std::printf("; files");
            for (const auto& [state, count] : tally.outputs) {
                std::printf(" %s: %d", state.c_str(), count);
            }
            std::printf("\n");
        }
    }

private:
    struct Expected
    {
        std::string fault;
        std::set<int> exitCodes;
        bool harmless;
        bool old;
    };

    void remove(const Work& work) const
    {
        for (const std::string& file : work.files) {
            fs::remove(at(file));
        }
    }

    void check(const Work& work, const Outcome& outcome, const Expected& expected, Tally& tally) const
    {
        const std::string& fault = expected.fault;
        ++tally.exitCodes[outcome.exitCode];
        EXPECT_LT(outcome.exitCode, signalBase) << fault;
        const bool succeeded = outcome.exitCode == 0;
        if (expected.harmless || work.mustSucceed) {
            EXPECT_TRUE(succeeded) << fault << ": " << outcome.exitCode << ' ' << outcome.err;
        }
        EXPECT_TRUE(succeeded || expected.exitCodes.count(outcome.exitCode) != 0)
            << fault << ": " << outcome.exitCode << ' ' << outcome.err;
        EXPECT_EQ(messagesIn(outcome.err), succeeded ? work.notes : 1) << fault << ": " << outcome.err;
        for (std::size_t i = 0; i < work.files.size(); ++i) {
            const bool there = fs::exists(at(work.files[i]));
            const std::string found = there ? read(at(work.files[i])) : "";
            const bool isNew = there && found == wanted_[i];
            const bool isOld = there && expected.old && found == "old";
            ++tally.outputs[isNew ? "new" : isOld ? "old" : there ? "PART" : "none"];
            EXPECT_TRUE(isNew || (!succeeded && (isOld || (!there && !expected.old))))
                << fault << ": " << work.files[i] << " has " << found.size() << " bytes";
        }
        std::vector<std::string> known = work.files;
        known.insert(known.end(), {"in.mkv", "halve.fx", "look.cube"});
        EXPECT_EQ(filesBeside(known), std::vector<std::string>()) << fault;
        for (const std::string& file : work.files) {
            for (const std::string& name : namesIn(at(file).parent_path())) {
                EXPECT_TRUE(!name.starts_with(".qx-") && name.find(".part-") == std::string::npos)
                    << fault << ": " << name << " is left";
            }
        }
    }

    std::map<std::string, int> made_;
    std::vector<std::string> wanted_;
    bool isOldTurn_ = false;
};

// Drawn: frames that nothing is done to need no device.
const Work clip{"clip", {"convert", "in.mkv", "out.mov", "--depth", "8", "--force", "--quiet"}, {"out.mov"}};
const Work rawFrames{
    "raw", {"convert", "in.mkv", "out.raw", "--format", "v210", "--force", "--quiet"}, {"out.raw"}};
const Work sequence{"sequence",
                    {"convert", "in.mkv", "out_%d.png", "--force", "--quiet"},
                    {"out_1.png", "out_2.png", "out_3.png"}};
const Work caches{"caches",    {"convert", "in.mkv", "out.mov", "--effect", "halve.fx", "--force", "--quiet"},
                  {"out.mov"}, ".cache",
                  true,        true};

const Work lut{.name = "lut",
               .arguments = {"lut", "install", "--force", "look.cube"},
               .files = {".data/qxhost/luts/look.cube"},
               .under = ".data",
               .notes = 1};

class FileCalls : public Faults, public testing::WithParamInterface<Work>
{
};

TEST_P(FileCalls, leave_the_old_file_the_new_one_or_none)
{
    const Work& work = GetParam();
    if (work.newEffect) { // caches of its own, with all else that a conversion needs
        const fs::path shared = fs::path(QX_BUILD_FOLDER) / "tests/cache";
        qxhost(clip.arguments);
        fs::remove(at("out.mov"));
        fs::copy(shared, at(".cache"), fs::copy_options::recursive);
    }
    fs::create_directories(at(work.under));
    struct Kind
    {
        const char* call;
        int most; ///< tries of a sample
    };
    std::vector<Kind> kinds{{"write", 1}, {"sync", 2}, {"rename", 1}, {"open", 2}, {"size", 1}, {"map", 1}};
    if (work.newEffect) {
        kinds = {{"all", 2}};
    } else if (work.under != ".") {
        kinds = {{"all", 2}, {"open", 3}};
    }
    prepare(work, "QX_FAULT=all:EIO:0");
    for (const auto& [call, most] : kinds) {
        for (const std::string error : {"ENOSPC", "EIO", "EINTR", "SHORT"}) {
            if (error != "SHORT" || call == std::string("write")) {
                // An input that cannot be opened is code 3.
                walk(work, call, {3, 4}, error == "EINTR" || error == "SHORT", most, [&, kind = call](int n) {
                    return std::string("QX_FAULT=") + kind + ':' + error + ':' + std::to_string(n);
                });
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(, FileCalls, testing::Values(clip, rawFrames, sequence, caches, lut),
                         [](const auto& each) { return each.param.name; });

TEST_F(Faults, outputs_are_synced_before_they_get_their_names_and_the_directory_after)
{
    for (const Work& work : {clip, rawFrames, sequence}) {
        prepare(work, "QX_FAULT=all:EIO:0");
        std::ifstream lines(log());
        const std::string directory = fs::canonical(directory_).string();
        std::set<std::string> synced; // the unfinished files that were written and then synced
        std::size_t named = 0;
        bool lasts = false;
        for (std::string call, path; lines >> call >> path;) {
            const std::string name = fs::path(path).filename().string();
            const bool isPart = name.find(".part-") != std::string::npos;
            const std::string final = isPart ? name.substr(1, name.find(".part-") - 1) : name;
            if (call == "write") {
                synced.erase(final);
            } else if (call == "sync" && path == directory) {
                lasts = named == work.files.size();
            } else if (call == "sync") {
                synced.insert(final);
            } else if (call == "rename") {
                EXPECT_EQ(synced.count(name), 1U) << work.name << ": " << name;
                ++named;
            }
        }
        EXPECT_EQ(named, work.files.size()) << work.name;
        EXPECT_TRUE(lasts) << work.name;
    }
}

/// What a kept run says is never the same twice, so it is only known to be whole.
TEST_F(Faults, a_run_of_diagnose_is_kept_whole_or_not_at_all)
{
    const Work work{.name = "diagnose",
                    .arguments = {"diagnose", "--quick", "--only", "checks", "--save"},
                    .files = {},
                    .under = ".state/qxhost/diagnose"};
    const fs::path place = at(work.under);
    fs::create_directories(place);
    const Outcome good = faulty(work, "QX_FAULT=all:EIO:0");
    ASSERT_EQ(good.exitCode, 0) << good.err;
    std::map<std::string, int> made = callsMade();
    ASSERT_GT(made["all"], 5);
    int faults = 0;
    std::map<std::string, int> outputs;
    for (const std::string kind : {"all:ENOSPC", "all:EIO", "all:EINTR", "write:SHORT"}) {
        const bool harmless = kind == "all:EINTR" || kind == "write:SHORT";
        const int calls = made[kind.substr(0, kind.find(':'))];
        const int stride = number("QX_FAULT_STRIDE", calls);
        for (int n = 1 + (number("QX_FAULT_OFFSET", 0) + 2 * faults) % stride; n <= calls; n += stride) {
            fs::remove_all(place);
            fs::create_directories(place);
            const std::string fault = "QX_FAULT=" + kind + ':' + std::to_string(n);
            const Outcome outcome = faulty(work, fault);
            const std::string which = fault + " (" + firedCall() + ")";
            faults += firedCall().empty() ? 0 : 1;
            const bool succeeded = outcome.exitCode == 0;
            EXPECT_TRUE(succeeded || (outcome.exitCode == 4 && !harmless))
                << which << ": " << outcome.exitCode << ' ' << outcome.err;
            EXPECT_EQ(messagesIn(outcome.err), 1) << which << ": " << outcome.err; // it says where it is
            const std::vector<std::string> names = namesIn(place);
            ++outputs[names.empty() ? "none" : "new"];
            ASSERT_LE(names.size(), 1U) << which;
            EXPECT_TRUE(!succeeded || names.size() == 1) << which;
            for (const std::string& name : names) {
                EXPECT_FALSE(name.starts_with('.')) << which << ": " << name;
                EXPECT_EQ(qxhost({"diagnose", "--from", (place / name).string()}).exitCode, 0) << which;
            }
        }
    }
    std::printf("diagnose: %d calls, %d made to fail; files", made["all"], faults);
    for (const auto& [state, count] : outputs) {
        std::printf(" %s: %d", state.c_str(), count);
    }
    std::printf("\n");
}

TEST_F(Faults, devices_that_cannot_be_listed_are_one_message)
{
    prepare(clip, "QX_VULKAN_FAULT=HOST_MEMORY:0");
    for (const int n : {2, 3}) { // their number, then they themselves
        const Outcome outcome = faulty(clip, "QX_VULKAN_FAULT=HOST_MEMORY:" + std::to_string(n));
        ASSERT_EQ(firedCall(), "vkEnumeratePhysicalDevices");
        EXPECT_EQ(outcome.exitCode, 5);
        EXPECT_EQ(outcome.err, "qxhost: the Vulkan devices could not be listed (result -1)\n");
    }
}

TEST_F(Faults, a_device_without_a_timeline_is_one_message)
{
    prepare(clip, "QX_VULKAN_FAULT=DEVICE_MEMORY:0");
    const int n = firstCall("vkCreateSemaphore");
    ASSERT_GT(n, 0);
    const Outcome outcome = faulty(clip, "QX_VULKAN_FAULT=DEVICE_MEMORY:" + std::to_string(n));
    ASSERT_EQ(firedCall(), "vkCreateSemaphore");
    EXPECT_EQ(outcome.exitCode, 5) << outcome.err;
    EXPECT_EQ(outcome.err, "qxhost: The GPU service could not set up its device.\n");
}

class VulkanCalls : public Faults, public testing::WithParamInterface<const char*>
{
};

TEST_P(VulkanCalls, that_fail_are_one_message_and_leave_no_part)
{
    for (const Work& work : {clip, sequence}) {
        const auto variable = [&](int n) {
            return std::string("QX_VULKAN_FAULT=") + GetParam() + ':' + std::to_string(n);
        };
        prepare(work, variable(0));
        walk(work, "all", {5, 6}, false, 4, variable);
    }
}

INSTANTIATE_TEST_SUITE_P(, VulkanCalls, testing::Values("DEVICE_MEMORY", "HOST_MEMORY", "LOST"),
                         [](const auto& each) { return std::string(each.param); });

TEST_F(Faults, allocations_of_pixels_that_fail_are_one_message_and_leave_no_part)
{
    // Of these pictures, 64 x 48 with four components of 8 bits.
    constexpr int pictureBytes = 64 * 48 * 4;
    for (const Work& work : {clip, sequence}) {
        const auto variable = [&](int n) {
            return "QX_MEMORY_FAULT=" + std::to_string(n) + ':' + std::to_string(pictureBytes);
        };
        prepare(work, variable(0));
        walk(work, "all", {1, 3, 4, 5, 6}, false, 6, variable);
    }
}

} // namespace

} // namespace Qx::System
