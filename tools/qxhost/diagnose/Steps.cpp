#include "tools/qxhost/diagnose/Steps.h"

namespace Qx::Diagnosis {

const std::vector<Step>& steps()
{
    static const std::vector<Step> all{
        {"suite", "the suite", false, runSuite},
        {"copies", "plain copies", true, measureCopies},
        {"checks", "checking results", true, checkResults},
        {"transfers", "transfers", true, measureTransfers},
        {"latency", "latency", true, measureLatency},
        {"conversions", "conversions", true, measureConversions},
        {"looks", "looks", true, measureLooks},
        {"frames", "whole frames", true, measureFrames},
        {"streams", "several streams", true, measureStreams},
        {"compiling", "compiling effects", true, measureCompiling},
        {"memory", "memory", true, measureMemory},
    };
    return all;
}

} // namespace Qx::Diagnosis
