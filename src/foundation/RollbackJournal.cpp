#include "foundation/RollbackJournal.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "foundation/ByteOrder.h"
#include "foundation/Descriptor.h"
#include "foundation/File.h"
#include "foundation/String.h"
#include "foundation/Win32File.h"

namespace quillet {

namespace {

constexpr char kMagic[] = "quillet-journal\n";
constexpr int kMagicSize = 16;
constexpr uint32_t kVersion = 1;
constexpr int kFixedSize = kMagicSize + 8;  // magic, version, entry count
constexpr uint32_t kMaxEntries = 64;
constexpr uint32_t kMaxNameLength = 1024;
constexpr int32_t kChunk = 64 * 1024;

// A checksum that reads eight bytes a step, fast enough not to slow the copy
// it guards. It only has to tell a torn or damaged journal from a whole one.
class Checksum {
public:
    void Update(const unsigned char* data, size_t n) {
        length_ += n;
        while (n > 0 && pendingFill_ > 0) {
            pending_[pendingFill_++] = *data++;
            --n;
            if (pendingFill_ == 8) {
                Mix(pending_);
                pendingFill_ = 0;
            }
        }
        for (; n >= 8; n -= 8, data += 8) Mix(data);
        std::memcpy(pending_, data, n);
        pendingFill_ = n;
    }
    uint64_t Value() const {
        uint64_t h = hash_;
        for (size_t i = 0; i < pendingFill_; ++i) h = (h ^ pending_[i]) * kPrime;
        h ^= length_;
        h *= kPrime;
        return h ^ (h >> 31);
    }

private:
    static constexpr uint64_t kPrime = 0x9E3779B97F4A7C15ull;
    void Mix(const unsigned char* word) {
        uint64_t w;
        std::memcpy(&w, word, 8);
        hash_ = (hash_ ^ w) * kPrime;
        hash_ ^= hash_ >> 29;
    }

    uint64_t hash_ = 0x243F6A8885A308D3ull;
    uint64_t length_ = 0;
    unsigned char pending_[8] = {};
    size_t pendingFill_ = 0;
};

std::string NameOf(const std::wstring& path) {
    std::string native = NativePath(path.c_str());
    size_t slash = native.rfind('/');
    return slash == std::string::npos ? native : native.substr(slash + 1);
}

void Put32(std::vector<unsigned char>& out, uint32_t value) {
    unsigned char bytes[4];
    EncodeFixed32LE(bytes, value);
    out.insert(out.end(), bytes, bytes + 4);
}

void Put64(std::vector<unsigned char>& out, uint64_t value) {
    unsigned char bytes[8];
    EncodeFixed64LE(bytes, value);
    out.insert(out.end(), bytes, bytes + 8);
}

std::vector<unsigned char> EncodeHeader(const std::vector<RollbackJournal::Entry>& entries) {
    std::vector<unsigned char> out(kMagic, kMagic + kMagicSize);
    Put32(out, kVersion);
    Put32(out, static_cast<uint32_t>(entries.size()));
    for (const auto& entry : entries) {
        Put32(out, static_cast<uint32_t>(entry.name.size()));
        out.insert(out.end(), entry.name.begin(), entry.name.end());
        Put64(out, static_cast<uint64_t>(entry.length));
        Put64(out, entry.checksum);
    }
    Checksum sum;
    sum.Update(out.data(), out.size());
    Put64(out, sum.Value());
    return out;
}

// Reads a header from the start of `file`; false when there is none whole.
bool DecodeHeader(File& file, std::vector<RollbackJournal::Entry>& entries) {
    std::vector<unsigned char> header(kFixedSize);
    if (file.Read(header.data(), kFixedSize) != kFixedSize ||
        std::memcmp(header.data(), kMagic, kMagicSize) != 0 ||
        DecodeFixed32LE(&header[16]) != kVersion)
        return false;
    uint32_t count = DecodeFixed32LE(&header[20]);
    if (count == 0 || count > kMaxEntries) return false;
    entries.resize(count);
    for (auto& entry : entries) {
        unsigned char length[4];
        if (file.Read(length, 4) != 4) return false;
        uint32_t nameLength = DecodeFixed32LE(length);
        if (nameLength == 0 || nameLength > kMaxNameLength) return false;
        entry.name.resize(nameLength);
        unsigned char sizes[16];
        if (file.Read(entry.name.data(), static_cast<int>(nameLength)) !=
                static_cast<int>(nameLength) ||
            file.Read(sizes, 16) != 16)
            return false;
        entry.length = static_cast<int64_t>(DecodeFixed64LE(sizes));
        entry.checksum = DecodeFixed64LE(sizes + 8);
        if (entry.length < 0 || entry.name.find('/') != std::string::npos) return false;
    }
    unsigned char stored[8];
    if (file.Read(stored, 8) != 8) return false;
    std::vector<unsigned char> again = EncodeHeader(entries);
    return std::memcmp(&again[again.size() - 8], stored, 8) == 0;
}

}  // namespace

std::wstring RollbackJournal::PathOf(const std::wstring& file) {
    return file + L"-journal";
}

RollbackJournal::RollbackJournal(std::wstring path) : path_(std::move(path)) {}

RollbackJournal::~RollbackJournal() = default;

std::wstring RollbackJournal::PathOfEntry(const Entry& entry) const {
    std::wstring folder = path_.substr(0, path_.rfind(L'/') + 1);
    return folder + String::FromUtf8(entry.name).str();
}

bool RollbackJournal::Save(std::span<File* const> files) {
    if (files.empty() || files.size() > kMaxEntries || FileExists(path_.c_str())) return false;
    entries_.clear();
    for (File* source : files) {
        Entry entry;
        entry.name = NameOf(source->GetPath());
        entry.length = source->GetLengthEx();
        if (entry.length < 0 || entry.name.empty() || entry.name.size() > kMaxNameLength)
            return false;
        entries_.push_back(entry);
    }
    file_ = std::make_unique<File>(path_.c_str());
    if (!file_->Create(0, 0)) {
        file_.reset();
        return false;
    }
    if (WriteEntries(files) && file_->Flush() && SyncFolderOf(NativePath(path_.c_str()).c_str()))
        return true;
    Discard();
    return false;
}

bool RollbackJournal::WriteEntries(std::span<File* const> files) {
    // The header goes last, over zeros: until it is written, the journal is
    // torn, and a torn journal is never followed.
    std::vector<unsigned char> header = EncodeHeader(entries_);
    std::vector<unsigned char> chunk(kChunk, 0);
    if (file_->Write(chunk.data(), static_cast<int>(header.size())) !=
        static_cast<int>(header.size()))
        return false;
    int64_t offset = static_cast<int64_t>(header.size());
    for (size_t i = 0; i < files.size(); ++i) {
        Entry& entry = entries_[i];
        entry.offset = offset;
        if (!files[i]->SeekEx(0, File::kBegin)) return false;
        Checksum sum;
        for (int64_t left = entry.length; left > 0;) {
            int want = static_cast<int>(std::min<int64_t>(left, kChunk));
            if (files[i]->Read(chunk.data(), want) != want ||
                file_->Write(chunk.data(), want) != want)
                return false;
            sum.Update(chunk.data(), static_cast<size_t>(want));
            left -= want;
        }
        entry.checksum = sum.Value();
        offset += entry.length;
    }
    header = EncodeHeader(entries_);
    return file_->Seek(0, File::kBegin) &&
           file_->Write(header.data(), static_cast<int>(header.size())) ==
               static_cast<int>(header.size());
}

bool RollbackJournal::Discard() {
    file_.reset();
    std::string native = NativePath(path_.c_str());
    if (::unlink(native.c_str()) != 0 && errno != ENOENT) return false;
    return SyncFolderOf(native.c_str());
}

RollbackJournal::State RollbackJournal::Load() {
    entries_.clear();
    file_ = std::make_unique<File>(path_.c_str());
    if (!file_->Open(1, 1, 1, 1, 0)) {
        bool missing = file_->GetLastError() == File::kNotFound;
        file_.reset();
        return missing ? State::kAbsent : State::kTorn;
    }
    if (!DecodeHeader(*file_, entries_)) return State::kTorn;
    int64_t offset = file_->GetPosition();
    for (auto& entry : entries_) {
        entry.offset = offset;
        if (entry.length > INT64_MAX - offset) return State::kTorn;
        offset += entry.length;
    }
    if (offset != file_->GetLengthEx() || !CheckData()) return State::kTorn;
    return State::kWhole;
}

bool RollbackJournal::CheckData() {
    std::vector<unsigned char> chunk(kChunk);
    for (const auto& entry : entries_) {
        Checksum sum;
        for (int64_t left = entry.length; left > 0;) {
            int want = static_cast<int>(std::min<int64_t>(left, kChunk));
            if (file_->Read(chunk.data(), want) != want) return false;
            sum.Update(chunk.data(), static_cast<size_t>(want));
            left -= want;
        }
        if (sum.Value() != entry.checksum) return false;
    }
    return true;
}

bool RollbackJournal::Restore(const Entry& entry, File& target) {
    if (!file_ || !file_->SeekEx(entry.offset, File::kBegin) || !target.SeekEx(0, File::kBegin))
        return false;
    std::vector<unsigned char> chunk(kChunk);
    for (int64_t left = entry.length; left > 0;) {
        int want = static_cast<int>(std::min<int64_t>(left, kChunk));
        if (file_->Read(chunk.data(), want) != want || target.Write(chunk.data(), want) != want)
            return false;
        left -= want;
    }
    return target.SetLengthEx(entry.length) && target.Flush();
}

}  // namespace quillet
