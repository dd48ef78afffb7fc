"""What people found out about survivors: scripts/mutation/verdicts.txt.

A block gives one verdict and its reason, then the mutants that it holds for:

    equivalent: REASON
      FILE | FUNCTION | CHANGE

`equivalent` mutants behave as the original does, or differ only where the contract leaves it open; `survives` explains one
that a test could notice. The three fields are as scripts/mutate prints them; each may have the wildcards of a shell. Lines
that begin with # are comments.
"""

import sys
from dataclasses import dataclass
from fnmatch import fnmatchcase

EQUIVALENT, SURVIVES = "equivalent", "survives"


@dataclass
class Verdict:
    verdict: str
    reason: str
    patterns: list


class Verdicts:
    def __init__(self, path):
        self.blocks = []
        for number, line in enumerate(path.read_text().splitlines() if path.is_file() else [], 1):
            if not line.strip() or line.startswith("#"):
                continue
            if not line[0].isspace():
                verdict, _, reason = line.partition(":")
                if verdict not in (EQUIVALENT, SURVIVES) or not reason.strip():
                    sys.exit(f"mutate: {path}:{number}: expected 'equivalent: REASON' or 'survives: REASON'")
                self.blocks.append(Verdict(verdict, reason.strip(), []))
            else:
                fields = [f.strip() for f in line.split(" | ", 2)]
                if len(fields) != 3 or not self.blocks:
                    sys.exit(f"mutate: {path}:{number}: expected '  FILE | FUNCTION | CHANGE' below a verdict")
                self.blocks[-1].patterns.append(tuple(fields))

    def of(self, mutant):
        """Returns the verdict on a mutant, or None."""
        for block in self.blocks:
            for file, function, change in block.patterns:
                if fnmatchcase(mutant.path, file) and fnmatchcase(mutant.function, function) and matches(
                        mutant.change(), change):
                    return block
        return None

    def is_equivalent(self, mutant):
        block = self.of(mutant)
        return block is not None and block.verdict == EQUIVALENT


def matches(change, pattern):
    # Brackets are frequent in code and no wildcards here.
    return change == pattern or fnmatchcase(change, pattern.replace("[", "[[]"))
