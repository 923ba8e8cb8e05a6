#pragma once

// Opening a file first rolls back a rewrite of it that never finished: a
// whole journal beside it holds the old bytes of every file that rewrite was
// changing. The journals looked for are the file's own ("NAME.ext-journal")
// and those of its layer's table and shapes ("NAME.dbf-journal",
// "NAME.shp-journal"), since one rewrite may change a table and its shapes
// together.
//
// A journal is judged only while the file it is named after is held
// exclusively: every rewrite holds that file for its whole run, so a journal
// that a live rewrite is still writing, or still needs, is never touched.

#include <string>
#include <vector>

#include "foundation/Export.h"
#include "foundation/File.h"

namespace quillet {

// In order of weight: a report gives the weightiest of its journals.
enum class RecoveryOutcome {
    kNothing,        // no journal: the file is as its last rewrite left it
    kDiscardedTorn,  // a torn journal was deleted: its rewrite changed nothing
    kRolledBack,     // an interrupted rewrite was undone
    kInUse,          // another open holds the file; nothing was judged
    kCannotWrite,    // a whole journal is there but the files cannot be written
    kFailed,         // putting the old bytes back failed; the journal stays
};

struct RecoveryReport {
    RecoveryOutcome outcome = RecoveryOutcome::kNothing;
    std::vector<std::wstring> journals;  // the journals found
    std::vector<std::wstring> restored;  // the files given their old bytes back
};

// Rolls back or discards every journal that concerns `file`.
QUILLET_EXPORT RecoveryReport RecoverInterruptedRewrite(const std::wstring& file);

// The journals that concern `file` and exist now, without judging them.
QUILLET_EXPORT std::vector<std::wstring> JournalsBeside(const std::wstring& file);

// Whether `outcome` lets the file be opened.
inline bool MayOpenAfter(RecoveryOutcome outcome) {
    return outcome <= RecoveryOutcome::kRolledBack;
}

// The file layer's error for an outcome that keeps the file closed.
inline File::Error FileErrorOf(RecoveryOutcome outcome) {
    switch (outcome) {
        case RecoveryOutcome::kInUse: return File::kSharingViolation;
        case RecoveryOutcome::kCannotWrite: return File::kAccessDenied;
        default: return File::kWriteFailed;
    }
}

}  // namespace quillet
