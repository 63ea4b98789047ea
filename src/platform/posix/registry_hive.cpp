// The hive: HKEY_LOCAL_MACHINE as an SQLite database.
//
// Layout: table `keys` holds one row per key (id, parent id, name as created, upper-cased name
// for look-ups); the root is id 0 and has no row. Table `vals` holds one row per value (key id,
// name, upper-cased name, Windows type number, raw bytes). Ids are AUTOINCREMENT so that an id
// is never reused: a handle of a deleted key then finds no row and reports kRegKeyDeleted even
// after a key of the same path is created again.
//
// Durability and sharing: WAL journal with synchronous=NORMAL. A committed transaction is in
// the WAL file before sqlite3_step returns, so it survives the death of the process (SIGKILL
// included); only a power cut can lose the last commits, never the file's consistency. Readers
// never block writers; writers wait for each other up to the busy timeout. Every statement is
// reset as soon as it has been stepped, so no read transaction stays open and each read sees
// the last commit of any process.
//
// Threads: one connection per process, used under one recursive mutex (recursive so that a
// batch run by regRunAtomically can call the ordinary operations inside its transaction).
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <unordered_map>

#include "platform/case_fold.h"
#include "platform/registry.h"
#include "platform/utf_codec.h"

namespace vt {
namespace {

constexpr const char* kDefaultHivePath = "/var/lib/vtagent/registry.db";
constexpr int kBusyTimeoutMs = 10000;
constexpr size_t kMaxKeyNameLength = 255;
constexpr uint32_t kKeyEnumerateSubKeys = 0x0008;

constexpr const char* kSchema =
    "CREATE TABLE IF NOT EXISTS keys(id INTEGER PRIMARY KEY AUTOINCREMENT,"
    " parent INTEGER NOT NULL, name TEXT NOT NULL, fold TEXT NOT NULL, UNIQUE(parent, fold));"
    "CREATE TABLE IF NOT EXISTS vals(key INTEGER NOT NULL, name TEXT NOT NULL,"
    " fold TEXT NOT NULL, type INTEGER NOT NULL, data BLOB NOT NULL, UNIQUE(key, fold));";

uint32_t mapSqlite(int rc) {
    switch (rc & 0xFF) {
        case SQLITE_OK:
        case SQLITE_ROW:
        case SQLITE_DONE:
            return kRegOk;
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            return kRegBusy;
        case SQLITE_PERM:
        case SQLITE_READONLY:
        case SQLITE_AUTH:
        case SQLITE_CANTOPEN:
            return kRegAccessDenied;
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
            return kRegCorrupt;
        default:
            return kRegIoFailed;
    }
}

std::string toUtf8(std::u16string_view s) {
    return utf16ToUtf8(s);
}
std::string foldKey(std::u16string_view s) {
    return utf16ToUtf8(upcase(s));
}

// Splits "A\B\C" into its names. Trailing separators are ignored as Windows does; a leading
// one or an empty name in the middle is a bad path.
uint32_t splitPath(std::u16string_view path, std::vector<std::u16string_view>& parts) {
    parts.clear();
    while (!path.empty() && path.back() == u'\\') path.remove_suffix(1);
    if (path.empty()) return kRegOk;
    size_t start = 0;
    for (;;) {
        const size_t sep = path.find(u'\\', start);
        const auto part = path.substr(start, sep == std::u16string_view::npos ? sep : sep - start);
        if (part.empty()) return kRegBadPathname;
        if (part.size() > kMaxKeyNameLength) return kRegInvalidParameter;
        parts.push_back(part);
        if (sep == std::u16string_view::npos) return kRegOk;
        start = sep + 1;
    }
}

void makeParentDirectories(const std::string& file) {
    for (size_t pos = file.find('/', 1); pos != std::string::npos; pos = file.find('/', pos + 1))
        ::mkdir(file.substr(0, pos).c_str(), 0755);  // existing directories fail harmlessly
}

// A cached prepared statement, reset and unbound when the scope ends.
class Statement {
  public:
    explicit Statement(sqlite3_stmt* stmt) : m_stmt(stmt) {}
    ~Statement() {
        if (m_stmt) {
            sqlite3_reset(m_stmt);
            sqlite3_clear_bindings(m_stmt);
        }
    }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    bool ok() const { return m_stmt != nullptr; }
    Statement& bind(int i, int64_t v) {
        sqlite3_bind_int64(m_stmt, i, v);
        return *this;
    }
    Statement& bind(int i, const std::string& v) {
        sqlite3_bind_text(m_stmt, i, v.data(), static_cast<int>(v.size()), SQLITE_TRANSIENT);
        return *this;
    }
    Statement& bindBlob(int i, const void* data, size_t size) {
        // A zero-length blob must still be a blob, not NULL (the column is NOT NULL).
        static const uint8_t kEmpty = 0;
        sqlite3_bind_blob64(m_stmt, i, size ? data : &kEmpty, size, SQLITE_TRANSIENT);
        return *this;
    }
    int step() { return sqlite3_step(m_stmt); }
    int64_t int64(int col) { return sqlite3_column_int64(m_stmt, col); }
    std::u16string text(int col) {
        const auto* p = reinterpret_cast<const char*>(sqlite3_column_text(m_stmt, col));
        return utf8ToUtf16(std::string_view(p ? p : "", sqlite3_column_bytes(m_stmt, col)));
    }
    std::vector<uint8_t> blob(int col) {
        const auto* p = static_cast<const uint8_t*>(sqlite3_column_blob(m_stmt, col));
        const int n = sqlite3_column_bytes(m_stmt, col);
        return p ? std::vector<uint8_t>(p, p + n) : std::vector<uint8_t>();
    }

  private:
    sqlite3_stmt* m_stmt;
};

class Hive {
  public:
    std::recursive_mutex mutex;

    void setPath(std::string path) {
        std::lock_guard lock(mutex);
        closeDatabase();
        m_override = std::move(path);
    }

    void close() {
        std::lock_guard lock(mutex);
        closeDatabase();
    }

    std::string path() {
        std::lock_guard lock(mutex);
        return currentPath();
    }

    // Opens the connection if needed. Without `create` a missing hive file is kRegNotFound and
    // nothing is created.
    uint32_t ensureOpen(bool create) {
        if (m_db) return kRegOk;
        const std::string file = currentPath();
        struct stat st {};
        if (::stat(file.c_str(), &st) != 0) {
            if (!create) return kRegNotFound;
            makeParentDirectories(file);
            // The hive holds passwords: only its owner may read it. SQLite gives its WAL and
            // shared-memory files the permissions of the database file.
            const int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
            if (fd >= 0) ::close(fd);
        }
        sqlite3* db = nullptr;
        int rc = sqlite3_open_v2(file.c_str(), &db,
                                 SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
                                 nullptr);
        if (rc != SQLITE_OK) {
            const int sys = db ? sqlite3_system_errno(db) : 0;
            const uint32_t err = (sys == EACCES || sys == EPERM) ? kRegAccessDenied : mapSqlite(rc);
            sqlite3_close(db);
            return err;
        }
        sqlite3_busy_timeout(db, kBusyTimeoutMs);
        // Both fail on a hive we may only read; reading still works then.
        sqlite3_exec(db, "PRAGMA journal_mode=WAL", nullptr, nullptr, nullptr);
        sqlite3_exec(db, "PRAGMA synchronous=NORMAL", nullptr, nullptr, nullptr);
        rc = sqlite3_exec(db, kSchema, nullptr, nullptr, nullptr);
        if (rc != SQLITE_OK) {
            sqlite3_close(db);
            return mapSqlite(rc);
        }
        m_db = db;
        return kRegOk;
    }

    sqlite3* db() const { return m_db; }

    Statement prepare(const char* sql) {
        auto it = m_cache.find(sql);
        if (it != m_cache.end()) return Statement(it->second);
        sqlite3_stmt* stmt = nullptr;
        if (sqlite3_prepare_v3(m_db, sql, -1, SQLITE_PREPARE_PERSISTENT, &stmt, nullptr) !=
            SQLITE_OK)
            return Statement(nullptr);
        m_cache.emplace(sql, stmt);
        return Statement(stmt);
    }

    uint32_t exec(const char* sql) {
        return mapSqlite(sqlite3_exec(m_db, sql, nullptr, nullptr, nullptr));
    }

    uint32_t lastError() const { return m_db ? mapSqlite(sqlite3_errcode(m_db)) : kRegIoFailed; }

  private:
    std::string currentPath() const {
        if (!m_override.empty()) return m_override;
        const char* env = std::getenv("VTAGENT_REGISTRY");
        return (env && *env) ? env : kDefaultHivePath;
    }

    void closeDatabase() {
        for (auto& [sql, stmt] : m_cache) sqlite3_finalize(stmt);
        m_cache.clear();
        if (m_db) sqlite3_close(m_db);
        m_db = nullptr;
    }

    sqlite3* m_db = nullptr;
    std::string m_override;
    std::unordered_map<const char*, sqlite3_stmt*> m_cache;
};

// Never destroyed: threads still running while the process exits must not meet a destroyed
// mutex, and a WAL database needs no orderly close to keep its commits.
Hive& hive() {
    static Hive* const instance = new Hive;
    return *instance;
}

// A write transaction, begun only when none is open (inside regRunAtomically the outer one
// is used). Rolled back unless committed.
class WriteTransaction {
  public:
    explicit WriteTransaction(Hive& h) : m_hive(h) {
        if (sqlite3_get_autocommit(h.db())) {
            m_error = h.exec("BEGIN IMMEDIATE");
            m_owns = m_error == kRegOk;
        }
    }
    ~WriteTransaction() {
        if (m_owns) m_hive.exec("ROLLBACK");
    }
    uint32_t error() const { return m_error; }
    uint32_t commit() {
        if (!m_owns) return kRegOk;
        m_owns = false;
        const uint32_t err = m_hive.exec("COMMIT");
        if (err != kRegOk) m_hive.exec("ROLLBACK");
        return err;
    }

  private:
    Hive& m_hive;
    bool m_owns = false;
    uint32_t m_error = kRegOk;
};

// Finds the child key `name` of `parent`: its id, or -1 when there is none.
uint32_t findChild(Hive& h, int64_t parent, std::u16string_view name, int64_t& id) {
    Statement st = h.prepare("SELECT id FROM keys WHERE parent=?1 AND fold=?2");
    if (!st.ok()) return h.lastError();
    st.bind(1, parent).bind(2, foldKey(name));
    const int rc = st.step();
    if (rc == SQLITE_ROW) {
        id = st.int64(0);
        return kRegOk;
    }
    id = -1;
    return rc == SQLITE_DONE ? kRegOk : mapSqlite(rc);
}

uint32_t resolve(Hive& h, const std::vector<std::u16string_view>& parts, int64_t& id) {
    id = 0;
    for (const auto& part : parts) {
        if (const uint32_t err = findChild(h, id, part, id); err != kRegOk) return err;
        if (id < 0) return kRegNotFound;
    }
    return kRegOk;
}

// kRegOk when the key still exists, kRegKeyDeleted when it was deleted.
uint32_t checkAlive(Hive& h, int64_t id) {
    if (id == 0) return kRegOk;
    Statement st = h.prepare("SELECT 1 FROM keys WHERE id=?1");
    if (!st.ok()) return h.lastError();
    st.bind(1, id);
    const int rc = st.step();
    if (rc == SQLITE_ROW) return kRegOk;
    return rc == SQLITE_DONE ? kRegKeyDeleted : mapSqlite(rc);
}

uint32_t stepDone(Statement& st) {
    const int rc = st.step();
    return rc == SQLITE_DONE || rc == SQLITE_ROW ? kRegOk : mapSqlite(rc);
}

}  // namespace

void RegKey::close() noexcept {
    m_open = false;
    m_id = -1;
    m_access = 0;
}

uint32_t RegKey::open(RegRoot, std::u16string_view path, uint32_t access) {
    close();
    std::vector<std::u16string_view> parts;
    if (const uint32_t err = splitPath(path, parts); err != kRegOk) return err;
    int64_t id = 0;
    if (!parts.empty()) {
        Hive& h = hive();
        std::lock_guard lock(h.mutex);
        if (const uint32_t err = h.ensureOpen(false); err != kRegOk) return err;
        if (const uint32_t err = resolve(h, parts, id); err != kRegOk) return err;
    }
    m_open = true;
    m_id = id;
    m_access = access;
    return kRegOk;
}

uint32_t RegKey::create(RegRoot, std::u16string_view path, uint32_t access) {
    close();
    std::vector<std::u16string_view> parts;
    if (const uint32_t err = splitPath(path, parts); err != kRegOk) return err;
    int64_t id = 0;
    if (!parts.empty()) {
        Hive& h = hive();
        std::lock_guard lock(h.mutex);
        if (const uint32_t err = h.ensureOpen(true); err != kRegOk) return err;
        WriteTransaction txn(h);
        if (txn.error() != kRegOk) return txn.error();
        for (const auto& part : parts) {
            int64_t child = -1;
            if (const uint32_t err = findChild(h, id, part, child); err != kRegOk) return err;
            if (child < 0) {
                Statement st = h.prepare("INSERT INTO keys(parent, name, fold) VALUES(?1, ?2, ?3)");
                if (!st.ok()) return h.lastError();
                st.bind(1, id).bind(2, toUtf8(part)).bind(3, foldKey(part));
                if (const uint32_t err = stepDone(st); err != kRegOk) return err;
                child = sqlite3_last_insert_rowid(h.db());
            }
            id = child;
        }
        if (const uint32_t err = txn.commit(); err != kRegOk) return err;
    }
    m_open = true;
    m_id = id;
    m_access = access;
    return kRegOk;
}

uint32_t RegKey::queryValue(std::u16string_view name, uint32_t& type,
                            std::vector<uint8_t>& data) const {
    if (!m_open) return kRegInvalidHandle;
    if (!(m_access & kKeyQueryValue)) return kRegAccessDenied;
    Hive& h = hive();
    std::lock_guard lock(h.mutex);
    if (const uint32_t err = h.ensureOpen(false); err != kRegOk) return err;
    {
        Statement st = h.prepare("SELECT type, data FROM vals WHERE key=?1 AND fold=?2");
        if (!st.ok()) return h.lastError();
        st.bind(1, m_id).bind(2, foldKey(name));
        const int rc = st.step();
        if (rc == SQLITE_ROW) {
            type = static_cast<uint32_t>(st.int64(0));
            data = st.blob(1);
            return kRegOk;
        }
        if (rc != SQLITE_DONE) return mapSqlite(rc);
    }
    const uint32_t alive = checkAlive(h, m_id);
    return alive == kRegOk ? kRegNotFound : alive;
}

uint32_t RegKey::setValue(std::u16string_view name, uint32_t type, const void* data,
                          size_t size) const {
    if (!m_open) return kRegInvalidHandle;
    if (!(m_access & kKeySetValue)) return kRegAccessDenied;
    if (m_id == 0) return kRegAccessDenied;  // the root holds keys only, as HKEY_LOCAL_MACHINE
    Hive& h = hive();
    std::lock_guard lock(h.mutex);
    if (const uint32_t err = h.ensureOpen(true); err != kRegOk) return err;
    WriteTransaction txn(h);
    if (txn.error() != kRegOk) return txn.error();
    if (const uint32_t err = checkAlive(h, m_id); err != kRegOk) return err;
    {
        // An existing value keeps its name's case and its place in the enumeration order.
        Statement st = h.prepare(
            "INSERT INTO vals(key, name, fold, type, data) VALUES(?1, ?2, ?3, ?4, ?5)"
            " ON CONFLICT(key, fold) DO UPDATE SET type=excluded.type, data=excluded.data");
        if (!st.ok()) return h.lastError();
        st.bind(1, m_id).bind(2, toUtf8(name)).bind(3, foldKey(name)).bind(4, int64_t{type});
        st.bindBlob(5, data, size);
        if (const uint32_t err = stepDone(st); err != kRegOk) return err;
    }
    return txn.commit();
}

uint32_t RegKey::deleteValue(std::u16string_view name) const {
    if (!m_open) return kRegInvalidHandle;
    if (!(m_access & kKeySetValue)) return kRegAccessDenied;
    Hive& h = hive();
    std::lock_guard lock(h.mutex);
    if (const uint32_t err = h.ensureOpen(false); err != kRegOk) return err;
    {
        Statement st = h.prepare("DELETE FROM vals WHERE key=?1 AND fold=?2");
        if (!st.ok()) return h.lastError();
        st.bind(1, m_id).bind(2, foldKey(name));
        if (const uint32_t err = stepDone(st); err != kRegOk) return err;
    }
    if (sqlite3_changes(h.db()) > 0) return kRegOk;
    const uint32_t alive = checkAlive(h, m_id);
    return alive == kRegOk ? kRegNotFound : alive;
}

uint32_t RegKey::enumSubKeys(std::vector<std::u16string>& names) const {
    names.clear();
    if (!m_open) return kRegInvalidHandle;
    if (!(m_access & kKeyEnumerateSubKeys)) return kRegAccessDenied;
    Hive& h = hive();
    std::lock_guard lock(h.mutex);
    if (const uint32_t err = h.ensureOpen(false); err != kRegOk)
        return err == kRegNotFound ? kRegOk : err;  // no hive yet: the root has no subkeys
    {
        Statement st = h.prepare("SELECT name FROM keys WHERE parent=?1 ORDER BY fold");
        if (!st.ok()) return h.lastError();
        st.bind(1, m_id);
        int rc;
        while ((rc = st.step()) == SQLITE_ROW) names.push_back(st.text(0));
        if (rc != SQLITE_DONE) return mapSqlite(rc);
    }
    return names.empty() ? checkAlive(h, m_id) : kRegOk;
}

uint32_t RegKey::enumValues(std::vector<RegValue>& values) const {
    values.clear();
    if (!m_open) return kRegInvalidHandle;
    if (!(m_access & kKeyQueryValue)) return kRegAccessDenied;
    Hive& h = hive();
    std::lock_guard lock(h.mutex);
    if (const uint32_t err = h.ensureOpen(false); err != kRegOk)
        return err == kRegNotFound ? kRegOk : err;
    {
        Statement st = h.prepare("SELECT name, type, data FROM vals WHERE key=?1 ORDER BY rowid");
        if (!st.ok()) return h.lastError();
        st.bind(1, m_id);
        int rc;
        while ((rc = st.step()) == SQLITE_ROW)
            values.push_back({st.text(0), static_cast<uint32_t>(st.int64(1)), st.blob(2)});
        if (rc != SQLITE_DONE) return mapSqlite(rc);
    }
    return values.empty() ? checkAlive(h, m_id) : kRegOk;
}

namespace {

uint32_t deleteKeyImpl(std::u16string_view path, bool recursive) {
    std::vector<std::u16string_view> parts;
    if (const uint32_t err = splitPath(path, parts); err != kRegOk) return err;
    if (parts.empty()) return kRegAccessDenied;  // the root is never deleted
    Hive& h = hive();
    std::lock_guard lock(h.mutex);
    if (const uint32_t err = h.ensureOpen(false); err != kRegOk) return err;
    WriteTransaction txn(h);
    if (txn.error() != kRegOk) return txn.error();
    int64_t id = 0;
    if (const uint32_t err = resolve(h, parts, id); err != kRegOk) return err;
    if (!recursive) {
        Statement st = h.prepare("SELECT 1 FROM keys WHERE parent=?1 LIMIT 1");
        if (!st.ok()) return h.lastError();
        st.bind(1, id);
        const int rc = st.step();
        if (rc == SQLITE_ROW) return kRegAccessDenied;
        if (rc != SQLITE_DONE) return mapSqlite(rc);
    }
    static constexpr const char* kDeleteValues =
        "WITH RECURSIVE sub(id) AS (SELECT ?1 UNION ALL"
        " SELECT keys.id FROM keys JOIN sub ON keys.parent=sub.id)"
        " DELETE FROM vals WHERE key IN sub";
    static constexpr const char* kDeleteKeys =
        "WITH RECURSIVE sub(id) AS (SELECT ?1 UNION ALL"
        " SELECT keys.id FROM keys JOIN sub ON keys.parent=sub.id)"
        " DELETE FROM keys WHERE id IN sub";
    for (const char* sql : {kDeleteValues, kDeleteKeys}) {
        Statement st = h.prepare(sql);
        if (!st.ok()) return h.lastError();
        st.bind(1, id);
        if (const uint32_t err = stepDone(st); err != kRegOk) return err;
    }
    return txn.commit();
}

}  // namespace

uint32_t regDeleteKey(RegRoot, std::u16string_view path) {
    return deleteKeyImpl(path, false);
}

uint32_t regDeleteTree(RegRoot, std::u16string_view path) {
    return deleteKeyImpl(path, true);
}

uint32_t regRunAtomically(const std::function<uint32_t()>& body) {
    Hive& h = hive();
    std::lock_guard lock(h.mutex);
    if (const uint32_t err = h.ensureOpen(true); err != kRegOk) return err;
    WriteTransaction txn(h);
    if (txn.error() != kRegOk) return txn.error();
    if (const uint32_t err = body(); err != kRegOk) return err;  // rolled back by txn
    return txn.commit();
}

void regSetHivePath(std::string path) {
    hive().setPath(std::move(path));
}

std::string regHivePath() {
    return hive().path();
}

void regCloseHive() {
    hive().close();
}

}  // namespace vt
