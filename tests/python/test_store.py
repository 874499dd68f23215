"""The index store, through the command and the module: export equals index after every kind of
change, a store killed at any moment opens whole and converges, readers see a store before or
after an update, stores that cannot be used say so, and the example queries of docs/store.md
run."""

import json
import os
import random
import re
import shutil
import signal
import sqlite3
import subprocess
import tempfile
import threading
import time
from pathlib import Path

import pytest

import tarnwick_markdown as tm

DOCS = Path(__file__).resolve().parents[2] / "docs" / "store.md"

# Root reads any file: where a file must be unreadable, the command runs as nobody.
AS_NOBODY = os.getuid() == 0


@pytest.fixture
def workdir():
    """A folder the command may write in, whoever it runs as."""
    path = Path(tempfile.mkdtemp(prefix="tarnwick-store-"))
    path.chmod(0o777)
    yield path
    for folder, _, _ in os.walk(path):
        os.chmod(folder, 0o777)
    shutil.rmtree(path)


def write(root, files):
    for path, text in files.items():
        (root / path).parent.mkdir(parents=True, exist_ok=True)
        (root / path).write_bytes(text.encode() if isinstance(text, str) else text)


def run(binary, args, cwd, as_nobody=AS_NOBODY, **options):
    user = {"user": "nobody", "group": "nogroup", "extra_groups": []} if as_nobody else {}
    return subprocess.run([str(Path(binary).resolve()), *map(str, args)], cwd=cwd, capture_output=True,
                          env={**os.environ, "HOME": str(cwd)}, **user, **options)


def read_errors(result):
    return [line for line in result.stderr.decode().splitlines() if "cannot read" in line]


def many_files(root, count, rng):
    for i in range(count):
        write(root, {f"d{i % 7}/f{i}.md": document(i, rng)})


def document(i, rng):
    lines = [f"# File {i}", "", f"About {rng.choice(['install', 'setup', 'usage'])} {i}."]
    for j in range(rng.randint(1, 12)):
        lines += [f"## Part {j}", f"See [next](../d{(i + 1) % 7}/f{i + 1}.md#part-{j}) and [[f{j}]]."]
    return "\n".join(lines) + "\n"


def test_export_equals_index_after_every_kind_of_change(tarnwick_md, workdir):
    root = workdir / "repo"
    write(root, {"a.md": "# A\n[b](b.md#b) [[C]]\n", "b.md": "# B\n## Install\ntext\n",
                 "c.md": "---\ntitle: C\n---\nIntro [a](/a.md)\n", "docs/d.md": "# D\n[up](../a.md)\n",
                 "docs/e.md": "# E\n", ".hidden/h.md": "# H\n"})

    def edit_keeping_size_and_times():
        path = root / "b.md"
        status = path.stat()
        with open(path, "r+b") as f:
            f.seek(2)
            f.write(b"b")
        os.utime(path, ns=(status.st_atime_ns, status.st_mtime_ns))

    def swap(a, b):
        (root / a).rename(root / "swap")
        (root / b).rename(root / a)
        (root / "swap").rename(root / b)

    steps = [
        ("the first update", lambda: None),
        # Files are read again until their times are old enough to trust (three seconds).
        ("nothing changed", lambda: time.sleep(3.1)),
        ("nothing changed, again", lambda: None),
        ("an edit", lambda: write(root, {"a.md": "# A\n[b](b.md#b) [[C]]\n## More\n[e](docs/e.md)\n"})),
        ("an edit that keeps the size and the times", edit_keeping_size_and_times),
        ("an added file", lambda: write(root, {"docs/f.md": "# F\n[d](d.md)\n"})),
        ("a deleted file", lambda: (root / "docs/e.md").unlink()),
        ("a renamed file", lambda: (root / "docs/f.md").rename(root / "f.md")),
        ("a copied file", lambda: shutil.copy(root / "b.md", root / "docs/b.md")),
        ("two files that swap their content", lambda: swap("a.md", "c.md")),
        ("a file that cannot be read", lambda: (root / "b.md").chmod(0)),
        ("the file readable again", lambda: (root / "b.md").chmod(0o644)),
        ("a folder that cannot be read", lambda: (root / "docs").chmod(0)),
        ("the folder readable again", lambda: (root / "docs").chmod(0o755)),
        ("an emptied file and other line endings",
         lambda: write(root, {"f.md": "", "c.md": "# C\r\n[a](a.md)\r\r\n## Sub\r"})),
        ("a selection that leaves out a folder", lambda: ["--exclude", "docs", "repo"]),
        ("hidden entries", lambda: ["--hidden", "repo"]),
        ("two arguments", lambda: ["repo/docs", "repo"]),
        ("paths from the current directory", lambda: ["--paths-from-cwd", "repo/docs", "repo"]),
        ("a single file with a prefix", lambda: ["--prefix", "custom", "repo/a.md"]),
        ("the whole repository again", lambda: ["repo"]),
    ]
    args = ["repo"]
    for name, change in steps:
        selection = change()
        args = selection if isinstance(selection, list) else args
        expected = run(tarnwick_md, ["index", *args], workdir)
        updated = run(tarnwick_md, ["index", "--db", "store.db", *args], workdir)
        exported = run(tarnwick_md, ["export", "--db", "store.db"], workdir)
        assert exported.stdout == expected.stdout, name
        assert (updated.returncode, exported.returncode) == (expected.returncode,) * 2, name
        assert read_errors(updated) == read_errors(exported) == read_errors(expected), name
        assert integrity(workdir / "store.db") == [("ok",)], name
        summary = updated.stderr.decode()
        if name == "nothing changed, again":
            assert "5 files (0 read), 0 re-indexed" in summary, summary
        if name == "an edit that keeps the size and the times":
            assert "1 re-indexed (1 parsed)" in summary, summary
        if name == "a renamed file":
            assert "(0 parsed)" in summary, summary
    assert expected.returncode == 0 and "docs/d.md" in expected.stdout.decode()


def integrity(db):
    with sqlite3.connect(db) as connection:
        # The search index must hold exactly the symbols' text: this raises if it does not.
        connection.execute(
            "INSERT INTO symbol_text(symbol_text, rank) VALUES ('integrity-check', 1)")
        return connection.execute("PRAGMA integrity_check").fetchall()


def test_a_store_killed_at_any_moment_opens_whole_and_converges(tarnwick_md, workdir):
    rng = random.Random(20)
    root = workdir / "repo"
    many_files(root, 100, rng)
    db = workdir / "store.db"
    update = [Path(tarnwick_md).resolve(), "index", "-q", "-j", "2", "--db", db, root]

    def export():
        result = run(tarnwick_md, ["export", "--db", db], workdir, as_nobody=False)
        assert result.returncode == 0, result.stderr
        return result.stdout

    started = time.monotonic()
    subprocess.run([*update, "--rebuild"], check=True, capture_output=True)
    cold = time.monotonic() - started
    before = export()
    for round in range(20):
        for _ in range(rng.randint(1, 20)):
            i = rng.randrange(130)
            path = root / f"d{i % 7}/f{i}.md"
            if not path.exists() or rng.random() < 0.6:
                write(root, {f"d{i % 7}/f{i}.md": document(i + round, rng)})
            elif rng.random() < 0.5:
                path.unlink()
            else:
                path.rename(path.with_name(f"g{i}.md"))
        after = run(tarnwick_md, ["index", root], workdir, as_nobody=False).stdout
        process = subprocess.Popen(update + (["--rebuild"] if round % 3 == 0 else []),
                                   stderr=subprocess.DEVNULL)
        time.sleep(rng.uniform(0, cold))
        process.send_signal(signal.SIGKILL)
        process.wait()
        assert integrity(db) == [("ok",)], round
        now = export()
        assert now in (before, after), round
        before = now
    subprocess.run(update, check=True, capture_output=True)
    assert export() == run(tarnwick_md, ["index", root], workdir, as_nobody=False).stdout


def test_a_reader_sees_the_store_before_or_after_an_update(tmp_path):
    rng = random.Random(7)
    many_files(tmp_path / "repo", 400, rng)
    db = tmp_path / "store.db"
    with tm.Store(db) as writer, tm.Store(db) as reader:
        writer.update(tmp_path / "repo", jobs=1)
        before = reader.export()
        many_files(tmp_path / "repo", 400, rng)
        after = list(tm.index_paths(tmp_path / "repo", jobs=1))
        assert before != after
        done = threading.Event()
        seen = []

        def update():
            writer.update(tmp_path / "repo", jobs=1)
            done.set()

        thread = threading.Thread(target=update)
        thread.start()
        while not done.is_set():
            records = reader.export()
            assert records in (before, after)
            seen.append(records == after)
        thread.join()
        assert reader.export() == after
        # The reader ran while the update did (the GIL was free), and saw the store before it.
        assert seen and not seen[0]


def test_two_updates_at_once_both_end_and_agree(tarnwick_md, tmp_path):
    many_files(tmp_path / "repo", 300, random.Random(3))
    update = [tarnwick_md, "index", "-j", "1", "--db", tmp_path / "store.db", tmp_path / "repo"]
    first, second = (subprocess.Popen(update, stderr=subprocess.PIPE) for _ in range(2))
    assert first.wait() == 0 and second.wait() == 0
    summaries = first.stderr.read().decode() + second.stderr.read().decode()
    assert "300 re-indexed (300 parsed)" in summaries and "300 unchanged" in summaries, summaries
    exported = run(tarnwick_md, ["export", "--db", tmp_path / "store.db"], tmp_path, False)
    assert exported.stdout == run(tarnwick_md, ["index", tmp_path / "repo"], tmp_path, False).stdout
    assert integrity(tmp_path / "store.db") == [("ok",)]


def test_stores_that_cannot_be_used_get_one_line_and_exit_2(tarnwick_md, tmp_path):
    workdir = tmp_path
    write(workdir, {"repo/a.md": "# A\n", "notes.txt": "not a database\n", "tiny.txt": "x"})
    run(tarnwick_md, ["index", "--db", "store.db", "repo"], workdir, False)
    with sqlite3.connect(workdir / "other.db") as other:
        other.execute("CREATE TABLE t(x)")
    shutil.copy(workdir / "store.db", workdir / "newer.db")
    with sqlite3.connect(workdir / "newer.db") as newer:
        newer.execute("PRAGMA user_version = 2")
    cases = [
        ("notes.txt", "notes.txt is not a tarnwick-md store: not an SQLite database"),
        ("other.db", "other.db is not a tarnwick-md store"),
        ("tiny.txt", "tiny.txt is not a tarnwick-md store"),
        ("newer.db", "newer.db is a store of schema 2, newer than this tarnwick-md's 1"),
        ("missing.db", "no store at missing.db"),
        ("repo", "repo is a directory, not a store"),
    ]
    for db, message in cases:
        for args in (["export", "--db", db], ["refs", "--db", db, "a.md"],
                     ["symbols", "--db", db, "a"], ["index", "--db", db, "repo"]):
            if args[0] == "index" and db == "missing.db":
                continue
            result = run(tarnwick_md, args, workdir, False)
            lines = result.stderr.decode().splitlines()
            assert (result.returncode, len(lines)) == (2, 1), (args, lines)
            assert lines[0].startswith("tarnwick-md: " + message), (args, lines)
    # --rebuild starts over from a store of another schema, never from a file that is not one.
    rebuilt = run(tarnwick_md, ["index", "--rebuild", "--db", "newer.db", "repo"], workdir, False)
    assert rebuilt.returncode == 0, rebuilt.stderr
    assert run(tarnwick_md, ["export", "--db", "newer.db"], workdir, False).returncode == 0
    refused = run(tarnwick_md, ["index", "--rebuild", "--db", "notes.txt", "repo"], workdir, False)
    assert refused.returncode == 2 and (workdir / "notes.txt").read_text() == "not a database\n"


def test_a_read_only_store_is_read_but_not_written(tarnwick_md, workdir):
    write(workdir, {"repo/a.md": "# A\n[b](b.md)\n"})
    assert run(tarnwick_md, ["index", "--db", "store.db", "repo"], workdir).returncode == 0
    os.chmod(workdir / "store.db", 0o444)
    # The command runs as another user than the store's owner when it runs as root.
    as_other = AS_NOBODY
    if as_other:
        os.chown(workdir / "store.db", 0, 0)
    write(workdir, {"repo/b.md": "# B\n"})
    refused = run(tarnwick_md, ["index", "--db", "store.db", "repo"], workdir, as_other)
    assert refused.returncode == 2, refused.stderr
    assert re.match(rb"tarnwick-md: cannot write store.db: it is read-only", refused.stderr)
    found = run(tarnwick_md, ["refs", "--db", "store.db", "b.md"], workdir, as_other)
    assert (found.returncode, found.stdout) == (0, b"a.md:2  doc_link   b.md  a.A\n"), found.stderr


def test_the_module_answers_as_the_command(tarnwick_md, tmp_path):
    write(tmp_path, {"README.md": "# Home\n[guide](docs/guide.md#setup) [[Guide]]\n",
                     "docs/guide.md": "# Guide\n## Setup\nInstall it.\n", "notes.txt": "x"})
    db = tmp_path / "store.db"
    with tm.Store(db) as store:
        summary = store.update(tmp_path, jobs=2)
        assert (summary.files, summary.parsed, summary.unchanged, summary.errors) == (2, 2, 0, [])
        assert store.update().unchanged == 2  # no paths: the last update's again
        with pytest.raises(ValueError, match="selection options need paths"):
            store.update(hidden=True)

        def cli(*args):
            out = run(tarnwick_md, [*args, "--db", db, "--json"], tmp_path, False).stdout
            return [json.loads(line) for line in out.decode().splitlines()]

        refs = store.refs("docs/guide.md#setup")
        assert [r.to_dict() for r in refs] == cli("refs", "docs/guide.md#setup")
        assert [(r.line, r.kind, r.qualifier) for r in refs] == [(2, "doc_link", "setup")]
        symbols = store.symbols("install")
        assert [s.to_dict() for s in symbols] == cli("symbols", "install")
        assert [s.fqn for s in symbols] == ["docs.guide.Guide.Setup"]
        assert [r.to_dict() for r in store.export()] == list(tm.index_paths(tmp_path, jobs=1))
        with pytest.raises(ValueError, match="limit must be"):
            store.symbols("install", limit=0)
    with pytest.raises(tm.StoreError, match="closed"):
        store.export()
    with pytest.raises(tm.StoreError, match="not a tarnwick-md store"):
        tm.Store(tmp_path / "notes.txt")
    assert issubclass(tm.StoreError, OSError)


def test_an_update_waits_for_another_writer_up_to_its_timeout(tmp_path):
    write(tmp_path, {"repo/a.md": "# A\n"})
    db = tmp_path / "store.db"
    with tm.Store(db) as store:
        store.update(tmp_path / "repo")
    holder = sqlite3.connect(db, isolation_level=None, check_same_thread=False)
    holder.execute("BEGIN IMMEDIATE")
    with tm.Store(db, timeout=0.1) as store:
        with pytest.raises(tm.StoreError, match="is busy"):
            store.update()
        assert len(store.export()) == 1  # reading does not wait
    threading.Timer(0.3, lambda: holder.execute("ROLLBACK")).start()
    with tm.Store(db, timeout=10) as store:
        assert store.update().unchanged == 1
    holder.close()


def test_the_example_queries_of_the_documentation_run(tarnwick_md, tmp_path):
    write(tmp_path, {
        "README.md": "# Project\n[setup](docs/setup.md) [install](docs/setup.md#install) "
                     "[gone](docs/setup.md#nowhere)\n",
        "docs/setup.md": "# Setup\n## Install\nRun the installer.\n" + "more\n" * 20,
        "docs/orphan.md": "# Orphan\n[setup](setup.md)\n",
    })
    assert run(tarnwick_md, ["index", "--db", "store.db", "."], tmp_path, False).returncode == 0
    queries = re.findall(r"```sql\n(.*?)```", DOCS.read_text(), re.S)
    assert len(queries) >= 5
    expected = [
        [("README.md", 3), ("docs/orphan.md", 1)],
        [("README.md",), ("docs/orphan.md",)],
        None,
        [("README.md", 2, "docs/setup.md#nowhere")],
        [("docs/setup.md", "docs.setup.Setup.Install", "[Install]"),
         ("README.md", "README.Project", "Project")],
    ]
    with sqlite3.connect(tmp_path / "store.db") as connection:
        for query, rows in zip(queries, expected):
            found = connection.execute(query).fetchall()
            assert found, query
            if rows is not None:
                assert found == rows, query
