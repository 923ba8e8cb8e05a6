#include "foundation/RewriteRecovery.h"

#include <algorithm>
#include <memory>

#include "foundation/DebugOutput.h"
#include "foundation/File.h"
#include "foundation/HeldFiles.h"
#include "foundation/RollbackJournal.h"
#include "foundation/Win32File.h"

namespace quillet {

namespace {

const std::wstring kJournalSuffix = L"-journal";

std::vector<std::wstring> CandidateJournals(const std::wstring& file) {
    std::vector<std::wstring> candidates = {RollbackJournal::PathOf(file)};
    size_t slash = file.rfind(L'/');
    size_t dot = file.rfind(L'.');
    std::wstring stem = dot != std::wstring::npos && (slash == std::wstring::npos || dot > slash)
                            ? file.substr(0, dot)
                            : file;
    for (const wchar_t* extension : {L".dbf", L".shp", L".DBF", L".SHP"}) {
        std::wstring journal = RollbackJournal::PathOf(stem + extension);
        if (std::find(candidates.begin(), candidates.end(), journal) == candidates.end())
            candidates.push_back(journal);
    }
    return candidates;
}

RecoveryOutcome OutcomeOfOpenFailure(const File& file) {
    switch (file.GetLastError()) {
        case File::kSharingViolation: return RecoveryOutcome::kInUse;
        case File::kAccessDenied: return RecoveryOutcome::kCannotWrite;
        default: return RecoveryOutcome::kFailed;
    }
}

// Opens every file the journal saved, exclusively (creating those a rewrite
// deleted), before any of them changes.
RecoveryOutcome OpenTargets(const RollbackJournal& journal, const std::wstring& owner,
                            std::unique_ptr<File>& ownerFile,
                            std::vector<std::unique_ptr<File>>& targets) {
    for (const auto& entry : journal.entries()) {
        std::wstring path = journal.PathOfEntry(entry);
        if (path == owner && ownerFile) {
            targets.push_back(std::move(ownerFile));
            continue;
        }
        auto target = std::make_unique<File>(path.c_str());
        bool opened = target->Open(0, 0, 0, 0, 0) ||
                      (target->GetLastError() == File::kNotFound && target->Create(0, 0));
        if (!opened) return OutcomeOfOpenFailure(*target);
        targets.push_back(std::move(target));
    }
    return RecoveryOutcome::kRolledBack;
}

RecoveryOutcome RecoverJournal(const std::wstring& path, RecoveryReport& report) {
    std::wstring owner = path.substr(0, path.size() - kJournalSuffix.size());
    // The rewrite that wrote the journal holds its file until the journal
    // is gone: while anyone holds it, the journal is not ours to judge.
    auto ownerFile = std::make_unique<File>(owner.c_str());
    if (!ownerFile->Open(0, 0, 0, 0, 0)) {
        if (ownerFile->GetLastError() != File::kNotFound) return OutcomeOfOpenFailure(*ownerFile);
        ownerFile.reset();
    }
    RollbackJournal journal(path);
    switch (journal.Load()) {
        case RollbackJournal::State::kAbsent: return RecoveryOutcome::kNothing;
        case RollbackJournal::State::kTorn:
            return journal.Discard() ? RecoveryOutcome::kDiscardedTorn
                                     : RecoveryOutcome::kCannotWrite;
        case RollbackJournal::State::kWhole: break;
    }
    std::vector<std::unique_ptr<File>> targets;
    RecoveryOutcome opened = OpenTargets(journal, owner, ownerFile, targets);
    if (opened != RecoveryOutcome::kRolledBack) return opened;
    for (size_t i = 0; i < targets.size(); ++i) {
        if (!journal.Restore(journal.entries()[i], *targets[i])) return RecoveryOutcome::kFailed;
        report.restored.push_back(targets[i]->GetPath());
    }
    return journal.Discard() ? RecoveryOutcome::kRolledBack : RecoveryOutcome::kFailed;
}

}  // namespace

std::vector<std::wstring> JournalsBeside(const std::wstring& file) {
    std::vector<std::wstring> found;
    for (const auto& journal : CandidateJournals(file)) {
        if (FileExists(journal.c_str())) found.push_back(journal);
    }
    return found;
}

RecoveryReport RecoverInterruptedRewrite(const std::wstring& file) {
    RecoveryReport report;
    for (const auto& journal : JournalsBeside(file)) {
        std::wstring owner = journal.substr(0, journal.size() - kJournalSuffix.size());
        // A rewrite of this process is under way: the journal is its own.
        if (HeldFiles::ContainsPath(NativePath(owner.c_str()).c_str())) continue;
        report.journals.push_back(journal);
        RecoveryOutcome outcome = RecoverJournal(journal, report);
        report.outcome = std::max(report.outcome, outcome);
        if (outcome == RecoveryOutcome::kRolledBack) {
            OutputDebugStringW((L"rolled back an interrupted rewrite from " + journal).c_str());
        }
        if (!MayOpenAfter(outcome)) break;
    }
    return report;
}

}  // namespace quillet
