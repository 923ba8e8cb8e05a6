"""Many tables and layers at once, as Dask tasks: on the threads of this
process, on local worker processes, or on a cluster of machines, whichever
scheduler is active (a `distributed.Client` makes its cluster the one).

    import quillet.dask
    frame = quillet.dask.read_tables("parcels/*.dbf", columns=["OWNER", "AREA"])
    print(frame.groupby("OWNER").AREA.sum().compute())
    summary = quillet.dask.build_indexes("parcels/*.shp")

The tasks open the files by their absolute paths here, so every worker must
see them at those paths and have the module installed.
"""

from __future__ import annotations

import glob
import os
from typing import Any, Iterable, Literal, Sequence, Union

import dask
import dask.dataframe
import pandas

from . import Table, build_bin_index, read_columns

PathLike = Union[str, os.PathLike]

# A table of more records than this is read as ranges of this many records,
# a partition each, so that no one task holds a whole big table.
RECORDS_PER_PARTITION = 1_000_000

# The dtype of a column in every partition, from its field's type alone: a
# partition cannot know whether another holds a blank or a fraction, so that
# numbers are float64 (NaN where blank) and logicals pandas' nullable boolean.
_DTYPES = {"N": "float64", "F": "float64", "D": "datetime64[ns]", "L": "boolean"}


def _dtype(field_type: str) -> str:
    return _DTYPES.get(field_type, "object")


def _paths(paths_or_glob: PathLike | Iterable[PathLike]) -> list[str]:
    """A pattern's matches, sorted, or the paths given; absolute, since a
    worker may run in another folder than this process."""
    if isinstance(paths_or_glob, (str, os.PathLike)):
        paths = sorted(glob.glob(os.fspath(paths_or_glob)))
        if not paths:
            raise FileNotFoundError("no file matches %s" % os.fspath(paths_or_glob))
    else:
        paths = [os.fspath(path) for path in paths_or_glob]
        if not paths:
            raise ValueError("no files given")
    return [os.path.abspath(path) for path in paths]


def _fields(path: str) -> list[tuple[str, str, int, int]]:
    with Table(path) as table:
        return table.fields


def _schema(path: str, fields: list[tuple[str, str, int, int]],
            columns: list[str] | None) -> list[tuple[str, str]]:
    """(name, dtype) of the fields named, found as the library finds them (in
    any case), or of every field; a KeyError names a field the table lacks."""
    typed = [(name, _dtype(field_type)) for name, field_type, _, _ in fields]
    if columns is None:
        return typed
    by_name = {field[0].upper(): field for field in typed}
    missing = [name for name in columns if name.upper() not in by_name]
    if missing:
        raise KeyError("no field named %s in %s" % (", ".join(missing), path))
    return [by_name[name.upper()] for name in columns]


def _ranges(path: str, record_length: int, per_partition: int) -> list[tuple[int, int | None]]:
    """Record ranges that cover the table without opening it: its size over
    the first table's record length is at least its count when its records
    are as long or longer; the last range runs to the end, so that a table
    of shorter records, or one that grew since, is still read whole."""
    records = os.path.getsize(path) // record_length
    starts = list(range(0, max(records, 1), per_partition))
    return list(zip(starts, starts[1:] + [None]))


def _describe(schema: list[tuple[str, str]]) -> str:
    return ", ".join("%s %s" % field for field in schema)


def _frame(arrays: dict[str, Any], schema: list[tuple[str, str]]) -> pandas.DataFrame:
    return pandas.DataFrame({name: pandas.Series(arrays[name], dtype=dtype)
                             for name, dtype in schema})


def _read_range(part: tuple[str, int, int | None], columns: list[str] | None,
                schema: list[tuple[str, str]], first: str, text: str) -> pandas.DataFrame:
    path, start, stop = part
    own = _schema(path, _fields(path), columns)
    if own != schema:
        raise ValueError("%s has the fields %s, where %s has %s"
                         % (path, _describe(own), first, _describe(schema)))
    return _frame(read_columns(path, [name for name, _ in schema], start, stop, text), schema)


def read_tables(paths_or_glob: PathLike | Iterable[PathLike],
                columns: Sequence[str] | None = None,
                records_per_partition: int = RECORDS_PER_PARTITION,
                text: Literal["object", "fixed"] = "object") -> dask.dataframe.DataFrame:
    """The live records of many tables (a glob pattern, or paths) as one Dask
    DataFrame, a partition per table, or per range of records of a table with
    more than `records_per_partition`; in the tables' order, each partition's
    index from 0. Only the first table is opened here: its fields (those
    named in `columns`, all when None) give every column's dtype (numbers
    float64, dates datetime64[ns], logicals boolean, text object; NaN, NaT,
    <NA> and None where blank). `text` is read_table's; pandas holds text as
    str objects either way, so that "fixed" reads blanks as "" instead of
    None. A table whose fields have other names or types fails, when it is
    read, with a ValueError naming it."""
    if records_per_partition < 1:
        raise ValueError("records_per_partition must be at least 1")
    paths = _paths(paths_or_glob)
    columns = list(columns) if columns else None  # none named means all, as in read_table
    fields = _fields(paths[0])
    schema = _schema(paths[0], fields, columns)
    record_length = 1 + sum(width for _, _, width, _ in fields)
    parts = [(path, start, stop) for path in paths
             for start, stop in _ranges(path, record_length, records_per_partition)]
    # Read from no records, which also refuses a wrong `text` now rather than
    # in every task.
    meta = _frame(read_columns(paths[0], [name for name, _ in schema], 0, 0, text), schema)
    return dask.dataframe.from_map(_read_range, parts, columns=columns, schema=schema,
                                   first=paths[0], text=text, meta=meta,
                                   label="quillet-read-tables")


def _build(shp: str) -> dict[str, Any]:
    try:
        built = build_bin_index(shp)
    except OSError as error:
        return {"path": shp, "ok": False, "error": str(error), "features": 0}
    return {"path": shp, "ok": True, "error": None, "features": built["features"],
            "levels": built["levels"], "bins": built["bins"]}


def build_indexes(paths_or_glob: PathLike | Iterable[PathLike]) -> dict[str, Any]:
    """Builds the bin index (.sbn/.sbx) of every layer (a glob pattern of
    .shp files, or their paths), a Dask task each, and waits for them. A
    layer that fails does not stop the others. Returns {"layers": per layer
    in the order given {"path", "ok", "error" (the failure's text, None when
    ok), "features", and when ok "levels" and "bins"}, "built", "failed",
    "features" (of the layers built)}."""
    layers = list(dask.compute(*[dask.delayed(_build, pure=False)(path)
                                 for path in _paths(paths_or_glob)]))
    built = [layer for layer in layers if layer["ok"]]
    return {"layers": layers, "built": len(built), "failed": len(layers) - len(built),
            "features": sum(layer["features"] for layer in built)}
