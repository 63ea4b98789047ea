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
#include <utility>

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

// Raw bytes to bind as a blob.
struct Blob {
    const void* data;
    size_t size;
};

// A cached prepared statement, reset and unbound when the scope ends. One that could not be
// prepared keeps the reason, and stepping it returns that.
class Statement {
  public:
    Statement(sqlite3_stmt* stmt, uint32_t error) : m_stmt(stmt), m_error(error) {}
    Statement(Statement&& other) noexcept
        : m_stmt(std::exchange(other.m_stmt, nullptr)), m_error(other.m_error) {}
    ~Statement() {
        if (m_stmt) {
            sqlite3_reset(m_stmt);
            sqlite3_clear_bindings(m_stmt);
        }
    }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;
    Statement& operator=(Statement&&) = delete;

    bool ok() const { return m_stmt != nullptr; }
    void bind(int i, int64_t v) { sqlite3_bind_int64(m_stmt, i, v); }
    void bind(int i, const std::string& v) {
        sqlite3_bind_text(m_stmt, i, v.data(), static_cast<int>(v.size()), SQLITE_TRANSIENT);
    }
    void bind(int i, const Blob& v) {
        // A zero-length blob must still be a blob, not NULL (the column is NOT NULL).
        static const uint8_t kEmpty = 0;
        sqlite3_bind_blob64(m_stmt, i, v.size ? v.data : &kEmpty, v.size, SQLITE_TRANSIENT);
    }

    // One step: `row` tells whether it gave a row; a finished statement is no error.
    uint32_t step(bool& row) {
        row = false;
        if (!m_stmt) return m_error;
        const int rc = sqlite3_step(m_stmt);
        row = rc == SQLITE_ROW;
        return row || rc == SQLITE_DONE ? kRegOk : mapSqlite(rc);
    }
    // Runs a statement that changes rows.
    uint32_t run() {
        bool row = false;
        return step(row);
    }
    template <typename OnRow>
    uint32_t forEachRow(OnRow onRow) {
        bool row = false;
        uint32_t err;
        while ((err = step(row)) == kRegOk && row) onRow();
        return err;
    }

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
    uint32_t m_error;
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

    // The statement for `sql` with `args` bound to ?1, ?2, ...
    template <typename... Args>
    Statement prepare(const char* sql, const Args&... args) {
        Statement st = cached(sql);
        int i = 0;
        if (st.ok()) (st.bind(++i, args), ...);
        return st;
    }

    uint32_t exec(const char* sql) {
        return mapSqlite(sqlite3_exec(m_db, sql, nullptr, nullptr, nullptr));
    }

    uint32_t lastError() const { return m_db ? mapSqlite(sqlite3_errcode(m_db)) : kRegIoFailed; }

  private:
    Statement cached(const char* sql) {
        auto it = m_cache.find(sql);
        if (it != m_cache.end()) return Statement(it->second, kRegOk);
        sqlite3_stmt* stmt = nullptr;
        if (sqlite3_prepare_v3(m_db, sql, -1, SQLITE_PREPARE_PERSISTENT, &stmt, nullptr) !=
            SQLITE_OK)
            return Statement(nullptr, lastError());
        m_cache.emplace(sql, stmt);
        return Statement(stmt, kRegOk);
    }

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

// What a call does when the hive file does not exist yet.
enum class NoHive { Fail, Create, IsEmpty };

// Runs `body(hive)` under the hive's lock once the hive is open.
template <typename Body>
uint32_t withHive(NoHive missing, Body&& body) {
    Hive& h = hive();
    std::lock_guard lock(h.mutex);
    if (const uint32_t err = h.ensureOpen(missing == NoHive::Create); err != kRegOk)
        return err == kRegNotFound && missing == NoHive::IsEmpty ? kRegOk : err;
    return body(h);
}

// The same inside a write transaction, committed when `body` returns kRegOk.
template <typename Body>
uint32_t writeHive(NoHive missing, Body&& body) {
    return withHive(missing, [&body](Hive& h) {
        WriteTransaction txn(h);
        if (txn.error() != kRegOk) return txn.error();
        if (const uint32_t err = body(h); err != kRegOk) return err;  // rolled back by txn
        return txn.commit();
    });
}

// kRegOk when a handle is open with `right` among its access rights.
uint32_t checkHandle(bool open, uint32_t access, uint32_t right) {
    if (!open) return kRegInvalidHandle;
    return (access & right) ? kRegOk : kRegAccessDenied;
}

// Finds the child key `name` of `parent`: its id, or -1 when there is none.
uint32_t findChild(Hive& h, int64_t parent, std::u16string_view name, int64_t& id) {
    Statement st =
        h.prepare("SELECT id FROM keys WHERE parent=?1 AND fold=?2", parent, foldKey(name));
    bool row = false;
    const uint32_t err = st.step(row);
    id = row ? st.int64(0) : -1;
    return err;
}

// The id of the key named by `parts`, each missing key created on the way when `create`;
// `id` is set only on success.
uint32_t resolve(Hive& h, const std::vector<std::u16string_view>& parts, bool create, int64_t& id) {
    int64_t at = 0;
    for (const auto& part : parts) {
        int64_t child = -1;
        if (const uint32_t err = findChild(h, at, part, child); err != kRegOk) return err;
        if (child < 0) {
            if (!create) return kRegNotFound;
            Statement st = h.prepare("INSERT INTO keys(parent, name, fold) VALUES(?1, ?2, ?3)", at,
                                     toUtf8(part), foldKey(part));
            if (const uint32_t err = st.run(); err != kRegOk) return err;
            child = sqlite3_last_insert_rowid(h.db());
        }
        at = child;
    }
    id = at;
    return kRegOk;
}

// kRegOk when the key still exists, kRegKeyDeleted when it was deleted.
uint32_t checkAlive(Hive& h, int64_t id) {
    if (id == 0) return kRegOk;
    Statement st = h.prepare("SELECT 1 FROM keys WHERE id=?1", id);
    bool row = false;
    if (const uint32_t err = st.step(row); err != kRegOk) return err;
    return row ? kRegOk : kRegKeyDeleted;
}

// A call that found nothing: kRegNotFound, or why the key itself is gone.
uint32_t notFoundIn(Hive& h, int64_t id) {
    const uint32_t alive = checkAlive(h, id);
    return alive == kRegOk ? kRegNotFound : alive;
}

// The id of the key at `path` (0: the root), created with any missing parent when `create`.
// `id` is set only on success.
uint32_t locateKey(std::u16string_view path, bool create, int64_t& id) {
    std::vector<std::u16string_view> parts;
    if (const uint32_t err = splitPath(path, parts); err != kRegOk) return err;
    if (parts.empty()) {
        id = 0;  // the root exists without a hive file
        return kRegOk;
    }
    int64_t found = 0;
    const auto body = [&](Hive& h) { return resolve(h, parts, create, found); };
    const uint32_t err = create ? writeHive(NoHive::Create, body) : withHive(NoHive::Fail, body);
    if (err == kRegOk) id = found;
    return err;
}

uint32_t deleteKeyImpl(std::u16string_view path, bool recursive) {
    std::vector<std::u16string_view> parts;
    if (const uint32_t err = splitPath(path, parts); err != kRegOk) return err;
    if (parts.empty()) return kRegAccessDenied;  // the root is never deleted
    return writeHive(NoHive::Fail, [&](Hive& h) {
        int64_t id = 0;
        if (const uint32_t err = resolve(h, parts, false, id); err != kRegOk) return err;
        if (!recursive) {
            Statement st = h.prepare("SELECT 1 FROM keys WHERE parent=?1 LIMIT 1", id);
            bool row = false;
            if (const uint32_t err = st.step(row); err != kRegOk) return err;
            if (row) return kRegAccessDenied;
        }
        static constexpr const char* kDeleteValues =
            "WITH RECURSIVE sub(id) AS (SELECT ?1 UNION ALL"
            " SELECT keys.id FROM keys JOIN sub ON keys.parent=sub.id)"
            " DELETE FROM vals WHERE key IN sub";
        static constexpr const char* kDeleteKeys =
            "WITH RECURSIVE sub(id) AS (SELECT ?1 UNION ALL"
            " SELECT keys.id FROM keys JOIN sub ON keys.parent=sub.id)"
            " DELETE FROM keys WHERE id IN sub";
        for (const char* sql : {kDeleteValues, kDeleteKeys})
            if (const uint32_t err = h.prepare(sql, id).run(); err != kRegOk) return err;
        return kRegOk;
    });
}

}  // namespace

void RegKey::close() noexcept {
    m_open = false;
    m_id = -1;
    m_access = 0;
}

uint32_t RegKey::open(RegRoot, std::u16string_view path, uint32_t access) {
    close();
    const uint32_t err = locateKey(path, false, m_id);
    m_open = err == kRegOk;
    if (m_open) m_access = access;
    return err;
}

uint32_t RegKey::create(RegRoot, std::u16string_view path, uint32_t access) {
    close();
    const uint32_t err = locateKey(path, true, m_id);
    m_open = err == kRegOk;
    if (m_open) m_access = access;
    return err;
}

uint32_t RegKey::queryValue(std::u16string_view name, uint32_t& type,
                            std::vector<uint8_t>& data) const {
    if (const uint32_t err = checkHandle(m_open, m_access, kKeyQueryValue); err != kRegOk)
        return err;
    return withHive(NoHive::Fail, [&](Hive& h) {
        {
            Statement st = h.prepare("SELECT type, data FROM vals WHERE key=?1 AND fold=?2", m_id,
                                     foldKey(name));
            bool row = false;
            if (const uint32_t err = st.step(row); err != kRegOk) return err;
            if (row) {
                type = static_cast<uint32_t>(st.int64(0));
                data = st.blob(1);
                return kRegOk;
            }
        }
        return notFoundIn(h, m_id);
    });
}

uint32_t RegKey::setValue(std::u16string_view name, uint32_t type, const void* data,
                          size_t size) const {
    if (const uint32_t err = checkHandle(m_open, m_access, kKeySetValue); err != kRegOk) return err;
    if (m_id == 0) return kRegAccessDenied;  // the root holds keys only, as HKEY_LOCAL_MACHINE
    return writeHive(NoHive::Create, [&](Hive& h) {
        if (const uint32_t err = checkAlive(h, m_id); err != kRegOk) return err;
        // An existing value keeps its name's case and its place in the enumeration order.
        Statement st = h.prepare(
            "INSERT INTO vals(key, name, fold, type, data) VALUES(?1, ?2, ?3, ?4, ?5)"
            " ON CONFLICT(key, fold) DO UPDATE SET type=excluded.type, data=excluded.data",
            m_id, toUtf8(name), foldKey(name), int64_t{type}, Blob{data, size});
        return st.run();
    });
}

uint32_t RegKey::deleteValue(std::u16string_view name) const {
    if (const uint32_t err = checkHandle(m_open, m_access, kKeySetValue); err != kRegOk) return err;
    return withHive(NoHive::Fail, [&](Hive& h) {
        const uint32_t err =
            h.prepare("DELETE FROM vals WHERE key=?1 AND fold=?2", m_id, foldKey(name)).run();
        if (err != kRegOk) return err;
        return sqlite3_changes(h.db()) > 0 ? kRegOk : notFoundIn(h, m_id);
    });
}

uint32_t RegKey::enumSubKeys(std::vector<std::u16string>& names) const {
    names.clear();
    if (const uint32_t err = checkHandle(m_open, m_access, kKeyEnumerateSubKeys); err != kRegOk)
        return err;
    // No hive yet: the root has no subkeys.
    return withHive(NoHive::IsEmpty, [&](Hive& h) {
        {
            Statement st = h.prepare("SELECT name FROM keys WHERE parent=?1 ORDER BY fold", m_id);
            const uint32_t err = st.forEachRow([&] { names.push_back(st.text(0)); });
            if (err != kRegOk) return err;
        }
        return names.empty() ? checkAlive(h, m_id) : kRegOk;
    });
}

uint32_t RegKey::enumValues(std::vector<RegValue>& values) const {
    values.clear();
    if (const uint32_t err = checkHandle(m_open, m_access, kKeyQueryValue); err != kRegOk)
        return err;
    return withHive(NoHive::IsEmpty, [&](Hive& h) {
        {
            Statement st =
                h.prepare("SELECT name, type, data FROM vals WHERE key=?1 ORDER BY rowid", m_id);
            const uint32_t err = st.forEachRow([&] {
                values.push_back({st.text(0), static_cast<uint32_t>(st.int64(1)), st.blob(2)});
            });
            if (err != kRegOk) return err;
        }
        return values.empty() ? checkAlive(h, m_id) : kRegOk;
    });
}

uint32_t regDeleteKey(RegRoot, std::u16string_view path) {
    return deleteKeyImpl(path, false);
}

uint32_t regDeleteTree(RegRoot, std::u16string_view path) {
    return deleteKeyImpl(path, true);
}

uint32_t regRunAtomically(const std::function<uint32_t()>& body) {
    return writeHive(NoHive::Create, [&body](Hive&) { return body(); });
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
