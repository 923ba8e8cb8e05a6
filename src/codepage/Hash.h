#pragma once

// Hash: the small chained map that the code page tables are kept in (LDID to
// code page, locale key to LDID, Unicode value to byte). It always has 17
// buckets; a key's hash is key >> 4 and its bucket hash % 17. Each chain is
// kept in ascending order of hash, so a lookup stops at the first entry whose
// hash is greater than the one it wants. Keys that share a hash stay in the
// order they were inserted.
//
// The map owns its entries. Allocation failures drop the insertion rather than
// throw: the library has no exceptions, and a missing entry only means that a
// lookup falls back as for an unknown key.

#include <cstdint>
#include <new>

namespace quillet {

template <class KEY, class ARG_KEY, class VALUE, class ARG_VALUE>
class Hash {
public:
    static constexpr uint32_t kBucketCount = 17;

    Hash() = default;
    ~Hash() { RemoveAll(); }
    Hash(const Hash& other) { CopyFrom(other); }
    Hash& operator=(const Hash& other) {
        if (this != &other) {
            RemoveAll();
            CopyFrom(other);
        }
        return *this;
    }

    // Replaces the value of an existing key; otherwise inserts the key after
    // the entries of smaller or equal hash in its chain.
    void SetAt(ARG_KEY key, ARG_VALUE value) {
        uint32_t hash = HashOf(key);
        Entry** link = &buckets_[hash % kBucketCount];
        for (; *link && (*link)->hash <= hash; link = &(*link)->next) {
            if ((*link)->hash == hash && (*link)->key == key) {
                (*link)->value = value;
                return;
            }
        }
        Entry* entry = new (std::nothrow) Entry{key, value, *link, hash};
        if (!entry) return;
        *link = entry;
        ++count_;
    }

    // The value of `key`, or null when the key is absent.
    const VALUE* Find(ARG_KEY key) const {
        uint32_t hash = HashOf(key);
        for (const Entry* e = buckets_[hash % kBucketCount]; e && e->hash <= hash; e = e->next) {
            if (e->hash == hash && e->key == key) return &e->value;
        }
        return nullptr;
    }
    bool Lookup(ARG_KEY key, VALUE& value) const {
        const VALUE* found = Find(key);
        if (found) value = *found;
        return found != nullptr;
    }

    // The number of insertions since the map was made (replacements do not
    // count).
    int32_t GetCount() const { return count_; }
    uint32_t GetBucketCount() const { return bucketCount_; }

    // Calls f(key, value) for every entry, bucket by bucket, each chain in order.
    template <class F>
    void ForEach(F f) const {
        for (const Entry* head : buckets_) {
            for (const Entry* e = head; e; e = e->next) f(e->key, e->value);
        }
    }

    void RemoveAll() {
        for (Entry*& head : buckets_) {
            while (head) {
                Entry* next = head->next;
                delete head;
                head = next;
            }
        }
        count_ = 0;
    }

private:
    struct Entry {
        KEY key;
        VALUE value;
        Entry* next;
        uint32_t hash;
    };

    static uint32_t HashOf(ARG_KEY key) { return static_cast<uint32_t>(key) >> 4; }

    void CopyFrom(const Hash& other) {
        for (uint32_t b = 0; b < kBucketCount; ++b) {
            Entry** tail = &buckets_[b];
            for (const Entry* e = other.buckets_[b]; e; e = e->next) {
                *tail = new (std::nothrow) Entry{e->key, e->value, nullptr, e->hash};
                if (!*tail) break;
                tail = &(*tail)->next;
            }
        }
        count_ = other.count_;
    }

    uint32_t bucketCount_ = kBucketCount;
    int32_t count_ = 0;
    Entry* buckets_[kBucketCount] = {};
};

}  // namespace quillet
