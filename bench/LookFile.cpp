#include "bench/LookFile.h"

#include <fmt/format.h>

#include <cmath>
#include <fstream>
#include <string>
#include <system_error>
#include <unistd.h>

namespace Qx::Bench {
namespace {

void writeLook(const std::filesystem::path& path)
{
    std::ofstream text(path);
    text << "LUT_3D_SIZE 33\n";
    constexpr int points = 33;
    for (int i = 0; i < points * points * points; ++i) {
        const double r = i % points / 32.0;
        const double g = i / points % points / 32.0;
        const double b = i / points / points / 32.0;
        text << fmt::format("{:.6f} {:.6f} {:.6f}\n", std::sqrt(r) * 0.9, g * g * 0.8 + 0.1 * b,
                            0.5 * (b + r * g));
    }
}

struct File
{
    std::filesystem::path path;

    File()
    {
        std::string name = std::filesystem::temp_directory_path() / "qx-bench-XXXXXX.cube";
        const int descriptor = ::mkstemps(name.data(), 5);
        if (descriptor < 0) {
            return;
        }
        ::close(descriptor);
        path = name;
        writeLook(path);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File()
    {
        std::error_code ignored;
        std::filesystem::remove(path, ignored);
    }
};

} // namespace

const std::filesystem::path& lookFile()
{
    static const File file;
    return file.path;
}

} // namespace Qx::Bench
