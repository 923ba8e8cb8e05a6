// The decoders take runs of ASCII eight bytes at a time. Around those blocks:
// runs ending at every position within a block or exactly at its end, the
// terminator right after any of them (with nothing readable beyond it), and
// destinations whose room ends inside a block. Texts large enough that the
// single-byte decoders write them past the cache decode as short texts do,
// whatever the destination's alignment.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "CodePageTestSupport.h"
#include "codepage/CodePage.h"

namespace quillet {
namespace {

// Text whose terminator is the last readable byte before an inaccessible
// page, so that a read past the terminator ends the test.
class GuardedText {
public:
    explicit GuardedText(const std::string& bytes) : page_(static_cast<size_t>(sysconf(_SC_PAGESIZE))) {
        void* base = mmap(nullptr, 2 * page_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (base == MAP_FAILED) throw std::runtime_error("mmap failed");
        base_ = static_cast<char*>(base);
        if (mprotect(base_ + page_, page_, PROT_NONE) != 0) throw std::runtime_error("mprotect failed");
        text_ = base_ + page_ - (bytes.size() + 1);
        std::memcpy(text_, bytes.c_str(), bytes.size() + 1);
    }
    ~GuardedText() { munmap(base_, 2 * page_); }
    GuardedText(const GuardedText&) = delete;
    GuardedText& operator=(const GuardedText&) = delete;

    const char* c_str() const { return text_; }

private:
    size_t page_;
    char* base_ = nullptr;
    char* text_ = nullptr;
};

// What a destination short of the text gets.
enum class ShortRoom {
    kTerminatedPrefix,  // the text's first room - 1 units and the terminator
    kPrefix,            // the text's first room units, no terminator
    kCutsSource,        // the room bounds the source too, which cuts it elsewhere
};

struct Case {
    const char* name;
    int language, country, ansi, oem;
    uint32_t codePage;
    std::string special;  // the bytes of one character beyond ASCII
    wchar_t wide;         // that character
    ShortRoom shortRoom;
};

const Case kCases[] = {
    {"utf8", 9, 1, 1252, 437, 65001, "\xC3\xA9", L'\u00E9', ShortRoom::kTerminatedPrefix},
    {"utf8_rejected", 9, 1, 1252, 437, 65001, "\xC3", 0, ShortRoom::kTerminatedPrefix},
    {"table", 9, 1, 1250, 437, 1252, "\x80", L'\u20AC', ShortRoom::kPrefix},
    {"oem_system", 9, 1, 1252, 437, 437, "\x82", L'\u00E9', ShortRoom::kCutsSource},
    {"oem_double_byte", 17, 81, 932, 932, 932, "\x82\xA0", L'\u3042', ShortRoom::kCutsSource},
};

constexpr size_t kGuard = 8;
constexpr wchar_t kUntouched = L'#';

class AsciiRuns : public ::testing::TestWithParam<Case> {
protected:
    // Decodes into `room` units followed by guard units that must stay as
    // they were; returns the whole destination.
    std::wstring Decode(CodePage& page, const char* text, uint32_t room) {
        std::wstring dst(room + kGuard, kUntouched);
        page.Source2Native(text, dst.data(), room);
        EXPECT_EQ(dst.substr(room), std::wstring(kGuard, kUntouched)) << "written past " << room;
        return dst.substr(0, room);
    }
};

TEST_P(AsciiRuns, EveryRunLengthAndPlaceOfTheCharacter) {
    const Case& c = GetParam();
    test::ScopedLocale locale(c.language, c.country, c.ansi, c.oem);
    CodePage page(c.codePage);
    // Two blocks and then some; `at` == length puts no character in.
    for (size_t length = 0; length <= 19; ++length) {
        for (size_t at = 0; at <= length; ++at) {
            std::string bytes;
            std::wstring text;
            for (size_t k = 0; k < length; ++k) {
                if (k == at) {
                    bytes += c.special;
                    text += c.wide ? c.wide : kUntouched;  // a rejected byte leaves its place
                }
                bytes += static_cast<char>('a' + k);
                text += static_cast<wchar_t>('a' + k);
            }
            GuardedText guarded(bytes);
            SCOPED_TRACE("length " + std::to_string(length) + ", character at " + std::to_string(at));
            auto needed = static_cast<uint32_t>(text.size() + 1);
            auto plenty = static_cast<uint32_t>(bytes.size() + 1 + kGuard);
            EXPECT_EQ(Decode(page, guarded.c_str(), plenty).substr(0, needed), text + L'\0');
            if (c.shortRoom == ShortRoom::kCutsSource) continue;
            EXPECT_EQ(Decode(page, guarded.c_str(), needed), text + L'\0');
            for (uint32_t room = 1; room < needed; ++room) {
                std::wstring expected = c.shortRoom == ShortRoom::kPrefix
                                            ? text.substr(0, room)
                                            : text.substr(0, room - 1) + L'\0';
                EXPECT_EQ(Decode(page, guarded.c_str(), room), expected);
            }
        }
    }
}

TEST_P(AsciiRuns, LargeTextsDecodeAsShortTextsDo) {
    const Case& c = GetParam();
    if (c.special.size() != 1 || c.codePage == 65001) return;  // single-byte decoders only
    test::ScopedLocale locale(c.language, c.country, c.ansi, c.oem);
    CodePage page(c.codePage);
    // What each byte decodes to on its own.
    std::vector<wchar_t> single(256);
    for (int b = 1; b < 256; ++b) {
        const char text[2] = {static_cast<char>(b), '\0'};
        wchar_t wide[2];
        ASSERT_TRUE(page.Source2Native(text, wide, 2));
        single[b] = wide[0];
    }
    // Over 4 MiB of wide characters: words with every byte above 0x80 among them.
    std::string bytes;
    for (uint32_t k = 0; bytes.size() < (size_t{1} << 20) + 4097; ++k) {
        bytes += "word ";
        bytes += static_cast<char>(0x80 + k % 128);
    }
    bytes.resize(bytes.size() - 3);  // an end at no multiple of four
    std::wstring expected;
    for (unsigned char b : bytes) expected += single[b];

    for (size_t offset = 0; offset < 4; ++offset) {
        for (size_t room : {bytes.size() + 1, bytes.size() + 64, bytes.size()}) {
            SCOPED_TRACE("offset " + std::to_string(offset) + ", room " + std::to_string(room));
            std::wstring dst(offset + room + kGuard, kUntouched);
            page.Source2Native(bytes.c_str(), dst.data() + offset, static_cast<uint32_t>(room));
            EXPECT_EQ(dst.substr(0, offset), std::wstring(offset, kUntouched));
            EXPECT_EQ(dst.substr(offset + room), std::wstring(kGuard, kUntouched));
            if (room > bytes.size()) {
                EXPECT_TRUE(dst.compare(offset, expected.size(), expected) == 0);
                EXPECT_EQ(dst[offset + expected.size()], L'\0');
            } else if (c.shortRoom == ShortRoom::kPrefix) {
                EXPECT_TRUE(dst.compare(offset, room, expected, 0, room) == 0);
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Decoders, AsciiRuns, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace quillet
