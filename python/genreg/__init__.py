"""Registries as Python has them: mappings whose every change is a locked, verified commit.

Variables, BinVariables, Services and InitTab are files of their kinds; GlobalRegistry is the machine's registry of
installed copies, instances and settings. Every failure is an Error.
"""

from genreg._entries import InitEntry, InitTab, InitTabBatch, Service, Services, ServicesBatch
from genreg._errors import (
    Conflict,
    Damaged,
    Defect,
    Error,
    Exists,
    Invalid,
    Locked,
    Missing,
    NoMemory,
    NotFound,
    Several,
    Unreadable,
    WriteFailed,
)
from genreg._global import GlobalBatch, GlobalRegistry, GlobalVariable, InstalledService, Instance
from genreg._values import BinVariable, BinVariables, BinVariablesBatch, Variable, Variables, VariablesBatch

__all__ = [
    "BinVariable",
    "BinVariables",
    "BinVariablesBatch",
    "Conflict",
    "Damaged",
    "Defect",
    "Error",
    "Exists",
    "GlobalBatch",
    "GlobalRegistry",
    "GlobalVariable",
    "InitEntry",
    "InitTab",
    "InitTabBatch",
    "InstalledService",
    "Instance",
    "Invalid",
    "Locked",
    "Missing",
    "NoMemory",
    "NotFound",
    "Service",
    "Services",
    "ServicesBatch",
    "Several",
    "Unreadable",
    "Variable",
    "Variables",
    "VariablesBatch",
    "WriteFailed",
]

# As what they are known outside: in tracebacks, and where they are pickled.
for _name in __all__:
    globals()[_name].__module__ = __name__
