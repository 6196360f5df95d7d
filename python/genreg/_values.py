"""Registries of names and values: lines, and binary records."""

from __future__ import annotations

from collections.abc import MutableMapping
from dataclasses import dataclass, replace
from typing import Any, Generic, Optional, TypeVar, Union

from genreg import _errors, _genreg
from genreg._registry import UNASKED, Batch, BatchMapping, D, Keyed, Listed, Path, Registry, Unasked, V, raised


@dataclass(frozen=True)
class Variable:
    """A line "name = value # comment"."""

    name: str
    value: str
    comment: Optional[str] = None


@dataclass(frozen=True)
class BinVariable:
    """A binary variable: 32 bits, name and comment of at most 15 bytes."""

    name: str
    value: int
    comment: str = ""


Named = TypeVar("Named", Variable, BinVariable)


class _Valued(Keyed[str, Named], Generic[Named, V]):
    _kind: type[Named]

    def _key_of(self, record: Named) -> str:
        return record.name

    def _row(self, record: Named) -> Any:
        return record.name, self._checked(record.value), record.comment

    def _record(self, row: Any) -> Named:
        return self._kind(*row)

    def _checked(self, value: Any) -> Any:
        return value

    def __getitem__(self, name: str) -> V:
        return self.record(name).value  # type: ignore[return-value]

    def __setitem__(self, name: str, value: V) -> None:
        self.set(name, value)

    def comment(self, name: str) -> Optional[str]:
        """The comment of the variable. NotFound."""
        return self.record(name).comment

    def set(
        self,
        name: str,
        value: V,
        *,
        comment: Union[str, None, Unasked] = UNASKED,
        if_value: Union[V, None, Unasked] = UNASKED,
    ) -> None:
        """Sets the variable, and adds it where there is none.

        comment: a new one; None takes it away; without it that which is there stays. if_value: only where this is its
        value now, None: where there is none. Conflict, Exists: it is another by now.
        """
        with self._source._changing() as native:
            found = self._held(native, name)
            value_now = None if found is None else found.value
            self._compare(value_now, if_value, name)  # type: ignore[arg-type]
            record = self._record((name, value)) if found is None else replace(found, value=value)
            if not isinstance(comment, Unasked):
                record = replace(record, comment=comment)
            self._put(native, name, found, record)


class _VariableValues(_Valued[Variable, str]):
    _kind = Variable

    def _checked(self, value: Any) -> Any:
        if not isinstance(value, str):
            raise TypeError(f"the value of a variable is a str, not {type(value).__name__}")
        return value

    def get_bool(self, name: str, default: Union[D, Unasked] = UNASKED) -> Union[bool, D]:
        """1/0, true/false, yes/no, on/off, t/f, y/n in any case. NotFound without a default; Invalid."""
        value: Union[bool, D] = self._typed("get_bool", name, default)
        return value

    def get_int(self, name: str, default: Union[D, Unasked] = UNASKED) -> Union[int, D]:
        """A decimal number of 64 bits with its sign, the whole text. NotFound without a default; Invalid."""
        value: Union[int, D] = self._typed("get_int", name, default)
        return value

    def get_unsigned(self, name: str, default: Union[D, Unasked] = UNASKED) -> Union[int, D]:
        """A decimal number of 64 bits without a sign, the whole text. NotFound without a default; Invalid."""
        value: Union[int, D] = self._typed("get_unsigned", name, default)
        return value

    def get_float(self, name: str, default: Union[D, Unasked] = UNASKED) -> Union[float, D]:
        """A number as C writes it, the whole text. NotFound without a default; Invalid."""
        value: Union[float, D] = self._typed("get_float", name, default)
        return value

    def _typed(self, getter: str, name: str, default: Any) -> Any:
        try:
            return self._native_getter(getter)(name)
        except _errors.NotFound:
            if isinstance(default, Unasked):
                raise self._not_found(name) from None
            return default

    def _native_getter(self, getter: str) -> Any:
        raise NotImplementedError


class VariablesBatch(_VariableValues, BatchMapping[str, str], Batch):
    """A batch of Variables."""

    def _native_getter(self, getter: str) -> Any:
        return getattr(self._begun(), getter)


class Variables(
    _VariableValues, Listed[str, Variable], Registry[VariablesBatch], MutableMapping[str, str]
):
    """A file of lines "name = value # comment" as a mapping of names to values.

    Comments, blanks and what else stands in the file stay as they are but for what is changed. Where a name has
    several lines the first one counts, and a change is refused with Several.
    """

    def __init__(self, path: Path, *, timeout: Optional[float] = None, keep: int = 0) -> None:
        super().__init__(_genreg.VariablesFile, VariablesBatch, path, timeout, keep)

    def _native_getter(self, getter: str) -> Any:
        method = getattr(self._file, getter)
        return lambda name: method(name, self.timeout)


class _BinValues(_Valued[BinVariable, int]):
    _kind = BinVariable

    def _checked(self, value: Any) -> Any:
        if not -(2**31) <= value < 2**31:
            raise raised(_errors.Invalid, "REG_RECORD_REFUSED", self._source.path, f"{value} does not fit into 32 bits")
        return value


class BinVariablesBatch(_BinValues, BatchMapping[str, int], Batch):
    """A batch of BinVariables."""


class BinVariables(
    _BinValues, Listed[str, BinVariable], Registry[BinVariablesBatch], MutableMapping[str, int]
):
    """A file of binary variables as a mapping of names to numbers."""

    def __init__(self, path: Path, *, timeout: Optional[float] = None, keep: int = 0) -> None:
        super().__init__(_genreg.BinVariablesFile, BinVariablesBatch, path, timeout, keep)
