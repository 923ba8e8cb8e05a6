#include "foundation/HeldFiles.h"

#include <sys/stat.h>

#include <atomic>
#include <mutex>
#include <set>

namespace quillet {

namespace {

struct Registry {
    std::mutex mutex;
    std::multiset<HeldFiles::Identity> held;
    // Opens ask on every call: with nothing held, they skip the lock.
    std::atomic<int> count{0};
};

// Never destroyed, so that opens made while statics are destroyed still work.
Registry& TheRegistry() {
    static auto* registry = new Registry;
    return *registry;
}

HeldFiles::Identity IdentityOf(const struct stat& st) {
    return {static_cast<uint64_t>(st.st_dev), static_cast<uint64_t>(st.st_ino)};
}

}  // namespace

void HeldFiles::Add(Identity identity) {
    Registry& r = TheRegistry();
    std::lock_guard<std::mutex> lock(r.mutex);
    r.held.insert(identity);
    r.count.fetch_add(1);
}

void HeldFiles::Remove(Identity identity) {
    Registry& r = TheRegistry();
    std::lock_guard<std::mutex> lock(r.mutex);
    auto it = r.held.find(identity);
    if (it == r.held.end()) return;
    r.held.erase(it);
    r.count.fetch_sub(1);
}

bool HeldFiles::Contains(Identity identity) {
    Registry& r = TheRegistry();
    if (r.count.load() == 0) return false;
    std::lock_guard<std::mutex> lock(r.mutex);
    return r.held.count(identity) != 0;
}

bool HeldFiles::ContainsDescriptor(int fd) {
    if (TheRegistry().count.load() == 0) return false;
    struct stat st {};
    return ::fstat(fd, &st) == 0 && Contains(IdentityOf(st));
}

bool HeldFiles::ContainsPath(const char* path) {
    if (TheRegistry().count.load() == 0) return false;
    struct stat st {};
    return ::stat(path, &st) == 0 && Contains(IdentityOf(st));
}

}  // namespace quillet
