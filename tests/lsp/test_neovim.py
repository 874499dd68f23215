"""Neovim, Debian's `nvim` run headless with nvim/symbols.lua, as a real editor: it starts the
server, attaches it to a Markdown buffer, asks for symbols and folds, edits the buffer and asks
again."""

import json
import os
import shutil
import subprocess
from pathlib import Path

import pytest

SCRIPTS = Path(__file__).resolve().parent / "nvim"
needs_neovim = pytest.mark.skipif(shutil.which("nvim") is None,
                                  reason="Neovim (Debian's neovim package) is not installed")


def run_neovim(script: str, tarnwick_md: str, folder: Path, **variables) -> dict:
    """Runs one of the scripts in nvim headless in `folder`; what the script wrote."""
    out = folder / "out.json"
    environment = {**os.environ, "TARNWICK_MD": tarnwick_md, "LSP_TEST_OUT": str(out),
                   "XDG_CACHE_HOME": str(folder / "cache"), "XDG_STATE_HOME": str(folder / "state"),
                   "XDG_DATA_HOME": str(folder / "data"), "XDG_CONFIG_HOME": str(folder / "config"),
                   **variables}
    run = subprocess.run(["nvim", "--headless", "--clean", "-c", f"luafile {SCRIPTS / script}"],
                         cwd=folder, env=environment, capture_output=True, timeout=120)
    assert out.exists(), run.stderr.decode(errors="replace")
    got = json.loads(out.read_text())
    assert got["errors"] == [], got["errors"]
    return got

DOCUMENT = """# Guide ✓

Intro.

## Install

```sh
make install
```

### From source

## Use
"""


def names(symbols, depth=0):
    for symbol in symbols:
        yield "  " * depth + symbol["name"]
        yield from names(symbol.get("children", []), depth + 1)


@needs_neovim
def test_neovim_gets_symbols_before_and_after_an_edit(tarnwick_md, tmp_path):
    document = tmp_path / "guide.md"
    document.write_text(DOCUMENT)
    got = run_neovim("symbols.lua", tarnwick_md, tmp_path, LSP_TEST_FILE=str(document))
    assert list(names(got["symbols"])) == ["Guide ✓", "  Install", "    From source", "  Use"]
    guide = got["symbols"][0]
    assert guide["range"]["start"] == {"line": 0, "character": 0}
    assert guide["selectionRange"]["end"] == {"line": 0, "character": 9}  # UTF-16: ✓ is one unit
    assert sorted((f["startLine"], f["endLine"]) for f in got["folds"]) == [(0, 12), (4, 10), (6, 8)]
    assert list(names(got["symbols_after_edit"])) == [
        "Edited Guide ✓", "  Install", "    From source", "  Use", "  Added in Neovim"]


@needs_neovim
def test_neovim_follows_links_and_shows_the_repositorys_diagnostics(tarnwick_md, tmp_path):
    (tmp_path / "docs").mkdir()
    (tmp_path / "docs" / "guide.md").write_text("# Guide\n\n## Install\n\n[up](../README.md#install-it)\n")
    (tmp_path / "README.md").write_text(
        "# Project\n\nSee [the guide](docs/guide.md#install).\n\n## Install it\n")
    got = run_neovim("repository.lua", tarnwick_md, tmp_path)
    guide = (tmp_path / "docs" / "guide.md").as_uri()
    assert [(d["uri"], d["range"]["start"]) for d in got["definition"]] == [
        (guide, {"line": 2, "character": 3})]
    assert [r["uri"] for r in got["references"]] == [(tmp_path / "README.md").as_uri()]
    assert got["diagnostics"] == [
        {"line": 6, "code": "missing-file", "message": 'no file "docs/nowhere.md"'}]
