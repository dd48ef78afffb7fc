#include "host/luts/ColourDecision.h"

#include <OpenColorIO/OpenColorIO.h>
#include <locale>
#include <sstream>

namespace Qx::Host {

namespace {

namespace OCIO = OCIO_NAMESPACE;

OCIO::CDLTransformRcPtr transformOf(const ColourDecision& decision)
{
    const OCIO::CDLTransformRcPtr transform = OCIO::CDLTransform::Create();
    transform->setSlope(decision.slope.data());
    transform->setOffset(decision.offset.data());
    transform->setPower(decision.power.data());
    transform->setSat(decision.saturation);
    return transform;
}

} // namespace

std::vector<std::array<float, 3>> apply(const ColourDecision& decision, DecisionStyle style,
                                        const std::vector<std::array<float, 3>>& colours)
{
    const OCIO::CDLTransformRcPtr transform = transformOf(decision);
    transform->setStyle(style == DecisionStyle::clamps ? OCIO::CDL_ASC : OCIO::CDL_NO_CLAMP);
    const OCIO::ConstCPUProcessorRcPtr processor =
        OCIO::Config::CreateRaw()->getProcessor(transform)->getDefaultCPUProcessor();
    std::vector<std::array<float, 3>> made = colours;
    for (std::array<float, 3>& colour : made) {
        processor->applyRGB(colour.data());
    }
    return made;
}

std::string textOf(const ColourDecision& decision, const std::string& id, const std::string& extension)
{
    const char* const form = extension == "cc"    ? "ColorCorrection"
                             : extension == "cdl" ? "ColorDecisionList"
                                                  : nullptr;
    if (form == nullptr) {
        return {};
    }
    const OCIO::CDLTransformRcPtr transform = transformOf(decision);
    transform->getFormatMetadata().setID(id.c_str());
    const OCIO::GroupTransformRcPtr group = OCIO::GroupTransform::Create();
    group->appendTransform(transform);
    std::ostringstream stream;
    stream.imbue(std::locale::classic());
    group->write(OCIO::Config::CreateRaw(), form, stream);
    return stream.str();
}

} // namespace Qx::Host
