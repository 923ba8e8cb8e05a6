// The B-tree indexes of both node formats (`old`: 2048-byte big-endian
// nodes; `ng`: 4096-byte little-endian nodes and a trailer) against two other
// ordered stores, each run in this program on the same data, each through its
// own fastest honest path:
//
//   ours    one index file, opened for writing without sharing (so its handle
//           maps the file); bulk loads sort externally in 4 MiB and flush the
//           file to disk at the end, as the format's bulk load does.
//   SQLite  a file database, synchronous off, no journal, memory-mapped I/O,
//           each phase one transaction. Bulk loads insert the rows of a table
//           and then build its index on (key, id) by sorting; the random
//           inserts and deletes go to a table whose primary key (key, id) is
//           the table itself (WITHOUT ROWID), one B-tree as ours is; lookups
//           and scans read the bulk-loaded index alone.
//   LMDB    a memory-mapped B+tree with sorted duplicates (the id is the
//           duplicate), written without syncing, each phase one transaction.
//           It has no bulk load of unsorted input: its load sorts the whole
//           input in memory and appends.
//
// Each row reports the seconds of every store and, per format, `vs_sqlite`
// (SQLite's time / ours: above 1, we are faster) and `vs_lmdb` (ours /
// LMDB's: the target is at most 1.5), and the size of each store's file in
// MiB (for LMDB the pages in use: its file is as large as its map).
//
// Rows: bulk load of 10,000,000 32-bit keys and of 2,000,000 20-character
// text keys; 1,000,000 random inserts, then 1,000,000 random deletes; then, on
// the 10,000,000-key stores, 1,000,000 exact lookups and range scans of 0.1 %
// and 10 % of the keys. Bulk loads also report `peak_anon_mib`: the growth of
// the process's anonymous memory (heap and stacks) during the `ng` load, the
// peak of samples taken every 5 ms. The pages of a mapped file are left out,
// since the system's cache owns them. Each timing starts once the system has
// written back its dirty pages.

#include <benchmark/benchmark.h>
#include <lmdb.h>
#include <sqlite3.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include "BenchSupport.h"
#include "SqliteSupport.h"
#include "attrindex/MTIndex.h"
#include "attrindex/MTIndexNG.h"
#include "attrindex/MTKey.h"
#include "attrindex/MTSearch.h"

namespace {

namespace fs = std::filesystem;
using quillet::MTIndex;
using quillet::MTIndexNG;
using quillet::MTKey;
using quillet::MTSearch;
using quillet::bench::Check;
using quillet::bench::Fail;
using quillet::bench::Seconds;
using quillet::bench::WorkDir;

constexpr int32_t kBulkLongs = 10'000'000;
constexpr int32_t kBulkTexts = 2'000'000;
constexpr int32_t kRandomOps = 1'000'000;
constexpr int32_t kLookups = 1'000'000;
constexpr int32_t kTextWidth = 20;

// Keys spread over 0 .. 2^31 - 1, so that LMDB's unsigned integer keys
// order as ours do.
int32_t KeyOf(uint64_t draw) {
    return static_cast<int32_t>(draw >> 33);
}

std::string TextOf(uint64_t draw) {
    std::string text(kTextWidth, 'a');
    for (int i = 0; i < kTextWidth;
         ++i, draw = draw * 6364136223846793005u + 1442695040888963407u) {
        text[static_cast<size_t>(i)] = static_cast<char>('a' + (draw >> 59) % 26);
    }
    return text;
}

struct Entry {
    int32_t key;
    int32_t id;
};

// A data set whose entry i (key, id i) is drawn again from its seed wherever
// it is needed, so that no store's run pays for (or shows the memory of) a
// copy of the input.
template <typename Key>
struct DataSet {
    uint64_t seed;
    int32_t count;
    Key (*keyOf)(uint64_t);

    template <typename F>
    void ForEach(F&& f) const {
        std::mt19937_64 random(seed);
        for (int32_t i = 0; i < count; ++i) f(keyOf(random()), i);
    }
};

const DataSet<int32_t> kLongs{42, kBulkLongs, KeyOf};
const DataSet<std::string> kTexts{7, kBulkTexts, TextOf};

double MiB(const fs::path& path) {
    std::error_code error;
    auto size = fs::file_size(path, error);
    return error ? 0 : static_cast<double>(size) / (1 << 20);
}

// The growth of anonymous memory while `work` runs, in MiB: the largest of
// samples taken every 5 milliseconds.
double PeakAnonGrowthMiB(const std::function<void()>& work) {
    long before = quillet::bench::AnonymousRssKb();
    std::atomic<bool> done{false};
    std::atomic<long> peak{before};
    std::thread sampler([&] {
        while (!done) {
            peak = std::max(peak.load(), quillet::bench::AnonymousRssKb());
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    });
    work();
    done = true;
    sampler.join();
    return static_cast<double>(peak - before) / 1024;
}

// ---- our trees -------------------------------------------------------------

fs::path StorePath(const std::string& name) {
    return WorkDir("bench-attrindex") / name;
}

std::unique_ptr<MTIndex> OpenIndex(const fs::path& path, bool ng, quillet::MTDataType type,
                                   int32_t width, uint32_t disposition) {
    std::unique_ptr<MTIndex> index;
    if (ng) {
        index = std::make_unique<MTIndexNG>(type, width, 0);
    } else {
        index = std::make_unique<MTIndex>(type, width, 0);
    }
    std::string narrow = path.string();
    std::wstring wide(narrow.begin(), narrow.end());
    Check(index->Open(wide.c_str(), quillet::GENERIC_READ | quillet::GENERIC_WRITE, 0, nullptr,
                      disposition, quillet::FILE_ATTRIBUTE_NORMAL, nullptr) == quillet::S_OK,
          "cannot open an index");
    return index;
}

// A key of a data set as our trees take it.
class OurKey {
public:
    const MTKey& Of(int32_t value) {
        key_.SetLong(value);
        return key_;
    }
    const MTKey& Of(const std::string& text) {
        wide_.assign(text.begin(), text.end());
        key_.SetString(wide_.c_str(), false);
        return key_;
    }

private:
    MTKey key_;
    std::wstring wide_;
};

// ---- SQLite -------------------------------------------------------------------

class Database {
public:
    explicit Database(const fs::path& path, bool fresh) {
        if (fresh) fs::remove(path);
        Check(sqlite3_open(path.c_str(), &db_) == SQLITE_OK, "cannot open the database");
        Exec("PRAGMA synchronous=OFF; PRAGMA journal_mode=OFF; PRAGMA mmap_size=17179869184;");
    }
    ~Database() { sqlite3_close(db_); }
    void Exec(const char* sql) { quillet::bench::SqliteExec(db_, sql); }
    sqlite3_stmt* Prepare(const char* sql) { return quillet::bench::SqlitePrepare(db_, sql); }

private:
    sqlite3* db_ = nullptr;
};

// Runs a prepared statement to its end; the rows it yields.
int64_t Run(sqlite3_stmt* statement) {
    int64_t rows = 0;
    int rc;
    while ((rc = sqlite3_step(statement)) == SQLITE_ROW) ++rows;
    Check(rc == SQLITE_DONE, "a statement failed");
    sqlite3_reset(statement);
    return rows;
}

void BindKey(sqlite3_stmt* statement, int32_t value) {
    sqlite3_bind_int(statement, 1, value);
}
void BindKey(sqlite3_stmt* statement, const std::string& text) {
    sqlite3_bind_text(statement, 1, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
}

// Binds (key, id) and runs the statement.
template <typename Key>
int64_t RunWith(sqlite3_stmt* statement, const Key& key, int32_t id) {
    BindKey(statement, key);
    sqlite3_bind_int(statement, 2, id);
    return Run(statement);
}

// ---- LMDB -------------------------------------------------------------------------

class Mapped {
public:
    Mapped(const fs::path& dir, bool fresh, unsigned keyFlags) {
        if (fresh) fs::remove_all(dir);
        fs::create_directories(dir);
        Check(mdb_env_create(&env_) == 0 && mdb_env_set_mapsize(env_, size_t{16} << 30) == 0 &&
                  mdb_env_open(env_, dir.c_str(), MDB_NOSYNC | MDB_WRITEMAP, 0644) == 0,
              "cannot open LMDB");
        Begin();
        Check(mdb_dbi_open(txn_, nullptr,
                           MDB_CREATE | MDB_DUPSORT | MDB_INTEGERDUP | MDB_DUPFIXED | keyFlags,
                           &dbi_) == 0,
              "cannot open LMDB's database");
    }
    ~Mapped() {
        if (txn_) Commit();
        mdb_env_close(env_);
    }
    void Begin() { Check(mdb_txn_begin(env_, nullptr, 0, &txn_) == 0, "no transaction"); }
    void Commit() {
        Check(mdb_txn_commit(txn_) == 0, "commit failed");
        txn_ = nullptr;
    }
    MDB_txn* txn() { return txn_; }
    MDB_dbi dbi() const { return dbi_; }
    double UsedMiB() {
        MDB_envinfo info;
        MDB_stat stat;
        mdb_env_info(env_, &info);
        mdb_env_stat(env_, &stat);
        return static_cast<double>(info.me_last_pgno + 1) * stat.ms_psize / (1 << 20);
    }

private:
    MDB_env* env_ = nullptr;
    MDB_txn* txn_ = nullptr;
    MDB_dbi dbi_ = 0;
};

MDB_val ValOf(const int32_t& value) {
    return {4, const_cast<int32_t*>(&value)};
}
MDB_val ValOf(const std::string& text) {
    return {text.size(), const_cast<char*>(text.data())};
}
unsigned KeyFlagsOf(int32_t) {
    return MDB_INTEGERKEY;
}
unsigned KeyFlagsOf(const std::string&) {
    return 0;
}
const char* SqlTypeOf(int32_t) {
    return "INTEGER";
}
const char* SqlTypeOf(const std::string&) {
    return "TEXT";
}

// ---- reporting ---------------------------------------------------------------------

struct Row {
    std::map<std::string, double> seconds;  // by store: "old", "ng", "sqlite", "lmdb"
    std::map<std::string, double> mib;

    void Report(benchmark::State& state, const std::string& prefix = "") const {
        for (const auto& [store, s] : seconds) state.counters[prefix + store + "_s"] = s;
        for (const auto& [store, m] : mib) state.counters[store + "_mib"] = m;
        for (const char* ours : {"old", "ng"}) {
            auto it = seconds.find(ours);
            if (it == seconds.end()) continue;
            state.counters[prefix + ours + "_vs_sqlite"] = seconds.at("sqlite") / it->second;
            state.counters[prefix + ours + "_vs_lmdb"] = it->second / seconds.at("lmdb");
        }
    }
};

// ---- bulk loads ----------------------------------------------------------------------

template <typename Key>
double BulkLoadOurs(const DataSet<Key>& data, const fs::path& path, bool ng,
                    quillet::MTDataType type, int32_t width) {
    return Seconds([&] {
        auto index = OpenIndex(path, ng, type, width, quillet::CREATE_ALWAYS);
        Check(index->StartBulkLoad(data.count) == quillet::S_OK, "StartBulkLoad");
        OurKey key;
        data.ForEach([&](const Key& k, int32_t id) {
            if (index->BulkInsert(key.Of(k), id) != quillet::S_OK) Fail("BulkInsert");
        });
        Check(index->FinishBulkLoad(false) == quillet::S_OK, "FinishBulkLoad");
        Check(index->Close() == quillet::S_OK, "Close");
    });
}

template <typename Key>
double BulkLoadDatabase(const DataSet<Key>& data, const fs::path& path) {
    return Seconds([&] {
        Database db(path, true);
        db.Exec(("CREATE TABLE t(k " + std::string(SqlTypeOf(Key{})) + ", id INTEGER); BEGIN;")
                    .c_str());
        sqlite3_stmt* insert = db.Prepare("INSERT INTO t VALUES(?, ?)");
        data.ForEach([&](const Key& k, int32_t id) { RunWith(insert, k, id); });
        sqlite3_finalize(insert);
        db.Exec("CREATE INDEX tk ON t(k, id); COMMIT;");
    });
}

template <typename Key>
double BulkLoadMapped(const DataSet<Key>& data, const fs::path& dir, double& mib) {
    return Seconds([&] {
        std::vector<std::pair<Key, int32_t>> sorted;
        sorted.reserve(static_cast<size_t>(data.count));
        data.ForEach([&](const Key& k, int32_t id) { sorted.emplace_back(k, id); });
        std::sort(sorted.begin(), sorted.end());
        Mapped tree(dir, true, KeyFlagsOf(Key{}));
        MDB_cursor* cursor;
        Check(mdb_cursor_open(tree.txn(), tree.dbi(), &cursor) == 0, "cursor");
        for (auto& [k, id] : sorted) {
            MDB_val key = ValOf(k);
            MDB_val value = ValOf(id);
            if (mdb_cursor_put(cursor, &key, &value, MDB_APPENDDUP) != 0 &&
                mdb_cursor_put(cursor, &key, &value, MDB_APPEND) != 0) {
                Fail("append");
            }
        }
        mdb_cursor_close(cursor);
        tree.Commit();
        mib = tree.UsedMiB();
    });
}

template <typename Key>
void BulkLoadRow(benchmark::State& state, const DataSet<Key>& data, const std::string& name,
                 quillet::MTDataType type, int32_t width) {
    for (auto _ : state) {
        Row row;
        // The next-generation load first, on the program's fresh heap.
        for (bool ng : {true, false}) {
            const char* store = ng ? "ng" : "old";
            fs::path path = StorePath(name + (ng ? ".ng" : ".atx"));
            auto load = [&] { row.seconds[store] = BulkLoadOurs(data, path, ng, type, width); };
            if (ng) {
                state.counters["peak_anon_mib"] = PeakAnonGrowthMiB(load);
            } else {
                load();
            }
            row.mib[store] = MiB(path);
        }
        row.seconds["sqlite"] = BulkLoadDatabase(data, StorePath(name + ".db"));
        row.mib["sqlite"] = MiB(StorePath(name + ".db"));
        row.seconds["lmdb"] = BulkLoadMapped(data, StorePath(name + ".mdb"), row.mib["lmdb"]);
        state.SetIterationTime(row.seconds["ng"]);
        row.Report(state);
    }
    state.SetItemsProcessed(data.count);
}

void BM_BulkLoadLongs(benchmark::State& state) {
    BulkLoadRow(state, kLongs, "longs", quillet::MTLong, 4);
}

void BM_BulkLoadTexts(benchmark::State& state) {
    BulkLoadRow(state, kTexts, "texts", quillet::MTString, kTextWidth);
}

// ---- random inserts, then random deletes ------------------------------------------------

void BM_RandomInsertDelete(benchmark::State& state) {
    std::vector<Entry> inserts;
    DataSet<int32_t>{99, kRandomOps, KeyOf}.ForEach([&](int32_t key, int32_t id) {
        inserts.push_back({key, id});
    });
    std::vector<Entry> deletes = inserts;
    std::shuffle(deletes.begin(), deletes.end(), std::mt19937_64(100));
    for (auto _ : state) {
        Row insert, remove;
        for (bool ng : {false, true}) {
            const char* store = ng ? "ng" : "old";
            fs::path path = StorePath(ng ? "random.ng" : "random.atx");
            auto index = OpenIndex(path, ng, quillet::MTLong, 4, quillet::CREATE_ALWAYS);
            MTKey key;
            insert.seconds[store] = Seconds([&] {
                for (Entry e : inserts) {
                    key.SetLong(e.key);
                    if (index->Insert(key, e.id) != quillet::S_OK) Fail("Insert");
                }
            });
            insert.mib[store] = MiB(path);
            remove.seconds[store] = Seconds([&] {
                for (Entry e : deletes) {
                    key.SetLong(e.key);
                    if (index->Delete(key, e.id) != quillet::S_OK) Fail("Delete");
                }
                Check(index->Close() == quillet::S_OK, "Close");
            });
        }
        {
            Database db(StorePath("random.db"), true);
            db.Exec("CREATE TABLE t(k INTEGER, id INTEGER, PRIMARY KEY(k, id)) WITHOUT ROWID;");
            sqlite3_stmt* add = db.Prepare("INSERT INTO t VALUES(?, ?)");
            sqlite3_stmt* drop = db.Prepare("DELETE FROM t WHERE k = ? AND id = ?");
            auto runAll = [&](sqlite3_stmt* statement, const std::vector<Entry>& entries) {
                db.Exec("BEGIN;");
                for (Entry e : entries) RunWith(statement, e.key, e.id);
                db.Exec("COMMIT;");
            };
            insert.seconds["sqlite"] = Seconds([&] { runAll(add, inserts); });
            insert.mib["sqlite"] = MiB(StorePath("random.db"));
            remove.seconds["sqlite"] = Seconds([&] { runAll(drop, deletes); });
            sqlite3_finalize(add);
            sqlite3_finalize(drop);
        }
        {
            Mapped tree(StorePath("random.mdb"), true, MDB_INTEGERKEY);
            tree.Commit();
            auto runAll = [&](const std::vector<Entry>& entries, bool put) {
                tree.Begin();
                for (Entry e : entries) {
                    MDB_val k = ValOf(e.key);
                    MDB_val d = ValOf(e.id);
                    int rc = put ? mdb_put(tree.txn(), tree.dbi(), &k, &d, 0)
                                 : mdb_del(tree.txn(), tree.dbi(), &k, &d);
                    if (rc != 0) Fail(put ? "mdb_put" : "mdb_del");
                }
                tree.Commit();
            };
            insert.seconds["lmdb"] = Seconds([&] { runAll(inserts, true); });
            insert.mib["lmdb"] = tree.UsedMiB();
            remove.seconds["lmdb"] = Seconds([&] { runAll(deletes, false); });
        }
        state.SetIterationTime(insert.seconds["ng"] + remove.seconds["ng"]);
        insert.Report(state, "insert_");
        remove.Report(state, "delete_");
    }
}

// ---- lookups and range scans on the 10,000,000-key trees --------------------------------

// Every n-th entry of the bulk-loaded data, in a random order.
std::vector<Entry> Probes() {
    std::vector<Entry> probes;
    int32_t step = kBulkLongs / kLookups;
    kLongs.ForEach([&](int32_t key, int32_t id) {
        if (id % step == 0) probes.push_back({key, id});
    });
    std::shuffle(probes.begin(), probes.end(), std::mt19937_64(5));
    return probes;
}

// What a row does to each store of the bulk-loaded 32-bit keys.
struct LongsWork {
    std::function<void(MTIndex& index, const char* store)> ours;
    std::function<void(Database& db)> sqlite;  // inside one transaction
    std::function<void(MDB_cursor* cursor)> lmdb;
};

Row TimeOnLongs(const LongsWork& work) {
    Row row;
    for (bool ng : {false, true}) {
        const char* store = ng ? "ng" : "old";
        auto index = OpenIndex(StorePath(ng ? "longs.ng" : "longs.atx"), ng, quillet::MTLong, 4,
                               quillet::OPEN_EXISTING);
        row.seconds[store] = Seconds([&] { work.ours(*index, store); });
    }
    {
        Database db(StorePath("longs.db"), false);
        row.seconds["sqlite"] = Seconds([&] {
            db.Exec("BEGIN;");
            work.sqlite(db);
            db.Exec("COMMIT;");
        });
    }
    Mapped tree(StorePath("longs.mdb"), false, MDB_INTEGERKEY);
    MDB_cursor* cursor;
    Check(mdb_cursor_open(tree.txn(), tree.dbi(), &cursor) == 0, "cursor");
    row.seconds["lmdb"] = Seconds([&] { work.lmdb(cursor); });
    mdb_cursor_close(cursor);
    return row;
}

void BM_Lookups(benchmark::State& state) {
    std::vector<Entry> probes = Probes();
    LongsWork work;
    work.ours = [&](MTIndex& index, const char*) {
        MTKey key;
        for (Entry e : probes) {
            key.SetLong(e.key);
            if (index.SearchKeyValue(key, e.id) != quillet::S_OK) Fail("an entry was not found");
        }
    };
    work.sqlite = [&](Database& db) {
        sqlite3_stmt* find = db.Prepare("SELECT 1 FROM t WHERE k = ? AND id = ?");
        for (Entry e : probes) {
            if (RunWith(find, e.key, e.id) != 1) Fail("a row was not found");
        }
        sqlite3_finalize(find);
    };
    work.lmdb = [&](MDB_cursor* cursor) {
        for (Entry e : probes) {
            MDB_val k = ValOf(e.key);
            MDB_val d = ValOf(e.id);
            if (mdb_cursor_get(cursor, &k, &d, MDB_GET_BOTH) != 0) Fail("a pair was not found");
        }
    };
    for (auto _ : state) {
        Row row = TimeOnLongs(work);
        state.SetIterationTime(row.seconds["ng"]);
        row.Report(state);
    }
    state.SetItemsProcessed(kLookups);
}

// Scans of `fraction` of the key range from random starts; every store must
// see the same entries.
void BM_RangeScans(benchmark::State& state) {
    double fraction = static_cast<double>(state.range(0)) / 1000;
    int scans = static_cast<int>(state.range(1));
    constexpr double kKeyRange = 2147483648.0;
    std::vector<std::pair<int32_t, int32_t>> ranges;
    std::mt19937_64 random(11);
    for (int i = 0; i < scans; ++i) {
        auto low = static_cast<int32_t>((static_cast<double>(random() >> 11) / 9007199254740992.0) *
                                        (1 - fraction) * kKeyRange);
        ranges.emplace_back(low, static_cast<int32_t>(low + fraction * kKeyRange));
    }
    std::map<std::string, int64_t> seen;
    LongsWork work;
    work.ours = [&](MTIndex& index, const char* store) {
        MTKey key, found;
        int32_t id;
        for (auto [low, high] : ranges) {
            MTSearch search;
            key.SetLong(low);
            index.Search(key, true, search);
            while (search.Next(found, id) == quillet::S_OK && found.GetLong() <= high)
                ++seen[store];
        }
    };
    work.sqlite = [&](Database& db) {
        sqlite3_stmt* scan = db.Prepare("SELECT id FROM t WHERE k BETWEEN ? AND ? ORDER BY k, id");
        for (auto [low, high] : ranges) seen["sqlite"] += RunWith(scan, low, high);
        sqlite3_finalize(scan);
    };
    work.lmdb = [&](MDB_cursor* cursor) {
        for (auto [low, high] : ranges) {
            MDB_val k = ValOf(low);
            MDB_val d;
            int rc = mdb_cursor_get(cursor, &k, &d, MDB_SET_RANGE);
            while (rc == 0 && *static_cast<int32_t*>(k.mv_data) <= high) {
                ++seen["lmdb"];
                rc = mdb_cursor_get(cursor, &k, &d, MDB_NEXT);
            }
        }
    };
    for (auto _ : state) {
        seen.clear();
        Row row = TimeOnLongs(work);
        for (const auto& [store, count] : seen) {
            if (count != seen["sqlite"]) Fail("the stores saw different entries");
        }
        state.counters["entries"] = static_cast<double>(seen["sqlite"]);
        state.SetIterationTime(row.seconds["ng"]);
        row.Report(state);
    }
}

void Cleanup() {
    fs::remove_all(WorkDir("bench-attrindex"));
}

}  // namespace

BENCHMARK(BM_BulkLoadLongs)->Unit(benchmark::kSecond)->Iterations(1)->UseManualTime();
BENCHMARK(BM_BulkLoadTexts)->Unit(benchmark::kSecond)->Iterations(1)->UseManualTime();
BENCHMARK(BM_RandomInsertDelete)->Unit(benchmark::kSecond)->Iterations(1)->UseManualTime();
BENCHMARK(BM_Lookups)->Unit(benchmark::kSecond)->Iterations(1)->UseManualTime();
BENCHMARK(BM_RangeScans)
    ->Name("BM_RangeScans/0.1%")
    ->Args({1, 200})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->UseManualTime();
BENCHMARK(BM_RangeScans)
    ->Name("BM_RangeScans/10%")
    ->Args({100, 5})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->UseManualTime();

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    Cleanup();
    return 0;
}
