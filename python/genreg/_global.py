"""The global registry: installed copies, their instances, and settings."""

from __future__ import annotations

from collections.abc import MutableMapping, Sequence
from dataclasses import astuple, dataclass
from typing import Any, Optional, TypeVar, Union

from genreg import _genreg
from genreg._errors import Invalid
from genreg._registry import Batch, BatchMapping, K, Listed, Path, RecordMapping, Registry, Source, raised


def _normal(version: str) -> str:
    return _genreg.version_text(_genreg.version_code(version))


@dataclass(frozen=True)
class Instance:
    """An instance of an installed copy. What is None is absent."""

    service: str
    version: str
    name: str
    path: Optional[str] = None
    usage: Optional[str] = None
    start_at_boot: Optional[bool] = None
    maintenance: Optional[bool] = None
    extra_path: Optional[str] = None
    extra_name: Optional[str] = None
    comment: Optional[str] = None

    def __post_init__(self) -> None:
        object.__setattr__(self, "version", _normal(self.version))


@dataclass(frozen=True)
class InstalledService:
    """An installed copy of a service. What is None is absent."""

    service: str
    version: str
    path: Optional[str] = None
    alt_path: Optional[str] = None
    text: Optional[str] = None
    fixpack_number: Optional[int] = None
    number1: Optional[int] = None
    flag: Optional[str] = None
    number2: Optional[int] = None
    number3: Optional[int] = None

    def __post_init__(self) -> None:
        object.__setattr__(self, "version", _normal(self.version))


@dataclass(frozen=True)
class GlobalVariable:
    """A setting of a service. What is None is absent."""

    service: str
    name: str
    value: Optional[str] = None
    text: Optional[str] = None
    comment: Optional[str] = None


Record = TypeVar("Record", Instance, InstalledService, GlobalVariable)
_VERSION = 1  # the place of the version in a record that has one
_FLAGS = (5, 6)  # those of the flags of an instance


class _Records(RecordMapping[K, Record]):
    """The records of one type by their keys. Items of later releases stay through every change."""

    def __init__(self, source: Source, record_type: int, kind: type[Record], key_length: int) -> None:
        self._of = source
        self._type = record_type
        self._kind: type[Record] = kind
        self._key_length = key_length

    @property
    def _source(self) -> Source:
        return self._of

    def _values(self, values: Sequence[Any]) -> tuple[int, list[Any]]:
        row = list(values)
        if self._type != _genreg.VARIABLE:
            row[_VERSION] = _genreg.version_code(row[_VERSION])
            if row[_VERSION] == 0:
                raise raised(Invalid, "REG_INFO_VERSION_MISSING", self._of.path)
        return self._type, row

    def _native_key(self, key: Any) -> Any:
        if not isinstance(key, tuple) or len(key) != self._key_length:
            raise TypeError(f"a key is a tuple of {self._key_length} texts")
        return self._values(key)

    def _key_of(self, record: Record) -> Any:
        return astuple(record)[: self._key_length]

    def _row(self, record: Record) -> Any:
        return self._values([int(value) if isinstance(value, bool) else value for value in astuple(record)])

    def _record(self, row: Any) -> Record:
        _, values = row
        if self._type != _genreg.VARIABLE:
            values[_VERSION] = _genreg.version_text(values[_VERSION] or 0)
        if self._type == _genreg.INSTANCE:
            for place in _FLAGS:
                values[place] = None if values[place] is None else bool(values[place])
        record: Record = self._kind(*values)
        return record


class BatchRecords(_Records[K, Record], BatchMapping[K, Record]):
    """The records of one type in a batch."""


class Records(_Records[K, Record], Listed[K, Record], MutableMapping[K, Record]):
    """The records of one type as a mapping."""

    def entries(self) -> list[Record]:
        """All records of the type in their order."""
        return [self._record(row) for row in self._source._list() if row[0] == self._type]


InstanceKey = tuple[str, str, str]
ServiceKey = tuple[str, str]
VariableKey = tuple[str, str]


class GlobalBatch(Batch):
    """A batch of a GlobalRegistry."""

    def __init__(self, registry: Registry[Any]) -> None:
        super().__init__(registry)
        self.instances: BatchRecords[InstanceKey, Instance] = BatchRecords(self, _genreg.INSTANCE, Instance, 3)
        self.services: BatchRecords[ServiceKey, InstalledService] = BatchRecords(
            self, _genreg.SERVICE, InstalledService, 2
        )
        self.variables: BatchRecords[VariableKey, GlobalVariable] = BatchRecords(
            self, _genreg.VARIABLE, GlobalVariable, 2
        )


class GlobalRegistry(Registry[GlobalBatch]):
    """The global registry: that of the machine, unless a path is given.

    instances: by service, version and name. services: by service and version. variables: by service and name.
    """

    def __init__(self, path: Optional[Path] = None, *, timeout: Optional[float] = None, keep: int = 0) -> None:
        chosen = _genreg.global_path() if path is None else path
        super().__init__(_genreg.GlobalFile, GlobalBatch, chosen, timeout, keep)
        self.instances: Records[InstanceKey, Instance] = Records(self, _genreg.INSTANCE, Instance, 3)
        self.services: Records[ServiceKey, InstalledService] = Records(self, _genreg.SERVICE, InstalledService, 2)
        self.variables: Records[VariableKey, GlobalVariable] = Records(self, _genreg.VARIABLE, GlobalVariable, 2)

    def entries(self) -> list[Union[Instance, InstalledService, GlobalVariable]]:
        """All records in their order."""
        views: dict[int, Any] = {
            _genreg.INSTANCE: self.instances,
            _genreg.SERVICE: self.services,
            _genreg.VARIABLE: self.variables,
        }
        return [views[row[0]]._record(row) for row in self._list()]
