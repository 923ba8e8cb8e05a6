"""Files other programs wrote: the columns read_table gives hold the values
record iteration gives; geometries are those the tool prints as GeoJSON;
a bin index built from a layer finds every record whose box meets a query."""

import glob
import json
import math
import os
import subprocess
import unittest

import numpy

import quillet
from support import TempDirTest, peer_samples, tool


def same(column_value, record_value):
    if record_value is None:
        return column_value is None or (isinstance(column_value, float) and math.isnan(column_value))
    return column_value == record_value


def readable(path, opener):
    try:
        return opener(path)
    except quillet.Error:
        return None


class TableSampleTest(unittest.TestCase):
    def test_read_table_equals_record_iteration(self):
        tables = sorted(glob.glob(os.path.join(peer_samples(), "*.dbf")))
        for path in tables:
            with self.subTest(path=os.path.basename(path)):
                try:
                    with quillet.Table(path) as table:
                        records = list(table)
                except quillet.Error:
                    with self.assertRaises(quillet.Error):
                        quillet.read_table(path)
                    continue
                columns = quillet.read_table(path)
                for name, values in columns.items():
                    as_python = values.astype("O") if values.dtype.kind != "M" else [
                        None if numpy.isnat(v) else v.item() for v in values]
                    self.assertEqual(len(as_python), len(records))
                    for got, record in zip(as_python, records):
                        self.assertTrue(same(got, record[name]), (name, got, record[name]))


class ShapeSampleTest(TempDirTest):
    def layers(self):
        return sorted(glob.glob(os.path.join(peer_samples(), "*.shp")))

    def test_geometry_is_what_the_tool_prints(self):
        program = tool()
        for path in self.layers():
            layer = readable(path, quillet.ShapeFile)
            if layer is None:
                continue
            with self.subTest(path=os.path.basename(path)):
                run = subprocess.run([program, "shp", "records", path, "--format", "geojson"],
                                     capture_output=True, text=True)
                expected = [json.loads(line) for line in run.stdout.splitlines()]
                got = []
                for n in range(len(layer)):
                    data = layer.record_bytes(n)
                    if data is None:
                        continue  # deleted
                    try:
                        got.append(quillet.to_geojson(quillet.decode_shape(data)))
                    except ValueError:
                        continue  # the tool reports it after the others
                self.assertEqual(json.loads(json.dumps(got)), expected)

    def test_bin_index_finds_every_record_whose_box_meets_the_query(self):
        for path in self.layers():
            layer = readable(path, quillet.ShapeFile)
            if layer is None or len(layer) == 0:
                continue
            with self.subTest(path=os.path.basename(path)):
                copy = self.path(os.path.basename(path))
                for ext in (".shp", ".shx"):
                    with open(path[:-4] + ext, "rb") as f, open(copy[:-4] + ext, "wb") as g:
                        g.write(f.read())
                built = quillet.build_bin_index(copy)
                self.assertEqual(built["features"], len(layer))
                index = quillet.BinIndex(copy)
                xmin, ymin, xmax, ymax = layer.extent
                query = (xmin, ymin, (xmin + xmax) / 2, (ymin + ymax) / 2)
                found = set(index.query(*query).tolist())
                for n in range(len(layer)):
                    data = layer.record_bytes(n)
                    if data is None:
                        continue
                    try:
                        shape = quillet.decode_shape(data)
                    except ValueError:
                        continue
                    if shape["type"] == 0:
                        continue
                    xs = [p[0] for p in shape["points"]]
                    ys = [p[1] for p in shape["points"]]
                    meets = min(xs) <= query[2] and max(xs) >= query[0] and \
                        min(ys) <= query[3] and max(ys) >= query[1]
                    if meets:
                        self.assertIn(n, found)


if __name__ == "__main__":
    unittest.main()
