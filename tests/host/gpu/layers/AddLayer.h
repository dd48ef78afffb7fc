#pragma once

#include <string>

namespace Qx::GpuTests {

/// Puts a layer for tests between the validation layer and the driver, for services that start
/// from now on.
void addLayer(const std::string& name);
void removeLayer();

} // namespace Qx::GpuTests
