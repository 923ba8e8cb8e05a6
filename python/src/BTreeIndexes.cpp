// B-tree indexes from Python: files of (key, record id) entries in the
// next-generation node format ("ng", which records its key type) or the older
// one ("old", which does not: the caller names it). Entries are inserted,
// deleted, looked up exactly, searched by key and by range, walked in order,
// and bulk-loaded from whole sequences or numpy arrays. The file work runs
// without the interpreter (Released.h).

#include <climits>
#include <filesystem>
#include <mutex>
#include <optional>
#include <span>

#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include "BTreeKeys.h"
#include "Bindings.h"
#include "CodePageChoice.h"
#include "Errors.h"
#include "IdArray.h"
#include "Released.h"
#include "attrindex/MTIndexNG.h"
#include "attrindex/MTSearch.h"

namespace py = pybind11;

namespace quillet::python {

namespace {

// What the caller says of an index that its file may not record.
struct IndexOptions {
    std::string mode;
    std::string format;
    MTDataType type = MTNone;
    int32_t width = 0;
    uint32_t codePage = 0;
};

IndexOptions OptionsOf(const std::string& mode, const std::optional<std::string>& keyType,
                       int32_t width, const std::string& format,
                       const std::optional<CodePageName>& codePage) {
    if (mode != "r" && mode != "r+" && mode != "w") {
        throw py::value_error("mode is 'r', 'r+' or 'w' (create, replacing)");
    }
    if (format != "ng" && format != "old") throw py::value_error("format is 'ng' or 'old'");
    IndexOptions options{mode, format, MTNone, width, codePage ? CodePageIdOf(*codePage) : 0};
    if (keyType) {
        options.type = MTDataTypeOfName(*keyType);
        if (options.type == MTNone) {
            throw py::value_error("unknown key type '" + *keyType +
                                  "' (string, wstring, short, long, int64, float, double, date, "
                                  "datemap1, datemap2)");
        }
    } else if (format == "old" || mode == "w") {
        throw py::value_error(format == "old" ? "an index of the older format does not record its "
                                                "key type: give key_type"
                                              : "a new index needs key_type");
    }
    if (IsStringType(options.type) && width < 1) {
        throw py::value_error("give the width of text keys (bytes of string, characters of wstring)");
    }
    return options;
}

std::unique_ptr<MTIndex> MakeIndex(const IndexOptions& options) {
    if (options.format == "old") {
        return std::make_unique<MTIndex>(options.type, options.width, options.codePage);
    }
    if (options.type != MTNone) {
        return std::make_unique<MTIndexNG>(options.type, options.width, options.codePage);
    }
    // The file's trailer gives the key type.
    auto index = std::make_unique<MTIndexNG>();
    index->SetCodePage(options.codePage);
    return index;
}

class BTreeIndex {
public:
    BTreeIndex(const std::filesystem::path& path, const IndexOptions& options)
        : path_(path), index_(MakeIndex(options)), writable_(options.mode != "r") {
        py::gil_scoped_release release;
        bool create = options.mode == "w";
        HRESULT hr = index_->Open(String::FromUtf8(path.string()).c_str(),
                                  GENERIC_READ | (writable_ ? GENERIC_WRITE : 0),
                                  writable_ ? 0 : FILE_SHARE_READ, nullptr,
                                  create ? CREATE_ALWAYS : OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL,
                                  nullptr);
        if (FAILED(hr)) {
            Raise(path, hr, create ? "cannot create the index"
                                   : "not a readable " + options.format + " index of that key type");
        }
    }

    template <typename Work>
    auto Locked(Work work) {
        return Released(mutex_, [&] {
            if (!index_->IsOpen()) Raise(path_, E_UNEXPECTED, "the index is closed");
            return work(*index_);
        });
    }

    [[noreturn]] void Fail(HRESULT hr, const std::string& what) { Raise(path_, hr, what); }

    MTDataType Type() const { return index_->GetDataType(); }

    KeyList KeyOf(const py::handle& value) const {
        KeyList keys(Type());
        keys.Append(value);
        return keys;
    }

    // work(index, key) on the key of a Python value.
    template <typename Work>
    auto WithKey(const py::handle& value, Work work) {
        KeyList keys = KeyOf(value);
        return Locked([&](MTIndex& index) {
            MTKey key;
            keys.Get(0, key);
            return work(index, key);
        });
    }

    bool Insert(const py::handle& value, int32_t id) {
        return WithKey(value, [&](MTIndex& index, const MTKey& key) {
            HRESULT hr = index.Insert(key, id);
            if (FAILED(hr)) Fail(hr, "cannot insert an entry");
            return hr == S_OK;
        });
    }

    // False when there was no such entry.
    bool Delete(const py::handle& value, int32_t id) {
        return WithKey(value, [&](MTIndex& index, const MTKey& key) {
            HRESULT hr = index.SearchKeyValue(key, id);
            bool found = hr == S_OK;
            if (found) hr = index.Delete(key, id);
            if (FAILED(hr)) Fail(hr, "cannot delete an entry");
            return found;
        });
    }

    bool Contains(const py::handle& value, int32_t id) {
        return WithKey(value, [&](MTIndex& index, const MTKey& key) {
            HRESULT hr = index.SearchKeyValue(key, id);
            if (FAILED(hr)) Fail(hr, "cannot search the index");
            return hr == S_OK;
        });
    }

    // The ids of the entries from `low` (or the first) up to `high` (or the
    // last), ascending.
    py::array_t<int32_t> Range(const py::object& low, const py::object& high, bool includeLow,
                               bool includeHigh) {
        std::optional<KeyList> from, to;
        if (!low.is_none()) from = KeyOf(low);
        if (!high.is_none()) to = KeyOf(high);
        FIDSet found;
        Locked([&](MTIndex& index) {
            MTSearch cursor;
            MTKey key;
            if (from) from->Get(0, key);
            HRESULT hr = from ? index.Search(key, includeLow, cursor) : index.SearchFirst(cursor);
            if (to) to->Get(0, key);
            if (SUCCEEDED(hr)) hr = to ? cursor.ReadTo(key, includeHigh, &found) : cursor.ReadToEnd(&found);
            if (FAILED(hr)) Fail(hr, "cannot search the index");
        });
        return IdArray(found);
    }

    // (key, id) of the entries in order from the first key >= start.
    py::list Items(const py::object& start, std::optional<int64_t> limit) {
        std::optional<KeyList> from;
        if (!start.is_none()) from = KeyOf(start);
        KeyList keys(Type());
        std::vector<int32_t> ids;
        Locked([&](MTIndex& index) {
            MTSearch cursor;
            MTKey key;
            if (from) from->Get(0, key);
            HRESULT hr = from ? index.Search(key, true, cursor) : index.SearchFirst(cursor);
            int32_t id = 0;
            while (SUCCEEDED(hr) && (!limit || int64_t(ids.size()) < *limit) &&
                   (hr = cursor.Next(key, id)) == S_OK) {
                keys.Append(key);
                ids.push_back(id);
            }
            if (FAILED(hr)) Fail(hr, "cannot walk the index");
        });
        py::list out;
        for (size_t i = 0; i < ids.size(); ++i) out.append(py::make_tuple(keys.ToPython(i), ids[i]));
        return out;
    }

    py::object EdgeKey(bool last) {
        KeyList keys(Type());
        Locked([&](MTIndex& index) {
            MTKey key;
            HRESULT hr = last ? index.GetMaxKey(key) : index.GetMinKey(key);
            if (FAILED(hr)) Fail(hr, "cannot read the index");
            if (hr == S_OK) keys.Append(key);
        });
        return keys.size() ? keys.ToPython(0) : py::none();
    }

    // Every entry of the sequences is written in one sorted pass, replacing
    // the entries there (or, with merge, taken in with them).
    int64_t BulkLoad(const py::handle& values, const py::handle& ids, bool merge) {
        KeyList keys(Type());
        keys.AppendAll(values);
        std::vector<int32_t> numbers = IdsOf(ids);
        if (numbers.size() != keys.size()) {
            throw py::value_error("keys and ids are of different lengths (" +
                                  std::to_string(keys.size()) + ", " + std::to_string(numbers.size()) + ")");
        }
        Locked([&](MTIndex& index) {
            HRESULT hr = index.StartBulkLoad(static_cast<int32_t>(std::min<size_t>(numbers.size(), INT32_MAX)));
            MTKey key;
            for (size_t i = 0; SUCCEEDED(hr) && i < numbers.size(); ++i) {
                keys.Get(i, key);
                hr = index.BulkInsert(key, numbers[i]);
            }
            // Ends the bulk load even after a failure, so that the index
            // takes single entries again.
            HRESULT finished = index.IsBulkLoading() ? index.FinishBulkLoad(merge) : S_OK;
            if (SUCCEEDED(hr)) hr = finished;
            if (FAILED(hr)) Fail(hr, "the bulk load failed");
        });
        return Count();
    }

    int64_t Count() {
        return Locked([&](MTIndex& index) -> int64_t {
            if (auto* ng = dynamic_cast<MTIndexNG*>(&index)) return ng->GetEntryCount();
            int64_t entries = 0;
            int32_t nodes = 0;
            HRESULT hr = index.CountTree(entries, nodes);
            if (FAILED(hr)) Fail(hr, "cannot read the index");
            return entries;
        });
    }

    void Validate() {
        Locked([&](MTIndex& index) {
            HRESULT hr = index.Validate();
            if (FAILED(hr)) Fail(hr, "the tree is inconsistent");
        });
    }

    void Flush() {
        Locked([&](MTIndex& index) {
            HRESULT hr = index.Flush();
            if (FAILED(hr)) Fail(hr, "cannot write the index");
        });
    }

    void Close() {
        HRESULT hr = Released(mutex_, [&] { return index_->IsOpen() ? index_->Close() : S_OK; });
        // Closing writes the next-generation trailer, which a file open for
        // reading refuses; nothing of it was changed, so nothing is lost.
        if (FAILED(hr) && writable_) Fail(hr, "cannot close the index");
    }

    const std::filesystem::path& Path() const { return path_; }
    const MTIndex& Index() const { return *index_; }

private:
    static std::vector<int32_t> IdsOf(const py::handle& ids) {
        auto numbers = py::array::ensure(py::module_::import("numpy").attr("asarray")(ids));
        char kind = numbers.dtype().kind();
        if (numbers.ndim() != 1 || (numbers.size() > 0 && kind != 'i' && kind != 'u')) {
            throw py::type_error("ids are a sequence of int");
        }
        std::vector<int32_t> out;
        auto wide = py::array_t<int64_t, py::array::forcecast>::ensure(numbers);
        for (int64_t id : std::span(wide.data(), static_cast<size_t>(wide.size()))) {
            if (id < INT32_MIN || id > INT32_MAX) {
                throw std::overflow_error("id " + std::to_string(id) + " is not a 32-bit record id");
            }
            out.push_back(static_cast<int32_t>(id));
        }
        return out;
    }

    std::filesystem::path path_;
    std::unique_ptr<MTIndex> index_;
    bool writable_;
    std::mutex mutex_;
};

}  // namespace

void BindBTreeIndexes(py::module_& module) {
    py::class_<BTreeIndex>(module, "BTreeIndex",
                           "A B-tree index file of (key, record id) entries ordered by key, then id.")
        .def(py::init([](const std::filesystem::path& path, const std::string& mode,
                         const std::optional<std::string>& keyType, int32_t width,
                         const std::string& format, const std::optional<CodePageName>& codePage) {
                 return std::make_unique<BTreeIndex>(
                     path, OptionsOf(mode, keyType, width, format, codePage));
             }),
             py::arg("path"), py::arg("mode") = "r", py::arg("key_type") = py::none(),
             py::arg("width") = 0, py::arg("format") = "ng", py::arg("code_page") = py::none(),
             "mode 'r', 'r+' or 'w' (create, replacing); format 'ng' (next generation, which "
             "records its key type) or 'old' (which needs key_type); key_type string, wstring, "
             "short, long, int64, float, double, date, datemap1 or datemap2; width of text keys "
             "in bytes (string) or characters (wstring); code_page of string keys.")
        .def_property_readonly("path", [](const BTreeIndex& i) { return i.Path().string(); })
        .def_property_readonly("format", [](const BTreeIndex& i) { return i.Index().IsLE() ? "ng" : "old"; })
        .def_property_readonly("key_type", [](const BTreeIndex& i) { return MTDataTypeName(i.Type()); })
        .def_property_readonly("key_width", [](const BTreeIndex& i) { return i.Index().GetKeyWidth(); },
                               "Bytes of a key in a node.")
        .def_property_readonly("levels", [](const BTreeIndex& i) { return i.Index().GetLevels(); })
        .def_property_readonly("keys_truncated",
                               [](const BTreeIndex& i) { return i.Index().GetKeysTruncated(); })
        .def("__len__", &BTreeIndex::Count)
        .def("insert", &BTreeIndex::Insert, py::arg("key"), py::arg("id"),
             "Adds the entry; False when it is there already.")
        .def("delete", &BTreeIndex::Delete, py::arg("key"), py::arg("id"),
             "Removes the entry; False when there was none.")
        .def("contains", &BTreeIndex::Contains, py::arg("key"), py::arg("id"))
        .def("search", [](BTreeIndex& i, const py::object& key) { return i.Range(key, key, true, true); },
             py::arg("key"), "The ids of the entries of this key, ascending.")
        .def("search_range", &BTreeIndex::Range, py::arg("low") = py::none(),
             py::arg("high") = py::none(), py::arg("include_low") = true,
             py::arg("include_high") = true,
             "The ids (ascending) of the entries whose key lies between low and high; None "
             "leaves that end open.")
        .def("items", &BTreeIndex::Items, py::arg("start") = py::none(), py::arg("limit") = py::none(),
             "(key, id) of the entries in order, from the first key >= start.")
        .def_property_readonly("min_key", [](BTreeIndex& i) { return i.EdgeKey(false); })
        .def_property_readonly("max_key", [](BTreeIndex& i) { return i.EdgeKey(true); })
        .def("bulk_load", &BTreeIndex::BulkLoad, py::arg("keys"), py::arg("ids"),
             py::arg("merge") = false,
             "Writes the tree anew from keys and ids (sequences or numpy arrays) sorted in one "
             "pass, in place of the entries there or, with merge, with them; the entry count.")
        .def("validate", &BTreeIndex::Validate, "Raises quillet.Error when the tree is inconsistent.")
        .def("flush", &BTreeIndex::Flush)
        .def("close", &BTreeIndex::Close)
        .def("__enter__", [](py::object self) { return self; })
        .def("__exit__", [](BTreeIndex& i, py::args) { i.Close(); });
}

}  // namespace quillet::python
