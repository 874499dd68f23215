"""check() finds what `tarnwick-md check` finds."""

import json
import subprocess

import pytest

import tarnwick_markdown as tm


def write(root, files):
    for path, text in files.items():
        (root / path).parent.mkdir(parents=True, exist_ok=True)
        (root / path).write_text(text)


def cli_problems(binary, *arguments):
    out = subprocess.run([binary, "check", "--no-config", "--format", "json", *map(str, arguments)],
                         capture_output=True)
    assert out.returncode in (0, 1), out.stderr
    return [json.loads(line) for line in out.stdout.decode("utf-8").splitlines()]


def test_problems_equal_the_command_on_every_corpus_repository(tarnwick_md, corpus):
    repositories = sorted(p for p in corpus.iterdir() if p.is_dir())
    result = tm.check(repositories, jobs=2)
    assert [p.to_dict() for p in result.problems] == cli_problems(tarnwick_md, *repositories)
    assert result.files > 7000 and result.links > 20000 and result.errors == []


def test_problems_read_as_attributes_with_their_suggestion(tmp_path):
    write(tmp_path, {"README.md": "# Home\n[g](docs/gide.md) [h](#home)\n",
                     "docs/guide.md": "# Guide\n"})
    result = tm.check(tmp_path)
    assert (result.files, result.links, result.errors) == (2, 2, [])
    [problem] = result.problems
    assert (problem.line, problem.column, problem.code, problem.target, problem.suggestion) == (
        2, 1, "missing-file", "docs/gide.md", "docs/guide.md")


def test_codes_are_ignored_and_an_unknown_code_is_refused(tmp_path):
    write(tmp_path, {"a.md": "[s](/site/path/) [m](missing.md)\n"})
    assert [p.code for p in tm.check(tmp_path, ignore=["site-path"]).problems] == ["missing-file"]
    with pytest.raises(ValueError, match="'site-paths' is not a problem code"):
        tm.check(tmp_path, ignore="site-paths")


def test_an_unreadable_input_is_an_error_and_the_rest_is_checked(tmp_path):
    write(tmp_path, {"a.md": "[m](missing.md)\n"})
    result = tm.check([tmp_path / "a.md", tmp_path / "gone.md"], root=tmp_path)
    assert [p.code for p in result.problems] == ["missing-file"]
    assert len(result.errors) == 1 and "gone.md" in result.errors[0]
