#include "Bindings.h"

PYBIND11_MODULE(_quillet, module) {
    module.doc() =
        "The compiled part of quillet: tables, shape files, bin, column and B-tree indexes, "
        "record files, code pages.";
    using namespace quillet::python;
    BindErrors(module);
    BindCodePages(module);
    BindTables(module);
    BindColumns(module);
    BindShapes(module);
    BindBinIndexes(module);
    BindRecordFiles(module);
    BindColumnIndexes(module);
    BindBTreeIndexes(module);
}
