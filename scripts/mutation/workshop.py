"""The copy of the tree in which mutants are built, and the processes that run its tests."""

import os
import pickle
import re
import resource
import shutil
import signal
import subprocess
import time
from dataclasses import dataclass
from pathlib import Path

import find
from find import digest, read
from switches import render

FOLDERS = ["Qx", "QxFxResources", "fonts", "gputests", "image", "lut"]
PROGRAMS = ["contract_tests", "contract_setup_tests", "contract_load_tests", "contract_symbol_tests"]
TESTS = "tests/contract"
ERROR = re.compile(r"^(/[^:\n]+):(\d+):(\d+): (?:fatal )?error: (.*)$", re.MULTILINE)


class BuildFailed(Exception):
    pass


@dataclass(frozen=True)
class Test:
    program: str
    name: str


class Workshop:
    def __init__(self, root, jobs, limit):
        self.root = Path(root)
        self.place = self.root / "build" / "mutation"
        self.tree = self.place / "tree"
        self.build_directory = self.place / "build"
        self.jobs_number = jobs
        self.limit = limit

    # The copy

    def update(self):
        """Copies what is tracked or about to be, and touches only what changed."""
        listed = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"], cwd=self.root,
                                check=True, capture_output=True).stdout.decode("utf-8", "surrogateescape")
        names = {n for n in listed.split("\0") if n and (self.root / n).is_file()}
        for name in names:
            if not self.is_mutated(name):
                self.write(name, (self.root / name).read_bytes())
        for path in self.tree.rglob("*"):
            if path.is_file() and str(path.relative_to(self.tree)) not in names:
                path.unlink()

    @staticmethod
    def is_mutated(name):
        return name.split("/")[0] in FOLDERS and name.endswith((".h", ".cpp"))

    def sources(self):
        return sorted(str(p.relative_to(self.root)) for f in FOLDERS for p in (self.root / f).iterdir()
                      if self.is_mutated(str(p.relative_to(self.root))))

    def write(self, name, content):
        path = self.tree / name
        if not path.is_file() or path.read_bytes() != content:
            path.parent.mkdir(parents=True, exist_ok=True)
            if path.is_file():
                path.chmod(0o644)
            path.write_bytes(content)
            path.chmod((self.root / name).stat().st_mode)

    def tests_text(self):
        """Returns a digest of the tests' text: what survived may not survive other tests."""
        files = sorted(p for p in (self.root / TESTS).rglob("*") if p.is_file())
        return digest(*(str(p.relative_to(self.root)) + "\0" + read(p) for p in files))

    def mutants(self):
        """Returns all mutants of all sources. Remembers those of a text, since finding them takes a while."""
        memory = self.place / "found"
        memory.mkdir(parents=True, exist_ok=True)
        finder = read(find.__file__)
        found, current = [], set()
        for name in self.sources():
            file = memory / digest(finder, name, read(self.root / name))
            if not file.is_file():
                file.write_bytes(pickle.dumps(find.find_mutants(self.root, name, [self.root])))
            current.add(file)
            found += pickle.loads(file.read_bytes())
        for file in set(memory.iterdir()) - current:
            file.unlink()
        return found

    # Building

    def configure(self):
        if (self.build_directory / "build.ninja").is_file():
            return
        switch = self.root / "scripts" / "mutation" / "Switch.h"
        self.command(["cmake", "-S", self.tree, "-B", self.build_directory, "-G", "Ninja", "-Wno-dev",
                      "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS_DEBUG=-O0 -DNDEBUG",
                      f"-DCMAKE_CXX_FLAGS=-include {switch} -w -fmax-errors=0 -fno-diagnostics-show-caret",
                      "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON", "-DQX_WARNINGS_AS_ERRORS=OFF", "-DQX_BUILD_BENCHMARKS=OFF", "-DQX_CCACHE=OFF"])

    def command(self, arguments):
        done = subprocess.run([str(a) for a in arguments], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              text=True, errors="replace")
        if done.returncode != 0:
            raise BuildFailed(done.stdout)

    def build(self):
        self.command(["ninja", "-C", self.build_directory, "-k", "0", "-j", self.jobs_number, *PROGRAMS])

    def write_sources(self, mutants, switched, forced=None):
        """Writes the sources with the switches of `switched`, a set of mutants' ids, and `forced` in place. A mutant's
        number is its index plus one. Returns the rendering of each source."""
        renderings = {}
        for name in self.sources():
            numbered = [(i, m) for i, m in enumerate(mutants, 1) if m.path == name and m.id in switched]
            rendering = render(read(self.root / name), numbered, forced if forced and forced.path == name else None)
            self.write(name, rendering.text.encode("latin-1"))
            renderings[name] = rendering
        return renderings

    def build_switched(self, mutants, switched):
        """Builds with switches for as many of `switched` as compile; returns the ids of the others."""
        memory = self.place / "not-switchable"
        keys = set(memory.read_text().split()) if memory.is_file() else set()
        refused = {m.id for m in mutants if m.id in switched and m.key in keys}
        while True:
            renderings = self.write_sources(mutants, switched - refused)
            self.configure()
            try:
                self.build()
                return refused
            except BuildFailed as failure:
                numbers = set()
                for path, line, column, _ in ERROR.findall(str(failure)):
                    name = os.path.relpath(os.path.realpath(path), os.path.realpath(self.tree))
                    if name in renderings:
                        numbers.update(renderings[name].mutants_at(int(line), int(column)))
                if not numbers:
                    raise
                refused |= {mutants[n - 1].id for n in numbers}
                memory.write_text("\n".join(sorted(keys | {m.key for m in mutants if m.id in refused})))
                print(f"  {len(refused)} mutants cannot be switched at run time; building again", flush=True)

    # Tests

    def list_tests(self):
        found = []
        for program in PROGRAMS:
            listed = subprocess.run([self.build_directory / "bin" / program, "--gtest_list_tests"], check=True,
                                    capture_output=True, text=True).stdout
            suite = ""
            for line in listed.splitlines():
                word = line.split("#")[0].strip()
                if line.startswith("  "):
                    if not word.startswith("DISABLED_"):
                        found.append(Test(program, suite + word))
                elif word.endswith("."):
                    suite = word
        return found

    def run_test(self, test, environment=None):
        """Runs a test in a process of its own. Returns "passed", "failed" or "hung", and the seconds that it took."""
        scratch = self.place / "scratch" / f"{os.getpid()}-{time.monotonic_ns()}"
        scratch.mkdir(parents=True)
        variables = {**os.environ, "TMPDIR": str(scratch), **(environment or {})}
        begin = time.monotonic()
        process = subprocess.Popen([self.build_directory / "bin" / test.program, f"--gtest_filter={test.name}"],
                                   cwd=scratch, env=variables, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL, start_new_session=True, preexec_fn=limit_memory)
        try:
            verdict = "passed" if process.wait(self.limit) == 0 else "failed"
        except subprocess.TimeoutExpired:
            verdict = "hung"
        finally:
            try:
                os.killpg(process.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
            process.wait()
            shutil.rmtree(scratch, ignore_errors=True)
        return verdict, time.monotonic() - begin


def limit_memory():
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    resource.setrlimit(resource.RLIMIT_AS, (4 << 30, 4 << 30))
