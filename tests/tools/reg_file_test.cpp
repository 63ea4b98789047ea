#include "vtreg/reg_file.h"

#include <gtest/gtest.h>

#include <tuple>

#include "common/registry_fixture.h"
#include "platform/utf_codec.h"

namespace {

using vtreg::RegFile;
using vtreg::RegParseError;

using vt::test::utf16File;

std::vector<uint8_t> bytes(std::initializer_list<int> list) {
    std::vector<uint8_t> out;
    for (int b : list) out.push_back(static_cast<uint8_t>(b));
    return out;
}

const std::string kHead =
    "Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\T]\r\n";

// One value line each, in the forms a person writes (the forms the tool writes are checked by
// the format round trip below): the type and bytes it must give.
TEST(RegFileParse, ValueForms) {
    const std::tuple<std::string, uint32_t, std::vector<uint8_t>> cases[] = {
        {"\"s\"=\"a\\\\b\\\"c\"", vt::kRegSz, vt::regStringBytes(u"a\\b\"c")},
        {"\"s\"=\"\"", vt::kRegSz, bytes({0, 0})},
        {"\"s\"=\"caf\xC3\xA9 ; not a comment\"  ; a comment", vt::kRegSz,
         vt::regStringBytes(u"caf\u00e9 ; not a comment")},
        {"\"d\"=DWORD:FFFFFFFF", vt::kRegDword, bytes({0xff, 0xff, 0xff, 0xff})},
        {"\"d\"=dword:1", vt::kRegDword, bytes({1, 0, 0, 0})},
        {"\"b\"=hex:", vt::kRegBinary, {}},
        {"\"b\"=hex:0,1a, FF ,", vt::kRegBinary, bytes({0, 0x1a, 0xff})},
        {"\"b\"=hex:01,02,\\\r\n  03,04", vt::kRegBinary, bytes({1, 2, 3, 4})},
        {"\"b\"=hex:01,02\\\n\n", vt::kRegBinary, bytes({1, 2})},
        {"\"q\"=hex(b):01,00,00,00,00,00,00,80", vt::kRegQword, bytes({1, 0, 0, 0, 0, 0, 0, 0x80})},
        {"\"n\"=hex(0):", vt::kRegNone, {}},
        {"\"x\"=hex(ffff0001):09", 0xffff0001u, bytes({9})},
        {"  \"sp\" = \"x\"", vt::kRegSz, vt::regStringBytes(u"x")},
    };
    for (const auto& [line, type, data] : cases) {
        RegFile file;
        RegParseError error;
        ASSERT_TRUE(vtreg::parseRegFile(kHead + line + "\r\n", file, error))
            << line << ": " << error.reason;
        ASSERT_EQ(file.keys.size(), 1u) << line;
        ASSERT_EQ(file.keys[0].values.size(), 1u) << line;
        EXPECT_EQ(file.keys[0].values[0].type, type) << line;
        EXPECT_EQ(file.keys[0].values[0].data, data) << line;
    }
}

// Hostile and broken input: each a clear error on the right line.
TEST(RegFileParse, RejectsBrokenInput) {
    std::string junk;
    for (int i = 0; i < 5000; ++i) junk.push_back(static_cast<char>((i * 131 + 7) & 0xFF));
    // clang-format off
    const std::tuple<const char*, std::string, int, const char*> cases[] = {
        {"binary junk", junk, 1, ""},
        {"empty file", "", 1, "not a registry file"},
        {"wrong header", "Windows Registry Editor Version 4.00\r\n", 1, "not a registry file"},
        {"truncated hex list", kHead + "\"b\"=hex:01,02,\\\r\n  03,\\", 5, "past the end"},
        {"three hex digits", kHead + "\"b\"=hex:012\r\n", 4, "malformed hex list"},
        {"empty hex byte", kHead + "\"b\"=hex:01,,02\r\n", 4, "malformed hex list"},
        {"junk in hex", kHead + "\"b\"=hex:01,zz\r\n", 4, "malformed hex list"},
        {"unterminated string", kHead + "\"s\"=\"abc\r\n\"t\"=\"x\"\r\n", 4, "unterminated string"},
        {"unterminated name", kHead + "\"s\r\n", 4, "unterminated value name"},
        {"bad escape", kHead + "\"s\"=\"a\\nb\"\r\n", 4, "unknown escape"},
        {"text after string", kHead + "\"s\"=\"a\" b\r\n", 4, "unexpected text"},
        {"terminal escape in message", kHead + "\"s\"=\"a\" \x1b[2J\r\n", 4, "'?[2J'"},
        {"long dword", kHead + "\"d\"=dword:123456789\r\n", 4, "more than 8"},
        {"empty dword", kHead + "\"d\"=dword:\r\n", 4, "without hex digits"},
        {"no equals", kHead + "\"d\" dword:1\r\n", 4, "'=' expected"},
        {"bad hex type", kHead + "\"d\"=hex(2:00\r\n", 4, "malformed hex(N)"},
        {"unknown data", kHead + "\"d\"=word:1\r\n", 4, "unrecognised value data"},
        {"value before key", "REGEDIT4\n\"a\"=\"b\"\n", 2, "outside a key"},
        {"other root", "REGEDIT4\n[HKEY_CURRENT_USER\\Software]\n", 2, "only HKEY_LOCAL_MACHINE"},
        {"key without bracket", "REGEDIT4\n[HKLM\\Software\n", 2, "closing ']'"},
        {"empty key name", "REGEDIT4\n[HKLM\\Software\\\\x]\n", 2, "empty key name"},
        {"delete root", "REGEDIT4\n[-HKLM]\n", 2, "cannot be deleted"},
        {"value on root", "REGEDIT4\n[HKLM]\n\"a\"=\"b\"\n", 3, "cannot hold values"},
        {"value in deleted key", "REGEDIT4\n[-HKLM\\A]\n\"a\"=\"b\"\n", 3, "being deleted"},
        {"stray line", kHead + "garbage\r\n", 4, "unrecognised line"},
        {"invalid utf-8", kHead + "\"s\"=\"\xC0\xAF\"\r\n", 4, "neither UTF-16LE"},
        {"nul character", kHead + std::string("\"s\"=\"a\0b\"\r\n", 11), 4, "NUL character"},
        {"odd utf-16", utf16File(u"Windows Registry Editor Version 5.00\r\n\r\n") + "x", 3,
         "odd number of bytes"},
        {"big-endian utf-16", "\xFE\xFF", 1, "big-endian"},
    };
    // clang-format on
    for (const auto& [what, text, line, reason] : cases) {
        RegFile file;
        RegParseError error;
        EXPECT_FALSE(vtreg::parseRegFile(text, file, error)) << what;
        EXPECT_EQ(error.line, line) << what << ": " << error.reason;
        EXPECT_NE(error.reason.find(reason), std::string::npos) << what << ": " << error.reason;
        EXPECT_FALSE(error.reason.empty()) << what;
    }
}

// Encodings and line ends: the same content in every accepted form parses to the same values;
// REGEDIT4 carries hex(2)/hex(7) as narrow text.
TEST(RegFileParse, EncodingsAndHeaders) {
    const std::u16string body =
        u"Windows Registry Editor Version 5.00\r\n\r\n; comment\r\n[HKLM\\Software\\\u00c4]\r\n"
        u"\"n\"=\"\u20ac\"\r\n";
    std::string utf8 = vt::utf16ToUtf8(body), lf;
    for (char c : utf8)
        if (c != '\r') lf.push_back(c);
    for (const std::string& text : {utf16File(body), utf8, "\xEF\xBB\xBF" + utf8, lf}) {
        RegFile file;
        RegParseError error;
        ASSERT_TRUE(vtreg::parseRegFile(text, file, error)) << error.line << ": " << error.reason;
        ASSERT_EQ(file.keys.size(), 1u);
        EXPECT_EQ(file.keys[0].path, u"Software\\\u00c4");
        ASSERT_EQ(file.keys[0].values.size(), 1u);
        EXPECT_EQ(file.keys[0].values[0].data, vt::regStringBytes(u"\u20ac"));
    }
    RegFile file;
    RegParseError error;
    ASSERT_TRUE(vtreg::parseRegFile(
        "REGEDIT4\n[HKLM\\A]\n\"e\"=hex(2):25,41,25,00\n\"m\"=hex(7):61,00,62,00,00\n", file,
        error))
        << error.reason;
    EXPECT_TRUE(file.regedit4);
    EXPECT_EQ(file.keys[0].values[0].data, vt::regStringBytes(u"%A%"));
    EXPECT_EQ(file.keys[0].values[1].data, bytes({'a', 0, 0, 0, 'b', 0, 0, 0, 0, 0}));
}

// Values that the quoted and dword forms cannot carry exactly fall back to hex(N); reading the
// formatted line gives back the very same type and bytes.
TEST(RegFileFormat, EveryValueSurvivesFormatAndParse) {
    const vt::RegValue values[] = {
        {u"plain", vt::kRegSz, vt::regStringBytes(u"a \"b\" \\c \u00e9 \U0001F600")},
        {u"", vt::kRegSz, vt::regStringBytes(u"default")},
        {u"no terminator", vt::kRegSz, bytes({'a', 0})},
        {u"two terminators", vt::kRegSz, bytes({'a', 0, 0, 0})},
        {u"line break", vt::kRegSz, vt::regStringBytes(u"a\r\nb")},
        {u"lone surrogate", vt::kRegSz, bytes({0x00, 0xd8, 'a', 0, 0, 0})},
        {u"odd", vt::kRegSz, bytes({'a', 0, 0})},
        {u"dword", vt::kRegDword, vt::regDwordBytes(0x80000001)},
        {u"short dword", vt::kRegDword, bytes({1, 2, 3})},
        {u"qword", vt::kRegQword, vt::regQwordBytes(~0ULL)},
        {u"empty binary", vt::kRegBinary, {}},
        {u"long binary", vt::kRegBinary, std::vector<uint8_t>(300, 0xab)},
        {u"expand", vt::kRegExpandSz, vt::regStringBytes(u"%SystemRoot%")},
        {u"multi", vt::kRegMultiSz, bytes({'a', 0, 0, 0, 'b', 0, 0, 0, 0, 0})},
        {u"\"quoted\\name\"", vt::kRegNone, bytes({1})},
        {u"big type", 0x12345678, bytes({2})},
    };
    for (const auto& v : values) {
        const std::u16string line = vtreg::formatRegValue(v);
        size_t longest = 0, start = 0;
        for (size_t nl; (nl = line.find(u'\n', start)) != std::u16string::npos; start = nl + 1)
            longest = std::max(longest, nl - start);
        EXPECT_LE(std::max(longest, line.size() - start), 81u) << vt::utf16ToUtf8(v.name);
        RegFile file;
        RegParseError error;
        ASSERT_TRUE(vtreg::parseRegFile(kHead + vt::utf16ToUtf8(line) + "\r\n", file, error))
            << vt::utf16ToUtf8(line) << ": " << error.reason;
        const auto& parsed = file.keys.at(0).values.at(0);
        EXPECT_EQ(parsed.name, v.name);
        EXPECT_EQ(parsed.type, v.type) << vt::utf16ToUtf8(v.name);
        EXPECT_EQ(parsed.data, v.data) << vt::utf16ToUtf8(v.name);
    }
    EXPECT_EQ(vtreg::formatRegValue({u"n", vt::kRegDword, vt::regDwordBytes(42)}),
              u"\"n\"=dword:0000002a");
    EXPECT_EQ(vtreg::formatRegValue({u"", vt::kRegSz, vt::regStringBytes(u"x\\y")}),
              u"@=\"x\\\\y\"");
}

}  // namespace
