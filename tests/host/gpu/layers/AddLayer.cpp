#include "tests/host/gpu/layers/AddLayer.h"

#include <cstdlib>

namespace Qx::GpuTests {

void addLayer(const std::string& name)
{
    // The layer found first is the first that is called, or that named first: this depends on the loader.
    ::setenv("VK_ADD_LAYER_PATH", "/usr/share/vulkan/explicit_layer.d:" QX_TEST_LAYERS_FOLDER, 1);
    ::setenv("VK_INSTANCE_LAYERS", ("VK_LAYER_KHRONOS_validation:" + name).c_str(), 1);
}

void removeLayer()
{
    ::unsetenv("VK_ADD_LAYER_PATH");
    ::unsetenv("VK_INSTANCE_LAYERS");
}

} // namespace Qx::GpuTests
