#pragma once

// Helpers shared by the tool's command groups.

#include <cstdint>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "Registry.h"
#include "codepage/CodePage.h"

namespace quillet::tool {

// A path as the library takes it (wide), from the UTF-8 the shell gives.
std::wstring WidePath(const std::filesystem::path& path);
std::string Utf8(const std::wstring& text);

// The name of a code page kind (CodePage::qovaCodePageEnum): "default",
// "OEM", "ANSI", "ISO" or "UTF-8".
const char* CodePageKindName(int kind);

// The keys every command uses for a code page: "code_page" (the number),
// "code_page_kind" and "code_page_name" (its `.cpg` text).
Json CodePageJson(const CodePage& page);

// "1 record", "2 records": a count with its noun.
std::string Count(int64_t count, const std::string& noun);

// Fails (Failure naming the path) unless `path` is an existing regular file.
void RequireRegularFile(const std::filesystem::path& path);

// What a rewrite that was killed or failed left of `path` is put back before
// anything reads it, as the library's opens do; a note on stderr says so.
// Failure when it cannot be (the file is in use, or cannot be written).
void RecoverBeforeReading(const std::filesystem::path& path);
// Why a recovery (RecoverInterruptedRewrite) keeps `path` closed; empty when
// it does not.
std::string RecoveryProblem(const std::filesystem::path& path, int outcome,
                            const std::string& journals);

// Up to `n` first bytes of a file, after RecoverBeforeReading; Failure when
// it cannot be read.
std::vector<unsigned char> ReadHead(const std::filesystem::path& path, size_t n);

// A code page Quillet converts, and what serves it: a table file, the
// system, or code built in.
struct ConvertibleCodePage {
    uint32_t id;
    const char* source;
};
// Every one, by ascending number.
std::vector<ConvertibleCodePage> ConvertibleCodePages();

// A code page named by a number or a `.cpg`-style text, as the library
// accepts `.cpg` texts; a usage error unless it is one Quillet converts (the
// library takes any number in range as a code page's).
uint32_t ParseCodePage(const std::string& text);

// Sets `page` to the code page a table's text is read in, as the library
// chooses it, and returns why: "language driver byte", ".cpg file", or a
// system default and the reason for it.
std::string ChooseTableCodePage(const std::filesystem::path& table, CodePage& page);

// Text to a code page's bytes and back, whole (a zero ends the text). Bytes
// the code page rejects read as U+FFFD.
std::string EncodeText(CodePage& page, const std::wstring& text);
std::wstring DecodeText(CodePage& page, const std::string& bytes);

// Adds `--limit N` to a command: at most N items; negative numbers are
// refused. `limit` stays -1 when the option is not given.
void AddLimitOption(CLI::App& command, int64_t& limit, const std::string& what);

// Prints a JSON value on stdout (pretty for objects), or as `key: value`
// lines for people.
void PrintJson(const Json& value);
void PrintFields(const Json& object, std::ostream& out = std::cout);

// A progress bar on stderr for long work; silent unless stderr is a terminal.
// Done() shows it full; either way its line is cleared when it goes, so that
// what follows on stderr starts a clean line.
class Progress {
public:
    Progress(std::string label, int64_t total);
    ~Progress();
    void Update(int64_t done);
    void Done() { Update(total_); }
    // Clears the bar's line, so that a message can take it; the next Update
    // draws the bar again.
    void Clear();

private:
    std::string label_;
    int64_t total_;
    int lastPercent_ = -1;
    bool enabled_;
};

}  // namespace quillet::tool
