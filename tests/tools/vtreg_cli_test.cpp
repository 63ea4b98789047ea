#include "vtreg/vtreg_cli.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>

#include "common/registry_fixture.h"
#include "platform/case_fold.h"
#include "platform/utf_codec.h"
#include "vtreg/reg_file.h"

namespace {

struct Result {
    int rc;
    std::string out;
    std::string err;
};

// Runs vtreg in-process on the test's registry.
struct Vtreg {
    vt::test::ScopedRegistry reg;
    std::string base = "HKLM\\" + vt::utf16ToUtf8(reg.base());

    Result run(std::vector<std::string> args) {
#ifndef _WIN32
        args.insert(args.begin(), {"--registry", reg.hiveFile().string()});
#endif
        std::ostringstream out, err;
        const int rc = vtreg::runVtreg(args, out, err);
        return {rc, out.str(), err.str()};
    }

    std::string writeFile(const std::string& name, const std::string& content) {
        const std::string path = (dir.path() / name).string();
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }

    vt::test::TempDir dir;
};

using vt::test::utf16File;

std::vector<vt::RegValue> valuesOf(const std::u16string& path) {
    vt::RegKey key;
    EXPECT_EQ(key.open(vt::RegRoot::LocalMachine, path, vt::kKeyRead), vt::kRegOk);
    std::vector<vt::RegValue> values;
    key.enumValues(values);
    return values;
}

// set, get (any case), list and delete, with each type's text form.
TEST(VtregCli, SetGetListDelete) {
    Vtreg v;
    const std::string key = v.base + "\\General";
    struct Case {
        const char* name;
        const char* type;
        const char* value;
        const char* shown;
    };
    const Case cases[] = {
        {"nWorkerThreads", "REG_DWORD", "7", "7"},
        {"nHex", "dword", "0x10", "16"},
        {"nBig", "REG_QWORD", "18446744073709551615", "18446744073709551615"},
        {"szPath", "REG_SZ", "C:\\x \"y\"", "C:\\x \"y\""},
        {"szExp", "REG_EXPAND_SZ", "%TEMP%", "%TEMP%"},
        {"szMulti", "REG_MULTI_SZ", "one\\0two", "one\ntwo"},
        {"bin", "REG_BINARY", "01,ab,FF", "01,ab,ff"},
        {"", "REG_SZ", "default", "default"},
    };
    for (const auto& c : cases) {
        const Result set = v.run({"set", key, c.name, c.type, c.value});
        ASSERT_EQ(set.rc, 0) << c.name << set.err;
    }
    for (const auto& c : cases) {
        std::string upper = c.name;
        for (auto& ch : upper) ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
        const Result get = v.run({"get", "hkey_local_machine" + key.substr(4), upper});
        EXPECT_EQ(get.rc, 0) << c.name << get.err;
        EXPECT_EQ(get.out, std::string(c.shown) + "\n") << c.name;
    }
    const Result list = v.run({"list", v.base});
    EXPECT_EQ(list.out, "General\\\n");
    const Result values = v.run({"list", key});
    EXPECT_NE(values.out.find("nWorkerThreads\tREG_DWORD\t7\n"), std::string::npos) << values.out;
    EXPECT_NE(values.out.find("(Default)\tREG_SZ\tdefault\n"), std::string::npos) << values.out;

    EXPECT_EQ(v.run({"delete", key, "NWORKERTHREADS"}).rc, 0);
    const Result gone = v.run({"get", key, "nWorkerThreads"});
    EXPECT_EQ(gone.rc, vtreg::kExitFailure);
    EXPECT_NE(gone.err.find("not found (error 2)"), std::string::npos) << gone.err;
    EXPECT_EQ(v.run({"delete", key}).rc, 0);
    EXPECT_EQ(v.run({"list", key}).rc, vtreg::kExitFailure);
}

TEST(VtregCli, RejectsBadArguments) {
    Vtreg v;
    const struct {
        std::vector<std::string> args;
        int rc;
        const char* message;
    } cases[] = {
        {{}, vtreg::kExitUsage, "no command"},
        {{"frobnicate"}, vtreg::kExitUsage, "unknown command"},
        {{"get", "HKLM\\X"}, vtreg::kExitUsage, "get takes"},
        {{"get", "HKCU\\Software", "x"}, vtreg::kExitFailure, "only HKEY_LOCAL_MACHINE"},
        {{"get", "Software\\x", "x"}, vtreg::kExitFailure, "only HKEY_LOCAL_MACHINE"},
        {{"set", v.base, "n", "REG_DWORD", "4294967296"}, vtreg::kExitUsage, "REG_DWORD needs"},
        {{"set", v.base, "n", "REG_DWORD", "12abc"}, vtreg::kExitUsage, "REG_DWORD needs"},
        {{"set", v.base, "n", "REG_BINARY", "abc"}, vtreg::kExitUsage, "whole bytes"},
        {{"set", v.base, "n", "REG_FLOAT", "1"}, vtreg::kExitUsage, "unknown type"},
        {{"delete", "HKLM"}, vtreg::kExitFailure, "cannot be deleted"},
        {{"import", (v.dir.path() / "missing.reg").string()},
         vtreg::kExitFailure,
         "cannot be opened"},
    };
    for (const auto& c : cases) {
        const Result r = v.run(c.args);
        EXPECT_EQ(r.rc, c.rc) << c.message;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
    }
}

// A regedit-style file (UTF-16LE with BOM, CRLF, every value type) imports, exports back to
// the same values, and the export imports into an empty registry as the same export again.
TEST(VtregCli, ImportExportRoundTrip) {
    Vtreg v;
    const std::u16string base = v.reg.base();
    const std::u16string file =
        u"Windows Registry Editor Version 5.00\r\n\r\n"
        u"[HKEY_LOCAL_MACHINE\\" +
        base +
        u"\\Agent]\r\n"
        u"@=\"the default\"\r\n"
        u"\"szText\"=\"quote \\\" backslash \\\\ euro \u20ac\"\r\n"
        u"\"nWorkerThreads\"=dword:00000005\r\n"
        u"\"bin\"=hex:00,01,02,fe,ff\r\n"
        u"\"exp\"=hex(2):25,00,54,00,45,00,4d,00,50,00,25,00,00,00\r\n"
        u"\"multi\"=hex(7):61,00,00,00,62,00,63,00,00,00,00,00\r\n"
        u"\"q\"=hex(b):ff,ee,dd,cc,bb,aa,99,88\r\n"
        u"\"none\"=hex(0):\r\n"
        u"\"long\"=hex:00,01,02,03,04,05,06,07,08,09,0a,0b,0c,0d,0e,0f,10,11,12,13,14,15,16,\\\r\n"
        u"  17,18,19,1a,1b,1c,1d,1e,1f\r\n"
        u"\r\n"
        u"[HKEY_LOCAL_MACHINE\\" +
        base +
        u"\\Agent\\RuleSets\\Default Rule]\r\n"
        u"\"nCount\"=dword:00000001\r\n\r\n";
    ASSERT_EQ(v.run({"import", v.writeFile("in.reg", utf16File(file))}).rc, 0);

    const Result exported = v.run({"export", v.base});
    ASSERT_EQ(exported.rc, 0) << exported.err;
    vtreg::RegFile original, roundTrip;
    vtreg::RegParseError error;
    ASSERT_TRUE(vtreg::parseRegFile(utf16File(file), original, error));
    ASSERT_TRUE(vtreg::parseRegFile(exported.out, roundTrip, error)) << error.line << error.reason;
    // Same values under the same keys; names compared as the registry compares them (Windows
    // has its own case for SOFTWARE and its own value order).
    const auto flatten = [](const vtreg::RegFile& f) {
        std::map<std::u16string, std::pair<uint32_t, std::vector<uint8_t>>> all;
        for (const auto& k : f.keys)
            for (const auto& val : k.values)
                all[vt::upcase(k.path + u"|" + val.name)] = {val.type, val.data};
        return all;
    };
    const auto want = flatten(original), got = flatten(roundTrip);
    EXPECT_EQ(want.size(), 10u);
    EXPECT_EQ(got, want);
    EXPECT_EQ(roundTrip.keys.size(), 4u);  // the base key, Agent, RuleSets and the rule
    // Re-import the export (UTF-16 form too) after deleting everything: the same export again.
    const Result utf16 = v.run({"export", "--utf16", v.base});
    ASSERT_EQ(utf16.rc, 0);
    EXPECT_EQ(utf16.out.substr(0, 2), "\xFF\xFE");
    ASSERT_EQ(v.run({"delete", v.base}).rc, 0);
    ASSERT_EQ(v.run({"import", v.writeFile("again.reg", utf16.out)}).rc, 0);
    EXPECT_EQ(v.run({"export", v.base}).out, exported.out);
}

// A bad line anywhere: the error names file and line, and nothing of the file is applied,
// not even the lines before the bad one.
TEST(VtregCli, ImportIsAllOrNothing) {
    Vtreg v;
    ASSERT_EQ(v.run({"set", v.base + "\\K", "keep", "REG_DWORD", "1"}).rc, 0);
    const std::string path =
        v.writeFile("bad.reg", "Windows Registry Editor Version 5.00\n\n[" + v.base +
                                   "\\K]\n\"keep\"=-\n\"new\"=dword:2\n\n[" + v.base +
                                   "\\L]\n\"x\"=hex:01,0g\n");
    const Result r = v.run({"import", path});
    EXPECT_EQ(r.rc, vtreg::kExitFailure);
    EXPECT_EQ(r.err.rfind(path + ":8: malformed hex list", 0), 0u) << r.err;
    EXPECT_EQ(v.run({"get", v.base + "\\K", "keep"}).out, "1\n");
    EXPECT_EQ(v.run({"get", v.base + "\\K", "new"}).rc, vtreg::kExitFailure);
    EXPECT_EQ(v.run({"list", v.base + "\\L"}).rc, vtreg::kExitFailure);

    // A file far above the size limit is refused before it is read.
    std::string huge = "Windows Registry Editor Version 5.00\r\n\r\n[" + v.base + "\\Huge]\r\n";
    huge.resize(50u * 1024 * 1024, ';');
    const Result big = v.run({"import", v.writeFile("huge.reg", huge)});
    EXPECT_EQ(big.rc, vtreg::kExitFailure);
    EXPECT_NE(big.err.find("larger than"), std::string::npos) << big.err;
    EXPECT_EQ(v.run({"list", v.base + "\\Huge"}).rc, vtreg::kExitFailure);

    // Deletions in a good file: [-KEY] and "name"=- (missing ones are no error).
    const std::string del =
        v.writeFile("del.reg", "REGEDIT4\r\n[-" + v.base + "\\Nothing]\r\n[" + v.base +
                                   "\\K]\r\n\"keep\"=-\r\n\"absent\"=-\r\n");
    ASSERT_EQ(v.run({"import", del}).rc, 0);
    EXPECT_TRUE(valuesOf(v.reg.base() + u"\\K").empty());
}

#ifndef _WIN32
// Two processes on one hive: this one keeps its key open while vtreg writes and reads; each
// sees the other's last write at its next read.
TEST(VtregProcess, WritesAreSeenAcrossProcesses) {
    Vtreg v;
    vt::RegKey key;
    ASSERT_EQ(key.create(vt::RegRoot::LocalMachine, v.reg.base()), vt::kRegOk);
    const auto one = vt::regDwordBytes(1);
    ASSERT_EQ(key.setValue(u"n", vt::kRegDword, one.data(), one.size()), vt::kRegOk);
    const std::string vtreg =
        std::string(VTREG_BIN) + " --registry '" + v.reg.hiveFile().string() + "' ";
    for (uint32_t round = 2; round < 6; ++round) {
        const std::string set = vtreg + "set '" + v.base + "' N REG_DWORD " + std::to_string(round);
        ASSERT_EQ(std::system(set.c_str()), 0);
        uint32_t type = 0;
        std::vector<uint8_t> data;
        ASSERT_EQ(key.queryValue(u"n", type, data), vt::kRegOk);
        EXPECT_EQ(data, vt::regDwordBytes(round));

        const auto mine = vt::regDwordBytes(round * 100);
        ASSERT_EQ(key.setValue(u"n", vt::kRegDword, mine.data(), mine.size()), vt::kRegOk);
        FILE* p = popen((vtreg + "get '" + v.base + "' n").c_str(), "r");
        ASSERT_NE(p, nullptr);
        char buffer[64] = {};
        const size_t got = fread(buffer, 1, sizeof buffer - 1, p);
        EXPECT_EQ(pclose(p), 0);
        EXPECT_EQ(std::string(buffer, got), std::to_string(round * 100) + "\n");
    }
}
#endif

}  // namespace
