#!/usr/bin/python3
"""Reads the indexed Job of a page, as Kubernetes would, for scripts/check-schedulers.

usage: kubernetes.py PAGE PIECES MOUNTED

Requires one Job for PIECES pieces with a volume at MOUNTED, and prints what runs its container's command, a word a line: "env",
its variables, the command. Where kubectl is installed, it must know every field.
"""

import copy
import json
import re
import shutil
import subprocess
import sys
from pathlib import Path

import yaml


def require(condition, problem):
    if not condition:
        sys.exit(f"kubernetes.py: {problem}")


def missing(given, known, path=""):
    """The fields that are given and not known. kubectl writes numbers of resources as text."""
    if isinstance(given, dict):
        for key, value in given.items():
            here = f"{path}.{key}"
            yield from missing(value, known[key], here) if isinstance(known, dict) and key in known else [here]
    elif isinstance(given, list):
        if not isinstance(known, list) or len(given) != len(known):
            yield path
        else:
            for number, value in enumerate(given):
                yield from missing(value, known[number], f"{path}[{number}]")
    elif str(given) != str(known):
        yield path


def check_with_kubectl(text, job):
    if shutil.which("kubectl") is None:
        print("kubernetes.py: without kubectl, the fields' names are not checked", file=sys.stderr)
        return
    # Without a cluster, kubectl decodes a Job that it changes, and writes what it knows of it.
    changed = copy.deepcopy(job)
    container = changed["spec"]["template"]["spec"]["containers"][0]
    container["image"] = "other"
    told = subprocess.run(["kubectl", "set", "image", "--local", "-f", "-", f"{container['name']}=other", "-o", "json"],
                          input=text, capture_output=True, text=True)
    require(told.returncode == 0, f"kubectl: {told.stderr}")
    # Debian 12 has version 1.20; completionMode is of 1.21.
    unknown = [field for field in missing(changed, json.loads(told.stdout)) if field != ".spec.completionMode"]
    require(not unknown, f"kubectl does not know {', '.join(unknown)}")


def main():
    page, pieces, mounted = sys.argv[1:]
    blocks = re.findall(r"^```yaml\n(.*?)^```", Path(page).read_text(), re.MULTILINE | re.DOTALL)
    jobs = [(block, yaml.safe_load(block)) for block in blocks if "kind: Job" in block]
    require(len(jobs) == 1, f"{page} has {len(jobs)} Jobs")
    text, job = jobs[0]
    check_with_kubectl(text, job)
    spec = job["spec"]
    pod = spec["template"]["spec"]
    container = pod["containers"][0]
    require(job["apiVersion"] == "batch/v1" and spec["completionMode"] == "Indexed", "it is no indexed Job")
    require(spec["completions"] == int(pieces), f"it completes {spec['completions']} of {pieces} pieces")
    require(pod["restartPolicy"] in ("Never", "OnFailure"), "a Job's pods restart never, or on failure")
    mount = [each for each in container["volumeMounts"] if each["mountPath"] == mounted]
    require(len(mount) == 1, f"no volume is mounted at {mounted}")
    require(mount[0]["name"] in [each["name"] for each in pod["volumes"]], "the mounted volume is not described")
    variables = [f"{each['name']}={each['value']}" for each in container.get("env", [])]
    print("\n".join(["env", *variables, *container["command"]]))


if __name__ == "__main__":
    main()
