#include "tools/qxhost/diagnose/Comparison.h"

#include <cmath>
#include <fmt/format.h>

namespace Qx::Diagnosis {

namespace {

Change::Meaning meaningOf(const Change& change, Better better)
{
    using Meaning = Change::Meaning;
    if (!change.before || !change.now) {
        return Meaning::unknown;
    }
    const bool same = change.percent ? std::abs(*change.percent) <= noise : *change.now == *change.before;
    if (same) {
        return Meaning::same;
    }
    if (better == Better::neither) {
        return Meaning::changed;
    }
    return (*change.now > *change.before) == (better == Better::higher) ? Meaning::better : Meaning::worse;
}

Change changeOf(const Figure& now, const Figure* before)
{
    constexpr double hundred = 100;
    Change change;
    change.group = now.group;
    change.title = now.title;
    change.unit = now.unit;
    change.now = now.value;
    if (before != nullptr && before->unit == now.unit) {
        change.before = before->value;
    }
    if (change.before && change.now && *change.before != 0) {
        change.percent = (*change.now - *change.before) / *change.before * hundred;
    }
    change.meaning = meaningOf(change, now.better);
    return change;
}

} // namespace

Comparison compare(const Report& before, const Report& now, const std::string& name)
{
    Comparison comparison{name, before.date, before.device.name, {}, {}};
    if (before.device.name != now.device.name) {
        comparison.remarks.push_back(
            fmt::format("The devices differ: {} then, {} now.", before.device.name, now.device.name));
    } else if (before.device.driver != now.device.driver) {
        comparison.remarks.push_back(fmt::format("The driver is another one: {} then, {} now.",
                                                 before.device.driver, now.device.driver));
    }
    if (before.machine.processors != now.machine.processors) {
        comparison.remarks.push_back(fmt::format("The process may use {} processors now, and {} then.",
                                                 now.machine.processors, before.machine.processors));
    }
    if (const std::string busy = busyness(before.machine); !busy.empty()) {
        comparison.remarks.push_back("The machine was busy with other work then: " + busy + ".");
    }
    if (const std::string busy = busyness(now.machine); !busy.empty()) {
        comparison.remarks.push_back("The machine was busy with other work now: " + busy + ".");
    }
    if (before.quick != now.quick) {
        comparison.remarks.push_back(
            "One of the runs was quick and the other thorough: figures of a quick run "
            "are less steady.");
    }
    if (before.ending.kind != Ending::Kind::complete) {
        comparison.remarks.push_back("The earlier run was not complete.");
    }
    for (const Figure& figure : now.figures) {
        Change change = changeOf(figure, find(before, figure.id));
        if ((change.before || change.now) && wantsPacked(before, figure.group)) {
            comparison.changes.push_back(std::move(change));
        }
    }
    for (const Figure& figure : before.figures) {
        if (figure.value && wantsPacked(now, figure.group) && find(now, figure.id) == nullptr) {
            comparison.changes.push_back({figure.group, figure.title, figure.unit, figure.value, std::nullopt,
                                          std::nullopt, Change::Meaning::unknown});
        }
    }
    return comparison;
}

std::string_view nameOf(Change::Meaning meaning)
{
    switch (meaning) {
    case Change::Meaning::same:
        return "same";
    case Change::Meaning::better:
        return "better";
    case Change::Meaning::worse:
        return "worse";
    case Change::Meaning::changed:
        return "changed";
    case Change::Meaning::unknown:
        break;
    }
    return "not measured";
}

} // namespace Qx::Diagnosis
