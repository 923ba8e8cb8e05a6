// Next-generation record files from Python: records of any length under
// numbers from 1 (the file's own numbering, kept here), read, written,
// deleted, listed and compacted, without the interpreter (Released.h).

#include <climits>
#include <mutex>
#include <optional>

#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include "Bindings.h"
#include "Errors.h"
#include "Released.h"
#include "recordfile/VFileNG.h"

namespace py = pybind11;

namespace quillet::python {

namespace {

class RecordFile {
public:
    RecordFile(const std::filesystem::path& path, bool writable, bool create)
        : path_(path), wide_(String::FromUtf8(path.string())), file_(wide_.c_str()) {
        py::gil_scoped_release release;
        // A compaction cut off while it swapped names leaves the file under
        // its temporary name: put it back before looking for it.
        VFileNG::RecoverCompaction(wide_.c_str());
        bool opened = create ? file_.Create(VFileNG::kReadWrite, false,
                                            VFileNGIndex::kDefaultPointerLength, false)
                     : writable ? file_.Open(VFileNG::kReadWrite, false, false)
                                : file_.Open(VFileNG::kReadOnly, true, false);
        if (!opened) Fail(create ? "cannot create the record file" : "not a readable record file");
    }

    template <typename Work>
    auto Locked(Work work) {
        return Released(mutex_, [&] {
            if (!file_.IsOpen()) Raise(path_, VFileNG::kErrorNotOpen, "the record file is closed");
            return work(file_);
        });
    }

    [[noreturn]] void Fail(const std::string& what) { Raise(path_, file_.GetLastError(), what); }

    int32_t Count() {
        return Locked([](VFileNG& file) { return file.GetHeader().recordCount; });
    }

    py::object Get(int32_t n) {
        std::optional<std::string> bytes = Locked([&](VFileNG& file) -> std::optional<std::string> {
            if (n < 1 || file.IsRecordDeleted(n)) return std::nullopt;
            int32_t length = file.GetRecordLength(n);
            if (length < 0) Fail("record " + std::to_string(n) + " cannot be read");
            std::string data(static_cast<size_t>(length), '\0');
            if (!file.ReadRecord(n, reinterpret_cast<unsigned char*>(data.data()), length, &length)) {
                Fail("record " + std::to_string(n) + " cannot be read");
            }
            return data;
        });
        if (!bytes) return py::none();
        return py::bytes(*bytes);
    }

    int32_t Put(const py::bytes& data, std::optional<int32_t> number) {
        std::string bytes = data;
        if (bytes.size() > INT32_MAX) throw py::value_error("longer than a record may be");
        return Locked([&](VFileNG& file) {
            const auto* raw = reinterpret_cast<const unsigned char*>(bytes.data());
            auto length = static_cast<int32_t>(bytes.size());
            int32_t n = number.value_or(0);
            bool ok = n == 0                 ? file.InsertRecord(raw, length, &n)
                      : file.RecordExists(n) ? file.UpdateRecord(n, raw, length)
                                             : file.InsertRecordWithId(n, raw, length);
            if (!ok || !file.Flush()) Fail("cannot write record " + std::to_string(n));
            return n;
        });
    }

    void Delete(int32_t n) {
        Locked([&](VFileNG& file) {
            if (n < 1 || file.IsRecordDeleted(n)) {
                throw py::key_error("no record " + std::to_string(n));
            }
            if (!file.DeleteRecord(n) || !file.Flush()) Fail("cannot delete record " + std::to_string(n));
        });
    }

    // The live record numbers, ascending.
    std::vector<int32_t> Numbers() {
        return Locked([](VFileNG& file) {
            std::vector<int32_t> numbers;
            VFileNGIndex& index = file.GetIndex();
            int32_t max = file.GetMaxRecordNumber(false);
            for (int32_t n = index.GetNextStoredNumber(1); n >= 1 && n <= max;
                 n = n < INT32_MAX ? index.GetNextStoredNumber(n + 1) : -1) {
                if (!file.IsRecordDeleted(n)) numbers.push_back(n);
            }
            return numbers;
        });
    }

    void Compact(bool renumber) {
        Locked([&](VFileNG& file) {
            if (!file.CompactFile(renumber)) Fail("compaction failed; the file is as it was");
        });
    }

    void Close() {
        Released(mutex_, [&] {
            if (file_.IsOpen()) file_.Close(false);
        });
    }

private:
    std::filesystem::path path_;
    String wide_;
    VFileNG file_;
    std::mutex mutex_;
};

}  // namespace

void BindRecordFiles(py::module_& module) {
    py::class_<RecordFile>(module, "RecordFile",
                           "A next-generation record file: records of bytes under numbers from 1.")
        .def(py::init([](const std::filesystem::path& path, const std::string& mode) {
                 if (mode != "r" && mode != "r+" && mode != "w") {
                     throw py::value_error("mode is 'r', 'r+' or 'w' (create, replacing)");
                 }
                 return std::make_unique<RecordFile>(path, mode != "r", mode == "w");
             }),
             py::arg("path"), py::arg("mode") = "r")
        .def("__len__", &RecordFile::Count)
        .def("get", &RecordFile::Get, py::arg("n"), "Record n's bytes; None when there is none.")
        .def("put", &RecordFile::Put, py::arg("data"), py::arg("n") = py::none(),
             "Writes record n (a new number above every one used when None); returns the number.")
        .def("delete", &RecordFile::Delete, py::arg("n"))
        .def("numbers", &RecordFile::Numbers, "The live record numbers, ascending.")
        .def("compact", &RecordFile::Compact, py::arg("renumber") = false)
        .def("close", &RecordFile::Close)
        .def("__enter__", [](py::object self) { return self; })
        .def("__exit__", [](RecordFile& f, py::args) { f.Close(); });
}

}  // namespace quillet::python
