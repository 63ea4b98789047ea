#include "vtreg/vtreg_cli.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <tuple>

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

// set, get (any case), list and delete, with each type's text form.
TEST(VtregCli, SetGetListDelete) {
    Vtreg v;
    const std::string key = v.base + "\\General";
    // name, type, value given, value shown
    const std::tuple<std::string, const char*, const char*, const char*> cases[] = {
        {"nWorkerThreads", "REG_DWORD", "7", "7"},
        {"nHex", "dword", "0x10", "16"},
        {"nBig", "REG_QWORD", "18446744073709551615", "18446744073709551615"},
        {"szPath", "REG_SZ", "C:\\x \"y\"", "C:\\x \"y\""},
        {"szExp", "REG_EXPAND_SZ", "%TEMP%", "%TEMP%"},
        {"szMulti", "REG_MULTI_SZ", "one\\0two", "one\ntwo"},
        {"bin", "REG_BINARY", "01,ab,FF", "01,ab,ff"},
        {"", "REG_SZ", "default", "default"},
    };
    for (const auto& [name, type, value, shown] : cases) {
        ASSERT_EQ(v.run({"set", key, name, type, value}).rc, 0) << name;
        std::string upper = name;
        for (auto& ch : upper) ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
        const Result get = v.run({"get", "hkey_local_machine" + key.substr(4), upper});
        EXPECT_EQ(get.rc, 0) << name << get.err;
        EXPECT_EQ(get.out, std::string(shown) + "\n") << name;
    }
    EXPECT_EQ(v.run({"list", v.base}).out, "General\\\n");
    const Result values = v.run({"list", key});
    EXPECT_NE(values.out.find("nWorkerThreads\tREG_DWORD\t7\n"), std::string::npos) << values.out;
    EXPECT_NE(values.out.find("(Default)\tREG_SZ\tdefault\n"), std::string::npos) << values.out;
    // tree: values before subkeys, each level two blanks deeper.
    ASSERT_EQ(v.run({"set", key + "\\A\\B", "n", "REG_DWORD", "1"}).rc, 0);
    const Result tree = v.run({"tree", v.base});
    EXPECT_EQ(tree.out.substr(0, 9), "General\\\n");
    EXPECT_NE(tree.out.find("  nWorkerThreads\tREG_DWORD\t7\n"), std::string::npos) << tree.out;
    EXPECT_TRUE(tree.out.ends_with("\n  A\\\n    B\\\n      n\tREG_DWORD\t1\n")) << tree.out;
    EXPECT_EQ(v.run({"tree", key + "\\Missing"}).rc, vtreg::kExitFailure);
    EXPECT_EQ(v.run({"delete", key, "NWORKERTHREADS"}).rc, 0);
    const Result gone = v.run({"get", key, "nWorkerThreads"});
    EXPECT_EQ(gone.rc, vtreg::kExitFailure);
    EXPECT_NE(gone.err.find("not found (error 2)"), std::string::npos) << gone.err;
    EXPECT_EQ(v.run({"delete", key}).rc, 0);
    EXPECT_EQ(v.run({"list", key}).rc, vtreg::kExitFailure);
}

// Wrong arguments: the usage or failure exit code and a message that says what is wrong.
TEST(VtregCli, RejectsBadArguments) {
    Vtreg v;
    const int usage = vtreg::kExitUsage, failure = vtreg::kExitFailure;
    // clang-format off
    const std::tuple<std::vector<std::string>, int, const char*> cases[] = {
        {{}, usage, "no command"},
        {{"frobnicate"}, usage, "unknown command"},
        {{"get", "HKLM\\X"}, usage, "get takes"},
        {{"get", "HKCU\\Software", "x"}, failure, "only HKEY_LOCAL_MACHINE"},
        {{"get", "Software\\x", "x"}, failure, "only HKEY_LOCAL_MACHINE"},
        {{"set", v.base, "n", "REG_DWORD", "4294967296"}, usage, "REG_DWORD needs"},
        {{"set", v.base, "n", "REG_DWORD", "12abc"}, usage, "REG_DWORD needs"},
        {{"set", v.base, "n", "REG_BINARY", "abc"}, usage, "whole bytes"},
        {{"set", v.base, "n", "REG_FLOAT", "1"}, usage, "unknown type"},
        {{"delete", "HKLM"}, failure, "cannot be deleted"},
        {{"import", (v.dir.path() / "missing.reg").string()}, failure, "cannot be opened"},
    };
    // clang-format on
    for (const auto& [args, rc, message] : cases) {
        const Result r = v.run(args);
        EXPECT_EQ(r.rc, rc) << message;
        EXPECT_NE(r.err.find(message), std::string::npos) << r.err;
    }
}

// A regedit-style file (UTF-16LE with BOM, CRLF, a continued hex list, nested keys) imports and
// exports to the same values; the export, in UTF-16 too, imports into an emptied registry as
// the same export again.
TEST(VtregCli, ImportExportRoundTrip) {
    Vtreg v;
    const std::u16string agent = u"[HKEY_LOCAL_MACHINE\\" + v.reg.base() + u"\\Agent";
    const std::u16string file =
        u"Windows Registry Editor Version 5.00\r\n\r\n" + agent +
        u"]\r\n@=\"the default\"\r\n\"szText\"=\"quote \\\" euro \u20ac\"\r\n"
        u"\"nWorkerThreads\"=dword:00000005\r\n\"long\"=hex:00,01,02,\\\r\n  03\r\n\r\n" +
        agent + u"\\RuleSets\\Default Rule]\r\n\"q\"=hex(b):ff,ee,dd,cc,bb,aa,99,88\r\n";
    ASSERT_EQ(v.run({"import", v.writeFile("in.reg", utf16File(file))}).rc, 0);
    const Result exported = v.run({"export", v.base});
    ASSERT_EQ(exported.rc, 0) << exported.err;
    vtreg::RegFile original, roundTrip;
    vtreg::RegParseError error;
    ASSERT_TRUE(vtreg::parseRegFile(utf16File(file), original, error));
    ASSERT_TRUE(vtreg::parseRegFile(exported.out, roundTrip, error)) << error.line << error.reason;
    // Names compared as the registry compares them (Windows has its own case for SOFTWARE and
    // its own value order).
    const auto flatten = [](const vtreg::RegFile& f) {
        std::map<std::u16string, std::pair<uint32_t, std::vector<uint8_t>>> all;
        for (const auto& k : f.keys)
            for (const auto& val : k.values)
                all[vt::upcase(k.path + u"|" + val.name)] = {val.type, val.data};
        return all;
    };
    EXPECT_EQ(flatten(roundTrip), flatten(original));
    EXPECT_EQ(roundTrip.keys.size(), 4u);  // the base key, Agent, RuleSets and the rule
    const Result utf16 = v.run({"export", "--utf16", v.base});
    ASSERT_EQ(utf16.rc, 0);
    EXPECT_EQ(utf16.out.substr(0, 2), "\xFF\xFE");
    ASSERT_EQ(v.run({"delete", v.base}).rc, 0);
    ASSERT_EQ(v.run({"import", v.writeFile("again.reg", utf16.out)}).rc, 0);
    EXPECT_EQ(v.run({"export", v.base}).out, exported.out);
}

// A bad line anywhere: the error names file and line, and nothing of the file is applied, not
// even the lines before it. A file far above the size limit is refused before it is read.
// Deletions in a good file: [-KEY] and "name"=- (missing ones are no error).
TEST(VtregCli, ImportIsAllOrNothing) {
    Vtreg v;
    const std::string head = "Windows Registry Editor Version 5.00\n\n[" + v.base;
    ASSERT_EQ(v.run({"set", v.base + "\\K", "keep", "REG_DWORD", "1"}).rc, 0);
    const std::string path =
        v.writeFile("bad.reg", head + "\\K]\n\"keep\"=-\n\"new\"=dword:2\n\n[" + v.base +
                                   "\\L]\n\"x\"=hex:01,0g\n");
    const Result r = v.run({"import", path});
    EXPECT_EQ(r.rc, vtreg::kExitFailure);
    EXPECT_EQ(r.err.rfind(path + ":8: malformed hex list", 0), 0u) << r.err;
    EXPECT_EQ(v.run({"get", v.base + "\\K", "keep"}).out, "1\n");
    EXPECT_EQ(v.run({"get", v.base + "\\K", "new"}).rc, vtreg::kExitFailure);
    EXPECT_EQ(v.run({"list", v.base + "\\L"}).rc, vtreg::kExitFailure);

    std::string huge = head + "\\Huge]\r\n";
    huge.resize(50u * 1024 * 1024, ';');
    const Result big = v.run({"import", v.writeFile("huge.reg", huge)});
    EXPECT_EQ(big.rc, vtreg::kExitFailure);
    EXPECT_NE(big.err.find("larger than"), std::string::npos) << big.err;
    EXPECT_EQ(v.run({"list", v.base + "\\Huge"}).rc, vtreg::kExitFailure);

    const std::string del =
        v.writeFile("del.reg", "REGEDIT4\r\n[-" + v.base + "\\Nothing]\r\n[" + v.base +
                                   "\\K]\r\n\"keep\"=-\r\n\"absent\"=-\r\n");
    ASSERT_EQ(v.run({"import", del}).rc, 0);
    EXPECT_EQ(v.run({"list", v.base + "\\K"}).out, "");
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
