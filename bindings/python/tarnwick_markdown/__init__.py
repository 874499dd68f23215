"""tarnwick's Markdown engine: the outline and the file links of Markdown documents.

``index(data, path)`` gives the records of one file; ``index_paths(paths)`` walks files and
folders as ``tarnwick-md index`` does and yields the records of every Markdown file, in the
command's order. ``check(paths)`` finds the broken links, as ``tarnwick-md check`` does.
``Store(path)`` keeps the records in an index store, updated by reading only what changed, and
answers which references lead to a file and which sections match some words. Each record is a
dict with exactly the keys of its JSON Lines record (so ``json.dumps(record)`` writes what the
command writes), whose values can also be read as attributes (``record.fqn``).
"""

from __future__ import annotations

import os
from typing import Iterable, Iterator, List, Optional, Union

from . import _core

__all__ = ["IndexedDocument", "Record", "Symbol", "Reference", "index", "index_paths",
           "Problem", "CheckResult", "check", "Store", "StoreError", "UpdateSummary",
           "__version__"]

__version__: str = _core.VERSION

# Files indexed per call into C++: enough to keep every job busy, few enough that the records
# of a batch stay small and reach the caller soon.
_FILES_PER_BATCH = 256


class Record(dict):
    """One JSON Lines record: a dict of its keys, also readable as attributes."""

    __slots__ = ()

    def __getattr__(self, key: str):
        try:
            return self[key]
        except KeyError:
            raise AttributeError(key) from None

    def to_dict(self) -> dict:
        """The record as a plain dict, with the record's keys in their order."""
        return dict(self)

    def __repr__(self) -> str:
        return f"{type(self).__name__}({dict.__repr__(self)})"


class Symbol(Record):
    """A ``section`` symbol: ``type`` is ``"symbol"``."""

    __slots__ = ()


class Reference(Record):
    """A link to another file of the repository: ``type`` is ``"reference"``."""

    __slots__ = ()


class IndexedDocument:
    """What the engine finds in one document: its symbols, then its references."""

    __slots__ = ("symbols", "references")

    def __init__(self, symbols: List[Symbol], references: List[Reference]):
        self.symbols = symbols
        self.references = references

    def __repr__(self) -> str:
        return (f"IndexedDocument({len(self.symbols)} symbols, "
                f"{len(self.references)} references)")


def index(data: Union[bytes, str], path: str) -> IndexedDocument:
    """The records of one Markdown file.

    ``data`` is the file's contents (``bytes``, or ``str`` taken as UTF-8; any line endings),
    ``path`` its path in the repository with "/" separators, from which the FQN prefix is made.
    ``file_id`` is 0. The GIL is released while the engine works.
    """
    if not isinstance(path, str):
        raise TypeError(f"path must be str, not {type(path).__name__}")
    return IndexedDocument(*_core.index(data, path, 0, Symbol, Reference))


def _paths_and_jobs(paths, jobs: Optional[int]):
    """The paths as a list of str, and the number of threads (default: the cores)."""
    if isinstance(paths, (str, os.PathLike)):
        paths = [paths]
    if jobs is None:
        jobs = os.cpu_count() or 1
    if not isinstance(jobs, int) or isinstance(jobs, bool) or not 1 <= jobs <= 1024:
        raise ValueError(f"jobs must be an integer from 1 to 1024, not {jobs!r}")
    return [os.fspath(p) for p in paths], jobs


def index_paths(paths: Union[str, os.PathLike, Iterable[Union[str, os.PathLike]]],
                jobs: Optional[int] = None) -> Iterator[Record]:
    """Yields the records of every Markdown file under ``paths``, as ``tarnwick-md index``.

    Files and folders are selected and ordered as the command does, and indexed on ``jobs``
    threads inside C++ (default: the number of cores); the records come in the command's
    order, each file's symbols then its references. A path or file that cannot be read raises
    ``OSError`` naming it, when the walk reaches it.
    """
    paths, jobs = _paths_and_jobs(paths, jobs)
    files, errors = _core.select(paths)
    if errors:
        what, reason = errors[0]
        raise OSError(f"cannot read {what}: {reason}")
    for start in range(0, len(files), _FILES_PER_BATCH):
        batch = files[start:start + _FILES_PER_BATCH]
        records, error = _core.index_files(batch, jobs, start + 1, Symbol, Reference)
        yield from records
        if error is not None:
            raise OSError(error)


class Problem(Record):
    """A broken link: the keys of ``tarnwick-md check --format json``."""

    __slots__ = ()


_PROBLEM_KEYS = ("path", "line", "column", "target", "code", "message", "suggestion")


class CheckResult:
    """What ``check`` found: the problems, how many files and links it checked, and the inputs
    it could not read (each a message; everything else was checked)."""

    __slots__ = ("problems", "files", "links", "errors")

    def __init__(self, problems: List[Problem], files: int, links: int, errors: List[str]):
        self.problems = problems
        self.files = files
        self.links = links
        self.errors = errors

    def __repr__(self) -> str:
        return (f"CheckResult({len(self.problems)} problems in {self.files} files, "
                f"{self.links} links, {len(self.errors)} errors)")


def check(paths: Union[str, os.PathLike, Iterable[Union[str, os.PathLike]]] = ".", *,
          root: Optional[Union[str, os.PathLike]] = None, ignore: Iterable[str] = (),
          wiki: bool = False, changed: Iterable[Union[str, os.PathLike]] = (),
          changed_since: Optional[str] = None, jobs: Optional[int] = None) -> CheckResult:
    """The broken links of the Markdown files under ``paths``, as ``tarnwick-md check``.

    Each folder is a repository root (``root`` makes one root of all the paths); ``ignore``
    names problem codes not to report; ``wiki`` checks ``[[wiki links]]`` too; ``changed``
    (files) or ``changed_since`` (a git commit) keeps only the links from and into the files
    changed. Problems come in the command's order with its keys. Raises ``ValueError`` for an
    unknown code or a commit git does not know; the GIL is released while checking.
    """
    paths, jobs = _paths_and_jobs(paths, jobs)
    if isinstance(ignore, str):
        ignore = [ignore]
    found, files, links, errors = _core.check(
        paths, None if root is None else os.fspath(root), list(ignore), bool(wiki),
        [os.fspath(p) for p in changed], changed_since, jobs)
    return CheckResult([Problem(zip(_PROBLEM_KEYS, values)) for values in found], files, links,
                       errors)


StoreError = _core.StoreError
StoreError.__doc__ = """An index store that cannot be opened, updated or read: a file that is not a
store, a store of another schema version, one that is read-only, or busy past the timeout."""


class UpdateSummary:
    """What ``Store.update`` did: files selected, read (their status was not as stored),
    parsed, reused (given the records of stored content: moved or copied files), unchanged,
    unreadable and removed, and the messages of what could not be read."""

    __slots__ = ("files", "read", "parsed", "reused", "unchanged", "unreadable", "removed",
                 "errors")

    def __init__(self, files: int, read: int, parsed: int, reused: int, unchanged: int,
                 unreadable: int, removed: int, errors: List[str]):
        self.files = files
        self.read = read
        self.parsed = parsed
        self.reused = reused
        self.unchanged = unchanged
        self.unreadable = unreadable
        self.removed = removed
        self.errors = errors

    def __repr__(self) -> str:
        return (f"UpdateSummary({self.files} files, {self.read} read: {self.parsed} parsed, "
                f"{self.reused} reused, "
                f"{self.unchanged} unchanged, {self.unreadable} unreadable, "
                f"{self.removed} removed)")


class Store:
    """An index store, as ``tarnwick-md index --db PATH`` makes it: created when ``path`` does
    not exist. ``timeout`` is how many seconds to wait for another process's update; with
    ``rebuild`` the first update starts the store over. Raises ``StoreError`` for a file that
    is not a store or a store of another schema. The GIL is released while SQLite works, and
    threads may share a store (their calls take turns); close it, or use it in a ``with``."""

    def __init__(self, path: Union[str, os.PathLike], *, timeout: float = 60.0,
                 rebuild: bool = False):
        self._store = _core.Store(os.fspath(path), float(timeout), bool(rebuild))

    def update(self, paths: Union[None, str, os.PathLike, Iterable[Union[str, os.PathLike]]] = None,
               *, hidden: bool = False, follow: bool = False, no_ignore: bool = False,
               exclude: Iterable[str] = (), paths_from_cwd: bool = False,
               prefix: Optional[str] = None, jobs: Optional[int] = None) -> UpdateSummary:
        """Brings the store up to date with the Markdown files under ``paths``, selected as
        ``tarnwick-md index`` selects them with the same options, in one transaction. With no
        ``paths``, the last update's paths and selection are indexed again (a new store: the
        current directory), and no selection option may be given. Files that cannot be read
        are named in the summary's ``errors``; a store that cannot be written raises
        ``StoreError`` and is left as it was."""
        if paths is None:
            if hidden or follow or no_ignore or exclude or paths_from_cwd or prefix is not None:
                raise ValueError("selection options need paths: without paths, the last "
                                 "update's selection is repeated")
            jobs = _paths_and_jobs([], jobs)[1]
        else:
            paths, jobs = _paths_and_jobs(paths, jobs)
        if isinstance(exclude, str):
            exclude = [exclude]
        return UpdateSummary(*self._store.update(paths, bool(hidden), bool(follow),
                                                 bool(no_ignore), list(exclude),
                                                 bool(paths_from_cwd), prefix, jobs))

    def refs(self, target: str) -> List[Reference]:
        """The references that lead to ``target`` (a path as the records write it, with
        ``#fragment`` to keep the links to one anchor), in file order, as
        ``tarnwick-md refs --json`` gives them."""
        return self._store.references_to(target, Reference)

    def symbols(self, query: str, limit: int = 20) -> List[Symbol]:
        """The sections whose names, heading paths or docstrings hold every word of ``query``
        (a word ending in ``*`` is a prefix), best match first, at most ``limit``."""
        if not isinstance(limit, int) or isinstance(limit, bool) or limit < 1:
            raise ValueError(f"limit must be a positive integer, not {limit!r}")
        return self._store.symbols_matching(query, limit, Symbol)

    def export(self) -> List[Record]:
        """Every record of the store, exactly as ``tarnwick-md export`` writes them: what
        ``index_paths`` gives for the last update's paths."""
        return self._store.export(Symbol, Reference)

    def close(self) -> None:
        """Closes the store; any further call raises ``StoreError``."""
        self._store.close()

    def __enter__(self) -> "Store":
        return self

    def __exit__(self, *exception) -> None:
        self.close()
