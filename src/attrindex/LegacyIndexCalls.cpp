// The eight calls of the legacy index interface over LegacyIndex objects.
// Handles index a process-wide table guarded by one mutex; a closed handle's
// slot is reused.

#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

#include "attrindex/LegacyIndex.h"

namespace quillet {

namespace {

std::mutex s_mutex;
std::vector<std::unique_ptr<LegacyIndex>> s_indexes;

int32_t Register(std::unique_ptr<LegacyIndex> index) {
    std::lock_guard<std::mutex> lock(s_mutex);
    for (size_t i = 0; i < s_indexes.size(); ++i) {
        if (!s_indexes[i]) {
            s_indexes[i] = std::move(index);
            return static_cast<int32_t>(i + 1);
        }
    }
    s_indexes.push_back(std::move(index));
    return static_cast<int32_t>(s_indexes.size());
}

LegacyIndex* Find(int32_t handle) {
    std::lock_guard<std::mutex> lock(s_mutex);
    if (handle < 1 || static_cast<size_t>(handle) > s_indexes.size()) return nullptr;
    return s_indexes[static_cast<size_t>(handle) - 1].get();
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
    std::lock_guard<std::mutex> lock(quillet::s_mutex);
    if (handle < 1 || static_cast<size_t>(handle) > quillet::s_indexes.size()) return 0;
    auto& slot = quillet::s_indexes[static_cast<size_t>(handle) - 1];
    bool open = slot != nullptr;
    slot.reset();
    return open ? 1 : 0;
}

}  // extern "C"
