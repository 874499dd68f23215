"""Indexing on a Dask cluster of two local workers: the merged partitions equal the command's
records, archives read like folders, and a failing partition is reported and leaves nothing."""

import json
import shutil
import tarfile

import pytest

pytest.importorskip("dask.distributed")

from tarnwick_markdown import dask as tmd  # noqa: E402
from conftest import cli_records  # noqa: E402

REPOSITORIES = ["jekyll__jekyll", "rust-lang__book", "DavidAnson__markdownlint"]


def merged(out_dir):
    manifest = json.loads((out_dir / "manifest.json").read_text())
    records = []
    for partition in manifest["partitions"]:
        text = (out_dir / (partition["name"] + ".jsonl")).read_text(encoding="utf-8")
        records += [json.loads(line) for line in text.splitlines()]
    return manifest, records


def test_merged_partitions_equal_the_command(tmp_path, tarnwick_md, corpus):
    repositories = [corpus / name for name in REPOSITORIES]
    # A small partition size splits the larger repositories into batches too.
    manifest = tmd.run([str(r) for r in repositories], str(tmp_path), workers=2,
                       partition_bytes=1 << 20)
    assert len(manifest["partitions"]) > len(repositories)
    got_manifest, records = merged(tmp_path)
    assert got_manifest == manifest
    assert records == cli_records(tarnwick_md, *repositories)
    assert manifest["records"] == len(records)
    assert sorted(p.name for p in tmp_path.iterdir()) == sorted(
        ["manifest.json"] + [p["name"] + ".jsonl" for p in manifest["partitions"]])


def test_archives_read_as_the_folders_they_hold(tmp_path, tarnwick_md, corpus):
    folder = corpus / "jekyll__jekyll"
    archive = tmp_path / "jekyll.tar.gz"
    with tarfile.open(archive, "w:gz") as tar:
        tar.add(folder, arcname="jekyll")
    out = tmp_path / "out"
    tmd.run([str(archive)], str(out), workers=2)
    assert merged(out)[1] == cli_records(tarnwick_md, folder)


def test_a_failing_partition_is_reported_and_leaves_no_output(tmp_path):
    repository = tmp_path / "repository"
    for i in range(6):
        (repository / f"d{i}").mkdir(parents=True)
        (repository / f"d{i}" / "a.md").write_text(f"# Part {i}\n" + "x\n" * 100)
    partitions = tmd.plan([str(repository)], partition_bytes=400)
    assert len(partitions) == 6
    # The file goes away between planning and indexing, as files of a live repository may.
    (repository / "d3" / "a.md").unlink()
    out = tmp_path / "out"
    with pytest.raises(tmd.PartitionsFailed) as failed:
        tmd.run_partitions(partitions, str(out), workers=2)
    assert list(failed.value.failures) == ["part-00004"]
    assert "d3/a.md" in failed.value.failures["part-00004"]
    left = sorted(p.name for p in out.iterdir())
    assert left == [f"part-0000{i}.jsonl" for i in (1, 2, 3, 5, 6)]  # no manifest, no .tmp


def test_the_command_line_fails_loudly(tmp_path, capsys):
    assert tmd.main(["index", "--out", str(tmp_path / "out"), str(tmp_path / "missing")]) == 1
    assert "cannot read" in capsys.readouterr().err
    shutil.rmtree(tmp_path / "out", ignore_errors=True)
