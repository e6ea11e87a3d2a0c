# Types of kora.dask (Dask ships no types for bags and dataframes: they are Any here).
import os
from typing import Any, Dict, Iterable, NamedTuple, Optional, Sequence, Tuple, Union

import numpy
import numpy.typing

from . import DatabaseError

_Path = Union[str, bytes, os.PathLike[str], os.PathLike[bytes]]

DEFAULT_ENTRIES_PER_PARTITION: int
SUMMARY_COLUMNS: Tuple[str, ...]

class Source(NamedTuple):
    path: str
    format: Optional[str]
    classic: bool
    size: int
    mtime_ns: int

class Record(NamedTuple):
    source: Source
    entry_index: int
    identifier: str
    molecules: int
    atoms: int
    bonds: int
    formula: str
    charge: int
    cell: Optional[Tuple[float, float, float, float, float, float]]
    spacegroup: Optional[str]
    spacegroup_number: Optional[int]
    data: Dict[str, str]
    coordinates: numpy.typing.NDArray[numpy.float64]

class FileChangedError(DatabaseError): ...

def read_bag(
    paths: Union[_Path, Iterable[_Path]],
    entries_per_partition: int = ...,
    format: Optional[str] = None,
    classic: bool = False,
    save_index: bool = True,
) -> Any: ...
def read_dataframe(
    paths: Union[_Path, Iterable[_Path]],
    entries_per_partition: int = ...,
    format: Optional[str] = None,
    classic: bool = False,
    save_index: bool = True,
    data_items: Optional[Sequence[str]] = None,
) -> Any: ...
def to_files(
    bag: Any,
    pattern: Union[str, os.PathLike[str]],
    format: Optional[str] = None,
    v3000: bool = False,
    classic: bool = False,
    compute: bool = True,
) -> Any: ...
