#pragma once

// Table: a dBASE table opened from Python. It owns its DBase and the lock
// that keeps one thread at a time in it; file work runs as Released.h says.
// Records count from 0, as Python's sequences do.

#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <pybind11/pybind11.h>

#include "CellValue.h"
#include "Released.h"
#include "dbase/DBase.h"

namespace quillet::python {

struct FieldInfo {
    std::string name;
    char type;
    int width;
    int decimals;
};

// A value to write to a field (TableWrite.cpp).
struct Assignment;

class Table {
public:
    Table(const std::filesystem::path& path, bool writable);
    // Makes a new table of these fields (replacing any at `path`) in the code
    // page given, or the configured default (0), and opens it for writing.
    static std::unique_ptr<Table> Create(const std::filesystem::path& path,
                                         const std::vector<FieldInfo>& fields, uint32_t codePage);

    // Writes back what changed (records marked deleted go) and closes.
    void Close();
    const std::filesystem::path& path() const { return path_; }
    bool writable() const { return writable_; }

    int32_t Count();
    // A copy, as another thread may change the fields meanwhile.
    std::vector<FieldInfo> Fields();
    pybind11::dict CodePageInfo();

    // Record n into `cells`; false, with `cells` untouched, when it is marked
    // deleted. A record that cannot be read raises.
    bool ReadRecord(int32_t n, std::vector<CellValue>& cells);
    bool IsDeleted(int32_t n);

    // `values` is a sequence in field order or a mapping by field name;
    // fields it leaves out stay as they are (blank in a new record).
    void Append(const pybind11::handle& values);
    void Update(int32_t n, const pybind11::handle& values);
    void Delete(int32_t n);
    // Adds a field and stores `value` (a Python value, None for blank) in
    // every record.
    void AddField(const FieldInfo& field, const pybind11::handle& value);
    void DropField(const std::string& name);
    void Pack();

    // Runs `work` on the open table as Released.h says.
    template <typename Work>
    auto Locked(Work work) {
        return Released(mutex_, [&] { return work(Open()); });
    }

private:
    DBase& Open();
    [[noreturn]] void Fail(const std::string& what);
    void CheckRecord(int32_t n);
    // Opens the table again, as the library leaves it closed after some
    // rewrites; runs without the interpreter.
    void Reopen();
    void ReadFields();
    std::vector<std::string> WriteValues(DBase& table, const std::vector<Assignment>& values);

    std::filesystem::path path_;
    bool writable_;
    std::unique_ptr<DBase> table_;
    std::vector<FieldInfo> fields_;
    std::mutex mutex_;
};

}  // namespace quillet::python
