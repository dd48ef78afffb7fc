#include "Promise.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <future>
#include <iostream>
#include <iterator>
#include <memory>
#include <system_error>
#include <thread>

namespace Qx::HostTests {

namespace {

std::atomic<bool> anActionHangs = false;

class PromiseTest : public testing::Test
{
public:
    PromiseTest(const Promise& promise, const Kit& kit) : promise_(promise), kit_(kit) {}

    void TestBody() override
    {
        if (promise_.feature && kit_.host.without.contains(*promise_.feature)) {
            GTEST_SKIP() << "the host says that it has not got this";
        }
        SCOPED_TRACE(promise_.statement);
        promise_.check(kit_);
    }

private:
    const Promise promise_;
    const Kit& kit_;
};

void registerAll(const Kit& kit)
{
    constexpr std::array groups{memoryPromises,  lockPromises,         textPromises,  filePromises,
                                systemPromises,  notificationPromises, imagePromises, effectPromises,
                                surfacePromises, converterPromises,    tablePromises, fontPromises,
                                taskPromises,    shutdownPromises};
    for (const auto group : groups) {
        for (const Promise& promise : group()) {
            testing::RegisterTest(
                promise.service, promise.name, nullptr, nullptr, __FILE__, __LINE__,
                [promise, &kit]() -> PromiseTest* { return new PromiseTest(promise, kit); });
        }
    }
}

/// A new directory for temporary files, or an empty path with a message.
std::filesystem::path temporaryDirectory()
{
    std::error_code error;
    std::string name = (std::filesystem::temp_directory_path(error) / "hosttests-XXXXXX").string();
    if (error || mkdtemp(name.data()) == nullptr) {
        std::cerr << "hosttests: cannot make a directory for temporary files; set TMPDIR or "
                     "HostUnderTest::directory\n";
        return {};
    }
    return name;
}

} // namespace

bool endsInTime(const Kit& kit, std::function<void()> action, int times)
{
    auto ended = std::make_shared<std::promise<void>>();
    std::future<void> end = ended->get_future();
    std::thread([ended, action = std::move(action)] {
        action();
        ended->set_value();
    }).detach();
    if (end.wait_for(times * kit.host.patience) == std::future_status::ready) {
        return true;
    }
    anActionHangs = true;
    return false;
}

bool somethingHangs()
{
    return anActionHangs;
}

std::filesystem::path makeDirectory(const Kit& kit, std::string_view name)
{
    const std::filesystem::path directory = kit.directory / name;
    std::error_code error;
    std::filesystem::remove_all(directory, error);
    std::filesystem::create_directories(directory, error);
    EXPECT_FALSE(error) << "cannot make " << directory << ": " << error.message();
    return directory;
}

void writeFile(const std::filesystem::path& path, std::string_view contents)
{
    std::ofstream file(path, std::ios::binary);
    file << contents;
    EXPECT_TRUE(file.flush().good()) << "cannot write " << path;
}

std::string readFile(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

LightweightString<wchar_t> asText(const Kit& kit, const std::filesystem::path& path)
{
    return kit.services.fromUTF8(LightweightString<char>(path.c_str()));
}

LightweightString<wchar_t> wide(std::string_view ascii)
{
    return LightweightString<wchar_t>(std::wstring_view(std::wstring(ascii.begin(), ascii.end())));
}

std::string narrow(const LightweightString<wchar_t>& text)
{
    std::string result;
    for (const wchar_t character : text.view()) {
        result += character > 0 && character < 0x80 ? static_cast<char>(character) : '?';
    }
    return result;
}

int run(int argc, char** argv, const HostUnderTest& host)
{
    testing::InitGoogleTest(&argc, argv);
    if (argc > 1) {
        std::cerr << "hosttests: unknown argument " << argv[1] << "; --help lists the known ones\n";
        return 2;
    }
    GTEST_FLAG_SET(shuffle, false); // the host is shut down last
    Services own;
    const std::filesystem::path made =
        host.directory.empty() ? temporaryDirectory() : std::filesystem::path();
    if (host.directory.empty() && made.empty()) {
        return 1;
    }
    const Kit kit{host, host.services != nullptr ? *host.services : own,
                  made.empty() ? host.directory : made};
    registerAll(kit);
    int result = RUN_ALL_TESTS();
    if (testing::UnitTest::GetInstance()->test_to_run_count() == 0 && !GTEST_FLAG_GET(list_tests)) {
        std::cerr << "hosttests: no promise has a name like " << GTEST_FLAG_GET(filter)
                  << "; --gtest_list_tests lists them\n";
        result = 2;
    }
    std::error_code ignored;
    if (!made.empty()) {
        std::filesystem::remove_all(made, ignored);
    }
    if (somethingHangs()) {
        std::cout << "A call of the host has not returned; the process ends without it." << std::endl;
        std::_Exit(1);
    }
    return result;
}

} // namespace Qx::HostTests
