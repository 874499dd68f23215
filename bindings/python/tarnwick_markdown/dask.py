"""Indexing many repositories on a Dask cluster.

    python3 -m tarnwick_markdown.dask index --out DIR [--scheduler ADDRESS] PATH...

Each PATH is a repository: a folder, or a ``.tar``/``.tar.gz`` archive of one (read without
unpacking it). The work is split into partitions, one per repository and, for a large one, one
per batch of consecutive files of similar total size; each partition is indexed on a worker and
written to DIR as one JSON Lines file (written to a temporary name, then renamed, so no
half-written partition file is ever left), and DIR/manifest.json lists the partitions in
order. Concatenated in manifest order, the partition files hold exactly what
``tarnwick-md index PATH...`` writes for the same folders. Without ``--scheduler`` a
``LocalCluster`` of as many single-threaded workers as there are cores runs the work.
"""

from __future__ import annotations

import argparse
import json
import os
import sys
import tarfile
import time
from dataclasses import dataclass, field
from typing import Iterable, Iterator, List, Optional, Tuple

from . import _core

# A partition holds at most about this many bytes of Markdown, unless one file is larger.
DEFAULT_PARTITION_BYTES = 8 * 1024 * 1024

MARKDOWN_SUFFIXES = (".md", ".markdown")

# Files indexed per call into C++: their records are written out before the next call, so a
# partition's records never sit in memory all at once (as one string, then one bytes object).
_FILES_PER_CALL = 64


@dataclass
class SourceFile:
    where: str  # the file's location, or its member name in the archive
    path: str  # its path in the repository, as in the records
    prefix: str
    file_id: int
    size: int


@dataclass
class Partition:
    name: str
    repository: str
    archive: bool
    files: List[SourceFile] = field(default_factory=list)

    @property
    def bytes(self) -> int:
        return sum(f.size for f in self.files)


def _is_archive(path: str) -> bool:
    return os.path.isfile(path) and path.endswith((".tar", ".tar.gz", ".tgz"))


def _selected_member(path: str) -> bool:
    """Whether a path inside an archive is one the command's walk indexes."""
    parts = path.split("/")
    if any(p.startswith(".") for p in parts) or "node_modules" in parts[:-1]:
        return False
    return parts[-1].lower().endswith(MARKDOWN_SUFFIXES)


def _archive_files(archive: str) -> List[Tuple[str, str, int]]:
    """(member name, path, size) of an archive's Markdown files, in the command's order: paths
    relative to the archive's one top folder (if all its members share one), byte order."""
    with tarfile.open(archive) as tar:
        members = [m for m in tar.getmembers() if m.isfile()]
    names = [m.name[2:] if m.name.startswith("./") else m.name for m in members]
    tops = {n.split("/", 1)[0] for n in names}
    strip = len(tops) == 1 and all("/" in n for n in names)
    found = []
    for member, name in zip(members, names):
        path = name.split("/", 1)[1] if strip else name
        if _selected_member(path):
            found.append((member.name, path, member.size))
    found.sort(key=lambda f: f[1].encode("utf-8", "surrogateescape"))
    return found


def plan(paths: Iterable[str], partition_bytes: int = DEFAULT_PARTITION_BYTES) -> List[Partition]:
    """The partitions of the repositories, in order, with every file's file_id."""
    partitions: List[Partition] = []
    file_id = 1
    for repository in paths:
        archive = _is_archive(repository)
        if archive:
            listed = [(member, path, _core.fqn_prefix(path), size)
                      for member, path, size in _archive_files(repository)]
        elif os.path.isdir(repository):
            files, errors = _core.select([repository])
            if errors:
                what, reason = errors[0]
                raise OSError(f"cannot read {what}: {reason}")
            listed = [(location, path, prefix, os.path.getsize(location))
                      for location, path, prefix in files]
        else:
            raise OSError(f"cannot read {repository}: not a folder or a .tar/.tar.gz archive")
        current: Optional[Partition] = None
        for where, path, prefix, size in listed:
            if current is None or (current.files and current.bytes + size > partition_bytes):
                current = Partition(f"part-{len(partitions) + 1:05d}", repository, archive)
                partitions.append(current)
            current.files.append(SourceFile(where, path, prefix, file_id, size))
            file_id += 1
    return partitions


def _jsonl(partition: Partition) -> Iterator[bytes]:
    """The JSON Lines of a partition's files, in order, written by the command's own writer."""
    if partition.archive:
        with tarfile.open(partition.repository) as tar:
            for f in partition.files:
                member = tar.extractfile(f.where)
                if member is None:
                    raise OSError(f"cannot read {f.where} in {partition.repository}")
                yield _core.index_jsonl(member.read(), f.path, f.file_id)
    else:
        triples = [(f.where, f.path, f.prefix) for f in partition.files]
        try:
            for start in range(0, len(triples), _FILES_PER_CALL):
                yield _core.index_files_jsonl(triples[start:start + _FILES_PER_CALL], 1,
                                              partition.files[start].file_id)
        except ValueError as error:
            raise OSError(str(error)) from None


def index_partition(partition: Partition, out_dir: str) -> dict:
    """Indexes one partition into out_dir/<name>.jsonl; returns its manifest entry."""
    start = time.monotonic()
    final = os.path.join(out_dir, partition.name + ".jsonl")
    temporary = final + ".tmp"
    records = 0
    try:
        with open(temporary, "wb") as out:
            for text in _jsonl(partition):
                out.write(text)
                records += text.count(b"\n")
        os.replace(temporary, final)
    except BaseException:
        if os.path.exists(temporary):
            os.remove(temporary)
        raise
    return {"name": partition.name, "repository": partition.repository,
            "files": len(partition.files), "records": records, "bytes": partition.bytes,
            "seconds": round(time.monotonic() - start, 3)}


class PartitionsFailed(RuntimeError):
    """Some partitions could not be indexed; ``failures`` maps their names to the errors."""

    def __init__(self, failures: dict):
        self.failures = failures
        lines = [f"{name}: {error}" for name, error in failures.items()]
        super().__init__(f"{len(failures)} partition(s) failed:\n" + "\n".join(lines))


def run(paths: List[str], out_dir: str, scheduler: Optional[str] = None,
        partition_bytes: int = DEFAULT_PARTITION_BYTES, workers: Optional[int] = None) -> dict:
    """Indexes the repositories on a Dask cluster into out_dir; returns the manifest.

    Raises PartitionsFailed, after every other partition has finished, when any failed; the
    failed partitions leave no file, and no manifest is written.
    """
    return run_partitions(plan(paths, partition_bytes), out_dir, scheduler, workers)


def run_partitions(partitions: List[Partition], out_dir: str, scheduler: Optional[str] = None,
                   workers: Optional[int] = None) -> dict:
    """Indexes planned partitions as run() does."""
    from dask.distributed import Client, LocalCluster, as_completed

    os.makedirs(out_dir, exist_ok=True)
    start = time.monotonic()
    if scheduler:
        cluster = None
        client = Client(scheduler)
    else:
        cluster = LocalCluster(n_workers=workers or os.cpu_count() or 1, threads_per_worker=1,
                               processes=True, dashboard_address=":0")
        client = Client(cluster)
    try:
        # The largest partitions are submitted first, and Dask runs tasks in the order they
        # were submitted, so that the run does not end on a large partition alone while the
        # other workers wait.
        largest_first = sorted(partitions, key=lambda p: p.bytes, reverse=True)
        futures = {client.submit(index_partition, p, out_dir, key=f"tarnwick-{p.name}-{id(p)}",
                                 pure=False, retries=0): p.name for p in largest_first}
        entries, failures = {}, {}
        for future in as_completed(futures):
            name = futures[future]
            try:
                entries[name] = future.result()
            except Exception as error:  # reported together below
                failures[name] = f"{type(error).__name__}: {error}"
    finally:
        client.close()
        if cluster is not None:
            cluster.close()
    if failures:
        raise PartitionsFailed(dict(sorted(failures.items())))
    ordered = [entries[p.name] for p in partitions]
    manifest = {
        "partitions": ordered,
        "files": sum(e["files"] for e in ordered),
        "records": sum(e["records"] for e in ordered),
        "bytes": sum(e["bytes"] for e in ordered),
        "seconds": round(time.monotonic() - start, 3),
    }
    temporary = os.path.join(out_dir, "manifest.json.tmp")
    with open(temporary, "w", encoding="utf-8") as out:
        json.dump(manifest, out, indent=1)
        out.write("\n")
    os.replace(temporary, os.path.join(out_dir, "manifest.json"))
    return manifest


def main(argv=None) -> int:
    parser = argparse.ArgumentParser(prog="python3 -m tarnwick_markdown.dask",
                                     description=__doc__.split("\n\n")[0])
    commands = parser.add_subparsers(dest="command", required=True)
    command = commands.add_parser("index", help="index repositories into JSON Lines partitions")
    command.add_argument("paths", nargs="+", metavar="PATH",
                         help="a repository: a folder or a .tar/.tar.gz archive")
    command.add_argument("--out", required=True, metavar="DIR", help="where the partitions go")
    command.add_argument("--scheduler", metavar="ADDRESS",
                         help="a Dask scheduler (default: a LocalCluster on this machine)")
    command.add_argument("--workers", type=int, metavar="N",
                         help="workers of the LocalCluster (default: the number of cores)")
    command.add_argument("--partition-bytes", type=int, default=DEFAULT_PARTITION_BYTES,
                         metavar="N", help="Markdown bytes per partition (default: 8 MiB)")
    arguments = parser.parse_args(argv)
    try:
        manifest = run(arguments.paths, arguments.out, arguments.scheduler,
                       arguments.partition_bytes, arguments.workers)
    except (OSError, PartitionsFailed) as error:
        print(f"tarnwick_markdown.dask: {error}", file=sys.stderr)
        return 1
    print(f"{len(manifest['partitions'])} partitions, {manifest['files']} files, "
          f"{manifest['records']} records, {manifest['bytes']} bytes in "
          f"{manifest['seconds']} s", file=sys.stderr)
    return 0


if __name__ == "__main__":
    sys.exit(main())
