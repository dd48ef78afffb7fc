#include "tools/qxhost/diagnose/Messages.h"

#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/diagnose/ReportJson.h"

namespace Qx::Diagnosis {

using Program::Json;

namespace {

Json toJson(const Machine& machine)
{
    Json json{machine.system, machine.processors, machine.memory, machine.memoryAvailable};
    if (machine.load) {
        json.push_back(machine.load->average);
        json.push_back(machine.load->processors);
    }
    return json;
}

Machine machineFrom(const Json& json)
{
    Machine machine{json.at(0).get<std::string>(), json.at(1).get<int>(), json.at(2).get<std::uint64_t>(),
                    json.at(3).get<std::uint64_t>(), std::nullopt};
    if (json.size() > 4) {
        machine.load = {json.at(4).get<double>(), json.at(5).get<int>()};
    }
    return machine;
}

struct Writer
{
    Json operator()(const Begun& begun) const
    {
        const Device& device = begun.device;
        return {{"is", "begun"},
                {"device", {device.name, device.type, device.driver, device.software}},
                {"machine", toJson(begun.machine)},
                {"steps", begun.steps}};
    }
    Json operator()(const NoDevice& none) const
    {
        return {{"is", "noDevice"}, {"reason", none.reason}, {"machine", toJson(none.machine)}};
    }
    Json operator()(const StepBegun& step) const
    {
        return {{"is", "step"}, {"name", step.name}, {"title", step.title}};
    }
    Json operator()(const SuiteLine& line) const
    {
        return {{"is", "line"}, {"category", line.category}, {"text", line.text}};
    }
    Json operator()(const Figure& figure) const
    {
        return {{"is", "figure"}, {"figure", Diagnosis::toJson(figure)}};
    }
    Json operator()(const Remark& remark) const { return {{"is", "remark"}, {"text", remark.text}}; }
    Json operator()(const Finished&) const { return {{"is", "finished"}}; }
};

std::optional<Message> read(const Json& json)
{
    const auto is = json.at("is").get<std::string>();
    if (is == "begun") {
        const Json& device = json.at("device");
        return Begun{{device.at(0).get<std::string>(), device.at(1).get<std::string>(),
                      device.at(2).get<std::string>(), device.at(3).get<bool>()},
                     machineFrom(json.at("machine")),
                     json.at("steps").get<int>()};
    }
    if (is == "noDevice") {
        return NoDevice{json.at("reason").get<std::string>(), machineFrom(json.at("machine"))};
    }
    if (is == "step") {
        return StepBegun{json.at("name").get<std::string>(), json.at("title").get<std::string>()};
    }
    if (is == "line") {
        return SuiteLine{json.at("category").get<int>(), json.at("text").get<std::string>()};
    }
    if (is == "figure") {
        return figureFrom(json.at("figure"), "the measuring process");
    }
    if (is == "remark") {
        return Remark{json.at("text").get<std::string>()};
    }
    if (is == "finished") {
        return Finished{};
    }
    return std::nullopt;
}

} // namespace

std::string lineOf(const Message& message)
{
    return std::visit(Writer(), message).dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::optional<Message> messageFrom(std::string_view line)
{
    try {
        return read(Json::parse(line));
    } catch (const Json::exception&) {
        return std::nullopt;
    } catch (const Program::Failure&) {
        return std::nullopt;
    }
}

} // namespace Qx::Diagnosis
