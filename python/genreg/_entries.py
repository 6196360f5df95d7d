"""Registries of lines that are entries: services and inittabs."""

from __future__ import annotations

from collections.abc import MutableMapping
from dataclasses import astuple, dataclass
from typing import Any, Optional

from genreg import _errors, _genreg
from genreg._registry import Batch, BatchMapping, Listed, Path, RecordMapping, Registry, raised


@dataclass(frozen=True)
class Service:
    """A line "name port/protocol aliases # comment"."""

    name: str
    port: int
    protocol: str
    aliases: tuple[str, ...] = ()
    comment: Optional[str] = None


@dataclass(frozen=True)
class InitEntry:
    """A line "id:run_levels:action:command #comment"; the comment with its blanks."""

    id: str
    run_levels: str
    action: str
    command: str
    comment: Optional[str] = None


class _ServiceRecords(RecordMapping[tuple[str, str], Service]):
    def _key_of(self, record: Service) -> tuple[str, str]:
        return record.name, record.protocol

    def _row(self, record: Service) -> Any:
        if not 0 < record.port < 2**16:
            raise raised(_errors.Invalid, "REG_RECORD_REFUSED", self._source.path, f"{record.port} is no port")
        return record.name, record.port, record.protocol, list(record.aliases), record.comment

    def _record(self, row: Any) -> Service:
        name, port, protocol, aliases, comment = row
        return Service(name, port, protocol, tuple(aliases), comment)


class ServicesBatch(_ServiceRecords, BatchMapping[tuple[str, str], Service], Batch):
    """A batch of Services."""


class Services(
    _ServiceRecords, Listed[tuple[str, str], Service], Registry[ServicesBatch], MutableMapping[tuple[str, str], Service]
):
    """A services file as a mapping of (name, protocol) to services."""

    def __init__(self, path: Path, *, timeout: Optional[float] = None, keep: int = 0) -> None:
        super().__init__(_genreg.ServicesFile, ServicesBatch, path, timeout, keep)


class _InitEntries(RecordMapping[str, InitEntry]):
    def _key_of(self, record: InitEntry) -> str:
        return record.id

    def _row(self, record: InitEntry) -> Any:
        return astuple(record)

    def _record(self, row: Any) -> InitEntry:
        return InitEntry(*row)


class InitTabBatch(_InitEntries, BatchMapping[str, InitEntry], Batch):
    """A batch of InitTab."""


class InitTab(
    _InitEntries, Listed[str, InitEntry], Registry[InitTabBatch], MutableMapping[str, InitEntry]
):
    """An inittab as a mapping of ids to entries."""

    def __init__(self, path: Path, *, timeout: Optional[float] = None, keep: int = 0) -> None:
        super().__init__(_genreg.InitTabFile, InitTabBatch, path, timeout, keep)
