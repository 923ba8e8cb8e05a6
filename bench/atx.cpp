// Column indexes (.atx) of a dBASE table against two peers, each on the
// same data in this one run:
//
//   SQLite  the column loaded into a table of a file database (synchronous
//           off, no journal, memory-mapped I/O; the load is not timed), then
//           CREATE INDEX and the same queries, reading the matching row ids.
//   GDAL    its own attribute index on the same .dbf, through its ogrinfo
//           program: `-sql "CREATE INDEX ON layer USING field"` and the
//           queries as `-so -where` (the matching feature count), each timed
//           as a whole process as a user runs it, against the quillet
//           program doing the same (`atx build`, `atx query --count`).
//
// In-process rows time our build (reading the table, sorting, writing the
// file) and our searches (the ids into a set) against SQLite's; each row
// reports ours_s, sqlite_s and vs_sqlite (SQLite's time / ours: above 1, we
// are faster), and the process times tool_s, ogr_s and vs_ogr (likewise).
//
// QUILLET_BENCH_SKIP_OGR=1 leaves GDAL out (its index of the 10,000,000
// numbers takes a quarter of an hour here); its columns are then 0.
//
// Tables: 10,000,000 records of a 9-digit number (values 0 to 999,999, so
// every value about ten times) and 2,000,000 records of a 20-character text.
// Queries: 1,000 equal lookups, 20 ranges of 1 % of the records, 20 sets of
// 100 values (in), and 100 like-prefix patterns of three letters on the text.

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include <unistd.h>

#include "attrindex/MTreeIndex.h"
#include "attrindex/MTreeIndexBuilder.h"
#include "attrindex/TableColumn.h"
#include "dbase/DBase.h"
#include "foundation/ByteOrder.h"

namespace {

namespace fs = std::filesystem;
using namespace quillet;

constexpr int32_t kNumbers = 10'000'000;
constexpr int32_t kTexts = 2'000'000;
constexpr int32_t kTextWidth = 20;
constexpr int kEqualQueries = 1000;
constexpr int kRangeQueries = 20;
constexpr int kInQueries = 20;
constexpr int kLikeQueries = 100;

void Check(bool ok, const std::string& what) {
    if (!ok) {
        std::fprintf(stderr, "bench_atx: %s\n", what.c_str());
        std::exit(1);
    }
}

double Seconds(const std::function<void()>& work) {
    auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

bool SkipOgr() { return std::getenv("QUILLET_BENCH_SKIP_OGR") != nullptr; }

double Process(const std::string& command) {
    return Seconds(
        [&] { Check(std::system((command + " >/dev/null 2>&1").c_str()) == 0, command); });
}

// A one-field dBASE III table written as bytes: header, descriptor, records.
void WriteTable(const fs::path& path, const char* name, char type, int width, int32_t records,
                const std::function<std::string(int32_t)>& value) {
    std::FILE* f = std::fopen(path.c_str(), "wb");
    Check(f != nullptr, "cannot write " + path.string());
    unsigned char header[65] = {3, 126, 1, 1};
    EncodeFixed32LE(header + 4, static_cast<uint32_t>(records));
    EncodeFixed16LE(header + 8, 65);
    EncodeFixed16LE(header + 10, static_cast<uint16_t>(width + 1));
    std::snprintf(reinterpret_cast<char*>(header + 32), 11, "%s", name);
    header[32 + 11] = static_cast<unsigned char>(type);
    header[32 + 16] = static_cast<unsigned char>(width);
    header[64] = 0x0D;
    std::fwrite(header, 1, sizeof header, f);
    std::string record;
    for (int32_t i = 0; i < records; ++i) {
        record = " " + value(i);
        std::fwrite(record.data(), 1, record.size(), f);
    }
    std::fputc(0x1A, f);
    Check(std::fclose(f) == 0, "cannot write " + path.string());
}

class Database {
public:
    explicit Database(const fs::path& path) {
        fs::remove(path);
        Check(sqlite3_open(path.c_str(), &db_) == SQLITE_OK, "cannot open the database");
        // Case-sensitive like, as ours, lets SQLite serve a prefix from its index.
        Exec(
            "PRAGMA synchronous=OFF; PRAGMA journal_mode=OFF; PRAGMA mmap_size=17179869184; "
            "PRAGMA case_sensitive_like=ON;");
    }
    ~Database() { sqlite3_close(db_); }
    void Exec(const std::string& sql) {
        Check(sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK, sql);
    }
    // Row ids the statement selects (it reads them all).
    int64_t Count(const std::string& sql) {
        sqlite3_stmt* statement = nullptr;
        Check(sqlite3_prepare_v2(db_, sql.c_str(), -1, &statement, nullptr) == SQLITE_OK, sql);
        int64_t rows = 0;
        while (sqlite3_step(statement) == SQLITE_ROW)
            rows += sqlite3_column_int64(statement, 0) >= 0;
        sqlite3_finalize(statement);
        return rows;
    }
    void Load(const std::vector<std::string>& values, bool text) {
        Exec(std::string("CREATE TABLE t(v ") + (text ? "TEXT" : "INTEGER") + "); BEGIN;");
        sqlite3_stmt* insert = nullptr;
        sqlite3_prepare_v2(db_, "INSERT INTO t(rowid, v) VALUES (?, ?)", -1, &insert, nullptr);
        for (size_t i = 0; i < values.size(); ++i) {
            sqlite3_bind_int64(insert, 1, static_cast<int64_t>(i));
            if (text) {
                sqlite3_bind_text(insert, 2, values[i].c_str(), -1, SQLITE_STATIC);
            } else {
                sqlite3_bind_int64(insert, 2, std::atoll(values[i].c_str()));
            }
            Check(sqlite3_step(insert) == SQLITE_DONE, "insert");
            sqlite3_reset(insert);
        }
        sqlite3_finalize(insert);
        Exec("COMMIT;");
    }

private:
    sqlite3* db_ = nullptr;
};

// One indexed column in the three stores.
struct Store {
    fs::path folder;
    std::string layer;
    std::string field;
    std::vector<std::string> values;
    std::unique_ptr<Database> db;
    std::unique_ptr<Field> column;
    std::unique_ptr<MTreeIndex> index;

    fs::path Table() const { return folder / (layer + ".dbf"); }
    fs::path IndexPath() const { return folder / (layer + "." + field + ".atx"); }
};

fs::path Folder() {
    static fs::path folder = [] {
        fs::path f = fs::temp_directory_path() / ("quillet-bench-atx-" + std::to_string(getpid()));
        fs::create_directories(f);
        std::atexit([] {
            fs::remove_all(fs::temp_directory_path() /
                           ("quillet-bench-atx-" + std::to_string(getpid())));
        });
        return f;
    }();
    return folder;
}

std::string RandomText(std::mt19937_64& random, size_t length) {
    std::string text(length, 'a');
    for (char& c : text) c = static_cast<char>('a' + random() % 26);
    return text;
}

// A store of the values: the table (each value right-aligned in its width
// when it is a number) and SQLite's table. It lives to the end of the
// process: its files must not close during static destruction, after the
// file layer's own statics are gone.
Store& NewStore(const char* layer, const char* field, char type, int width,
                std::vector<std::string> values) {
    Store& s = *new Store{Folder(), layer, field, std::move(values), nullptr, nullptr, nullptr};
    WriteTable(s.Table(), field, type, width, static_cast<int32_t>(s.values.size()),
               [&](int32_t i) {
                   const std::string& text = s.values[static_cast<size_t>(i)];
                   return std::string(static_cast<size_t>(width) - text.size(), ' ') + text;
               });
    s.db = std::make_unique<Database>(s.folder / (std::string(layer) + ".sqlite"));
    s.db->Load(s.values, type == 'C');
    return s;
}

Store& Numbers() {
    static Store& store = []() -> Store& {
        std::mt19937_64 random(1);
        std::vector<std::string> values(kNumbers);
        for (auto& v : values) v = std::to_string(random() % 1'000'000);
        return NewStore("numbers", "POP", 'N', 9, std::move(values));
    }();
    return store;
}

Store& Texts() {
    static Store& store = []() -> Store& {
        std::mt19937_64 random(2);
        std::vector<std::string> values(kTexts);
        for (auto& v : values) v = RandomText(random, kTextWidth);
        return NewStore("texts", "NAME", 'C', kTextWidth, std::move(values));
    }();
    return store;
}

void Report(benchmark::State& state, double ours, double sqlite, double tool, double ogr) {
    state.counters["ours_s"] = ours;
    state.counters["sqlite_s"] = sqlite;
    state.counters["vs_sqlite"] = sqlite / ours;
    state.counters["tool_s"] = tool;
    state.counters["ogr_s"] = ogr;
    state.counters["vs_ogr"] = ogr / tool;
}

void Build(benchmark::State& state, Store& store) {
    for (auto _ : state) {
        std::string table = store.Table().string();
        double ogr = SkipOgr() ? 0
                               : Process("ogrinfo " + table + " -sql \"CREATE INDEX ON " +
                                         store.layer + " USING " + store.field + "\"");
        double tool =
            Process(std::string(QUILLET_TOOL_PATH) + " atx build " + table + " " + store.field);
        double sqlite = Seconds([&] { store.db->Exec("CREATE INDEX tv ON t(v);"); });
        double ours = Seconds([&] {
            DBase dbf(String::FromUtf8(table));
            Check(dbf.Open(true, true, CodePage::qovaCodePageDefault), "cannot open the table");
            store.column = std::make_unique<Field>(ColumnField(dbf, 0));
            store.index = std::make_unique<MTreeIndex>();
            TableColumnEnumerator rows(dbf, 0);
            MTreeIndexBuilder builder;
            Check(builder.Create(String::FromUtf8(store.IndexPath().string()), store.column.get(),
                                 &rows, MTreeIndexBuilder::kTypeMap0),
                  "cannot build the index");
        });
        Check(store.index->Open(String::FromUtf8(store.IndexPath().string()), store.column.get(),
                                MTreeIndex::kModeRead) == S_OK,
              "cannot open the index");
        Report(state, ours, sqlite, tool, ogr);
    }
}

void BM_BuildNumbers(benchmark::State& state) {
    Build(state, Numbers());
}
void BM_BuildTexts(benchmark::State& state) {
    Build(state, Texts());
}

// One query in the three stores: our values, SQLite's condition, the
// condition in GDAL's SQL and the tool's operator and values.
struct Query {
    std::vector<Variant> values;
    qovaSQLPredicates predicate;
    std::string sql;
    std::string tool;
};

void RunQueries(benchmark::State& state, Store& store, std::vector<Query> queries) {
    for (auto _ : state) {
        int64_t ours = 0;
        int64_t theirs = 0;
        double ourSeconds = Seconds([&] {
            for (Query& q : queries) {
                std::vector<VARIANT*> pointers;
                for (Variant& v : q.values) pointers.push_back(&v);
                FIDSet ids;
                Check(store.index->Search(pointers, q.predicate, &ids) == S_OK, "search failed");
                int32_t count = 0;
                ids.get_Count(&count);
                ours += count;
            }
        });
        double sqliteSeconds = Seconds([&] {
            for (const Query& q : queries)
                theirs += store.db->Count("SELECT rowid FROM t WHERE v " + q.sql);
        });
        Check(ours == theirs,
              "the stores disagree: " + std::to_string(ours) + " and " + std::to_string(theirs));
        const Query& first = queries.front();
        std::string table = store.Table().string();
        std::string where = store.field + " " + first.sql;
        double ogr = SkipOgr() ? 0
                               : Process("ogrinfo -ro -so -where \"" + where + "\" " + table +
                                         " " + store.layer);
        double tool = Process(std::string(QUILLET_TOOL_PATH) + " atx query " + table + " " +
                              store.field + " " + first.tool + " --count");
        Report(state, ourSeconds, sqliteSeconds, tool, ogr);
        state.counters["matches"] = static_cast<double>(ours);
    }
}

std::vector<Query> NumberQueries(qovaSQLPredicates predicate, int n, int values) {
    std::mt19937_64 random(3 + predicate);
    std::vector<Query> queries;
    for (int i = 0; i < n; ++i) {
        Query q{{}, predicate, "", ""};
        int32_t low = static_cast<int32_t>(random() % 990'000);
        if (predicate == qovaSQLBetween) {
            q.values = {Variant::I4(low), Variant::I4(low + 9'999)};
            q.sql = "BETWEEN " + std::to_string(low) + " AND " + std::to_string(low + 9'999);
            q.tool = "between " + std::to_string(low) + " " + std::to_string(low + 9'999);
        } else {
            std::string list;
            for (int v = 0; v < values; ++v) {
                int32_t value = static_cast<int32_t>(random() % 1'000'000);
                q.values.push_back(Variant::I4(value));
                list += (v ? ", " : "") + std::to_string(value);
                q.tool += " " + std::to_string(value);
            }
            q.sql = predicate == qovaSQLIn ? "IN (" + list + ")" : "= " + list;
            q.tool = (predicate == qovaSQLIn ? "in" : "=") + q.tool;
        }
        queries.push_back(std::move(q));
    }
    return queries;
}

void BM_QueryEqual(benchmark::State& state) {
    RunQueries(state, Numbers(), NumberQueries(qovaSQLEqual, kEqualQueries, 1));
}
void BM_QueryRange(benchmark::State& state) {
    RunQueries(state, Numbers(), NumberQueries(qovaSQLBetween, kRangeQueries, 2));
}
void BM_QueryIn(benchmark::State& state) {
    RunQueries(state, Numbers(), NumberQueries(qovaSQLIn, kInQueries, 100));
}
void BM_QueryLikePrefix(benchmark::State& state) {
    std::mt19937_64 random(4);
    std::vector<Query> queries;
    for (int i = 0; i < kLikeQueries; ++i) {
        std::string prefix = RandomText(random, 3);
        std::wstring pattern(prefix.begin(), prefix.end());
        pattern += L"%";
        queries.push_back({{Variant::Bstr(pattern.c_str())},
                           qovaSQLLike,
                           "LIKE '" + prefix + "%'",
                           "like " + prefix + "%"});
    }
    RunQueries(state, Texts(), std::move(queries));
}

}  // namespace

BENCHMARK(BM_BuildNumbers)->Iterations(1)->Unit(benchmark::kSecond);
BENCHMARK(BM_QueryEqual)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_QueryRange)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_QueryIn)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BuildTexts)->Iterations(1)->Unit(benchmark::kSecond);
BENCHMARK(BM_QueryLikePrefix)->Iterations(1)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
