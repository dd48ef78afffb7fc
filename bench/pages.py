"""What the scripts in this directory share: the device's driver, a LUT, ratios, and sections of docs/performance.md."""

import json
import re
import statistics
import subprocess
from pathlib import Path

root = Path(__file__).resolve().parent.parent
page = root / "docs/performance.md"


def driver(program):
    devices = json.loads(subprocess.run([program, "devices", "--json"], capture_output=True, text=True, check=True).stdout)
    return next(device["driver"] for device in devices if device["chosen"])


def write_section(text):
    """Puts a section, which begins with its heading, in the place of the one of the same heading, or at the end."""
    heading = text.split("\n", 1)[0] + "\n"
    old = page.read_text()
    found = re.search(re.escape(heading) + r".*?(?=\n## |\Z)", old, re.DOTALL)
    page.write_text(old[:found.start()] + text + old[found.end():] if found else old.rstrip("\n") + "\n\n" + text)


def write_look(path):
    """A LUT of 33 points that changes every colour."""
    lines = ["LUT_3D_SIZE 33"]
    for blue in range(33):
        for green in range(33):
            for red in range(33):
                r, g, b = red / 32, green / 32, blue / 32
                lines.append(f"{r ** 1.1 * 0.95 + 0.02:.6f} {g * 0.97 + r * 0.01:.6f} {b ** 0.95 * 0.9 + g * 0.05:.6f}")
    path.write_text("\n".join(lines) + "\n")


def ratio_cell(ratios):
    """The median, with the least and the most."""
    ordered = sorted(ratios)
    return f"{statistics.median(ordered):.2f} ({ordered[0]:.2f} to {ordered[-1]:.2f})"
