import os
from typing import Any, Iterable, Iterator, List, Optional, Union

__version__: str

class Record(dict):
    """One JSON Lines record: a dict of its keys, also readable as attributes."""

    def __getattr__(self, key: str) -> Any: ...
    def to_dict(self) -> dict: ...

class Symbol(Record):
    type: str
    path: str
    file_id: int
    id: Optional[int]
    name: str
    kind: str
    fqn: str
    start_line: int
    end_line: int
    signature: str
    is_export: bool
    docstring: Optional[str]

class Reference(Record):
    type: str
    path: str
    file_id: int
    name: str
    qualifier: Optional[str]
    kind: str
    line: int
    source_fqn: Optional[str]

class IndexedDocument:
    symbols: List[Symbol]
    references: List[Reference]
    def __init__(self, symbols: List[Symbol], references: List[Reference]) -> None: ...

def index(data: Union[bytes, str], path: str) -> IndexedDocument: ...
def index_paths(
    paths: Union[str, os.PathLike, Iterable[Union[str, os.PathLike]]], jobs: Optional[int] = ...
) -> Iterator[Union[Symbol, Reference]]: ...

class Problem(Record):
    path: str
    line: int
    column: int
    target: str
    code: str
    message: str
    suggestion: Optional[str]

class CheckResult:
    problems: List[Problem]
    files: int
    links: int
    errors: List[str]

def check(paths: Union[str, os.PathLike, Iterable[Union[str, os.PathLike]]] = ".", *,
          root: Optional[Union[str, os.PathLike]] = None, ignore: Iterable[str] = (),
          wiki: bool = False, changed: Iterable[Union[str, os.PathLike]] = (),
          changed_since: Optional[str] = None, jobs: Optional[int] = None) -> CheckResult: ...

class StoreError(OSError): ...

class UpdateSummary:
    files: int
    read: int
    parsed: int
    reused: int
    unchanged: int
    unreadable: int
    removed: int
    errors: List[str]

class Store:
    def __init__(self, path: Union[str, os.PathLike], *, timeout: float = 60.0,
                 rebuild: bool = False) -> None: ...
    def update(self, paths: Union[None, str, os.PathLike, Iterable[Union[str, os.PathLike]]] = None,
               *, hidden: bool = False, follow: bool = False, no_ignore: bool = False,
               exclude: Iterable[str] = (), paths_from_cwd: bool = False,
               prefix: Optional[str] = None, jobs: Optional[int] = None) -> UpdateSummary: ...
    def refs(self, target: str) -> List[Reference]: ...
    def symbols(self, query: str, limit: int = 20) -> List[Symbol]: ...
    def export(self) -> List[Union[Symbol, Reference]]: ...
    def close(self) -> None: ...
    def __enter__(self) -> "Store": ...
    def __exit__(self, *exception: Any) -> None: ...
