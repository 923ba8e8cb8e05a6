// The eight calls of the legacy index interface over LegacyIndex objects.
// Handles index a process-wide table of slots that are taken and freed
// atomically, so that looking a handle up (once per entry a scan reads)
// takes no lock. A closed handle's slot is reused.

#include <array>
#include <atomic>
#include <cstring>
#include <memory>

#include "attrindex/LegacyIndex.h"

namespace quillet {

namespace {

constexpr size_t kMaxHandles = 4096;
std::array<std::atomic<LegacyIndex*>, kMaxHandles> s_indexes{};

int32_t Register(std::unique_ptr<LegacyIndex> index) {
    for (size_t i = 0; i < kMaxHandles; ++i) {
        LegacyIndex* empty = nullptr;
        if (s_indexes[i].compare_exchange_strong(empty, index.get())) {
            index.release();
            return static_cast<int32_t>(i + 1);
        }
    }
    return 0;
}

LegacyIndex* Find(int32_t handle) {
    if (handle < 1 || static_cast<size_t>(handle) > kMaxHandles) return nullptr;
    return s_indexes[static_cast<size_t>(handle) - 1].load(std::memory_order_acquire);
}

int32_t OpenHandle(const int32_t key[4], const char* path, bool writable) {
    if (!path) return 0;
    auto index = std::make_unique<LegacyIndex>(path);
    if (!index->Open(LegacyIndex::LayoutOf(key), writable)) return 0;
    return Register(std::move(index));
}

}  // namespace

}  // namespace quillet

using quillet::Find;
using quillet::LegacyIndex;

extern "C" {

int32_t atx_create(const int32_t key[4], const char* path) {
    if (!path || !LegacyIndex::CreateEmpty(path, LegacyIndex::LayoutOf(key))) return 0;
    return quillet::OpenHandle(key, path, true);
}

int32_t atx_open(const int32_t key[4], const char* path, int32_t mode) {
    return quillet::OpenHandle(key, path, mode == 2);
}

int32_t atx_add(int32_t handle, double number, const char* text, int32_t id) {
    LegacyIndex* index = Find(handle);
    return index && index->Add(index->MakeKey(number, text), id) ? 1 : 0;
}

int32_t atx_delete(int32_t handle, double number, const char* text, int32_t id) {
    LegacyIndex* index = Find(handle);
    return index && index->Delete(index->MakeKey(number, text), id) ? 1 : 0;
}

int32_t atx_seek(int32_t handle, double number, const char* text, int32_t mode) {
    LegacyIndex* index = Find(handle);
    return index && index->Seek(index->MakeKey(number, text), mode == 1) ? 1 : 0;
}

int32_t atx_top(int32_t handle) {
    LegacyIndex* index = Find(handle);
    return index && index->Top() ? 1 : 0;
}

int32_t atx_next(int32_t handle, int32_t* id, char* text, double* number) {
    LegacyIndex* index = Find(handle);
    LegacyIndex::Key key;
    int32_t entryId = 0;
    if (!index || !index->Next(entryId, key)) return 0;
    if (id) *id = entryId;
    if (number) *number = key.number;
    if (text) {
        std::memcpy(text, key.text.data(), key.text.size());
        text[key.text.size()] = '\0';
    }
    return 1;
}

int32_t atx_close(int32_t handle) {
    if (handle < 1 || static_cast<size_t>(handle) > quillet::kMaxHandles) return 0;
    std::unique_ptr<LegacyIndex> index(
        quillet::s_indexes[static_cast<size_t>(handle) - 1].exchange(nullptr));
    return index ? 1 : 0;
}

}  // extern "C"
