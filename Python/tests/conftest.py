"""The corpus of real movies and the built command, shared by the tests.

Run from the repository's top folder with PYTHONPATH at the built package
(ctest sets both, and ATOMSCAN_TOOL to the built `atomscan` command).
"""

import json
import os
import pathlib
import subprocess

import pytest

CORPUS = pathlib.Path(__file__).resolve().parents[2] / "Tests" / "Data" / "corpus"
INDEX = json.loads((CORPUS / "corpus.json").read_text())
NAMES = sorted(p.stem for p in CORPUS.glob("*.mov"))


def tool_dump(path, *options):
    """The document that the built `atomscan dump` prints for `path`."""
    tool = os.environ.get("ATOMSCAN_TOOL")
    if not tool:
        pytest.skip("ATOMSCAN_TOOL names no built atomscan command")
    run = subprocess.run([tool, "dump", str(path), *options], capture_output=True, check=False)
    return json.loads(run.stdout)
