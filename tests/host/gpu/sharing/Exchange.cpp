#include "tests/host/gpu/sharing/Exchange.h"

#include <cstdlib>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace Qx::GpuTests {

using Host::ExportedImage;
using Host::ImageSharing;
using Host::MemoryHandle;

namespace {

struct ProbeResult
{
    int exitCode = -1;
    std::string out;
};

/// Runs the probe with the description as its input and the memory as its descriptor 3.
ProbeResult probe(const ExportedImage& exported, const std::filesystem::path& folder)
{
    const std::string in = folder / "description";
    const std::string out = folder / "printed";
    if (FILE* const file = std::fopen(in.c_str(), "wb")) {
        std::fwrite(&exported, sizeof exported, 1, file);
        std::fclose(file);
    }
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, in.c_str(), O_RDONLY, 0);
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(), O_WRONLY | O_CREAT, 0600);
    ::posix_spawn_file_actions_adddup2(&actions, exported.descriptor, 3);
    std::string program = QX_IMPORT_PROBE;
    char* const arguments[] = {program.data(), nullptr};
    ::setenv("QX_VULKAN_VALIDATION", "1", 1);
    pid_t process = 0;
    ProbeResult result;
    if (::posix_spawn(&process, program.c_str(), &actions, nullptr, arguments, environ) == 0) {
        int status = 0;
        ::waitpid(process, &status, 0);
        result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    ::unsetenv("QX_VULKAN_VALIDATION");
    ::posix_spawn_file_actions_destroy(&actions);
    if (FILE* const file = std::fopen(out.c_str(), "rb")) {
        char text[64] = {};
        result.out.assign(text, std::fread(text, 1, sizeof text, file));
        std::fclose(file);
    }
    return result;
}

} // namespace

Closing::~Closing()
{
    ::close(descriptor_);
}

std::string ExchangeTest::reason(MemoryHandle handle)
{
    takeLog();
    const Qx::Ptr<iGPUImage> image = sharing().createExportableImage(sharedSize, iGPUImage::eARGB8, handle);
    return image ? std::string() : takeLog();
}

std::string ExchangeTest::refusal(const ExportedImage& bad)
{
    takeLog();
    EXPECT_FALSE(sharing().importImage(bad));
    return takeLog();
}

Qx::Ptr<iGPUImage> ExchangeTest::exportable(iGPUImage::eFormat format, const Bytes& bytes,
                                            MemoryHandle handle)
{
    const Qx::Ptr<iGPUImage> image = sharing().createExportableImage(sharedSize, format, handle);
    return image && gpu().copyImage(upload(sharedSize, format, bytes), image) ? image : Qx::Ptr<iGPUImage>();
}

Bytes ExchangeTest::contentOf(GPUService& service, const Qx::Ptr<iGPUImage>& image, std::size_t count)
{
    const Qx::Ptr<iHostImage> host = service.downloadImage(image);
    const auto* const bytes = host ? static_cast<const std::uint8_t*>(host->map(iHostImage::Read)) : nullptr;
    return bytes != nullptr ? Bytes(bytes, bytes + count) : Bytes();
}

void ExchangeTest::passToAnotherDevice(iGPUImage::eFormat format, MemoryHandle handle)
{
    GPUOptions options;
    options.validation = true;
    GPUService second(options);
    const Bytes bytes = noise(bytesOf(sharedSize, format));
    const Qx::Ptr<iGPUImage> image = exportable(format, bytes, handle);
    ASSERT_TRUE(image) << takeLog();
    const auto exported = sharing().exportImage(image);
    ASSERT_TRUE(exported) << takeLog();
    const Closing closing(exported->descriptor);
    EXPECT_FALSE(gpu().downloadImage(image)); // it is the other one's now
    {
        const Qx::Ptr<iGPUImage> imported = ImageSharing(second).importImage(*exported);
        ASSERT_TRUE(imported) << takeLog();
        EXPECT_EQ(contentOf(second, imported, bytes.size()), bytes) << "format " << format;
        ASSERT_TRUE(second.copyImage(imported, second.createGPUImage(sharedSize, format)));
        const auto given = ImageSharing(second).giveImage(imported, VK_IMAGE_LAYOUT_GENERAL);
        ASSERT_TRUE(given && ImageSharing(second).wait(*given));
        EXPECT_TRUE(sharing().takeImage(image, given->layout, {}));
    }
    EXPECT_EQ(download(image), bytes);
    second.shutdown();
    EXPECT_EQ(second.statistics().validationMessages, 0U) << takeLog();
}

void ExchangeTest::passToAnotherProcess(MemoryHandle handle)
{
    const Bytes bytes = noise(bytesOf(sharedSize, iGPUImage::eARGB8));
    const Qx::Ptr<iGPUImage> image = exportable(iGPUImage::eARGB8, bytes, handle);
    const auto exported = sharing().exportImage(image);
    ASSERT_TRUE(exported) << takeLog();
    const Closing closing(exported->descriptor);
    const ProbeResult result = probe(*exported, folder());
    EXPECT_EQ(result.exitCode, 0) << result.out;
    unsigned long sum = 0;
    for (const std::uint8_t byte : bytes) {
        sum = sum * 31 + byte;
    }
    EXPECT_EQ(result.out, std::to_string(sum) + "\n");
    ASSERT_TRUE(sharing().takeImage(image, VK_IMAGE_LAYOUT_GENERAL, {}));
    Bytes wanted = bytes;
    const Bytes drawn{0, 255, 0, 255}; // alpha, red, green, blue
    std::copy(drawn.begin(), drawn.end(), wanted.begin());
    EXPECT_EQ(download(image), wanted);
}

} // namespace Qx::GpuTests
