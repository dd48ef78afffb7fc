"""The command line."""

import argparse
import difflib
import fcntl
import os
import random
import sys

import report
import selftest
from find import read
from runs import Results, Runner
from verdicts import Verdicts
from workshop import BuildFailed, Workshop


def arguments(root):
    parser = argparse.ArgumentParser(prog="scripts/mutate", description=(
        "Changes the library in small ways, one at a time, and says which changes no contract test notices. Results are "
        "kept in build/mutation/results.jsonl: a run continues where the last one stopped, and runs again what "
        "belongs to a changed file, and what survived other tests."))
    parser.add_argument("files", nargs="*", metavar="FILE", help="only the mutants of these sources or folders")
    parser.add_argument("--sample", type=int, metavar="N", help="only N mutants, chosen at random")
    parser.add_argument("--seed", type=int, default=1, help="what --sample chooses by (default: 1)")
    parser.add_argument("--only", metavar="ID,...", help="only the mutants with these ids")
    parser.add_argument("--jobs", type=int, default=os.cpu_count() or 1, metavar="N", help="processes at a time")
    parser.add_argument("--limit", type=float, default=10, metavar="SECONDS",
                        help="a test that runs longer counts as failed (default: 10)")
    parser.add_argument("--again", action="append", default=[], choices=["survived", "killed", "not-compiled", "all"],
                        help="run mutants of this outcome again, even if nothing changed")
    what = parser.add_mutually_exclusive_group()
    what.add_argument("--list", action="store_true", help="list the mutants with what is known of them")
    what.add_argument("--survivors", action="store_true", help="list the unexplained survivors of earlier runs")
    what.add_argument("--show", metavar="ID", help="print a mutant as a diff")
    what.add_argument("--report", action="store_true", help="write docs/mutation.md from the results")
    what.add_argument("--self-test", action="store_true", help="test this tool on a small source")
    return parser.parse_args()


def choose(mutants, options, root):
    chosen = mutants
    if options.files:
        wanted = [os.path.relpath(f, root) for f in options.files]
        chosen = [m for m in chosen if any(m.path == w or m.path.startswith(w + "/") for w in wanted)]
        if not chosen:
            sys.exit(f"mutate: no mutants in {', '.join(options.files)}")
    if options.only:
        chosen = [m for m in chosen if m.id in options.only.split(",")]
    if options.sample is not None and options.sample < len(chosen):
        chosen = random.Random(options.seed).sample(chosen, options.sample)
    return {m.id for m in chosen}


def describe(mutant, entry):
    outcome = entry["outcome"] if entry else "not run"
    if entry and entry.get("reached_by") == 0:
        outcome += " (no test passes here)"
    return f"{mutant.id}  {mutant.path}:{mutant.line}  {mutant.function}  {outcome}  [{mutant.kind}]  {mutant.change()}"


def main(root):
    options = arguments(root)
    if options.self_test:
        return selftest.run()
    workshop = Workshop(root, options.jobs, options.limit)
    results = Results(workshop.place / "results.jsonl")
    verdicts = Verdicts(root / "scripts" / "mutation" / "verdicts.txt")
    mutants = workshop.mutants()
    chosen = choose(mutants, options, root)

    if options.show:
        for mutant in mutants:
            if mutant.id == options.show:
                text = read(root / mutant.path)
                lines = [t.encode("latin-1").decode("utf-8", "replace").splitlines(keepends=True)
                         for t in (text, mutant.apply(text))]
                sys.stdout.writelines(difflib.unified_diff(*lines, f"a/{mutant.path}", f"b/{mutant.path}"))
                return 0
        sys.exit(f"mutate: there is no mutant {options.show}; --list lists them")
    if options.list:
        for mutant in mutants:
            if mutant.id in chosen:
                print(describe(mutant, results.of(mutant)))
        return 0
    if options.report:
        report.write(root / "docs" / "mutation.md", mutants, results, verdicts)
        return 0
    if not options.survivors:
        with (workshop.place / "lock").open("w") as lock:
            try:
                fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
            except BlockingIOError:
                sys.exit(f"mutate: another run is using {workshop.place}; wait for it")
            run(workshop, results, verdicts, mutants, chosen, options)
    return report.print_survivors([m for m in mutants if m.id in chosen], results, verdicts, describe)


def run(workshop, results, verdicts, mutants, chosen, options):
    try:
        workshop.update()
        Runner(workshop, results, verdicts).run(mutants, chosen, {a.replace("-", " ") for a in options.again})
    except BuildFailed as failure:
        sys.exit(f"mutate: the copy in {workshop.tree} does not build:\n{str(failure)[-4000:]}")
    except KeyboardInterrupt:
        sys.exit("\nmutate: stopped; the next run continues here")
