// UTF-8 conversion: the checks of the decoder with their diagnostic lines, the
// RFC 2279 encoder, and how both fill a bounded destination.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "codepage/CodePage.h"
#include "foundation/DebugOutput.h"

namespace quillet {
namespace {

const wchar_t* const kM1 = L"Wrong character code: (c < 0xc2)\n";
const wchar_t* const kM2 = L"Wrong character code: (!((pFromStr[i + 1] ^ 0x80) < 0x40))\n";
const wchar_t* const kM3 = L"Wrong character code: (c >= 0xe1 || pFromStr[i + 1] >= 0xa0)\n";
const wchar_t* const kM4 = L"Wrong character code: (c >= 0xf1 || pFromStr[i + 1] >= 0x90)\n";
const wchar_t* const kM5 = L"Wrong character code: (c >= 0xf9 || pFromStr[i+1] >= 0x88)\n";
const wchar_t* const kM6 = L"Wrong character code: (c >= 0xfd || pFromStr[i+1] >= 0x84)\n";

// Captures the debug output for the length of a test.
class Utf8Decode : public ::testing::Test {
protected:
    void SetUp() override {
        previous_ = SetDebugOutputSink([this](const wchar_t* m) { messages_.emplace_back(m); });
    }
    void TearDown() override { SetDebugOutputSink(previous_); }

    // Decodes into a destination pre-filled with '#', so that skipped
    // positions show.
    std::wstring Decode(const std::string& bytes, uint32_t size = 32) {
        std::vector<wchar_t> dst(size, L'#');
        EXPECT_TRUE(page_.Utf82CharBuff(bytes.c_str(), dst.data(), size));
        return std::wstring(dst.data(), wcsnlen(dst.data(), size));
    }

    CodePage page_{65001u};
    std::vector<std::wstring> messages_;
    DebugSink previous_;
};

TEST_F(Utf8Decode, AcceptsEveryLengthAndSurrogates) {
    EXPECT_EQ(Decode("a\xC3\xA9\xE2\x82\xAC"), L"a\u00E9\u20AC");
    EXPECT_EQ(Decode("\xED\xA0\x80"), std::wstring(1, 0xD800));
    EXPECT_EQ(Decode("\xF4\x90\x80\x80"), std::wstring(1, 0x110000));
    EXPECT_EQ(Decode("\xF8\x88\x80\x80\x80"), std::wstring(1, 0x200000));
    EXPECT_EQ(Decode("\xFD\xBF\xBF\xBF\xBF\xBF"), std::wstring(1, 0x7FFFFFFF));
    // The ends of the two- and three-byte forms.
    EXPECT_EQ(Decode("\xC2\x80\xDF\xBF\xE0\xA0\x80\xE1\x80\x80\xEF\xBF\xBF"),
              (std::wstring{0x80, 0x7FF, 0x800, 0x1000, 0xFFFF}));
    EXPECT_TRUE(messages_.empty());
    EXPECT_EQ(Decode("\xE0\x9F\xBFz"), L"###z");
    EXPECT_EQ(messages_, (std::vector<std::wstring>{kM3, kM1, kM1}));
}

TEST_F(Utf8Decode, RejectsWithTheMessageOfTheLeadByteRow) {
    EXPECT_EQ(Decode("\xC0\x80z"), L"##z");
    EXPECT_EQ(messages_, (std::vector<std::wstring>{kM1, kM1}));
    messages_.clear();
    EXPECT_EQ(Decode("\xE0\x80\x80z"), L"###z");
    EXPECT_EQ(messages_, (std::vector<std::wstring>{kM3, kM1, kM1}));
    messages_.clear();
    Decode("\xC3z");
    Decode("\xF0\x80\x80\x80");
    Decode("\xF8\x80\x80\x80\x80");
    Decode("\xFC\x80\x80\x80\x80\x80");
    EXPECT_EQ(messages_[0], kM2);
    EXPECT_EQ(messages_[1], kM4);
    EXPECT_EQ(messages_[5], kM5);
    EXPECT_EQ(messages_[10], kM6);
}

TEST_F(Utf8Decode, FeAndFfAreSkippedSilently) {
    EXPECT_EQ(Decode("\xFE\xFFz"), L"##z");
    EXPECT_TRUE(messages_.empty());
}

TEST_F(Utf8Decode, TruncatedSequencesStopAtTheTerminator) {
    EXPECT_EQ(Decode("\xE2\x82"), L"##");
    EXPECT_EQ(messages_, (std::vector<std::wstring>{kM3, kM1}));
}

std::string Encode(const std::wstring& text, uint32_t size) {
    CodePage page(65001u);
    std::vector<char> dst(size + 1, '#');
    EXPECT_TRUE(page.Char2Utf8Buff(text.c_str(), dst.data(), size));
    EXPECT_EQ(dst[size], '#');
    return std::string(dst.data(), size);
}

TEST(Utf8Encode, WritesUpToSixBytes) {
    std::wstring text = {L'a', 0xE9, 0x20AC, 0x10FFFF, 0x200000, 0x7FFFFFFF};
    EXPECT_EQ(Encode(text, 24).c_str(), std::string("a\xC3\xA9\xE2\x82\xAC\xF4\x8F\xBF\xBF"
                                                    "\xF8\x88\x80\x80\x80\xFD\xBF\xBF\xBF\xBF\xBF"));
}

TEST(Utf8Encode, CutsTheTextWhereASequenceDoesNotFit) {
    std::wstring text = {L'a', 0xE9, 0x20AC};
    EXPECT_EQ(Encode(text, 4), std::string("a\xC3\xA9\0", 4));
    // One byte left for a 3-byte sequence: a zero stands in its place.
    EXPECT_EQ(Encode({0x20AC, L'b'}, 3), std::string("\0b\0", 3));
    EXPECT_EQ(Encode(text, 2), std::string("a\0", 2));
    EXPECT_EQ(Encode(text, 1), std::string("\0", 1));
    EXPECT_EQ(Encode(L"", 8).c_str(), std::string());
}

TEST(Utf8Encode, ByteLength) {
    CodePage page(65001u);
    EXPECT_EQ(page.GetByteLength(L""), 0u);
    EXPECT_EQ(page.GetByteLength(L"\u20AC"), 3u);
    std::wstring longText(300, 0x20AC);  // beyond the stack buffer
    EXPECT_EQ(page.GetByteLength(longText.c_str()), 900u);
}

}  // namespace
}  // namespace quillet
