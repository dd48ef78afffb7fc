#pragma once

#include "Qx/XY.h"
#include "platform/Api.h"
#include "platform/Log.h"

/// The diagnostic suite: measures how fast the GPU path transfers and draws images of 1920 x 1080.
///
/// Every test writes lines to the logger and calls its endTest() last, even after a failure. Line categories:
/// 5 is a heading, 4 a failure, 0 a result. A result is a rate, "123.45fps", formatted by the host. A test
/// that fails writes a line of category 4 instead.
///
/// The transfer and combined tests run until more than 5 seconds have passed, until the first failure, or
/// 2000 times. No test waits for the GPU: a rate is the rate of submission, and the GPU may lag behind.
///
/// The tests run on the calling thread and block it for several seconds each. Only runAllTests() suspends the
/// host's watchdog; a caller of a single test must do so itself.
class QX_API GPUTests
{
public:
    GPUTests() = delete;

    /// Returns the width and height of all test images in pixels.
    static XY<int> testImageSize() noexcept;

    /// Writes three lines: memory, number of processors, and whether the user is an administrator. Does not
    /// call endTest().
    static void preamble(LoggerBase& log) noexcept;

    /// Uploads one host image repeatedly.
    static void hostToGPUTransferTest(LoggerBase& log) noexcept;

    /// Downloads one GPU image repeatedly.
    static void GPUToHostTransferTest(LoggerBase& log) noexcept;

    /// Draws one image into another 2000 times through the effect "cc3.fx".
    static void shaderPerformanceTest(LoggerBase& log) noexcept;

    /// Processes whole frames: an upload, a draw through "cc3.fx" into a new image and, if `readBack` is set,
    /// a download.
    static void combinedTest(LoggerBase& log, bool readBack) noexcept;
    static void
    combinedTestWithReadBack(LoggerBase& log) noexcept; ///< combinedTest(log, true), the "render" test
    static void
    combinedTestWithoutReadback(LoggerBase& log) noexcept; ///< combinedTest(log, false), the "playback" test

    /// Runs preamble(), then between the logger's beginTests(5) and endTests(): upload, download, shader,
    /// playback and render. A test that fails does not prevent the next one.
    static void runAllTests(LoggerBase& log) noexcept;
};
