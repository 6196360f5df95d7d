"""What every registry has: its path, its timeout, its batches, and records by their keys."""

from __future__ import annotations

import os
import threading
from contextlib import contextmanager
from types import TracebackType
from typing import Any, Generic, Iterator, Optional, Protocol, TypeVar, Union

from genreg import _errors, _genreg

Path = Union[str, bytes, "os.PathLike[str]", "os.PathLike[bytes]"]
K = TypeVar("K")
R = TypeVar("R")
V = TypeVar("V")
D = TypeVar("D")
BatchType = TypeVar("BatchType", bound="Batch")


class Unasked:
    """The type of UNASKED, which stands for an argument that is not given where None means something."""

    def __repr__(self) -> str:
        return "..."


UNASKED = Unasked()

_CODES = {_genreg.code_name(code): code for code in _genreg.codes()}


def raised(kind: type[_errors.Error], code_name: str, path: str, message: str = "") -> _errors.Error:
    """The exception of what this package refuses by itself."""
    return kind(_CODES[code_name], 0, 0, path, message)


class Source(Protocol):
    """Where records are found and changed: a registry, or a batch of one."""

    @property
    def path(self) -> str: ...

    def _get(self, key: Any) -> Any: ...

    def _list(self) -> Any: ...

    def _changing(self) -> Any: ...


class Batch:
    """Several changes that are made at once.

    What a `with` block changes through it is read there as changed, and by everybody else once the block ends, when
    all of it is committed; an exception abandons it. The lock is held from the begin of the block to its end. A batch
    belongs to one thread, and finds records by their keys: it lists none.
    """

    def __init__(self, registry: Registry[Any]) -> None:
        self._registry = registry
        self._native: Any = None

    @property
    def path(self) -> str:
        """The registry file."""
        return self._registry.path

    def __enter__(self: BatchType) -> BatchType:
        self._registry._begin(self)
        return self

    def __exit__(
        self, kind: Optional[type[BaseException]], value: Optional[BaseException], traceback: Optional[TracebackType]
    ) -> None:
        self._registry._end(self, commit=kind is None)

    def _begun(self) -> Any:
        if self._native is None:
            raise raised(_errors.Defect, "REG_NO_BATCH", self.path)
        return self._native

    def _get(self, key: Any) -> Any:
        return self._begun().get(key)

    def _list(self) -> Any:
        raise TypeError("a batch lists no records")

    @contextmanager
    def _changing(self) -> Iterator[Any]:
        yield self._begun()


class Registry(Generic[BatchType]):
    """A registry file. Any number of threads may use one object; none waits for another one but at the file's lock.

    timeout: how many seconds each operation waits for a lock, None for as long as it takes. keep: look-ups keep at
    most so many bytes of the file in memory, each thread that looks up its own, and answer from there while the file
    stands as it was read; they then wait for a lock on the file itself without a limit.
    """

    def __init__(self, native: Any, batch: type[BatchType], path: Path, timeout: Optional[float], keep: int) -> None:
        self.timeout = timeout
        self._path = os.fsencode(path)
        if b"\0" in self._path:
            raise ValueError("a path holds no NUL")
        self._file = native(self._path, keep)
        self._batch = batch
        self._open = threading.local()

    @property
    def path(self) -> str:
        """The registry file."""
        return os.fsdecode(self._path)

    def __repr__(self) -> str:
        return f"{type(self).__name__}({self.path!r})"

    def batch(self) -> BatchType:
        """Several changes, one commit: see Batch."""
        return self._batch(self)

    def _begin(self, batch: Batch) -> None:
        # It would wait for itself.
        if getattr(self._open, "batch", False) or batch._native is not None:
            raise raised(_errors.Defect, "REG_BATCH_OPEN", self.path)
        batch._native = self._file.begin(self.timeout)
        self._open.batch = True

    def _end(self, batch: Batch, commit: bool) -> None:
        native, batch._native = batch._native, None
        self._open.batch = False
        if commit:
            native.commit(self.timeout)
        else:
            native.abandon()

    def _get(self, key: Any) -> Any:
        return self._file.get(key, self.timeout)

    def _list(self) -> Any:
        return self._file.list(self.timeout)

    @contextmanager
    def _changing(self) -> Iterator[Any]:
        with self.batch() as batch:
            yield batch._native


class Keyed(Generic[K, R]):
    """Records by their keys. Each change is one commit, or a part of the batch."""

    # What a record is natively: a row, and the part of it that finds it.
    def _native_key(self, key: K) -> Any:
        return key

    def _key_of(self, record: R) -> K:
        raise NotImplementedError

    def _row(self, record: R) -> Any:
        raise NotImplementedError

    def _record(self, row: Any) -> R:
        raise NotImplementedError

    @property
    def _source(self) -> Source:
        return self  # type: ignore[return-value]

    def find(self, key: K) -> Optional[R]:
        """The record of the key, or None."""
        row = self._source._get(self._native_key(key))
        return None if row is None else self._record(row)

    def record(self, key: K) -> R:
        """The record of the key. NotFound."""
        record = self.find(key)
        if record is None:
            raise self._not_found(key)
        return record

    def __contains__(self, key: object) -> bool:
        return self.find(key) is not None  # type: ignore[arg-type]

    def add(self, record: R) -> None:
        """Adds a record. Exists: there is one with its key."""
        with self._source._changing() as native:
            native.add(self._row(record))

    def replace(self, record: R, *, if_record: Union[R, None, Unasked] = UNASKED) -> None:
        """Puts the record in the place of the one with its key, or adds it.

        if_record: only where this one is there now (None: none). Conflict: it is another.
        """
        with self._source._changing() as native:
            found = self._held(native, self._key_of(record))
            self._compare(found, if_record, self._key_of(record))
            self._put(native, self._key_of(record), found, record)

    def delete(self, key: K, *, if_record: Union[R, Unasked] = UNASKED, every: bool = False) -> None:
        """Takes the record of the key out. NotFound; Several, unless every one is meant; if_record as for replace."""
        with self._source._changing() as native:
            if not isinstance(if_record, Unasked):
                self._compare(self._held(native, key), if_record, key)
            native.remove(self._native_key(key), every)

    def __delitem__(self, key: K) -> None:
        self.delete(key)

    def _held(self, native: Any, key: K) -> Optional[R]:
        row = native.get(self._native_key(key))
        return None if row is None else self._record(row)

    def _put(self, native: Any, key: K, found: Optional[R], record: R) -> None:
        if found is None:
            native.add(self._row(record))
        else:
            native.change(self._native_key(key), self._row(record))

    def _compare(self, found: Optional[R], expected: Union[R, None, Unasked], key: K) -> None:
        if isinstance(expected, Unasked) or found == expected:
            return
        path = self._source.path
        if expected is None:
            raise raised(_errors.Exists, "REG_DUPLICATE", path, f"{key!r} is there already")
        now = "is not there any more" if found is None else "is another by now"
        raise raised(_errors.Conflict, "REG_NOT_FOUND", path, f"{key!r} {now}")

    def _not_found(self, key: K) -> _errors.Error:
        return raised(_errors.NotFound, "REG_NOT_FOUND", self._source.path, f"there is no {key!r}")


class RecordMapping(Keyed[K, R]):
    """Of which a key stands for its record."""

    def __getitem__(self, key: K) -> R:
        return self.record(key)

    def __setitem__(self, key: K, record: R) -> None:
        if self._native_key(key) != self._native_key(self._key_of(record)):
            raise raised(_errors.Invalid, "REG_INVALID_ARGUMENT", self._source.path, f"{record!r} is not {key!r}")
        self.replace(record)


class BatchMapping(Generic[K, V]):
    """What a batch has of a mapping beside [], in and del."""

    def __getitem__(self, key: K) -> V:
        raise NotImplementedError

    def get(self, key: K, default: Union[V, D, None] = None) -> Union[V, D, None]:
        """What the key stands for, or the default."""
        try:
            return self[key]
        except _errors.NotFound:
            return default


class Listed(Keyed[K, R]):
    """Records that a registry lists as well."""

    def entries(self) -> list[R]:
        """All records in their order, of those of one key each."""
        return [self._record(row) for row in self._source._list()]

    def __iter__(self) -> Iterator[K]:
        return iter(dict.fromkeys(map(self._key_of, self.entries())))

    def __len__(self) -> int:
        return len(set(map(self._key_of, self.entries())))
