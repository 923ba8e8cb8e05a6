// The next-generation record file against two other keyed stores of blobs,
// each run in this program on the same records, each through its own
// fastest honest path:
//
//   ours    a VFileNG data file with its index and free list, opened for
//           writing without sharing; closed (which writes its headers) at
//           the end of each phase.
//   SQLite  a file database with a table (id INTEGER PRIMARY KEY, v BLOB),
//           synchronous off, no journal, each phase one transaction.
//   LMDB    a memory-mapped B+tree keyed by the 32-bit id, written without
//           syncing, each phase one transaction.
//
// Rows: 1,000,000 inserts of records of 100 bytes to 4 KiB (lengths drawn
// evenly); 1,000,000 reads of random records; 500,000 updates of random
// records to a new length, half of them longer and half shorter; deletes of
// 500,000 random records, then 500,000 inserts of new ones, with the growth
// of each store's files over the two; compaction (ours CompactFile, SQLite
// VACUUM, LMDB a compacting copy). Each row reports the seconds of each store,
// `vs_sqlite` (SQLite's time / ours: above 1, we are faster) and `vs_lmdb`
// (ours / LMDB's: the target is at most 1.5), and sizes in MiB. Each timing
// starts once the system has written back its dirty pages. `_kfaults` counts
// the process's page faults over a store's phase, in thousands: on a virtual
// machine a fault costs microseconds, so they explain much of each time.
// QUILLET_BENCH_RECORDS sets another record count (for a quick run).

#include <benchmark/benchmark.h>
#include <lmdb.h>
#include <sqlite3.h>

#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "SqliteSupport.h"
#include "recordfile/VFileNG.h"

namespace {

namespace fs = std::filesystem;
using quillet::VFileNG;
using quillet::bench::Check;
using quillet::bench::Fail;
using quillet::bench::Seconds;
using quillet::bench::WorkDir;

int32_t RecordCount() {
    const char* text = std::getenv("QUILLET_BENCH_RECORDS");
    return text ? std::max(1000, std::atoi(text)) : 1'000'000;
}

const int32_t kRecords = RecordCount();
constexpr int32_t kMinLength = 100;
constexpr int32_t kMaxLength = 4096;

double MiB(int64_t bytes) {
    return static_cast<double>(bytes) / (1 << 20);
}

int64_t PageFaults() {
    struct rusage usage {};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_minflt + usage.ru_majflt;
}

int64_t FileBytes(const fs::path& path) {
    std::error_code error;
    auto size = fs::file_size(path, error);
    return error ? 0 : static_cast<int64_t>(size);
}

// The work of every row, drawn once from fixed seeds: record i's length, the
// order of reads, the updates and the deletions.
struct Workload {
    std::vector<int32_t> lengths;  // by id - 1; ids from 1
    std::vector<int32_t> reads;
    std::vector<std::pair<int32_t, int32_t>> updates;  // id, new length
    std::vector<int32_t> deletes;
    std::vector<int32_t> inserts;      // lengths of the records that refill
    std::vector<unsigned char> bytes;  // record data is cut from here

    Workload() : bytes(kMaxLength * 2) {
        std::mt19937_64 random(42);
        std::uniform_int_distribution<int32_t> length(kMinLength, kMaxLength);
        std::uniform_int_distribution<int32_t> id(1, kRecords);
        for (int32_t i = 0; i < kRecords; ++i) lengths.push_back(length(random));
        for (int32_t i = 0; i < kRecords; ++i) reads.push_back(id(random));
        for (int32_t i = 0; i < kRecords / 2; ++i) {
            int32_t n = id(random);
            int32_t old = lengths[static_cast<size_t>(n - 1)];
            int32_t grown = std::min(kMaxLength, old + old / 2 + 1);
            int32_t shrunk = std::max(kMinLength / 2, old / 2);
            updates.emplace_back(n, i % 2 == 0 ? grown : shrunk);
        }
        std::vector<int32_t> ids(static_cast<size_t>(kRecords));
        for (int32_t i = 0; i < kRecords; ++i) ids[static_cast<size_t>(i)] = i + 1;
        std::shuffle(ids.begin(), ids.end(), random);
        deletes.assign(ids.begin(), ids.begin() + kRecords / 2);
        for (int32_t i = 0; i < kRecords / 2; ++i) inserts.push_back(length(random));
        for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>(random());
    }
    const unsigned char* Data(int32_t n) const { return bytes.data() + n % kMaxLength; }
};

const Workload& Work() {
    static const Workload work;
    return work;
}

// ---- the stores ----------------------------------------------------------------

// One store behind the operations the rows time.
class Store {
public:
    virtual ~Store() = default;
    // `writing`: the phase changes the store (else it only reads).
    virtual void Begin(bool /*writing*/) {}
    virtual void Commit() {}
    virtual void Insert(int32_t id, const unsigned char* data, int32_t length) = 0;
    virtual int32_t Read(int32_t id, std::vector<unsigned char>& buffer) = 0;
    virtual void Update(int32_t id, const unsigned char* data, int32_t length) = 0;
    virtual void Delete(int32_t id) = 0;
    virtual void Compact() = 0;
    virtual int64_t Bytes() = 0;
};

class Ours : public Store {
public:
    explicit Ours(const fs::path& path)
        : path_(path),
          narrow_(path.string()),
          wide_(narrow_.begin(), narrow_.end()),
          file_(wide_.c_str()) {
        Check(file_.Create(VFileNG::kReadWrite, false, 5, false), "VFileNG::Create");
        file_.Close(false);
    }
    // Reading opens the file read-only, which maps it, as SQLite and LMDB
    // read through their caches.
    void Begin(bool writing) override {
        Check(file_.Open(writing ? VFileNG::kReadWrite : VFileNG::kReadOnly, !writing, false),
              "VFileNG::Open");
    }
    void Commit() override { file_.Close(false); }
    void Insert(int32_t id, const unsigned char* data, int32_t length) override {
        if (!file_.InsertRecordWithId(id, data, length)) Fail("InsertRecordWithId");
    }
    int32_t Read(int32_t id, std::vector<unsigned char>& buffer) override {
        int32_t length = 0;
        if (!file_.ReadRecord(id, buffer.data(), static_cast<int32_t>(buffer.size()), &length)) {
            Fail("ReadRecord");
        }
        return length;
    }
    void Update(int32_t id, const unsigned char* data, int32_t length) override {
        if (!file_.UpdateRecord(id, data, length)) Fail("UpdateRecord");
    }
    void Delete(int32_t id) override {
        if (!file_.DeleteRecord(id)) Fail("DeleteRecord");
    }
    void Compact() override {
        Begin(true);
        Check(file_.CompactFile(false), "CompactFile");
        Commit();
    }
    int64_t Bytes() override {
        fs::path index = path_;
        index.replace_extension(".dax");
        fs::path list = path_;
        list.replace_extension(".freelist");
        return FileBytes(path_) + FileBytes(index) + FileBytes(list);
    }

private:
    fs::path path_;
    std::string narrow_;
    std::wstring wide_;
    VFileNG file_;
};

class Database : public Store {
public:
    explicit Database(const fs::path& path) : path_(path) {
        fs::remove(path);
        Check(sqlite3_open(path.c_str(), &db_) == SQLITE_OK, "sqlite3_open");
        Exec(
            "PRAGMA synchronous=OFF; PRAGMA journal_mode=OFF;"
            "CREATE TABLE t(id INTEGER PRIMARY KEY, v BLOB);");
        insert_ = Prepare("INSERT INTO t VALUES(?, ?)");
        select_ = Prepare("SELECT v FROM t WHERE id = ?");
        update_ = Prepare("UPDATE t SET v = ? WHERE id = ?");
        delete_ = Prepare("DELETE FROM t WHERE id = ?");
    }
    ~Database() override {
        for (sqlite3_stmt* s : {insert_, select_, update_, delete_}) sqlite3_finalize(s);
        sqlite3_close(db_);
    }
    void Begin(bool) override { Exec("BEGIN;"); }
    void Commit() override { Exec("COMMIT;"); }
    void Insert(int32_t id, const unsigned char* data, int32_t length) override {
        sqlite3_bind_int(insert_, 1, id);
        sqlite3_bind_blob(insert_, 2, data, length, SQLITE_STATIC);
        Step(insert_);
    }
    int32_t Read(int32_t id, std::vector<unsigned char>& buffer) override {
        sqlite3_bind_int(select_, 1, id);
        Check(sqlite3_step(select_) == SQLITE_ROW, "select");
        int32_t length = sqlite3_column_bytes(select_, 0);
        std::memcpy(buffer.data(), sqlite3_column_blob(select_, 0), static_cast<size_t>(length));
        sqlite3_reset(select_);
        return length;
    }
    void Update(int32_t id, const unsigned char* data, int32_t length) override {
        sqlite3_bind_blob(update_, 1, data, length, SQLITE_STATIC);
        sqlite3_bind_int(update_, 2, id);
        Step(update_);
    }
    void Delete(int32_t id) override {
        sqlite3_bind_int(delete_, 1, id);
        Step(delete_);
    }
    void Compact() override { Exec("VACUUM;"); }
    int64_t Bytes() override { return FileBytes(path_); }

private:
    void Exec(const char* sql) { quillet::bench::SqliteExec(db_, sql); }
    sqlite3_stmt* Prepare(const char* sql) { return quillet::bench::SqlitePrepare(db_, sql); }
    void Step(sqlite3_stmt* statement) {
        Check(sqlite3_step(statement) == SQLITE_DONE, "a statement failed");
        sqlite3_reset(statement);
    }

    fs::path path_;
    sqlite3* db_ = nullptr;
    sqlite3_stmt *insert_, *select_, *update_, *delete_;
};

class Mapped : public Store {
public:
    explicit Mapped(const fs::path& dir) : dir_(dir) {
        fs::remove_all(dir);
        fs::create_directories(dir);
        Check(mdb_env_create(&env_) == 0 && mdb_env_set_mapsize(env_, size_t{64} << 30) == 0 &&
                  mdb_env_open(env_, dir.c_str(), MDB_NOSYNC | MDB_WRITEMAP, 0644) == 0,
              "cannot open LMDB");
        Begin(true);
        Check(mdb_dbi_open(txn_, nullptr, MDB_CREATE | MDB_INTEGERKEY, &dbi_) == 0, "mdb_dbi_open");
        Commit();
    }
    ~Mapped() override { mdb_env_close(env_); }
    void Begin(bool) override {
        Check(mdb_txn_begin(env_, nullptr, 0, &txn_) == 0, "mdb_txn_begin");
    }
    void Commit() override { Check(mdb_txn_commit(txn_) == 0, "mdb_txn_commit"); }
    void Insert(int32_t id, const unsigned char* data, int32_t length) override {
        Put(id, data, length);
    }
    int32_t Read(int32_t id, std::vector<unsigned char>& buffer) override {
        MDB_val key{4, &id};
        MDB_val value;
        Check(mdb_get(txn_, dbi_, &key, &value) == 0, "mdb_get");
        std::memcpy(buffer.data(), value.mv_data, value.mv_size);
        return static_cast<int32_t>(value.mv_size);
    }
    void Update(int32_t id, const unsigned char* data, int32_t length) override {
        Put(id, data, length);
    }
    void Delete(int32_t id) override {
        MDB_val key{4, &id};
        Check(mdb_del(txn_, dbi_, &key, nullptr) == 0, "mdb_del");
    }
    void Compact() override {
        fs::path copy = dir_.string() + "-compact";
        fs::remove_all(copy);
        fs::create_directories(copy);
        Check(mdb_env_copy2(env_, copy.c_str(), MDB_CP_COMPACT) == 0, "mdb_env_copy2");
    }
    // The pages in use: the file itself is as large as its map.
    int64_t Bytes() override {
        MDB_envinfo info;
        MDB_stat stat;
        mdb_env_info(env_, &info);
        mdb_env_stat(env_, &stat);
        return static_cast<int64_t>(info.me_last_pgno + 1) * stat.ms_psize;
    }

private:
    void Put(int32_t id, const unsigned char* data, int32_t length) {
        MDB_val key{4, &id};
        MDB_val value{static_cast<size_t>(length), const_cast<unsigned char*>(data)};
        Check(mdb_put(txn_, dbi_, &key, &value, 0) == 0, "mdb_put");
    }

    fs::path dir_;
    MDB_env* env_ = nullptr;
    MDB_txn* txn_ = nullptr;
    MDB_dbi dbi_ = 0;
};

// ---- the rows ----------------------------------------------------------------------

struct Stores {
    std::map<std::string, std::unique_ptr<Store>> byName;
    Stores() {
        byName["ours"] = std::make_unique<Ours>(WorkDir("bench-recordfile") / "records.dat");
        byName["sqlite"] = std::make_unique<Database>(WorkDir("bench-recordfile") / "records.db");
        byName["lmdb"] = std::make_unique<Mapped>(WorkDir("bench-recordfile") / "records.mdb");
    }
};

// Times `work` on each store inside one transaction and reports the row.
void Row(benchmark::State& state, Stores& stores, const std::string& name,
         const std::function<void(Store&)>& work, bool writing = true, bool sizes = false) {
    std::map<std::string, double> seconds;
    for (auto& [store, s] : stores.byName) {
        int64_t before = s->Bytes();
        int64_t faults = PageFaults();
        seconds[store] = Seconds([&] {
            s->Begin(writing);
            work(*s);
            s->Commit();
        });
        state.counters[name + "_" + store + "_kfaults"] =
            static_cast<double>(PageFaults() - faults) / 1000;
        if (sizes) state.counters[name + "_" + store + "_growth_mib"] = MiB(s->Bytes() - before);
    }
    for (auto& [store, s] : seconds) state.counters[name + "_" + store + "_s"] = s;
    state.counters[name + "_vs_sqlite"] = seconds["sqlite"] / seconds["ours"];
    state.counters[name + "_vs_lmdb"] = seconds["ours"] / seconds["lmdb"];
}

void BM_RecordStores(benchmark::State& state) {
    const Workload& w = Work();
    for (auto _ : state) {
        Stores stores;
        std::vector<unsigned char> buffer(kMaxLength);
        Row(state, stores, "insert", [&](Store& s) {
            for (int32_t n = 1; n <= kRecords; ++n)
                s.Insert(n, w.Data(n), w.lengths[static_cast<size_t>(n - 1)]);
        });
        for (auto& [store, s] : stores.byName)
            state.counters["insert_" + store + "_mib"] = MiB(s->Bytes());
        Row(
            state, stores, "read",
            [&](Store& s) {
                int64_t total = 0;
                for (int32_t n : w.reads) total += s.Read(n, buffer);
                benchmark::DoNotOptimize(total);
            },
            false);
        Row(state, stores, "update", [&](Store& s) {
            for (auto [n, length] : w.updates) s.Update(n, w.Data(n + 1), length);
        });
        Row(
            state, stores, "churn",
            [&](Store& s) {
                for (int32_t n : w.deletes) s.Delete(n);
                int32_t next = kRecords;
                for (int32_t length : w.inserts) {
                    ++next;
                    s.Insert(next, w.Data(next), length);
                }
            },
            true, true);
        for (auto& [store, s] : stores.byName)
            state.counters["churn_" + store + "_mib"] = MiB(s->Bytes());
        std::map<std::string, double> seconds;
        for (auto& [store, s] : stores.byName) {
            seconds[store] = Seconds([&] { s->Compact(); });
            state.counters["compact_" + store + "_s"] = seconds[store];
        }
        state.counters["compact_vs_sqlite"] = seconds["sqlite"] / seconds["ours"];
        state.counters["compact_vs_lmdb"] = seconds["ours"] / seconds["lmdb"];
        state.counters["compact_ours_mib"] = MiB(stores.byName["ours"]->Bytes());
        state.counters["compact_sqlite_mib"] = MiB(stores.byName["sqlite"]->Bytes());
    }
    fs::remove_all(WorkDir("bench-recordfile"));
}

}  // namespace

BENCHMARK(BM_RecordStores)->Iterations(1)->Unit(benchmark::kSecond);
BENCHMARK_MAIN();
