"""quillet.dask over many layers: 200 layers of 20,000 point features each
(copies of one, whose table and shapes are written first; the shapes as the
module's tests write them), read and indexed in turn, on Dask's threads and
on a local cluster of 2 worker processes. Best of 3 seconds each. No target:
this shows what the tasks cost against the work they share out."""

import glob
import os
import shutil
import sys
import tempfile

from read_table import best_of

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "python", "tests"))

LAYERS = int(os.environ.get("QUILLET_BENCH_LAYERS", "200"))
RECORDS = int(os.environ.get("QUILLET_BENCH_LAYER_RECORDS", "20000"))
FIELDS = [("NAME", "C", 20), ("COUNT", "N", 10, 0), ("VALUE", "N", 15, 4), ("SEEN", "D", 8)]


def write_layers(folder):
    import datetime
    import quillet
    from support import write_points
    first = os.path.join(folder, "layer0000")
    with quillet.Table.create(first + ".dbf", FIELDS) as table:
        for n in range(RECORDS):
            table.append(("name %d" % (n % 5000), n * 7, n / 7.0,
                          datetime.date(1990 + n % 30, 1 + n % 12, 1)))
    write_points(first + ".shp", [(n % 1000, n // 1000) for n in range(RECORDS)])
    for i in range(1, LAYERS):
        for ext in (".dbf", ".shp", ".shx"):
            shutil.copyfile(first + ext, os.path.join(folder, "layer%04d%s" % (i, ext)))


def in_turn(folder):
    import pandas
    import quillet
    return {
        "read": lambda: pandas.concat([quillet.read_table(p, as_pandas=True)
                                       for p in sorted(glob.glob(os.path.join(folder, "*.dbf")))]),
        "index": lambda: [quillet.build_bin_index(p)
                          for p in glob.glob(os.path.join(folder, "*.shp"))],
    }


def as_tasks(folder):
    import quillet.dask
    tables, layers = os.path.join(folder, "*.dbf"), os.path.join(folder, "*.shp")
    return {
        "read": lambda: quillet.dask.read_tables(tables).compute(),
        "read and sum VALUE": lambda: quillet.dask.read_tables(tables).VALUE.sum().compute(),
        "index": lambda: quillet.dask.build_indexes(layers),
    }


def report(how, ways):
    for name, work in ways.items():
        print("   %-20s %-22s %8.3f s" % (name, how, best_of(3, work)))


def main():
    try:
        import distributed
        import quillet.dask  # noqa: F401
    except ImportError as error:
        print("dask_layers: skipped, %s" % error)
        return 0
    with tempfile.TemporaryDirectory(prefix="quillet-bench-") as folder:
        write_layers(folder)
        print("quillet.dask, %d layers of %d records" % (LAYERS, RECORDS))
        report("in turn", in_turn(folder))
        import dask
        with dask.config.set(scheduler="threads"):
            report("tasks on threads", as_tasks(folder))
        with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                      dashboard_address=None) as cluster:
            with distributed.Client(cluster):
                report("tasks on 2 processes", as_tasks(folder))
    return 0


if __name__ == "__main__":
    sys.exit(main())
