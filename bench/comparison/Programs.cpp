#include "bench/comparison/Programs.h"

#include <fstream>

namespace Qx::Bench {

const std::vector<Program>& programs()
{
    static const std::vector<Program> all{
        {"ours", "qx_peer_ours", "this library"},
        {"placebo", "qx_peer_placebo", "libplacebo"},
        {"movit", "qx_peer_movit", "Movit"},
        {"zimg", "qx_peer_zimg", "zimg"},
        {"swscale", "qx_peer_swscale", "swscale"},
        {"lut3d", "qx_peer_lut3d", "FFmpeg's lut3d"},
        {"v210", "qx_peer_v210", "FFmpeg's v210 codec"},
        {"colourio", "qx_peer_colourio", "OpenColorIO"},
    };
    return all;
}

std::string packagesFor(const std::string& name, const std::filesystem::path& list)
{
    std::ifstream in(list);
    std::string packages;
    bool wanted = false;
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with('#')) {
            wanted = line == "# " + name;
        } else if (wanted && !line.empty()) {
            packages += (packages.empty() ? "" : " ") + line;
        }
    }
    return packages;
}

} // namespace Qx::Bench
