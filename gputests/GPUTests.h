#pragma once

#include "Qx/XY.h"
#include "platform/Api.h"
#include "platform/Log.h"

/// The diagnostic suite: how fast this machine's GPU path moves and draws images of 1920 x 1080.
///
/// Every test writes lines to the logger and calls its endTest() last, whatever happened. Categories of the
/// lines: 5 a test's heading and the suite's end, 4 a failure, 0 a result. A result is a rate, "123.45fps",
/// formatted by the host. A test that fails writes a line that says so instead; nothing else comes of it.
///
/// The transfers and the combined tests run until more than 5 seconds have passed, until the first failure,
/// or 2000 times. They and the shader test measure what the host gets through when it asks: nothing waits for
/// the GPU, so a rate is one of submission, which the GPU may fall behind.
///
/// The tests run on the calling thread and block it for seconds each. Only runAllTests() keeps the host's
/// watchdog quiet; who calls a single test sees to that himself.
class QX_API GPUTests
{
public:
    GPUTests() = delete;

    /// Width and height in pixels of every image of the suite.
    static XY<int> testImageSize() noexcept;

    /// Three lines: memory, processors, whether the user is an administrator.
    static void preamble(LoggerBase& log) noexcept;

    /// One host image, uploaded again and again.
    static void hostToGPUTransferTest(LoggerBase& log) noexcept;

    /// One GPU image, downloaded again and again.
    static void GPUToHostTransferTest(LoggerBase& log) noexcept;

    /// 2000 draws of one image into another through the effect "cc3.fx".
    static void shaderPerformanceTest(LoggerBase& log) noexcept;

    /// Whole frames: an upload, a draw through "cc3.fx" into a new image and, with `readBack`, a download.
    static void combinedTest(LoggerBase& log, bool readBack) noexcept;
    static void combinedTestWithReadBack(LoggerBase& log) noexcept;    ///< "render"
    static void combinedTestWithoutReadback(LoggerBase& log) noexcept; ///< "playback"

    /// The preamble, then uploads, downloads, the shader, playback and render between the logger's
    /// beginTests(5) and endTests(). A test that fails does not keep the next from running.
    static void runAllTests(LoggerBase& log) noexcept;
};
