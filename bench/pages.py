"""What the scripts in this directory share: the device's driver, and sections of docs/performance.md."""

import json
import re
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
