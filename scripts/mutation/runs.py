"""Runs the tests over mutants and keeps what came out."""

import json
from collections import Counter, defaultdict
from concurrent.futures import ThreadPoolExecutor

from workshop import BuildFailed

KILLED, SURVIVED, NOT_COMPILED = "killed", "survived", "not compiled"


class Results:
    """What is known of each mutant: a file of JSON lines, the last line of a mutant holds."""

    def __init__(self, path):
        self.path = path
        self.known = {}
        if path.is_file():
            for line in path.read_text().splitlines():
                entry = json.loads(line)
                self.known[entry["key"]] = entry

    def of(self, mutant):
        return self.known.get(mutant.key)

    def add(self, mutant, **what):
        entry = {"key": mutant.key, "id": mutant.id, "path": mutant.path, "line": mutant.line, **what}
        self.known[mutant.key] = entry
        self.path.parent.mkdir(parents=True, exist_ok=True)
        with self.path.open("a") as file:
            file.write(json.dumps(entry) + "\n")


class Runner:
    def __init__(self, workshop, results, verdicts):
        self.workshop = workshop
        self.results = results
        self.verdicts = verdicts
        self.times = {}                 # test: seconds
        self.reached = {}               # test: the numbers of the mutants that it passes
        self.kills = defaultdict(Counter)  # function of a source: test: how many of its mutants the test killed

    def run(self, mutants, chosen, force):
        """Runs the tests over the chosen mutants, a set of ids, except those whose result is known."""
        tests_text = self.workshop.tests_text()

        def is_open(mutant):
            entry = self.results.of(mutant)
            if mutant.id not in chosen:
                return False
            if entry is None or entry["outcome"] in force or "all" in force:
                return True
            return (entry["outcome"] == SURVIVED and entry["tests"] != tests_text
                    and not self.verdicts.is_equivalent(mutant))

        pending = [(i, m) for i, m in enumerate(mutants, 1) if is_open(m)]
        print(f"{len(mutants)} mutants, {len(chosen)} chosen, {len(pending)} to run", flush=True)
        if not pending:
            return
        switchable = {m.id for m in mutants if m.pieces and not (self.results.of(m) or {}).get("rebuilt")}
        refused = self.workshop.build_switched(mutants, switchable)
        self.observe(len(mutants))
        for mutant in mutants:
            entry = self.results.of(mutant)
            if entry and entry.get("by"):
                self.kills[mutant.path, mutant.function][entry["by"]] += 1

        switched = switchable - refused
        done = Counter()
        passing = {n: [t for t in self.times if n in self.reached[t]] for n, m in pending if m.id in switched}
        # What is new comes first, and of that what few tests pass.
        order = sorted(passing, key=lambda n: (self.results.of(mutants[n - 1]) is not None, len(passing[n])))
        for i, number in enumerate(order, 1):
            self.judge(mutants[number - 1], passing[number], {"QX_MUTANT": str(number)}, tests_text, False, done)
            print(f"\r{i} of {len(passing)}: {dict(done)}", end="", flush=True)
        others = [m for _, m in pending if m.id not in switched]
        # A header takes a build of everything: last.
        for i, mutant in enumerate(sorted(others, key=lambda m: m.path.endswith(".h")), 1):
            self.workshop.write_sources(mutants, switched, mutant)
            try:
                self.workshop.build()
            except BuildFailed:
                self.results.add(mutant, outcome=NOT_COMPILED, rebuilt=True)
                done[NOT_COMPILED] += 1
            else:
                self.judge(mutant, list(self.times), {}, tests_text, True, done)
            print(f"\r{i} of {len(others)} that need a build of their own: {dict(done)}", end="", flush=True)
        print()

    def observe(self, count):
        """Runs every test with no mutant on: how long it takes, and which mutants it passes."""
        place = self.workshop.place / "reached"
        place.mkdir(exist_ok=True)

        def one(test):
            file = place / f"{test.program}-{test.name.replace('/', '_')}"
            file.write_bytes(bytes(count + 1))
            verdict, seconds = self.workshop.run_test(test, {"QX_MUTANTS_REACHED": str(file)})
            numbers = {i for i, byte in enumerate(file.read_bytes()) if byte}
            file.unlink()
            return test, verdict, seconds, numbers

        with ThreadPoolExecutor(self.workshop.jobs_number) as pool:
            for test, verdict, seconds, numbers in pool.map(one, self.workshop.list_tests()):
                if verdict == "passed":
                    self.times[test] = seconds
                    self.reached[test] = numbers
                else:
                    print(f"  {test.name} {verdict} without a mutant and is left out", flush=True)
        print(f"{len(self.times)} tests pass without a mutant, in {sum(self.times.values()):.0f} s", flush=True)

    def judge(self, mutant, tests, environment, tests_text, rebuilt, done):
        killer, verdict = self.first_that_fails(self.in_order(mutant, tests), environment)
        if killer:
            self.kills[mutant.path, mutant.function][killer.name] += 1
            self.results.add(mutant, outcome=KILLED, by=killer.name, how=verdict, rebuilt=rebuilt)
        else:
            self.results.add(mutant, outcome=SURVIVED, reached_by=None if rebuilt else len(tests), tests=tests_text,
                             rebuilt=rebuilt)
        done[KILLED if killer else SURVIVED] += 1

    def in_order(self, mutant, tests):
        """The likeliest killers first: those that killed another mutant of the function, then those that pass the
        fewest mutants, since they look the closest."""
        kills = self.kills[mutant.path, mutant.function]
        return sorted(tests, key=lambda t: (-kills[t.name], len(self.reached[t]), t.name))

    def first_that_fails(self, tests, environment):
        jobs = self.workshop.jobs_number
        with ThreadPoolExecutor(jobs) as pool:
            for start in range(0, len(tests), jobs):
                batch = tests[start:start + jobs]
                for test, (verdict, _) in zip(batch, pool.map(lambda t: self.workshop.run_test(t, environment), batch)):
                    if verdict != "passed":
                        return test, verdict
        return None, ""
