"""Where the tests find the command and the corpus: TARNWICK_MD names the built tarnwick-md
(scripts/test sets it, with PYTHONPATH pointing at the built module)."""

import json
import os
import subprocess
from pathlib import Path

import pytest

CORPUS = Path(__file__).resolve().parents[2].parent / "shared" / "corpus"


@pytest.fixture(scope="session")
def tarnwick_md() -> str:
    binary = os.environ.get("TARNWICK_MD")
    if not binary:
        pytest.fail("TARNWICK_MD must name the built tarnwick-md")
    return binary


@pytest.fixture(scope="session")
def corpus() -> Path:
    if not CORPUS.is_dir():
        pytest.skip(f"no corpus at {CORPUS}")
    return CORPUS


def cli_records(binary: str, *paths) -> list:
    """The records `tarnwick-md index PATH...` writes, parsed."""
    out = subprocess.run([binary, "index", "--no-config", *map(str, paths)], check=True, capture_output=True)
    return [json.loads(line) for line in out.stdout.decode("utf-8").splitlines()]
