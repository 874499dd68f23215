"""The server on input that would stall or stop a lesser one: the hostile documents of the
engine's and the checker's robustness tests, a 10 MB document, and files deleted, unreadable,
binary or in unreadable folders. Each must leave it answering."""

import os
import shutil
import subprocess
import tempfile
from pathlib import Path

import pytest

from test_repository import CAPABILITIES, Repository

REGRESSIONS = Path(__file__).resolve().parents[1] / "regressions"

# Documents that take the time of their square, or worse, from a reader that is not careful.
HOSTILE = {
    "unended-markup.md": "[a](a.md) " + "<?" * 100_000 + " [b](b.md)\n",
    "declarations.md": "[a](a.md) " + "<!D " * 50_000 + " [b](b.md)\n",
    "wide-table.md": "|a|\n|-|\n" + "|" * 200_000 + "\n\n[b](b.md)\n",
    "nested-quotes.md": ">" * 20_000 + " [b](b.md)\n",
    "definitions.md": "[x]: x.md\n" * 10_000 + "[x] " * 20_000 + "\n",
    "backticks.md": "`" * 64_000 + " [b](b.md)\n",
    "brackets.md": "[" * 50_000 + "](b.md)\n",
    **{path.name: path.read_text(errors="replace")
       for path in sorted(REGRESSIONS.glob("*/*.md"))},
}


def start_in(start, root: Path, **options):
    client = start(**options)
    client.initialize(CAPABILITIES, rootUri=root.as_uri(),
                      workspaceFolders=[{"uri": root.as_uri(), "name": root.name}])
    return Repository(root, client)


@pytest.mark.parametrize("name", sorted(HOSTILE))
def test_hostile_documents_are_answered(start, tmp_path, name):
    (tmp_path / "b.md").write_text("# B\n")
    (tmp_path / name).write_text(HOSTILE[name])
    r = start_in(start, tmp_path)
    r.open(name)
    document = {"textDocument": {"uri": r.uri(name)}}
    r.client.result("textDocument/documentSymbol", document)
    r.client.result("textDocument/documentLink", document)
    r.client.result("textDocument/references", {**document, "position": {"line": 0, "character": 0},
                                                "context": {"includeDeclaration": True}})
    r.diagnostics(name, version=1)
    assert r.client.exit() == 0


def test_a_10_mb_document_keeps_the_server_answering_about_others(start, tmp_path):
    section = "## Part {}\n\nText with [a link](small.md#small) and [another](#part-{}).\n\n"
    big = "".join(section.format(i, i) for i in range(150_000))
    assert len(big) > 10_000_000
    (tmp_path / "small.md").write_text("# Small\n\n[back](big.md#part-7)\n")
    (tmp_path / "big.md").write_text("")
    r = start_in(start, tmp_path)
    r.open("small.md")
    r.diagnostics("small.md", version=1)
    r.open("big.md", big)
    # Asked after the big document came, answered before it is read.
    definition = r.at("textDocument/definition", "small.md", "back")
    published = [m["params"]["uri"] for m in r.client.notifications
                 if m.get("method") == "textDocument/publishDiagnostics"]
    assert r.uri("big.md") not in published
    assert definition[0]["uri"] == r.uri("big.md")
    assert r.diagnostics("big.md", version=1) == []
    assert r.places(r.at("textDocument/definition", "small.md", "back")) == ["big.md:28:3"]


def run_as_nobody():
    """The words that run a command as an unprivileged user, when the tests run as root (who
    reads what nobody may)."""
    return ["setpriv", "--reuid=nobody", "--regid=nogroup", "--clear-groups"] if os.getuid() == 0 else []


@pytest.mark.skipif(os.getuid() == 0 and shutil.which("setpriv") is None, reason="needs setpriv")
def test_unreadable_deleted_and_binary_files_cost_a_log_line_each(start):
    root = Path(tempfile.mkdtemp(dir="/tmp"))
    try:
        (root / "a.md").write_text("# A\n\n[b](b.md) [locked](locked.md) [inside](closed/c.md)\n")
        (root / "b.md").write_text("# B\n")
        (root / "binary.md").write_bytes(bytes(range(256)) * 64 + b"\n# After\n[a](a.md)\n")
        (root / "locked.md").write_text("# Locked\n")
        (root / "closed").mkdir()
        (root / "closed" / "c.md").write_text("# C\n")
        if os.getuid() == 0:
            subprocess.run(["chown", "-R", "nobody:nogroup", str(root)], check=True)
        os.chmod(root / "locked.md", 0)
        os.chmod(root / "closed", 0)
        r = start_in(start, root, prefix=run_as_nobody())
        r.open("a.md")
        codes = [d["code"] for d in r.diagnostics("a.md", version=1)]
        # The folder that cannot be read hides its files: the link into it is reported.
        assert codes == ["missing-file"]
        logs = [m["params"]["message"] for m in r.client.notifications
                if m.get("method") == "window/logMessage"]
        assert sum("locked.md" in line for line in logs) == 1, logs
        assert sum("closed" in line for line in logs) == 1, logs
        # A binary document is read like any other: its link to a.md is found.
        anywhere = r.at("textDocument/references", "a.md", "# A", context={"includeDeclaration": False})
        assert [place.split(":")[0] for place in r.places(anywhere)] == ["binary.md"]
        # A file deleted outside the editor breaks the links to it.
        (root / "b.md").unlink()
        r.client.notify("workspace/didChangeWatchedFiles", {"changes": [{"uri": r.uri("b.md"), "type": 3}]})
        assert [d["code"] for d in r.diagnostics("a.md")] == ["missing-file", "missing-file"]
        assert r.client.exit() == 0
    finally:
        os.chmod(root / "closed", 0o755)
        shutil.rmtree(root)

