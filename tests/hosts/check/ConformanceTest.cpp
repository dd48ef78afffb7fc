// A host that breaks one promise fails the conformance tests by the name of that promise.

#include "tests/hosts/check/Faults.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <ostream>
#include <set>
#include <sstream>
#include <string>
#include <system_error>

namespace Qx::HostTests {

void PrintTo(const Fault& fault, std::ostream* stream)
{
    *stream << fault.name;
}

namespace {

struct Result
{
    int status = -1;
    std::string output;
};

Result outputOf(const std::string& command)
{
    Result result;
    FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
    if (pipe == nullptr) {
        return result;
    }
    std::array<char, 4096> part;
    while (const std::size_t bytes = std::fread(part.data(), 1, part.size(), pipe)) {
        result.output.append(part.data(), bytes);
    }
    result.status = pclose(pipe);
    return result;
}

/// The names in the lines that end a run: "[  FAILED  ] Suite.Test".
std::set<std::string> failedIn(const std::string& output)
{
    std::set<std::string> failed;
    std::istringstream lines(output.substr(std::min(output.find("listed below"), output.size())));
    const std::string mark = "[  FAILED  ] ";
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(mark)) {
            failed.insert(line.substr(mark.size()));
        }
    }
    return failed;
}

/// The program's files of one test lie in a folder of their own: one that hangs leaves them behind.
class Conformance : public testing::TestWithParam<Fault>
{
protected:
    Conformance() { EXPECT_NE(mkdtemp(folder_.data()), nullptr) << folder_; }
    ~Conformance() override
    {
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }

    std::string folder_ = (std::filesystem::temp_directory_path() / "conformance-XXXXXX").string();
};

/// Of the tests of the service fails the one with the promise's name, and what it carries along.
TEST_P(Conformance, a_broken_promise_fails_by_its_name)
{
    const std::string promise = GetParam().promise;
    const std::string service = promise.substr(0, promise.find('.'));
    const Result result = outputOf("env -u GTEST_TOTAL_SHARDS -u GTEST_SHARD_INDEX -u GTEST_OUTPUT TMPDIR='" +
                                   folder_ + "' " + std::string(QX_HOST_CONFORMANCE) + " --fault " +
                                   GetParam().name + " '--gtest_filter=" + service + ".*'");
    EXPECT_NE(result.status, 0) << result.output;
    std::set<std::string> expected = GetParam().also;
    expected.insert(promise);
    std::set<std::string> failed = failedIn(result.output);
    for (const std::string& test : GetParam().perhaps) {
        failed.erase(test);
    }
    EXPECT_EQ(failed, expected) << result.output;
}

std::string nameOfFault(const testing::TestParamInfo<Fault>& info)
{
    std::string name = info.param.name;
    for (char& character : name) {
        character = character == '-' ? '_' : character;
    }
    return name;
}

TEST(ConformanceProgram, a_filter_that_no_promise_matches_is_an_error)
{
    const Result result = outputOf(std::string(QX_HOST_CONFORMANCE) + " '--gtest_filter=Lock.*'");
    EXPECT_NE(result.status, 0);
    EXPECT_NE(result.output.find("Running 0 tests"), std::string::npos) << result.output;
}

INSTANTIATE_TEST_SUITE_P(Faults, Conformance, testing::ValuesIn(allFaults()), nameOfFault);

} // namespace

} // namespace Qx::HostTests
