#pragma once

namespace Qx::Diagnosis {

/// The page's style sheet.
inline constexpr const char* pageStyle = R"css(
:root { color-scheme: light dark;
  --ground: #f5f6f8; --card: #ffffff; --ink: #1b2330; --faint: #566072; --line: #d8dde6; --track: #e9edf3;
  --fill: #2f6fde; --mark: #1b2330; --good: #1a7f4b; --warn: #9a5b00; --bad: #c0322b; --up: #2f6fde; --down: #b4560f;
  --copy: #566072; }
@media (prefers-color-scheme: dark) { :root {
  --ground: #12161d; --card: #1b212b; --ink: #e8ecf2; --faint: #a3aebf; --line: #333c4a; --track: #2a323f;
  --fill: #6ea3ff; --mark: #f2f5fa; --good: #5fd39a; --warn: #f0b65a; --bad: #ff8a80; --up: #6ea3ff; --down: #f0a35e;
  --copy: #a3aebf; } }
* { box-sizing: border-box; }
body { margin: 0; background: var(--ground); color: var(--ink);
  font: 16px/1.5 system-ui, -apple-system, "Segoe UI", Roboto, "DejaVu Sans", sans-serif; }
main { max-width: 60rem; margin: 0 auto; padding: 1.25rem 1rem 3rem; }
h1 { font-size: 1.05rem; font-weight: 600; margin: 0 0 .75rem; color: var(--faint); }
h1 time { font-weight: 400; white-space: nowrap; }
h2 { font-size: 1.15rem; margin: 0 0 .25rem; }
p { margin: .35rem 0; } small { color: var(--faint); font-size: .82em; }
section { background: var(--card); border: 1px solid var(--line); border-radius: .75rem; padding: 1rem 1.15rem 1.1rem;
  margin: 0 0 1rem; }
section > p:first-of-type { margin-bottom: .8rem; }
.verdict { border-left: .5rem solid var(--good); }
.verdict.remarks { border-left-color: var(--warn); } .verdict.unhealthy, .verdict.unknown { border-left-color: var(--bad); }
.verdict h2 { font-size: 1.55rem; line-height: 1.25; margin-bottom: .5rem; text-wrap: balance; }
.verdict ul { margin: .5rem 0 0; padding-left: 1.2rem; } .verdict .fault { color: var(--bad); font-weight: 600; }
.pill { display: inline-block; border: 1px solid currentColor; border-radius: 1rem; padding: 0 .65rem; font-size: .85rem;
  font-weight: 600; color: var(--warn); margin-right: .4rem; } .pill.real { color: var(--good); }
.tiles { display: grid; grid-template-columns: repeat(auto-fit, minmax(9.5rem, 1fr)); gap: .75rem; margin: 1rem 0 .25rem; }
.tile { border: 1px solid var(--line); border-radius: .6rem; padding: .6rem .8rem .7rem; }
.tile b { display: block; font-size: 1.25rem; line-height: 1.3; } .tile .yes { color: var(--good); }
.tile .barely { color: var(--warn); } .tile .no { color: var(--bad); } .tile .unmeasured { color: var(--faint); }
.bars { display: grid; gap: .3rem; margin-top: .5rem; }
.row { display: grid; grid-template-columns: minmax(9rem, 17rem) 1fr 10.5rem; gap: .25rem .75rem; align-items: center; }
.row .number { text-align: right; white-space: nowrap; font-variant-numeric: tabular-nums; }
.row .none { color: var(--faint); font-size: .88rem; }
svg.bar { width: 100%; height: 1.15rem; display: block; }
.track { fill: var(--track); } .fill { fill: var(--fill); } .mark { fill: var(--mark); } .zero { fill: var(--faint); }
.better { fill: var(--good); } .worse { fill: var(--bad); } .same, .changed { fill: var(--faint); }
svg.lines { width: 100%; max-width: 35rem; display: block; }
.grid { stroke: var(--line); stroke-width: 1; } .tick { fill: var(--faint); font-size: 13px; }
polyline { fill: none; stroke-width: 2.5; vector-effect: non-scaling-stroke; stroke: var(--fill); }
polyline.up { stroke: var(--up); } circle.up { fill: var(--up); } polyline.down { stroke: var(--down); stroke-dasharray: 9 4; }
circle.down { fill: var(--down); } polyline.copy { stroke: var(--copy); stroke-dasharray: 2 4; } circle.copy { fill: var(--copy); }
.legend { list-style: none; display: flex; flex-wrap: wrap; gap: .25rem 1.25rem; padding: 0; margin: .25rem 0 0; }
.legend svg { width: 2.1rem; height: .75rem; margin-right: .45rem; }
.courses { display: grid; grid-template-columns: repeat(auto-fill, minmax(15rem, 1fr)); gap: .9rem 1.5rem; }
figure { margin: 0; } figcaption { font-size: .9rem; line-height: 1.3; } figcaption small { display: block; }
.course svg { width: 100%; height: 3.2rem; display: block; } .course polyline { stroke-width: 1.5; }
.course.slower polyline { stroke: var(--bad); } .course.slower small { color: var(--bad); }
.checks { list-style: none; padding: 0; margin: .5rem 0 0; } .checks li { padding-left: 1.9rem; position: relative; }
.checks li::before { content: "\2713"; position: absolute; left: .3rem; color: var(--good); font-weight: 700; }
.checks .wrong::before { content: "\2717"; color: var(--bad); } .checks .remark::before { content: "!"; color: var(--warn); }
.checks .unmeasured::before { content: "\2013"; color: var(--faint); }
.scroll { overflow-x: auto; } table { border-collapse: collapse; width: 100%; font-size: .88rem; }
th, td { text-align: left; padding: .3rem .6rem .3rem 0; border-bottom: 1px solid var(--line); vertical-align: top; }
th { color: var(--faint); font-weight: 600; } td.n { text-align: right; white-space: nowrap; font-variant-numeric: tabular-nums; }
th.n { text-align: right; } tr.group th { color: var(--ink); padding-top: .9rem; }
pre { margin: .5rem 0 0; font: .88rem/1.45 ui-monospace, "DejaVu Sans Mono", monospace; white-space: pre-wrap;
  overflow-wrap: anywhere; } dl { display: grid; grid-template-columns: max-content 1fr; gap: .15rem 1rem; margin: .5rem 0 0; }
dt { color: var(--faint); } dd { margin: 0; overflow-wrap: anywhere; }
@media (max-width: 40rem) { .row { grid-template-columns: 1fr auto; } .row .name { grid-column: 1; } .row .number { grid-column: 2; grid-row: 1; }
  .row svg.bar, .row .none { grid-column: 1 / 3; } .bars { gap: .6rem; } section { padding: .85rem .9rem; }
  .verdict h2 { font-size: 1.3rem; }
  .figures thead { display: none; } .figures table, .figures tbody, .figures tr.group, .figures tr.group th { display: block; }
  .figures tr { display: grid; grid-template-columns: 1fr auto; border-bottom: 1px solid var(--line); padding: .3rem 0; }
  .figures td { border: 0; padding: 0; } .figures td:nth-child(n+3) { grid-column: 1 / 3; text-align: left; color: var(--faint); }
  .figures td:nth-child(3):not(:empty)::before { content: "a copy makes "; } }
@media print { :root { --ground: #fff; --card: #fff; --ink: #000; --faint: #444; --line: #bbb; --track: #eee; --fill: #2f6fde;
    --mark: #000; --good: #1a7f4b; --warn: #9a5b00; --bad: #c0322b; --up: #2f6fde; --down: #b4560f; --copy: #555; color-scheme: light; }
  body { font-size: 10.5pt; } main { max-width: none; padding: 0; } section { border-radius: 0; }
  section, figure, .row, tr { break-inside: avoid; } section.long { break-inside: auto; }
  svg, section { print-color-adjust: exact; -webkit-print-color-adjust: exact; } .scroll { overflow: visible; } }
)css";

} // namespace Qx::Diagnosis
