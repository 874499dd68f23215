"""Neovim, Debian's `nvim` run headless with nvim/symbols.lua, as a real editor: it starts the
server, attaches it to a Markdown buffer, asks for symbols and folds, edits the buffer and asks
again."""

import json
import os
import shutil
import subprocess
from pathlib import Path

import pytest

SCRIPT = Path(__file__).resolve().parent / "nvim" / "symbols.lua"

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


@pytest.mark.skipif(shutil.which("nvim") is None,
                    reason="Neovim (Debian's neovim package) is not installed")
def test_neovim_gets_symbols_before_and_after_an_edit(tarnwick_md, tmp_path):
    document = tmp_path / "guide.md"
    document.write_text(DOCUMENT)
    out = tmp_path / "out.json"
    environment = {**os.environ, "TARNWICK_MD": tarnwick_md, "LSP_TEST_FILE": str(document),
                   "LSP_TEST_OUT": str(out), "XDG_CACHE_HOME": str(tmp_path / "cache"),
                   "XDG_STATE_HOME": str(tmp_path / "state"), "XDG_DATA_HOME": str(tmp_path / "data"),
                   "XDG_CONFIG_HOME": str(tmp_path / "config")}
    run = subprocess.run(["nvim", "--headless", "--clean", "-c", f"luafile {SCRIPT}"],
                         cwd=tmp_path, env=environment, capture_output=True, timeout=120)
    assert out.exists(), run.stderr.decode(errors="replace")
    got = json.loads(out.read_text())
    assert got["errors"] == [], got["errors"]
    assert list(names(got["symbols"])) == ["Guide ✓", "  Install", "    From source", "  Use"]
    guide = got["symbols"][0]
    assert guide["range"]["start"] == {"line": 0, "character": 0}
    assert guide["selectionRange"]["end"] == {"line": 0, "character": 9}  # UTF-16: ✓ is one unit
    assert sorted((f["startLine"], f["endLine"]) for f in got["folds"]) == [(0, 12), (4, 10), (6, 8)]
    assert list(names(got["symbols_after_edit"])) == [
        "Edited Guide ✓", "  Install", "    From source", "  Use", "  Added in Neovim"]
