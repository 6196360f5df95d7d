"""The library's codes as exceptions.

A code that stands for a step inside an operation leaves the kind of the failure to the innermost cause.
"""

from __future__ import annotations

import errno
import os

from genreg import _genreg

_SYSTEM_ERRORS = 0x90000100
_WOULD_BLOCK = 0x90000014


class Error(Exception):
    """What every failure of a registry is.

    code, code_name: what the operation answered. cause, cause_name: the first failure inside it, 0 and "" where
    nothing stands behind the code. platform_code: the platform's code behind that, or 0. path: the registry file.
    """

    def __init__(self, code: int, cause: int = 0, platform_code: int = 0, path: str = "", message: str = "") -> None:
        self.code = code
        self.code_name = _genreg.code_name(code)
        self.cause = cause
        self.cause_name = _genreg.code_name(cause) if cause else ""
        self.platform_code = platform_code
        self.path = path
        self.message = message or _sentence(code, cause, platform_code)
        self.args = (code, cause, platform_code, path, message)

    def __str__(self) -> str:
        return f"{self.path}: {self.message}" if self.path else self.message


class _OfSystem(Error, OSError):
    def __init__(self, code: int, cause: int = 0, platform_code: int = 0, path: str = "", message: str = "") -> None:
        super().__init__(code, cause, platform_code, path, message)
        known = (_system_error(each) for each in (platform_code, cause, code))
        self.errno = next((each for each in known if each), errno.ENOENT if isinstance(self, Missing) else 0)
        self.strerror, self.filename = self.message, path


class NotFound(Error, KeyError):
    """There is no such record."""


class Missing(_OfSystem, FileNotFoundError):
    """There is no registry file. The first change makes one."""


class Unreadable(_OfSystem):
    """The file, its lock file or its folder could not be opened or read."""


class Locked(_OfSystem, TimeoutError):
    """Somebody else held the lock until the timeout was over."""


class Conflict(Error):
    """What is there is not what the change asks for; nothing was changed."""


class Exists(Conflict):
    """A record with this key is already there."""


class Several(Conflict):
    """More than one record has this key."""


class Invalid(Error, ValueError):
    """The registry cannot hold this name, value or record, or a value is not of the type asked for."""


class Damaged(Error):
    """The file is damaged."""


class WriteFailed(_OfSystem):
    """The change could not be written. The old file stands, unless the message says that the change does."""


class NoMemory(Error, MemoryError):
    """There was no memory for the operation."""


class Defect(Error):
    """The library was used as it must not be."""


def _codes(names: str) -> frozenset[str]:
    return frozenset("REG_" + name for name in names.split())


# Those that stand for a step inside.
_WRAPPERS = _codes(
    """OPEN_FAILED OPEN_SERVICE_LIST_FAILED CLOSE_LIST_FAILED NEXT_SERVICE_FAILED NEXT_INSTANCE_FAILED
    GET_SERVICE_FAILED GET_INSTANCE_FAILED LOCK_FAILED RECORD_REFUSED FORMAT_FAILED UNPACK_FAILED CLOSE_FAILED
    PACK_FAILED ADD_SERVICE_FAILED ADD_INSTANCE_FAILED CHANGE_SERVICE_FAILED CHANGE_INSTANCE_FAILED
    REMOVE_SERVICE_FAILED REMOVE_INSTANCE_FAILED VERIFY_FAILED UNLOCK_FAILED"""
)

# Where several fit the first counts; what none has is a failed write.
_KINDS: list[tuple[type[Error], frozenset[str]]] = [
    (NotFound, _codes("NOT_FOUND NO_MORE_RECORDS END_OF_INPUT")),
    (Missing, _codes("MISSING")),
    (Locked, _codes("WOULD_BLOCK LOCK_HELD LOCK_FAILED")),
    (Exists, _codes("DUPLICATE")),
    (Several, _codes("SEVERAL_MATCH")),
    (
        Unreadable,
        _codes(
            """OPEN_FILE_FAILED CLOSE_FILE_FAILED FILE_SIZE_FAILED OPEN_LOCK_FAILED REWIND_FAILED FILE_INFO_FAILED
            LOCK_FILE_FAILED GET_POSITION_FAILED SET_POSITION_FAILED OPEN_FAILED OPEN_SERVICE_LIST_FAILED
            CLOSE_LIST_FAILED NEXT_SERVICE_FAILED NEXT_INSTANCE_FAILED GET_SERVICE_FAILED GET_INSTANCE_FAILED"""
        ),
    ),
    (
        Damaged,
        _codes(
            """FRAME_TRUNCATED UNKNOWN_RECORD_TYPE FIELD_WITHOUT_MEMBER FIELD_MASK_INCONSISTENT READ_FAILED
            FRAME_LENGTH_READ_FAILED FRAME_PAYLOAD_READ_FAILED CHECKSUM_DIFFERS CHECKSUM_READ_FAILED UNPACK_FAILED"""
        ),
    ),
    (
        NoMemory,
        _codes(
            """NO_MEMORY NO_RECORD_BUFFER NO_OLD_RECORD_BUFFER NO_NEW_RECORD_BUFFER NO_CHECKSUM_BUFFER NO_WORK_BUFFER
            NO_PACK_BUFFER NO_UNPACK_BUFFER NO_LIST"""
        ),
    ),
    (
        Defect,
        _codes(
            """NULL_POINTER NOT_CONFIGURED ALREADY_LOCKED RECORD_TOO_SMALL RECORD_SIZE_REFUSED FREE_RECORD_FAILED
            FREE_OLD_RECORD_FAILED FREE_NEW_RECORD_FAILED INVALID_ARGUMENT FEATURE_OUT_OF_RANGE FEATURE_NOT_SET
            FREE_WORK_BUFFER_FAILED NO_VALIDATE_RECORD NO_MATCH_RECORD NO_GET_MAX_RECORD_SIZE NO_GET_RECORD_SIZE
            NO_GET_PACKED_RECORD_SIZE NO_PARSE_LINE NO_FORMAT_LINE NO_UNPACK_RECORD NO_PACK_RECORD
            FREE_PACK_BUFFER_FAILED PACKED_SIZE_DIFFERS FREE_UNPACK_BUFFER_FAILED PATH_BUFFER_TOO_SMALL
            PATH_BUFFER_NULL SCAN_NOT_OPEN SCAN_OPEN BATCH_OPEN NO_BATCH SERVICE_INFO_NULL INSTANCE_INFO_NULL
            LIST_HANDLE_NULL CALLBACK_MISSING"""
        ),
    ),
    (
        Invalid,
        _codes(
            """BASE_NAME_FAILED DIRECTORY_NAME_FAILED EMPTY_ARGUMENT PATH_TOO_LONG EMPTY_RECORD INITTAB_NO_RUN_LEVEL
            INITTAB_NO_ACTION INITTAB_NO_COMMAND NO_EQUAL_SIGN UNTERMINATED_QUOTE SERVICE_WITHOUT_PORT LINE_NOT_PARSED
            FIELD_MASK_EMPTY VERSION_NULL VERSION_FORMAT_FAILED VERSION_BUFFER_TOO_SMALL LINE_TOO_LONG
            LIST_SERVICE_NULL RECORD_REFUSED FORMAT_FAILED"""
        )
        | {
            name
            for name in map(_genreg.code_name, _genreg.codes())
            if name.endswith(("_MISSING", "_EMPTY", "_INVALID")) and name != "REG_MISSING"
        },
    ),
]

# The errors of the system that mean writing.
_WRITING = {errno.ENOSPC, errno.EDQUOT, errno.EFBIG, errno.EIO, errno.EROFS, errno.EMLINK}


def _system_error(code: int) -> int | None:
    return code - _SYSTEM_ERRORS if _SYSTEM_ERRORS < code < _SYSTEM_ERRORS + 0xA0 else None


def kind_of(code: int) -> type[Error]:
    """The kind of failure that a code is, whatever stands behind it."""
    system_error = _system_error(code)
    if system_error is not None:
        return WriteFailed if system_error in _WRITING else Unreadable
    name = _genreg.code_name(code)
    return next((kind for kind, names in _KINDS if name in names), Defect if name == "UNKNOWN" else WriteFailed)


def _deciding(code: int, cause: int) -> int:
    return cause if cause and _genreg.code_name(code) in _WRAPPERS else code


def _sentence(code: int, cause: int, platform_code: int) -> str:
    deciding = _deciding(code, cause)
    if cause == deciding and _genreg.code_name(platform_code) == "REG_MISSING":
        deciding = platform_code
    text = _genreg.code_text(deciding).rstrip(".")
    system_error = _system_error(platform_code) or _system_error(deciding)
    return f"{text}: {os.strerror(system_error)}" if system_error else text


def failure(code: int, cause: int = 0, platform_code: int = 0, path: str = "", message: str = "") -> Error:
    """The exception of a failure."""
    deciding = _deciding(code, cause)
    kind = kind_of(deciding)
    known = platform_code if deciding == cause else 0
    if known == _WOULD_BLOCK:
        kind = Locked
    elif _genreg.code_name(known) == "REG_MISSING":
        kind = Missing
    elif kind is Unreadable and errno.ENOENT in (_system_error(known), _system_error(deciding)):
        kind = Missing
    return kind(code, cause, platform_code, path, message)
