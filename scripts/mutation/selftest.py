"""Tests the tool on selftest.cpp.in: every kind of mutant is found, each changes what the program prints (except a memory
order, for want of a second thread), and a switch does the same as the change to the text."""

import os
import shutil
import subprocess
import tempfile
from collections import Counter
from pathlib import Path

from find import find_mutants, read
from switches import render
from verdicts import Verdicts

HERE = Path(__file__).resolve().parent
SOURCE = "selftest.cpp.in"
KINDS = {"arguments", "arithmetic", "boolean", "comparison", "condition", "early exit", "enumerator", "lock", "logic",
         "memory order", "number", "order", "statement", "string"}


def run():
    mutants = find_mutants(HERE, SOURCE)
    text = read(HERE / SOURCE)
    place = Path(tempfile.mkdtemp())
    try:
        kinds = Counter(m.kind for m in mutants)
        assert set(kinds) == KINDS, f"kinds found: {kinds}"
        assert len({m.id for m in mutants}) == len(mutants), "two mutants have one id"
        numbered = [(i, m) for i, m in enumerate(mutants, 1) if m.pieces]
        rendering = render(text, numbered)
        switched = compiled(place, rendering.text)
        original = output(compiled(place, text))
        assert output(switched) == original, "switches that are off change the program"
        for number, mutant in numbered:
            program = compiled(place, mutant.apply(text))
            expected, actual = output(program), output(switched, number)
            assert program is None or actual == expected, (
                f"switch and text differ in line {mutant.line}: {mutant.change()}: {expected}, {actual}")
            assert actual != original or mutant.kind == "memory order", f"no effect: {mutant.change()}"
            # A compiler's complaint about a switch leads back to its mutant.
            line = rendering.text[:rendering.text.index(f"QX_MUTANT({number})")].count("\n") + 1
            assert rendering.mutants_at(line, 1), f"nothing on line {line}"
        for mutant in (m for m in mutants if not m.pieces):
            program = compiled(place, render(text, numbered, mutant).text)
            assert output(program) != original, f"no effect: {mutant.change()}"
        verdicts(place, mutants)
    finally:
        shutil.rmtree(place)
    print(f"self-test: {len(mutants)} mutants of {len(kinds)} kinds, {len(numbered)} of them switched at run time: right")
    return 0


def compiled(place, text):
    """Returns the program, or None if it does not compile."""
    source = place / "program.cpp"
    source.write_bytes(text.encode("latin-1"))
    program = place / f"program-{len(list(place.iterdir()))}"
    done = subprocess.run(["g++", "-std=c++20", "-w", "-include", HERE / "Switch.h", source, "-o", program],
                          capture_output=True, text=True)
    return program if done.returncode == 0 else None


def output(program, number=0):
    if program is None:
        return None
    done = subprocess.run(["timeout", "1", program], stdout=subprocess.PIPE, env={**os.environ, "QX_MUTANT": str(number)})
    return "hangs" if done.returncode == 124 else (done.returncode, done.stdout)


def verdicts(place, mutants):
    lock = next(m for m in mutants if m.kind == "lock")
    file = place / "verdicts.txt"
    file.write_text(f"# A comment.\nequivalent: nobody else is there\n  {SOURCE} | scoped | {lock.change()}\n"
                    "survives: nobody looks\n  self* | main | *printf*\n")
    found = Verdicts(file)
    assert found.of(lock).reason == "nobody else is there"
    assert [found.of(m).verdict for m in mutants if m.function == "order" and found.of(m)] == []
    assert {found.of(m).verdict for m in mutants if m.function == "main" and "printf" in m.before} == {"survives"}
