#include "tests/host/gpu/GpuFixture.h"
