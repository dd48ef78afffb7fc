#include "tools/qxhost/diagnose/Steps.h"

namespace Qx::Diagnosis {

const std::vector<Step>& steps()
{
    static const std::vector<Step> all{
        {"suite", "the suite", false, {"cc3.fx"}, runSuite},
        {"copies", "plain copies", true, {}, measureCopies},
        {"checks", "checking results", true, {"ColourConvert.fx"}, checkResults},
        {"transfers", "transfers", true, {}, measureTransfers},
        {"latency", "latency", true, {}, measureLatency},
        {"conversions", "conversions", true, {"ColourConvert.fx", "null.fx"}, measureConversions},
        {"looks", "looks", true, {"cc3.fx", "LUT.fx"}, measureLooks},
        {"frames", "whole frames", true, {"ColourConvert.fx", "cc3.fx"}, measureFrames},
        {"streams", "several streams", true, {"ColourConvert.fx", "cc3.fx"}, measureStreams},
        {"compiling", "compiling effects", true, {"ColourConvert.fx", "cc3.fx"}, measureCompiling},
        {"memory", "memory", true, {}, measureMemory},
    };
    return all;
}

} // namespace Qx::Diagnosis
