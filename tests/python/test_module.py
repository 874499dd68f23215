"""The module against the command: the same records, from any number of threads; bad input
raises a clear exception."""

import json
import subprocess
import sys
import threading
from collections import defaultdict

import pytest

import tarnwick_markdown as tm
from conftest import cli_records


def test_records_equal_the_command_on_every_corpus_file(tarnwick_md, corpus):
    expected = cli_records(tarnwick_md, corpus)
    # The walk and the thread pool inside C++ ...
    assert [r.to_dict() for r in tm.index_paths(corpus, jobs=2)] == expected
    # ... and the text-in call on each file's bytes.
    by_path = defaultdict(list)
    for record in expected:
        by_path[record["path"]].append(record)
    for path, records in by_path.items():
        file_id = records[0]["file_id"]
        document = tm.index((corpus / path).read_bytes(), path)
        got = [dict(r, file_id=file_id) for r in document.symbols + document.references]
        assert got == records, path


def test_records_read_as_attributes_and_dump_as_the_command_writes(tmp_path, tarnwick_md):
    (tmp_path / "a.md").write_bytes(b"---\ntitle: Guide\n---\nIntro [x](x.md#y).\r\n")
    line = subprocess.run([tarnwick_md, "index", "--no-config", str(tmp_path)], check=True,
                          capture_output=True).stdout.decode().splitlines()
    records = list(tm.index_paths(tmp_path, jobs=1))
    assert [json.dumps(r, ensure_ascii=False, separators=(",", ":")) for r in records] == line
    symbol, reference = records
    assert (symbol.fqn, symbol.docstring, symbol.id) == ("a.Guide", "Intro x.", None)
    assert (reference.name, reference.qualifier, reference.source_fqn) == ("x.md", "y", "a.Guide")
    assert list(dict(reference)) == list(reference.to_dict()) == [
        "type", "path", "file_id", "name", "qualifier", "kind", "line", "source_fqn"]


def test_text_and_bytes_give_the_same_records():
    text = "# Été\n[[Glossaire#Entrée]]\n"
    assert tm.index(text, "fr/a.md").symbols == tm.index(text.encode(), "fr/a.md").symbols
    assert tm.index(text, "fr/a.md").symbols[0].fqn == "fr.a.Été"


def test_threads_index_at_once_with_the_same_results():
    documents = [("".join(f"# H{i % 5}\n[a](a{i}.md)\n" for i in range(n)), f"d{n}.md")
                 for n in range(1, 40)]
    expected = [tm.index(text, path).references for text, path in documents]
    results, errors = {}, []

    def work(t):
        try:
            results[t] = [tm.index(text, path).references for text, path in documents]
        except Exception as error:  # reported by the assertion below
            errors.append(error)

    threads = [threading.Thread(target=work, args=(t,)) for t in range(8)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert not errors
    assert all(results[t] == expected for t in range(8))


@pytest.mark.parametrize("call, error, message", [
    (lambda: tm.index(123, "a.md"), TypeError, "bytes or str, not int"),
    (lambda: tm.index(b"# A", 5), TypeError, "path must be str"),
    (lambda: list(tm.index_paths("no/such/folder")), OSError, "cannot read no/such/folder"),
    (lambda: list(tm.index_paths(".", jobs=0)), ValueError, "jobs must be"),
    (lambda: list(tm.index_paths(".", jobs="2")), ValueError, "jobs must be"),
])
def test_bad_input_raises_a_clear_error(call, error, message):
    with pytest.raises(error, match=message):
        call()


def test_a_file_that_cannot_be_read_is_named(tmp_path):
    (tmp_path / "a.md").write_text("# A\n")
    (tmp_path / "b.md").mkdir()  # a folder that looks like a Markdown file is read as one
    (tmp_path / "b.md" / "c.md").write_text("# C\n")
    assert [r.fqn for r in tm.index_paths(tmp_path)] == ["a.A", "b.md.c.C"]
    with pytest.raises(OSError, match="missing.md"):
        list(tm.index_paths([tmp_path / "a.md", tmp_path / "missing.md"]))


def test_the_module_runs_as_the_command(tmp_path, tarnwick_md, corpus):
    repository = corpus / "jekyll__jekyll"
    ours = subprocess.run([sys.executable, "-m", "tarnwick_markdown", "index", str(repository)],
                          check=True, capture_output=True).stdout
    theirs = subprocess.run([tarnwick_md, "index", "--no-config", str(repository)], check=True,
                            capture_output=True).stdout
    assert ours == theirs


def test_version_is_the_library_version(tarnwick_md):
    out = subprocess.run([tarnwick_md, "--version"], check=True, capture_output=True).stdout
    assert out.decode().strip() == f"tarnwick-md {tm.__version__}"
