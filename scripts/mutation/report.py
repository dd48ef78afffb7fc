"""Prints the survivors and writes docs/mutation.md."""

import os
from collections import Counter

from runs import KILLED, NOT_COMPILED, SURVIVED
from verdicts import EQUIVALENT, SURVIVES

UNEXPLAINED, NOT_RUN = "unexplained", "not run"

INTRODUCTION = """# Mutation check

Written by `scripts/mutate --report`; do not edit. The reasons come from `scripts/mutation/verdicts.txt`.

The tool changes the library in small ways, one at a time, and runs the contract tests that pass the changed place: a
comparison, an operator, a number, a text or an enumerator is another one; a condition is negated; a statement, an early
exit or a lock is left out; neighbouring statements or arguments of one type are swapped; a memory order is relaxed. A
mutant is *killed* if a test fails, crashes or hangs. One that does not compile is none, and is left out below.

- *equivalent*: behaves as the original, or differs only where the contract leaves it open.
- *survived*: no test notices it.
- *killed*: share of the mutants that are not equivalent.
"""


def outcome_of(mutant, results, verdicts):
    entry = results.of(mutant)
    if entry is None:
        return NOT_RUN
    if entry["outcome"] != SURVIVED:
        return entry["outcome"]
    block = verdicts.of(mutant)
    return block.verdict if block else UNEXPLAINED


def print_survivors(mutants, results, verdicts, describe):
    """Prints what was found out about the mutants; returns the exit status."""
    outcomes = {m.id: outcome_of(m, results, verdicts) for m in mutants}
    for mutant in mutants:
        if outcomes[mutant.id] == UNEXPLAINED:
            print(describe(mutant, results.of(mutant)))
    counts = Counter(outcomes.values())
    print(", ".join(f"{counts[o]} {o}" for o in (KILLED, EQUIVALENT, SURVIVES, UNEXPLAINED, NOT_COMPILED, NOT_RUN)))
    return 1 if counts[UNEXPLAINED] or counts[NOT_RUN] else 0


def write(path, mutants, results, verdicts):
    outcomes = {m.id: outcome_of(m, results, verdicts) for m in mutants}
    mutants = [m for m in mutants if outcomes[m.id] != NOT_COMPILED]
    parts = [INTRODUCTION, "```\nscripts/install-packages scripts/mutation/packages.txt\nscripts/mutate\n"
             "scripts/mutate --report\n```\n", table("folder", mutants, outcomes, lambda m: m.path.split("/")[0]),
             table("change", mutants, outcomes, lambda m: m.kind)]
    counts = Counter(outcomes.values())
    parts.append(f"Not counted: {counts[NOT_COMPILED]} that do not compile, and {counts[NOT_RUN]} that have not been run, or not since "
                 "their file was last changed.\n")
    for verdict, title in ((SURVIVES, "Survivors, explained"), (EQUIVALENT, "Equivalent mutants")):
        blocks = [(b, [m for m in mutants if outcomes[m.id] == verdict and verdicts.of(m) is b])
                  for b in verdicts.blocks if b.verdict == verdict]
        parts.append(f"## {title}\n")
        parts += [b.reason + "\n\n" + listing(held) for b, held in blocks if held] or ["None.\n"]
    unexplained = [m for m in mutants if outcomes[m.id] == UNEXPLAINED]
    parts.append("## Survivors without an explanation\n")
    parts.append(listing(unexplained) if unexplained else "None.\n")
    path.write_text("\n".join(parts))
    print(f"wrote {os.path.relpath(path)}")


def table(title, mutants, outcomes, group):
    rows = {}
    for mutant in mutants:
        outcome = outcomes[mutant.id]
        if outcome != NOT_RUN:
            rows.setdefault(group(mutant), Counter())[SURVIVES if outcome == UNEXPLAINED else outcome] += 1
    lines = [f"| {title} | made | equivalent | killed | survived | killed |", "|---|---:|---:|---:|---:|---:|"]
    for name, counts in [*sorted(rows.items()), ("all", sum(rows.values(), Counter()))]:
        relevant = counts[KILLED] + counts[SURVIVES]
        share = f"{100 * counts[KILLED] / relevant:.1f} %" if relevant else "-"
        lines.append(f"| {name} | {relevant + counts[EQUIVALENT]} | {counts[EQUIVALENT]} | {counts[KILLED]} | "
                     f"{counts[SURVIVES]} | {share} |")
    return "\n".join(lines) + "\n"


def listing(mutants):
    lines = []
    for mutant in mutants:
        before, after = (" ".join(t.encode("latin-1").decode("utf-8", "replace").split())
                         for t in (mutant.before, mutant.after))
        change = f"{code(before)} becomes {code(after)}" if after else f"{code(before)} left out"
        where = f", `{mutant.function}`" if mutant.function else ""
        lines.append(f"- {mutant.path}:{mutant.line}{where}: {change}")
    return "\n".join(lines) + "\n"


def code(text):
    return f"`` {text} ``" if "`" in text else f"`{text}`"
