#include "gputests/GPUTests.h"

#include "gputests/TestLog.h"
#include "platform/OS.h"
#include "platform/SystemInformation.h"
#include "platform/SystemWatchdog.h"
#include "platform/Text.h"

#include <cstdint>

using Text = LightweightString<wchar_t>;

void Qx::GPUTestLog::logRate(LoggerBase& log, double count, double milliseconds)
{
    const double rate = count / (milliseconds / 1000.0);
    log.logLine(Qx::WStringFromFloat(rate, 2, true) + L"fps", result);
}

XY<int> GPUTests::testImageSize() noexcept
{
    return {1920, 1080};
}

void GPUTests::preamble(LoggerBase& log) noexcept
{
    const MemoryStatus memory = OS().systemInformation().memoryStatus();
    Text line = L"Memory : ";
    line += bytesAsString(memory.available, true);
    line += L" / ";
    line += bytesAsString(static_cast<std::uint32_t>(memory.total), true); // the low 32 bits, by contract
    log.logLine(line, Qx::GPUTestLog::result);

    const int processors = OS().systemInformation().cpuCount();
    log.logLine(Text(L"CPUs   : ") + Qx::WStringFromInteger(processors), Qx::GPUTestLog::result);

    const bool isAdministrator = OS().users().isAdministrator();
    log.logLine(Text(L"Admin  : ") + (isAdministrator ? L"Yes" : L"No"), Qx::GPUTestLog::result);
}

void GPUTests::runAllTests(LoggerBase& log) noexcept
{
    constexpr int tests = 5;
    SystemWatchdog::beginLifeSupport();
    preamble(log);
    log.beginTests(tests);
    hostToGPUTransferTest(log);
    GPUToHostTransferTest(log);
    shaderPerformanceTest(log);
    combinedTest(log, false);
    combinedTest(log, true);
    log.endTests();
    log.logLine(L"Tests complete", Qx::GPUTestLog::heading);
    SystemWatchdog::endLifeSupport();
}
