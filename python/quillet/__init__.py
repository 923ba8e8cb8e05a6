"""Direct access to file-based geographic data stores: dBASE tables, shape
files, spatial bin indexes, column indexes, B-tree indexes, record files
and the code pages of table text.

    import quillet
    with quillet.Table("roads.dbf") as table:
        for record in table:
            print(record["NAME"], record["OPENED"])
    columns = quillet.read_table("roads.dbf", columns=["NAME", "LENGTH"])

quillet.dask (imported on its own, as it needs Dask) reads many tables as
one Dask DataFrame and builds many layers' bin indexes as Dask tasks.

Records count from 0. Failures of the library raise quillet.Error, an
OSError whose `status` is the library's status code and whose `path` is the
file it was working on.
"""

from __future__ import annotations

import os
from typing import TYPE_CHECKING, Any, Iterator, Literal, Sequence

from ._quillet import (BinIndex, BTreeIndex, Error, RecordFile, ShapeFile, Table, build_bin_index,
                       build_column_index, code_page_info, decode, decode_shape, encode,
                       query_column_index, read_columns)
from .geometry import SHAPE_TYPE_NAMES, to_geojson

if TYPE_CHECKING:
    import numpy
    import pandas

__all__ = ["BinIndex", "BTreeIndex", "Error", "RecordFile", "ShapeFile", "Table", "build_bin_index",
           "build_column_index", "code_page_info", "query_column_index",
           "decode", "decode_shape", "encode", "geometry", "read_table", "shapes",
           "SHAPE_TYPE_NAMES", "to_geojson"]


def read_table(path: os.PathLike | str, columns: Sequence[str] | None = None,
               as_pandas: bool = False, start: int = 0, stop: int | None = None,
               text: Literal["object", "fixed"] = "object",
               ) -> dict[str, numpy.ndarray] | pandas.DataFrame:
    """The live records of a table as a dict of numpy arrays by field name:
    numbers as float64 (int64 for a field without decimals whose values are all
    whole; NaN where blank), dates as datetime64[D] (NaT where there is none),
    logicals as bool (object with None where unknown), text as object arrays
    of str (None where blank). With text="fixed", text comes as fixed-width
    unicode arrays as wide as the field ("" where blank), made without a str
    object per value. `columns` names the fields to read, all when None.
    With `as_pandas`, a pandas DataFrame of the same columns (pandas holds
    fixed-width text as str objects).
    `start` and `stop` read only the live records among records [start, stop)
    of the file, deleted ones counted, so that ranges side by side read every
    live record once."""
    arrays = read_columns(path, columns, start, stop, text)
    if not as_pandas:
        return arrays
    import pandas
    return pandas.DataFrame(arrays, copy=False)


def geometry(shape_file: ShapeFile, n: int) -> dict[str, Any] | None:
    """Record n of an open ShapeFile as a GeoJSON-like geometry dict, None for
    a null shape or a deleted record."""
    data = shape_file.record_bytes(n)
    return None if data is None else to_geojson(decode_shape(data))


def shapes(shape_file: ShapeFile) -> Iterator[tuple[int, dict[str, Any] | None]]:
    """(record number, GeoJSON-like geometry) of each live record, in order."""
    for n in range(len(shape_file)):
        data = shape_file.record_bytes(n)
        if data is not None:
            yield n, to_geojson(decode_shape(data))
