#include "base/reg_access.h"

#include <gtest/gtest.h>

#include "common/registry_fixture.h"

namespace {

using vt::RegRoot;

// Reads give the stored value or the default, each read traced with its state, each default
// with its own line.
TEST(RegAccess, ReadsWithDefaultsAndTracesEveryRead) {
    vt::test::ScopedRegistry reg;
    const CQuilletString path(reg.base() + u"\\General");
    {
        CRegAccess w;
        ASSERT_TRUE(w.CreateKey(RegRoot::LocalMachine, path));
        ASSERT_TRUE(w.SetDWORDValue("nWorkerThreads", 8));
        ASSERT_TRUE(w.SetQWORDValue("nBig", 0x100000002ULL));
        ASSERT_TRUE(w.SetStringValue("szName", CQuilletString(u"caf\u00e9")));
        ASSERT_TRUE(w.SetStringValue("szSMTPPassword", "secret"));
        ASSERT_TRUE(w.SetStringValue("SZDBPASS", "hidden"));
        ASSERT_TRUE(w.SetStringValue("szOne", "x"));  // four bytes, as many as a DWORD
    }
    vt::test::DebugCapture log;
    CRegAccess r;
    ASSERT_TRUE(r.OpenKey(RegRoot::LocalMachine, path, vt::kKeyRead));
    const std::string p = path.getStringA();

    uint32_t dw = 0;
    EXPECT_TRUE(r.ReadDWORDValue("nworkerthreads", dw, 5));
    EXPECT_EQ(dw, 8u);
    EXPECT_FALSE(r.ReadDWORDValue("nMissing", dw, 42));
    EXPECT_EQ(dw, 42u);
    EXPECT_EQ(r.GetLastError(), vt::kRegNotFound);
    uint64_t qw = 0;
    EXPECT_TRUE(r.ReadQWORDValue("nBig", qw, 1));
    EXPECT_EQ(qw, 0x100000002ULL);
    EXPECT_TRUE(r.ReadQWORDValue("nWorkerThreads", qw, 1));  // a DWORD widens
    EXPECT_EQ(qw, 8u);
    EXPECT_FALSE(r.ReadQWORDValue("nNone", qw, 77));
    EXPECT_EQ(qw, 77u);
    CQuilletString s;
    EXPECT_TRUE(r.ReadStringValue("szName", s, "x"));
    EXPECT_EQ(s.wide(), u"caf\u00e9");
    EXPECT_FALSE(r.ReadStringValue("szNope", s, "fallback"));
    EXPECT_EQ(s.wide(), u"fallback");
    EXPECT_TRUE(r.ReadStringValue("szSMTPPassword", s));
    EXPECT_EQ(s.wide(), u"secret");
    EXPECT_TRUE(r.ReadStringValue("szDBPass", s));
    // Wrong type: a string is not a DWORD, a DWORD is not a string.
    EXPECT_FALSE(r.ReadDWORDValue("szName", dw, 3));
    EXPECT_EQ(dw, 3u);
    EXPECT_FALSE(r.ReadStringValue("nWorkerThreads", s, "d"));

    const std::string expected =
        "RegistryRead:DWORD:" + p + "\\nworkerthreads:'8' (state 1)\r\n" +
        "RegistryRead:DWORD:" + p + "\\nMissing:'0' (state 0)\r\n" + "RegistryRead:DWORD:" + p +
        "\\nMissing: DEFAULT ('42') used.\r\n" + "RegistryRead:QWORD:" + p +
        "\\nBig:'2' (state 1)\r\n" + "RegistryRead:QWORD:" + p +
        "\\nWorkerThreads:'8' (state 1)\r\n" + "RegistryRead:QWORD:" + p +
        "\\nNone:'0' (state 0)\r\n" + "RegistryRead:QWORD:" + p +
        "\\nNone: DEFAULT ('77') used.\r\n" + "RegistryRead:STRING:" + p +
        "\\szName:'caf\xC3\xA9' (state 1)\r\n" + "RegistryRead:STRING:" + p +
        "\\szNope:'' (state 0)\r\n" + "RegistryRead:STRING:" + p +
        "\\szNope: DEFAULT ('fallback') used.\r\n" + "RegistryRead:STRING:" + p +
        "\\szSMTPPassword:'***PASSWORD PROTECTED***' (state 1)\r\n" + "RegistryRead:STRING:" + p +
        "\\szDBPass:'***PASSWORD PROTECTED***' (state 1)\r\n" + "RegistryRead:DWORD:" + p +
        "\\szName:'0' (state 0)\r\n" + "RegistryRead:DWORD:" + p +
        "\\szName: DEFAULT ('3') used.\r\n" + "RegistryRead:STRING:" + p +
        "\\nWorkerThreads:'' (state 0)\r\n" + "RegistryRead:STRING:" + p +
        "\\nWorkerThreads: DEFAULT ('d') used.\r\n";
#ifdef _WIN32
    // The narrow form is the ANSI code page there; compare the ASCII-only lines.
    EXPECT_NE(log.text().find("RegistryRead:DWORD:" + p + "\\nworkerthreads:'8' (state 1)\r\n"),
              std::string::npos);
#else
    EXPECT_EQ(log.text(), expected);
#endif
    // Only the type tells this string from a DWORD.
    EXPECT_FALSE(r.ReadDWORDValue("szOne", dw, 3));
    EXPECT_EQ(dw, 3u);
}

// A key that cannot be opened: traced, and every read on the closed object gives its default.
TEST(RegAccess, MissingKeyGivesDefaults) {
    vt::test::ScopedRegistry reg;
    vt::test::DebugCapture log;
    CRegAccess r;
    const CQuilletString path(reg.base() + u"\\Absent");
    EXPECT_FALSE(r.OpenKey(RegRoot::LocalMachine, path));
    EXPECT_EQ(r.GetLastError(), vt::kRegNotFound);
    uint32_t dw = 1;
    EXPECT_FALSE(r.ReadDWORDValue("n", dw, 9));
    EXPECT_EQ(dw, 9u);
    CQuilletString s;
    EXPECT_FALSE(r.ReadStringValue("sz", s, "def"));
    EXPECT_EQ(s.wide(), u"def");
    EXPECT_NE(log.text().find("CRegAccess::OpenKey - Key '" + std::string(path.getStringA()) +
                              "' could not be opened with Error '2'!\r\n"),
              std::string::npos);
}

// The failure lines of the writers, quoted as they have always been written.
TEST(RegAccess, WriteFailuresAreTraced) {
    vt::test::ScopedRegistry reg;
    const CQuilletString path(reg.base() + u"\\W");
    {
        CRegAccess c;
        ASSERT_TRUE(c.CreateKey(RegRoot::LocalMachine, path));
    }
    vt::test::DebugCapture log(vt::DBG_ERROR);
    CRegAccess r;
    ASSERT_TRUE(r.OpenKey(RegRoot::LocalMachine, path, vt::kKeyRead));  // read only: writes fail
    EXPECT_FALSE(r.SetDWORDValue("nA", 1));
    EXPECT_FALSE(r.SetQWORDValue("nB", 2));
    EXPECT_FALSE(r.SetStringValue("szC", "x"));
    EXPECT_FALSE(r.DeleteValue("nD"));
    EXPECT_FALSE(r.DeleteKey(RegRoot::LocalMachine, reg.base() + u"\\NotThere"));
    const std::string missing = CQuilletString(reg.base() + u"\\NotThere").getStringA();
    EXPECT_EQ(log.text(),
              "CRegAccess|SetStringValue: DWORD Value 'nA' could not be written with Error '5'!\r\n"
              "CRegAccess|SetQWORDValue: DWORD Value 'nB' could not be written with Error '5'!\r\n"
              "CRegAccess|SetStringValue: String Value 'szC' could not be written, cc = 'd%' "
              "GetLastError = 'd%'!\r\n"
              "CRegAccess::RegDeleteValue - Failed deleting  Value 'nD' could not be written with "
              "Error '5'!\r\n"
              "CRegAccess::DeleteKey - Failed deleting Key '" +
                  missing + "' with Error '2'!\r\n");
}

// Catches enumeration that misses keys or values, case-sensitive deletes, or a key left behind.
TEST(RegAccess, WritesDeletesAndEnumerates) {
    vt::test::ScopedRegistry reg;
    const CQuilletString path(reg.base() + u"\\E");
    CRegAccess w;
    ASSERT_TRUE(w.CreateKey(RegRoot::LocalMachine, path));
    ASSERT_TRUE(w.SetStringValue("szA", "a"));
    ASSERT_TRUE(w.SetDWORDValue("nB", 2));
    CRegAccess child;
    ASSERT_TRUE(child.CreateKey(RegRoot::LocalMachine, CQuilletString(reg.base() + u"\\E\\Sub")));
    std::vector<std::u16string> keys;
    ASSERT_TRUE(w.EnumSubKeys(keys));
    EXPECT_EQ(keys, std::vector<std::u16string>{u"Sub"});
    ASSERT_TRUE(w.DeleteValue("sza"));
    std::vector<vt::RegValue> values;
    ASSERT_TRUE(w.EnumValues(values));
    ASSERT_EQ(values.size(), 1u);
    EXPECT_EQ(values[0].name, u"nB");
    EXPECT_EQ(values[0].type, vt::kRegDword);
    EXPECT_TRUE(w.DeleteKey(RegRoot::LocalMachine, path));
    CRegAccess r;
    EXPECT_FALSE(r.OpenKey(RegRoot::LocalMachine, path));
}

}  // namespace
