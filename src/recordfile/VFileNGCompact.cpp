// Compaction of a next-generation record file: the live records are copied
// into a sibling file ("<name>_compress"), which then takes the file's name
// while the old file steps aside ("<name>tmp") until the swap is done. A
// compaction killed at any point leaves the old file or the new one, whole;
// the next open finishes or undoes the swap, or removes the unfinished copy.

#include <algorithm>
#include <new>
#include <utility>
#include <vector>

#include "foundation/Descriptor.h"
#include "foundation/FileSystemPath.h"
#include "foundation/Win32File.h"
#include "recordfile/VFileNG.h"

namespace quillet {

namespace {

// The files that make up one record file: data, index and free list.
struct FileSet {
    explicit FileSet(const String& data) : data(data), index(VFileNGIndex::IndexPath(data)) {
        FileSystemPath listPath(data);
        listPath.SetExtension(L"freelist");
        list = listPath.GetPath();
    }
    String data;
    String index;
    String list;
};

String S_Sibling(const String& path, const wchar_t* suffix) {
    FileSystemPath sibling(path);
    sibling.SetBaseName(sibling.GetBaseName() + suffix);
    return sibling.GetPath();
}

bool S_Move(const String& from, const String& to) {
    return MoveFileW(from.c_str(), to.c_str());
}

void S_DeleteIfThere(const String& path) {
    if (FileExists(path.c_str())) DeleteFileW(path.c_str());
}

void S_DeleteSet(const FileSet& set) {
    S_DeleteIfThere(set.data);
    S_DeleteIfThere(set.index);
    S_DeleteIfThere(set.list);
}

// Moves data, index and (when there is one) free list; on a failure the
// files already moved go back, so that the set moves whole or not at all.
bool S_MoveSet(const FileSet& from, const FileSet& to) {
    if (!S_Move(from.data, to.data)) return false;
    if (!S_Move(from.index, to.index)) {
        S_Move(to.data, from.data);
        return false;
    }
    if (FileExists(from.list.c_str()) && !S_Move(from.list, to.list)) {
        S_Move(to.index, from.index);
        S_Move(to.data, from.data);
        return false;
    }
    return true;
}

// Puts back whatever of `aside` is there over `target`.
void S_RollBack(const FileSet& aside, const FileSet& target) {
    for (auto [from, to] : {std::pair{&aside.data, &target.data},
                            {&aside.index, &target.index},
                            {&aside.list, &target.list}}) {
        if (!FileExists(from->c_str())) continue;
        S_DeleteIfThere(*to);
        S_Move(*from, *to);
    }
}

// Removes the copy of a compaction that was cut off before the swap began,
// but only while nobody has the file open, and each copy file only while
// this process holds it: a compaction under way holds one or the other.
void S_DeleteStrayCopy(const FileSet& target, const FileSet& copy) {
    if (!FileExists(copy.data.c_str()) && !FileExists(copy.index.c_str())) return;
    File held(target.data.c_str());
    if (!held.Open(0, 1, 0, 0, 0)) return;
    for (const String* path : {&copy.data, &copy.index, &copy.list}) {
        File stray(path->c_str());
        // Unlinked while locked, so that no new copy of the same name is lost.
        if (stray.Open(0, 1, 0, 0, 0)) DeleteFileW(path->c_str());
    }
}

}  // namespace

void VFileNG::RecoverCompaction(const wchar_t* path) {
    FileSet target{String(path)};
    FileSet aside{S_Sibling(target.data, L"tmp")};
    FileSet copy{S_Sibling(target.data, L"_compress")};
    if (!FileExists(aside.data.c_str()) && !FileExists(aside.index.c_str())) {
        // The old list goes last, when the swap is done or undone: it is only
        // a cache of the old file's holes.
        S_DeleteIfThere(aside.list);
        S_DeleteStrayCopy(target, copy);
        return;
    }
    bool whole = FileExists(target.data.c_str()) && FileExists(target.index.c_str());
    bool copyLeft = FileExists(copy.data.c_str()) || FileExists(copy.index.c_str());
    if (whole && !copyLeft) {
        S_DeleteSet(aside);  // the new file was in place: only the old one's removal was cut off
    } else if (!whole && copyLeft) {
        S_RollBack(aside, target);
        S_DeleteSet(copy);
    }
}

bool VFileNG::CompactionWasCutOff(const wchar_t* path) {
    FileSet target{String(path)};
    for (const wchar_t* suffix : {L"tmp", L"_compress"}) {
        FileSet left{S_Sibling(target.data, suffix)};
        for (const String* file : {&left.data, &left.index, &left.list})
            if (FileExists(file->c_str())) return true;
    }
    return false;
}

bool VFileNG::CompactFile(bool renumber) {
    return CompactFile(renumber, {});
}

bool VFileNG::CompactFile(bool renumber, const CompactProgress& progress) {
    if (!RequireWritable()) return false;
    if (!hasFreeSpace_ && header_.freeBytes == 0 && header_.version == cCurVers) return true;
    String copyPath = S_Sibling(path_, L"_compress");
    {
        VFileNG copy(copyPath.c_str());
        if (!copy.Create(kReadWrite, false, header_.pointerLength, false)) {
            return Fail(kErrorNoCompactFile);
        }
        // On disk before the names change, so that a crash after the swap
        // finds the new file whole.
        bool copied = CopyRecordsTo(copy, renumber, progress) && copy.Flush();
        copy.Close(false);
        if (!copied) {
            S_DeleteSet(FileSet(copyPath));
            return Fail(kErrorNoRecord);
        }
    }
    // Renumbered records may take numbers that were promised: the promises
    // go with the old numbering.
    if (renumber) index_.ReleaseReservedRecordNumbers();
    return SwapWith(copyPath);
}

bool VFileNG::CopyRecordsTo(VFileNG& copy, bool renumber, const CompactProgress& progress) {
    size_t size = static_cast<size_t>(std::max(header_.maxRecordLength, GetUserHeaderLength()));
    std::vector<unsigned char> buffer;
    try {
        buffer.resize((size & ~size_t{1023}) + 1024);
    } catch (const std::bad_alloc&) {
        return false;
    }
    auto capacity = [&] { return static_cast<int32_t>(buffer.size()); };
    int32_t userLength = GetUserHeaderLength();
    if (userLength > 0 && (!ReadUserHeader(buffer.data(), capacity()) ||
                           !copy.WriteUserHeader(buffer.data(), userLength))) {
        return false;
    }
    for (int32_t n = index_.GetNextStoredNumber(1); n >= 1 && n <= GetMaxRecordNumber(false);
         n = n < INT32_MAX ? index_.GetNextStoredNumber(n + 1) : -1) {
        if (progress && n % 1024 == 0) progress(n, GetMaxRecordNumber(false));
        if (IsRecordDeleted(n)) continue;
        int32_t length = 0;
        if (!ReadRecord(n, buffer.data(), capacity(), &length)) {
            if (lastError_ != kErrorNoRecord || length < 0) return false;
            buffer.resize(static_cast<size_t>(length) + 1024);
            if (!ReadRecord(n, buffer.data(), capacity(), &length)) return false;
        }
        bool copied = renumber ? copy.InsertRecord(buffer.data(), length, nullptr)
                               : copy.InsertRecordWithId(n, buffer.data(), length);
        if (!copied) return false;
    }
    if (progress) progress(GetMaxRecordNumber(false), GetMaxRecordNumber(false));
    return true;
}

bool VFileNG::SwapWith(const String& copyPath) {
    FileSet target(path_);
    FileSet aside(S_Sibling(path_, L"tmp"));
    FileSet copy(copyPath);
    Mode mode = mode_;
    bool share = share_;
    bool shareWrites = shareWrites_;
    auto reopen = [&](int32_t error) {
        bool opened = Open(mode, share, shareWrites);
        return error == 0 ? opened : Fail(error);
    };
    CloseFiles(false);
    if (!S_MoveSet(target, aside)) {
        S_DeleteSet(copy);
        return reopen(kErrorNoRecord);
    }
    if (!S_MoveSet(copy, target)) {
        Sleep(100);
        if (!S_MoveSet(copy, target)) {
            bool back = S_MoveSet(aside, target);
            for (uint32_t wait : {100u, 1000u, 10000u}) {
                if (back) break;
                Sleep(wait);
                back = S_MoveSet(aside, target);
            }
            S_DeleteSet(copy);
            return reopen(kErrorNoRecord);
        }
    }
    // The copy was flushed before the swap; the new names must reach the
    // disk too, or a power cut could bring back the old names over a
    // removed file. A failure here is reported, with the new file in place.
    bool durable = SyncFolderOf(NativePath(path_.c_str()).c_str());
    S_DeleteSet(aside);
    index_.UpdateName(path_.c_str());
    S_DeleteIfThere(target.list);
    bool opened = Open(mode, share, shareWrites);
    lastError_ = opened && durable ? 0 : kErrorNoRecord;
    return opened && durable;
}

}  // namespace quillet
