#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include "Bindings.h"
#include "Table.h"

namespace py = pybind11;

namespace quillet::python {

namespace {

std::vector<py::str> FieldKeys(Table& table) {
    std::vector<py::str> keys;
    for (const auto& field : table.Fields()) keys.emplace_back(field.name);
    return keys;
}

py::object RecordObject(const std::vector<CellValue>& cells, const std::vector<py::str>& keys,
                        bool asTuple) {
    if (asTuple) {
        py::tuple tuple(cells.size());
        for (size_t i = 0; i < cells.size(); ++i) tuple[i] = ToPython(cells[i]);
        return tuple;
    }
    py::dict dict;
    for (size_t i = 0; i < cells.size(); ++i) dict[keys[i]] = ToPython(cells[i]);
    return dict;
}

// Live records in file order, as dicts or tuples. The field names are taken
// when the iteration starts.
class RecordIterator {
public:
    RecordIterator(std::shared_ptr<Table> table, bool asTuples)
        : table_(std::move(table)), keys_(FieldKeys(*table_)), asTuples_(asTuples) {}

    py::object Next() {
        while (next_ < table_->Count()) {
            if (table_->ReadRecord(next_++, cells_)) return RecordObject(cells_, keys_, asTuples_);
        }
        throw py::stop_iteration();
    }

private:
    std::shared_ptr<Table> table_;
    std::vector<py::str> keys_;
    bool asTuples_;
    int32_t next_ = 0;
    std::vector<CellValue> cells_;
};

py::object ReadOne(Table& table, int32_t n, bool asTuple) {
    std::vector<CellValue> cells;
    if (n < 0) n += table.Count();
    if (!table.ReadRecord(n, cells)) return py::none();
    return RecordObject(cells, FieldKeys(table), asTuple);
}

FieldInfo FieldOf(const std::string& name, const std::string& type, int width, int decimals) {
    if (type.size() != 1) throw py::value_error("a field type is one letter: C, D, F, L or N");
    return {name, type[0], width, decimals};
}

uint32_t CodePageKind(const std::string& kind) {
    static const std::pair<const char*, CodePage::qovaCodePageEnum> kinds[] = {
        {"default", CodePage::qovaCodePageDefault}, {"OEM", CodePage::qovaCodePageOEM},
        {"ANSI", CodePage::qovaCodePageANSI},       {"ISO", CodePage::qovaCodePageISO},
        {"UTF-8", CodePage::qovaCodePageUTF8}};
    for (const auto& [name, value] : kinds) {
        if (kind == name) return value;
    }
    throw py::value_error("code_page is one of 'default', 'OEM', 'ANSI', 'ISO', 'UTF-8', not " +
                          kind);
}

// (name, type, width) or (name, type, width, decimals).
FieldInfo FieldOf(const py::sequence& description) {
    if (description.size() != 3 && description.size() != 4) {
        throw py::value_error("a field is (name, type, width[, decimals])");
    }
    return FieldOf(description[0].cast<std::string>(), description[1].cast<std::string>(),
                   description[2].cast<int>(),
                   description.size() == 4 ? description[3].cast<int>() : 0);
}

std::shared_ptr<Table> Create(const std::filesystem::path& path, const std::vector<py::sequence>& fields,
                              const std::string& codePage) {
    std::vector<FieldInfo> infos;
    for (const auto& field : fields) infos.push_back(FieldOf(field));
    return Table::Create(path, infos, CodePageKind(codePage));
}

std::vector<std::tuple<std::string, std::string, int, int>> FieldTuples(Table& table) {
    std::vector<std::tuple<std::string, std::string, int, int>> out;
    for (const auto& f : table.Fields()) out.emplace_back(f.name, std::string(1, f.type), f.width, f.decimals);
    return out;
}

}  // namespace

void BindTables(py::module_& module) {
    py::class_<RecordIterator>(module, "RecordIterator")
        .def("__iter__", [](py::object self) { return self; })
        .def("__next__", &RecordIterator::Next);

    py::class_<Table, std::shared_ptr<Table>>(module, "Table",
        "A dBASE table. Records count from 0; values are typed as their fields say.")
        .def(py::init([](const std::filesystem::path& path, const std::string& mode) {
                 if (mode != "r" && mode != "r+") throw py::value_error("mode is 'r' or 'r+'");
                 return std::make_shared<Table>(path, mode == "r+");
             }),
             py::arg("path"), py::arg("mode") = "r")
        .def_static("create", &Create, py::arg("path"), py::arg("fields"),
                    py::arg("code_page") = "default",
                    "Makes a new table of fields (name, type, width[, decimals]), opened for writing.")
        .def_property_readonly("path", [](const Table& t) { return t.path(); })
        .def_property_readonly("fields", &FieldTuples)
        .def_property_readonly("field_names", [](Table& t) {
            std::vector<std::string> names;
            for (const auto& f : t.Fields()) names.push_back(f.name);
            return names;
        })
        .def_property_readonly("code_page", &Table::CodePageInfo)
        .def("__len__", &Table::Count)
        .def("__iter__", [](std::shared_ptr<Table> t) { return RecordIterator(t, false); })
        .def("records", [](std::shared_ptr<Table> t, bool asTuples) { return RecordIterator(t, asTuples); },
             py::arg("as_tuples") = false)
        .def("record", &ReadOne, py::arg("n"), py::arg("as_tuple") = false,
             "Record n as a dict (or tuple); None when it is marked deleted.")
        .def("__getitem__", [](Table& t, int32_t n) { return ReadOne(t, n, false); })
        .def("is_deleted", &Table::IsDeleted, py::arg("n"))
        .def("append", &Table::Append, py::arg("values"))
        .def("update", &Table::Update, py::arg("n"), py::arg("values"))
        .def("delete", &Table::Delete, py::arg("n"),
             "Marks record n deleted; it goes from the file at close or pack.")
        .def("add_field", [](Table& t, const std::string& name, const std::string& type, int width,
                             int decimals, py::object value) {
                 t.AddField(FieldOf(name, type, width, decimals), value);
             },
             py::arg("name"), py::arg("type"), py::arg("width"), py::arg("decimals") = 0,
             py::arg("value") = py::none())
        .def("drop_field", &Table::DropField, py::arg("name"))
        .def("pack", &Table::Pack, "Removes the records marked deleted.")
        .def("close", &Table::Close)
        .def("__enter__", [](py::object self) { return self; })
        .def("__exit__", [](Table& t, py::args) { t.Close(); });
}

}  // namespace quillet::python
