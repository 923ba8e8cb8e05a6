// quillet recover PATH... [--check]: undoes what a rewrite that was killed or
// failed left half done. Opening a file does the same, so this is for seeing
// what a crash left (--check) and for finishing a rollback that failed, once
// its cause (a full disk, a read-only folder) is gone.

#include <cstring>
#include <iostream>

#include "Common.h"
#include "foundation/RewriteRecovery.h"
#include "foundation/RollbackJournal.h"
#include "recordfile/VFileNG.h"

namespace quillet::tool {

namespace {

std::string JoinNames(const std::vector<std::wstring>& paths) {
    std::string joined;
    for (const auto& path : paths) joined += (joined.empty() ? "" : ", ") + Utf8(path);
    return joined;
}

// Whether something needed recovery.
bool Check(const std::string& path) {
    if (VFileNG::CompactionWasCutOff(WidePath(path).c_str())) {
        std::cout << path << ": an interrupted compaction left files beside it; `quillet recover "
                  << path << "` finishes or undoes it\n";
        return true;
    }
    auto journals = JournalsBeside(WidePath(path));
    if (journals.empty()) {
        std::cout << path << ": no interrupted rewrite\n";
        return false;
    }
    std::cout << path << ": an interrupted rewrite left " << JoinNames(journals)
              << "; `quillet recover " << path << "` undoes it\n";
    return true;
}

// A record file's compaction swaps names rather than keeping a journal.
bool RecoverCompaction(const std::string& path) {
    std::wstring wide = WidePath(path);
    if (!VFileNG::CompactionWasCutOff(wide.c_str())) return false;
    VFileNG::RecoverCompaction(wide.c_str());
    if (VFileNG::CompactionWasCutOff(wide.c_str())) {
        throw Failure(path + ": an interrupted compaction left files beside it, and they could "
                             "not be put right: is the file in use?");
    }
    std::cout << path << ": finished or undid an interrupted compaction\n";
    return true;
}

void Recover(const std::string& path) {
    if (RecoverCompaction(path)) return;
    RecoveryReport report = RecoverInterruptedRewrite(WidePath(path));
    std::string journals = JoinNames(report.journals);
    switch (report.outcome) {
        case RecoveryOutcome::kNothing: std::cout << path << ": no interrupted rewrite\n"; return;
        case RecoveryOutcome::kDiscardedTorn:
            std::cout << path << ": removed " << journals
                      << ", left by a rewrite stopped before it changed anything\n";
            return;
        case RecoveryOutcome::kRolledBack:
            std::cout << path << ": rolled back an interrupted rewrite; restored "
                      << JoinNames(report.restored) << " from " << journals << "\n";
            return;
        default: throw Failure(RecoveryProblem(path, static_cast<int>(report.outcome), journals));
    }
}

void Install(CLI::App& app) {
    auto* cmd = app.add_subcommand(
        "recover", "Roll back what a killed or failed rewrite left (opening a file does it too)");
    auto paths = std::make_shared<std::vector<std::string>>();
    auto check = std::make_shared<bool>(false);
    cmd->add_option("PATH", *paths, "Tables, shape files or record files")->required();
    cmd->add_flag("--check", *check,
                  "Only say what an interrupted rewrite left; exit 1 when something did");
    cmd->callback([=] {
        bool found = false;
        for (const auto& path : *paths) {
            if (*check) {
                found = Check(path) || found;
            } else {
                Recover(path);
            }
        }
        if (found) throw Failure("interrupted rewrites found; nothing was changed");
    });
}

// `quillet info` of a journal: the files it would put back, and whether it
// is whole (a rewrite was interrupted) or torn (it never changed anything).
bool ProbeJournal(const std::filesystem::path& path, std::span<const unsigned char> head,
                  Json& out) {
    static constexpr char kMagic[] = "quillet-journal\n";
    if (head.size() < 16 || std::memcmp(head.data(), kMagic, 16) != 0) return false;
    RollbackJournal journal(WidePath(path));
    bool whole = journal.Load() == RollbackJournal::State::kWhole;
    out["kind"] = "rollback journal";
    out["state"] = whole ? "whole: an interrupted rewrite, to be rolled back"
                         : "torn: its rewrite changed nothing";
    Json files = Json::array();
    for (const auto& entry : journal.entries())
        files.push_back(Json{{"name", entry.name}, {"length", entry.length}});
    out["files"] = files;
    return true;
}

void Register() {
    RegisterGroup("recover", Install);
    RegisterInfoProbe({40, "rollback journal", ProbeJournal});
}

}  // namespace

QUILLET_TOOL_REGISTER(Register);

}  // namespace quillet::tool
