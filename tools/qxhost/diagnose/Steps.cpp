#include "tools/qxhost/diagnose/Steps.h"

namespace Qx::Diagnosis {

const std::vector<Step>& steps()
{
    static const std::vector<Step> all{
        {"suite", "the suite", false, {L"cc3.fx"}, runSuite},
        {"copies", "plain copies", true, {}, measureCopies},
        {"checks", "checking results", true, {L"ColourConvert.fx"}, checkResults},
        {"transfers", "transfers", true, {}, measureTransfers},
        {"latency", "latency", true, {}, measureLatency},
        {"conversions", "conversions", true, {L"ColourConvert.fx", L"null.fx"}, measureConversions},
        {"looks", "looks", true, {L"cc3.fx", L"LUT.fx"}, measureLooks},
        {"frames", "whole frames", true, {L"ColourConvert.fx", L"cc3.fx"}, measureFrames},
        {"streams", "several streams", true, {L"ColourConvert.fx", L"cc3.fx"}, measureStreams},
        {"compiling", "compiling effects", true, {}, measureCompiling},
        {"memory", "memory", true, {}, measureMemory},
    };
    return all;
}

} // namespace Qx::Diagnosis
