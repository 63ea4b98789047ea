#include "platform/snmp_trap_listener.h"

#include "platform/socket_api.h"
#include "platform/utf_codec.h"

// The library's headers must come in this order.
// clang-format off
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <net-snmp/library/snmpusm.h>
// clang-format on

#include <arpa/inet.h>
#include <sys/select.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>

namespace vt {
namespace {

constexpr oid kSysUpTime[] = {1, 3, 6, 1, 2, 1, 1, 3, 0};
constexpr size_t kPrintBuffer = 4096;
constexpr int kReceiveBuffer = 16 * 1024 * 1024;

// The library's global state is shared by every listener of the process.
std::mutex& libraryLock() {
    static std::mutex lock;
    return lock;
}
int g_libraryUsers = 0;  // guarded by libraryLock()
// The newest listener's sink, for the library's own lines; read on every listener's thread.
std::atomic<SnmpLogSink*> g_librarySink{nullptr};

int forwardLibraryLog(int, int, void* serverArg, void*) {
    const auto* message = static_cast<const snmp_log_message*>(serverArg);
    SnmpLogSink* sink = g_librarySink.load();
    if (sink && *sink && message && message->msg) {
        std::string text = message->msg;
        while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
        (*sink)(message->priority <= LOG_ERR ? SnmpLogLevel::Error : SnmpLogLevel::Detail,
                "SNMP library: " + text + "\r\n");
    }
    return 1;
}

void setupLibrary(const SnmpListenerOptions& options) {
    if (!options.mibDirs.empty()) setenv("MIBDIRS", options.mibDirs.c_str(), 1);
    setenv("MIBS", "ALL", 1);
    // The agent keeps no state files and must not take up a system trap daemon's settings.
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_PERSIST_STATE, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_LOAD, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_SAVE, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
    netsnmp_ds_set_int(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_MIB_WARNINGS, 0);
    snmp_disable_log();
    snmp_enable_calllog();
    snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_LOGGING, forwardLibraryLog,
                           nullptr);
    init_snmp("snmptrapd");
}

std::string printAddress(const void* data, int length) {
    if (!data || length < static_cast<int>(sizeof(sockaddr))) return {};
    const auto* pair = static_cast<const netsnmp_indexed_addr_pair*>(data);
    char text[INET6_ADDRSTRLEN] = {};
    if (pair->remote_addr.sa.sa_family == AF_INET)
        inet_ntop(AF_INET, &pair->remote_addr.sin.sin_addr, text, sizeof text);
    else if (pair->remote_addr.sa.sa_family == AF_INET6)
        inet_ntop(AF_INET6, &pair->remote_addr.sin6.sin6_addr, text, sizeof text);
    return text;
}

std::string printText(const u_char* bytes, size_t length) {
    return std::string(reinterpret_cast<const char*>(bytes), length);
}

// The library prints any string with a byte above 127 as hex; text in other languages than
// English is readable UTF-8 far more often than binary, so that is printed as text.
bool isReadableUtf8(const std::string& text) {
    bool wide = false;
    for (unsigned char c : text) {
        if (c < 0x20 || c == 0x7F) return false;
        wide |= c >= 0x80;
    }
    return wide && utf16ToUtf8(utf8ToUtf16(text)) == text;
}

std::string printValue(const netsnmp_variable_list* var, std::vector<char>& buffer) {
    if (var->type == ASN_OCTET_STR && var->val.string) {
        std::string text = printText(var->val.string, var->val_len);
        if (isReadableUtf8(text)) return "STRING: \"" + text + "\"";
    }
    buffer[0] = '\0';
    snprint_value(buffer.data(), buffer.size(), var->name, var->name_length, var);
    return buffer.data();
}

// Rate limit for the complaints about packets the library refused: one line per sender and
// minute, however many such packets a misconfigured device sends.
class CRefusalLimiter {
  public:
    bool shouldLog(const std::string& sender) {
        const auto now = std::chrono::steady_clock::now();
        auto [it, fresh] = m_last.try_emplace(sender, now);
        if (fresh) return true;
        if (now - it->second < std::chrono::minutes(1)) return false;
        it->second = now;
        return true;
    }

  private:
    std::map<std::string, std::chrono::steady_clock::time_point> m_last;
};

struct RefusalCounters {
    u_int usm = 0;
    u_int parse = 0;
    u_int version = 0;
    static RefusalCounters now() {
        return {snmp_get_statistic(STAT_USMSTATSUNKNOWNUSERNAMES) +
                    snmp_get_statistic(STAT_USMSTATSWRONGDIGESTS) +
                    snmp_get_statistic(STAT_USMSTATSDECRYPTIONERRORS) +
                    snmp_get_statistic(STAT_USMSTATSUNKNOWNENGINEIDS) +
                    snmp_get_statistic(STAT_USMSTATSUNSUPPORTEDSECLEVELS),
                snmp_get_statistic(STAT_SNMPINASNPARSEERRS),
                snmp_get_statistic(STAT_SNMPINBADVERSIONS)};
    }
};

}  // namespace

struct CSnmpTrapListener::Impl {
    SnmpListenerOptions options;
    SnmpTrapHandler handler;
    SnmpLogSink log;
    std::vector<void*> sessions;
    bool libraryHeld = false;
    std::string lastSender;  // set before the library parses a datagram
    CRefusalLimiter limiter;

    void say(SnmpLogLevel level, const std::string& text) const {
        if (log) log(level, text);
    }
    void acquireLibrary();
    void releaseLibrary();
    bool openTransport(const std::string& spec);
    void handlePdu(void* session, netsnmp_pdu* pdu);
    bool answerInform(void* session, netsnmp_pdu* pdu);
    SnmpTrap decode(const netsnmp_pdu* pdu) const;
    std::string printName(const oid* name, size_t length) const;
    std::string resolveTree(const oid* name, size_t length, size_t bufferSize) const;
    void reportRefusals(const RefusalCounters& before);

    static int onPdu(int op, netsnmp_session*, int, netsnmp_pdu* pdu, void* magic);
    static int preParse(netsnmp_session* session, netsnmp_transport*, void* data, int length);
};

void CSnmpTrapListener::Impl::acquireLibrary() {
    std::lock_guard lock(libraryLock());
    if (g_libraryUsers++ == 0) setupLibrary(options);
    g_librarySink = &log;
    libraryHeld = true;
}

void CSnmpTrapListener::Impl::releaseLibrary() {
    if (!libraryHeld) return;
    libraryHeld = false;
    std::lock_guard lock(libraryLock());
    SnmpLogSink* mine = &log;
    g_librarySink.compare_exchange_strong(mine, nullptr);
    if (--g_libraryUsers == 0) snmp_shutdown("vtagent");
}

bool CSnmpTrapListener::Impl::openTransport(const std::string& spec) {
    errno = 0;
    netsnmp_transport* transport = netsnmp_transport_open_server("snmptrap", spec.c_str());
    if (!transport) {
        const int error = errno;
        char text[512];
        if (error == EADDRINUSE)
            std::snprintf(text, sizeof text,
                          "CInfoSourceSNMPTRap| couldn't open transport %s -- errno 10048\r\n",
                          spec.c_str());
        else
            std::snprintf(text, sizeof text,
                          "CInfoSourceSNMPTRap| couldn't open transport %s -- waserror %d - "
                          "errno %d (\"%s\")\r\n",
                          spec.c_str(), 1, error, std::strerror(error));
        say(SnmpLogLevel::Error, text);
        return false;
    }
    // Bursts of traps (a switch reporting every port) wait in the kernel while units are built.
    net::setSocketReceiveBuffer(transport->sock, kReceiveBuffer);
    netsnmp_session session;
    snmp_sess_init(&session);
    session.peername = SNMP_DEFAULT_PEERNAME;
    session.version = SNMP_DEFAULT_VERSION;
    session.community_len = SNMP_DEFAULT_COMMUNITY_LEN;
    session.retries = SNMP_DEFAULT_RETRIES;
    session.timeout = SNMP_DEFAULT_TIMEOUT;
    session.callback = &Impl::onPdu;
    session.callback_magic = this;
    session.isAuthoritative = SNMP_SESS_UNKNOWNAUTH;
    void* handle = snmp_sess_add(&session, transport, &Impl::preParse, nullptr);
    if (!handle) {
        say(SnmpLogLevel::Error, "CInfoSourceSNMPTRap| couldn't open transport " + spec +
                                     " -- waserror 1 - errno 0 (\"session\")\r\n");
        return false;
    }
    sessions.push_back(handle);
    return true;
}

int CSnmpTrapListener::Impl::preParse(netsnmp_session* session, netsnmp_transport*, void* data,
                                      int length) {
    auto* self = static_cast<Impl*>(session->callback_magic);
    if (self) self->lastSender = printAddress(data, length);
    return 1;
}

int CSnmpTrapListener::Impl::onPdu(int op, netsnmp_session* session, int, netsnmp_pdu* pdu,
                                   void* magic) {
    auto* self = static_cast<Impl*>(magic);
    if (op == NETSNMP_CALLBACK_OP_TIMED_OUT) {
        self->say(SnmpLogLevel::Error, "CInfoSourceSNMPTrap: Timeout: This shouldn't happen!\n");
    } else if (op == NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE) {
        void* handle = nullptr;
        for (void* candidate : self->sessions)
            if (snmp_sess_session(candidate) == session) handle = candidate;
        self->handlePdu(handle, pdu);
    }
    return 1;
}

void CSnmpTrapListener::Impl::handlePdu(void* session, netsnmp_pdu* pdu) {
    if (pdu->command != SNMP_MSG_TRAP && pdu->command != SNMP_MSG_TRAP2 &&
        pdu->command != SNMP_MSG_INFORM) {
        char text[128];
        std::snprintf(text, sizeof text, "CInfoSourceSNMPTrap: unkown SNMP operand %d\r\n",
                      pdu->command);
        say(SnmpLogLevel::Error, text);
        return;
    }
    const bool v1 = pdu->version == SNMP_VERSION_1;
    const bool v2c = pdu->version == SNMP_VERSION_2c;
    if ((options.acceptVersion == 1 && !v1) || (options.acceptVersion == 2 && !v2c)) {
        if (pdu->version != SNMP_VERSION_3 || options.users.empty()) {
            if (limiter.shouldLog("version " + lastSender))
                say(SnmpLogLevel::Notice, "CInfoSourceSNMPTrap| packet of version field " +
                                              std::to_string(pdu->version) + " from " + lastSender +
                                              " dropped: nSnmpVersion is " +
                                              std::to_string(options.acceptVersion) + "\r\n");
            return;
        }
    }
    // The sender waits for the response and repeats the inform until it comes, so it goes
    // out before the possibly slow rule processing.
    if (pdu->command == SNMP_MSG_INFORM && !answerInform(session, pdu)) return;
    if (handler) handler(decode(pdu));
}

bool CSnmpTrapListener::Impl::answerInform(void* session, netsnmp_pdu* pdu) {
    netsnmp_pdu* reply = snmp_clone_pdu(pdu);
    if (!reply) {
        say(SnmpLogLevel::Error, "CInfoSourceSNMPTrap: couldn't clone PDU for INFORM response\n");
        return true;
    }
    reply->command = SNMP_MSG_RESPONSE;
    reply->errstat = 0;
    reply->errindex = 0;
    if (!session || !snmp_sess_send(session, reply)) {
        say(SnmpLogLevel::Error, "snmptrapd: Couldn't respond to inform pdu\r\n");
        snmp_free_pdu(reply);
    }
    return true;
}

std::string CSnmpTrapListener::Impl::printName(const oid* name, size_t length) const {
    if (options.longNames) return resolveTree(name, length, 1024);
    std::vector<char> buffer(kPrintBuffer);
    snprint_objid(buffer.data(), buffer.size(), name, length);
    return buffer.data();
}

// Walks the MIB tree down the object id and names every level it knows; the levels below
// the deepest known node are appended as numbers.
std::string CSnmpTrapListener::Impl::resolveTree(const oid* name, size_t length,
                                                 size_t bufferSize) const {
    std::string path;
    struct tree* level = get_tree_head();
    size_t i = 0;
    for (; i < length && level; ++i) {
        struct tree* node = level;
        while (node && node->subid != name[i]) node = node->next_peer;
        if (!node) break;
        if (!path.empty()) path += '.';
        path += node->label;
        level = node->child_list;
    }
    for (; i < length; ++i) {
        if (!path.empty()) path += '.';
        path += std::to_string(name[i]);
    }
    if (path.size() + 1 > bufferSize) {
        say(SnmpLogLevel::Error,
            "CInfoSourceSNMPTrap|snmp_ResolveTree: Error, buffer to resolv OID to "
            "small!\r\n");
        std::vector<char> buffer(kPrintBuffer);
        snprint_objid(buffer.data(), buffer.size(), name, length);
        return buffer.data();
    }
    return path;
}

SnmpTrap CSnmpTrapListener::Impl::decode(const netsnmp_pdu* pdu) const {
    SnmpTrap trap;
    trap.kind = pdu->command == SNMP_MSG_TRAP     ? SnmpPduKind::TrapV1
                : pdu->command == SNMP_MSG_INFORM ? SnmpPduKind::Inform
                                                  : SnmpPduKind::TrapV2;
    trap.version = pdu->version;
    trap.source = lastSender;
    if (pdu->version == SNMP_VERSION_3)
        trap.securityName =
            std::string(pdu->securityName ? pdu->securityName : "", pdu->securityNameLen);
    else if (pdu->community)
        trap.community = printText(pdu->community, pdu->community_len);
    if (pdu->command == SNMP_MSG_TRAP) {
        char address[32];
        std::snprintf(address, sizeof address, "%d.%d.%d.%d", pdu->agent_addr[0],
                      pdu->agent_addr[1], pdu->agent_addr[2], pdu->agent_addr[3]);
        trap.source = address;
        trap.enterprise = printName(pdu->enterprise, pdu->enterprise_length);
        trap.genericType = pdu->trap_type;
        trap.specificType = pdu->specific_type;
        trap.uptime = pdu->time;
    }
    std::vector<char> buffer(kPrintBuffer);
    for (const netsnmp_variable_list* var = pdu->variables; var; var = var->next_variable) {
        if (pdu->command != SNMP_MSG_TRAP && var->type == ASN_TIMETICKS && var->val.integer &&
            snmp_oid_compare(var->name, var->name_length, kSysUpTime,
                             sizeof kSysUpTime / sizeof(oid)) == 0)
            trap.uptime = static_cast<unsigned long>(*var->val.integer);
        trap.bindings.push_back({printName(var->name, var->name_length), printValue(var, buffer)});
    }
    return trap;
}

void CSnmpTrapListener::Impl::reportRefusals(const RefusalCounters& before) {
    const RefusalCounters after = RefusalCounters::now();
    const char* why = after.usm != before.usm           ? "unknown user, engine or wrong key"
                      : after.parse != before.parse     ? "malformed packet"
                      : after.version != before.version ? "unsupported version"
                                                        : nullptr;
    if (why && limiter.shouldLog(lastSender))
        say(SnmpLogLevel::Notice,
            "CInfoSourceSNMPTrap| packet from " + lastSender + " refused: " + why +
                " (further ones from this sender are not logged for a minute)\r\n");
}

CSnmpTrapListener::CSnmpTrapListener(SnmpListenerOptions options, SnmpTrapHandler handler,
                                     SnmpLogSink log)
    : m_impl(std::make_unique<Impl>()) {
    m_impl->options = std::move(options);
    m_impl->handler = std::move(handler);
    m_impl->log = std::move(log);
}

CSnmpTrapListener::~CSnmpTrapListener() {
    close();
}

bool snmpAvailable() noexcept {
    return true;
}

namespace {

// "createUser -e ENGINE NAME SHA pass AES pass", the library's own user syntax.
std::string createUserLine(const SnmpUsmUser& user) {
    std::string line;
    if (!user.engineId.empty()) line += "-e " + user.engineId + " ";
    line += user.name;
    if (!user.authProtocol.empty())
        line += " " + user.authProtocol + " \"" + user.authPassphrase + "\"";
    if (!user.privProtocol.empty())
        line += " " + user.privProtocol + " \"" + user.privPassphrase + "\"";
    return line;
}

}  // namespace

bool CSnmpTrapListener::open() {
    m_impl->acquireLibrary();
    for (const SnmpUsmUser& user : m_impl->options.users) {
        std::string line = createUserLine(user);
        usm_parse_create_usmUser("createUser", line.data());
    }
    for (const std::string& spec : m_impl->options.transports) m_impl->openTransport(spec);
    if (m_impl->sessions.empty()) {
        m_impl->releaseLibrary();
        return false;
    }
    return true;
}

bool CSnmpTrapListener::poll(std::chrono::milliseconds timeout) {
    fd_set readable;
    FD_ZERO(&readable);
    int fds = 0;
    int block = 0;
    timeval wait{static_cast<time_t>(timeout.count() / 1000),
                 static_cast<suseconds_t>(timeout.count() % 1000 * 1000)};
    for (void* session : m_impl->sessions)
        snmp_sess_select_info(session, &fds, &readable, &wait, &block);
    const int ready = select(fds, &readable, nullptr, nullptr, &wait);
    if (ready < 0) {
        if (errno == EINTR) return true;
        m_impl->say(SnmpLogLevel::Error, "Select error\r\n");
        m_impl->say(SnmpLogLevel::Error, "select returned " + std::to_string(ready) + "\n");
        return false;
    }
    for (void* session : m_impl->sessions) {
        if (ready == 0) {
            snmp_sess_timeout(session);
            continue;
        }
        const RefusalCounters before = RefusalCounters::now();
        m_impl->lastSender.clear();
        snmp_sess_read(session, &readable);
        m_impl->reportRefusals(before);
    }
    return true;
}

void CSnmpTrapListener::close() {
    for (void* session : m_impl->sessions) snmp_sess_close(session);
    m_impl->sessions.clear();
    m_impl->releaseLibrary();
}

bool decodeSnmpDatagram(std::string_view datagram, bool longNames, SnmpTrap& trap) {
    // The library stays initialised for the rest of the process: reading the MIB files again
    // for every datagram would dwarf the decoding.
    static CSnmpTrapListener::Impl impl;
    static std::once_flag initialised;
    std::call_once(initialised, [] { impl.acquireLibrary(); });
    impl.options.longNames = longNames;
    netsnmp_session session;
    snmp_sess_init(&session);
    netsnmp_pdu* pdu = snmp_pdu_create(0);
    std::string copy(datagram);
    const int parsed =
        snmp_parse(nullptr, &session, pdu, reinterpret_cast<u_char*>(copy.data()), copy.size());
    const bool trapLike = parsed == SNMPERR_SUCCESS &&
                          (pdu->command == SNMP_MSG_TRAP || pdu->command == SNMP_MSG_TRAP2 ||
                           pdu->command == SNMP_MSG_INFORM);
    if (trapLike) trap = impl.decode(pdu);
    snmp_free_pdu(pdu);
    return trapLike;
}

std::string CSnmpTrapListener::longName(const std::vector<uint32_t>& name,
                                        size_t bufferSize) const {
    std::vector<oid> ids(name.begin(), name.end());
    return m_impl->resolveTree(ids.data(), ids.size(), bufferSize);
}

}  // namespace vt
