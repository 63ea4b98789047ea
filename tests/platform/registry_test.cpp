#include "platform/registry.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <thread>
#include <tuple>

#include "common/registry_fixture.h"
#include "platform/case_fold.h"
#include "platform/utf_codec.h"

#ifndef _WIN32
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace {

using vt::RegKey;
using vt::RegRoot;

std::u16string sub(const vt::test::ScopedRegistry& reg, std::u16string_view rest) {
    return reg.base() + u"\\" + std::u16string(rest);
}

RegKey createKey(const std::u16string& path) {
    RegKey key;
    EXPECT_EQ(key.create(RegRoot::LocalMachine, path), vt::kRegOk);
    return key;
}

// Every type keeps its number and its bytes exactly, including an empty binary, a string
// without terminator and a type number the tool knows only as hex(N).
TEST(Registry, StoresTypeAndBytesExactly) {
    vt::test::ScopedRegistry reg;
    RegKey key = createKey(sub(reg, u"Types"));
    const std::tuple<const char16_t*, uint32_t, std::vector<uint8_t>> cases[] = {
        {u"sz", vt::kRegSz, vt::regStringBytes(u"h\u00e9llo")},
        {u"szNoTerminator", vt::kRegSz, {'a', 0}},
        {u"expand", vt::kRegExpandSz, vt::regStringBytes(u"%TEMP%\\x")},
        {u"binEmpty", vt::kRegBinary, {}},
        {u"bin", vt::kRegBinary, {0, 1, 0xfe, 0xff}},
        {u"dword", vt::kRegDword, vt::regDwordBytes(0xdeadbeef)},
        {u"multi", vt::kRegMultiSz, {'a', 0, 0, 0, 'b', 0, 0, 0, 0, 0}},
        {u"qword", vt::kRegQword, vt::regQwordBytes(0x0123456789abcdefULL)},
        {u"none", vt::kRegNone, {9}},
        {u"", vt::kRegSz, vt::regStringBytes(u"default value")},
    };
    for (const auto& [name, type, bytes] : cases)
        ASSERT_EQ(key.setValue(name, type, bytes.data(), bytes.size()), vt::kRegOk);
    for (const auto& [name, type, bytes] : cases) {
        uint32_t gotType = 99;
        std::vector<uint8_t> data{1, 2, 3};
        ASSERT_EQ(key.queryValue(name, gotType, data), vt::kRegOk);
        EXPECT_EQ(gotType, type);
        EXPECT_EQ(data, bytes);
    }
    std::vector<vt::RegValue> values;
    ASSERT_EQ(key.enumValues(values), vt::kRegOk);
    EXPECT_EQ(values.size(), std::size(cases));
}

// Key and value names are found in any case and keep the case they were created with; an
// overwrite in another case does not rename the value.
TEST(Registry, NamesCompareWithoutCaseAndKeepTheirCase) {
    vt::test::ScopedRegistry reg;
    RegKey key = createKey(sub(reg, u"MixedCase\\\u00c4rger"));
    const auto v1 = vt::regDwordBytes(1), v2 = vt::regDwordBytes(2);
    ASSERT_EQ(key.setValue(u"nWorkerThreads", vt::kRegDword, v1.data(), 4), vt::kRegOk);
    ASSERT_EQ(key.setValue(u"NWORKERTHREADS", vt::kRegDword, v2.data(), 4), vt::kRegOk);
    RegKey again = createKey(vt::upcase(sub(reg, u"mixedcase\\\u00e4RGER")));
    uint32_t type = 0;
    std::vector<uint8_t> data;
    ASSERT_EQ(again.queryValue(u"nworkerthreads", type, data), vt::kRegOk);
    EXPECT_EQ(data, v2);
    std::vector<vt::RegValue> values;
    ASSERT_EQ(again.enumValues(values), vt::kRegOk);
    ASSERT_EQ(values.size(), 1u);
    EXPECT_EQ(values[0].name, u"nWorkerThreads");
    RegKey parent;
    ASSERT_EQ(parent.open(RegRoot::LocalMachine, sub(reg, u"MIXEDCASE"), vt::kKeyRead), vt::kRegOk);
    std::vector<std::u16string> names;
    ASSERT_EQ(parent.enumSubKeys(names), vt::kRegOk);
    EXPECT_EQ(names, std::vector<std::u16string>{u"\u00c4rger"});
}

// Simple upper case; no non-ASCII character folds onto ASCII, so "i" and dotless i stay apart.
TEST(Registry, CaseFoldingFollowsSimpleUpperCase) {
    EXPECT_EQ(vt::upcase(u"abcXYZ09_\u00e4\u00f6\u00fc\u00ff\u03b1\u0430\u00df"),
              u"ABCXYZ09_\u00c4\u00d6\u00dc\u0178\u0391\u0410\u00df");
    EXPECT_EQ(vt::upcaseChar(u'\u0131'), u'\u0131');
    EXPECT_EQ(vt::upcaseChar(u'\u017f'), u'\u017f');
}

// A missing key or value is error 2, on a missing hive too, and looking creates nothing. Read
// access cannot write; plain delete refuses a key with subkeys, the tree delete removes all
// below; a handle outlives its key: calls on it fail, even once the path is back.
TEST(Registry, MissingKeysAccessAndDeletion) {
    vt::test::ScopedRegistry reg;
    RegKey readOnly;
    uint32_t type = 0;
    std::vector<uint8_t> data;
    EXPECT_EQ(readOnly.open(RegRoot::LocalMachine, sub(reg, u"A"), vt::kKeyRead), vt::kRegNotFound);
    EXPECT_EQ(readOnly.queryValue(u"x", type, data), vt::kRegInvalidHandle);
#ifndef _WIN32
    EXPECT_FALSE(std::filesystem::exists(reg.hiveFile()));
#endif
    const auto v = vt::regDwordBytes(7);
    RegKey child = createKey(sub(reg, u"A\\B\\C"));
#ifndef _WIN32
    EXPECT_EQ(std::filesystem::status(reg.hiveFile()).permissions(),  // for its owner only
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
#endif
    EXPECT_EQ(child.queryValue(u"n", type, data), vt::kRegNotFound);
    EXPECT_EQ(child.deleteValue(u"n"), vt::kRegNotFound);
    ASSERT_EQ(child.setValue(u"n", vt::kRegDword, v.data(), v.size()), vt::kRegOk);
    ASSERT_EQ(readOnly.open(RegRoot::LocalMachine, sub(reg, u"A"), vt::kKeyRead), vt::kRegOk);
    EXPECT_EQ(readOnly.setValue(u"n", vt::kRegDword, v.data(), v.size()), vt::kRegAccessDenied);
    EXPECT_EQ(vt::regDeleteKey(RegRoot::LocalMachine, sub(reg, u"A")), vt::kRegAccessDenied);
    EXPECT_EQ(vt::regDeleteKey(RegRoot::LocalMachine, sub(reg, u"a\\b\\c")), vt::kRegOk);
    EXPECT_EQ(vt::regDeleteTree(RegRoot::LocalMachine, sub(reg, u"A")), vt::kRegOk);
    EXPECT_EQ(vt::regDeleteTree(RegRoot::LocalMachine, sub(reg, u"A")), vt::kRegNotFound);
    RegKey gone;
    EXPECT_EQ(gone.open(RegRoot::LocalMachine, sub(reg, u"A\\B"), vt::kKeyRead), vt::kRegNotFound);
    RegKey reborn = createKey(sub(reg, u"A\\B\\C"));
    ASSERT_EQ(reborn.setValue(u"n", vt::kRegDword, v.data(), v.size()), vt::kRegOk);
    EXPECT_EQ(child.queryValue(u"n", type, data), vt::kRegKeyDeleted);
    EXPECT_EQ(child.setValue(u"n", vt::kRegDword, v.data(), v.size()), vt::kRegKeyDeleted);
}

// One handle shared by threads that write and read back: every call succeeds and the last
// write of each thread is what remains.
TEST(Registry, OneHandleServesManyThreads) {
    vt::test::ScopedRegistry reg;
    RegKey key = createKey(sub(reg, u"Threads"));
    constexpr int kThreads = 6, kRounds = 200;
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (char16_t t = u'0'; t < u'0' + kThreads; ++t) {
        threads.emplace_back([&, name = std::u16string(1, t)] {
            uint32_t type = 0;
            std::vector<uint8_t> data;
            for (uint32_t i = 0; i < kRounds; ++i) {
                const auto bytes = vt::regDwordBytes(i);
                if (key.setValue(name, vt::kRegDword, bytes.data(), 4) != vt::kRegOk ||
                    key.queryValue(name, type, data) != vt::kRegOk || data != bytes)
                    ++failures;
            }
        });
    }
    for (auto& th : threads) th.join();
    EXPECT_EQ(failures.load(), 0);
    std::vector<vt::RegValue> values;
    ASSERT_EQ(key.enumValues(values), vt::kRegOk);
    ASSERT_EQ(values.size(), size_t{kThreads});
    for (const auto& v : values) EXPECT_EQ(v.data, vt::regDwordBytes(kRounds - 1));
}

#ifndef _WIN32
// The hive's own rules (Windows has no such transaction or path checks to compare with): a
// batch whose body fails leaves nothing behind, a good one commits.
TEST(Hive, AtomicBatchCommitsAllOrNothing) {
    vt::test::ScopedRegistry reg;
    const auto v = vt::regDwordBytes(1);
    for (uint32_t outcome : {vt::kRegInvalidData, vt::kRegOk}) {
        EXPECT_EQ(vt::regRunAtomically([&] {
                      createKey(sub(reg, u"Batch")).setValue(u"n", vt::kRegDword, v.data(), 4);
                      return outcome;
                  }),
                  outcome);
        RegKey key;
        EXPECT_EQ(key.open(RegRoot::LocalMachine, sub(reg, u"Batch"), vt::kKeyRead),
                  outcome == vt::kRegOk ? vt::kRegOk : vt::kRegNotFound);
    }
}

// Malformed paths and a file that is no hive are refused, not mistaken for keys.
TEST(Hive, RejectsMalformedPathsAndJunkFiles) {
    vt::test::ScopedRegistry reg;
    RegKey key;
    EXPECT_EQ(key.create(RegRoot::LocalMachine, u"\\SOFTWARE", vt::kKeyAllAccess),
              vt::kRegBadPathname);
    EXPECT_EQ(key.create(RegRoot::LocalMachine, u"SOFTWARE\\\\x", vt::kKeyAllAccess),
              vt::kRegBadPathname);
    EXPECT_EQ(key.create(RegRoot::LocalMachine, u"SOFTWARE\\" + std::u16string(256, u'k'),
                         vt::kKeyAllAccess),
              vt::kRegInvalidParameter);
    EXPECT_EQ(key.create(RegRoot::LocalMachine, u"SOFTWARE\\trailing\\", vt::kKeyAllAccess),
              vt::kRegOk);
    EXPECT_EQ(vt::regDeleteTree(RegRoot::LocalMachine, u""), vt::kRegAccessDenied);

    vt::test::TempDir dir;
    const auto junk = dir.path() / "junk.db";
    std::string bytes;
    for (int i = 0; i < 4096; ++i) bytes.push_back(static_cast<char>((i * 7919) & 0xFF));
    std::ofstream(junk, std::ios::binary) << bytes;
    vt::regSetHivePath(junk.string());
    EXPECT_EQ(key.open(RegRoot::LocalMachine, u"SOFTWARE", vt::kKeyRead), vt::kRegCorrupt);
    vt::regSetHivePath(reg.hiveFile().string());
}

// A writer killed with SIGKILL in the middle of a stream of writes leaves a readable hive
// holding every value it had reported as committed.
TEST(Hive, CommittedWritesSurviveSigkill) {
    vt::test::ScopedRegistry reg;
    const std::u16string path = sub(reg, u"Stream");
    createKey(path);
    vt::regSetHivePath(reg.hiveFile().string());  // no connection open across fork()
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        RegKey key;
        if (key.open(RegRoot::LocalMachine, path, vt::kKeyAllAccess) != vt::kRegOk) _exit(3);
        for (uint32_t i = 0;; ++i) {
            const auto bytes = vt::regDwordBytes(i);
            const std::u16string name = u"n" + vt::utf8ToUtf16(std::to_string(i));
            if (key.setValue(name, vt::kRegDword, bytes.data(), bytes.size()) != vt::kRegOk ||
                write(fds[1], &i, sizeof i) != sizeof i)
                _exit(4);
        }
    }
    close(fds[1]);
    uint32_t last = 0, got = 0;
    while (last < 400 && read(fds[0], &got, sizeof got) == sizeof got) last = got;
    kill(pid, SIGKILL);
    int status = 0;
    waitpid(pid, &status, 0);
    while (read(fds[0], &got, sizeof got) == sizeof got) last = got;  // reported before death
    close(fds[0]);
    ASSERT_TRUE(WIFSIGNALED(status)) << "writer ended early with status " << status;
    RegKey key;
    ASSERT_EQ(key.open(RegRoot::LocalMachine, path, vt::kKeyRead), vt::kRegOk);
    std::vector<vt::RegValue> values;
    ASSERT_EQ(key.enumValues(values), vt::kRegOk);
    ASSERT_GE(values.size(), size_t{last + 1});
    for (uint32_t i = 0; i <= last; ++i) EXPECT_EQ(values[i].data, vt::regDwordBytes(i)) << i;
}
#endif

}  // namespace
