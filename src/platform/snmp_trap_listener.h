#pragma once
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace vt {

// One variable binding, as the SNMP library prints it.
struct SnmpVarBind {
    std::string name;   // "SNMPv2-MIB::sysUpTime.0", or the full dotted path of names
    std::string value;  // "Timeticks: (1234) 0:00:12.34"
};

enum class SnmpPduKind { TrapV1, TrapV2, Inform };

// A received trap or inform, decoded and printed, with nothing of the library left in it.
struct SnmpTrap {
    SnmpPduKind kind = SnmpPduKind::TrapV2;
    long version = 0;          // the packet's version field: 0 v1, 1 v2c, 3 v3
    std::string source;        // v1: the agent address field; else the sender's address
    std::string community;     // empty for v3
    std::string securityName;  // v3 only: the USM user
    std::string enterprise;    // v1 only
    long genericType = 0;      // v1 only
    long specificType = 0;     // v1 only
    unsigned long uptime = 0;  // timeticks: v1 the time field, else sysUpTime.0 when bound
    std::vector<SnmpVarBind> bindings;
};

// A version 3 user the receiver accepts: authentication "SHA" or "MD5", privacy "AES",
// "DES" or empty for authNoPriv.
struct SnmpUsmUser {
    std::string name;
    std::string engineId;  // hex, "0x8000..."; the sending engine's id for traps
    std::string authProtocol;
    std::string authPassphrase;
    std::string privProtocol;
    std::string privPassphrase;
};

struct SnmpListenerOptions {
    std::vector<std::string> transports;  // "udp:162", "udp6:162" ...
    bool longNames = false;               // names through the own MIB tree walk
    long acceptVersion = -1;              // -1 all, else 1 or 2 (v3 always when users exist)
    std::string mibDirs;                  // MIBDIRS for the library; empty: its default
    std::vector<SnmpUsmUser> users;
};

// What the listener reports: failures, notices worth a line in the shortest log (refused and
// dropped packets, rate-limited), and details (the library's own lines).
enum class SnmpLogLevel { Error, Notice, Detail };
using SnmpLogSink = std::function<void(SnmpLogLevel level, const std::string& text)>;
using SnmpTrapHandler = std::function<void(const SnmpTrap&)>;

// False in a build without an SNMP library.
bool snmpAvailable() noexcept;

// Decodes one version 1 or 2c datagram through the library's parser as the listener would;
// false when it is not a well-formed trap or inform. For the fuzzer.
bool decodeSnmpDatagram(std::string_view datagram, bool longNames, SnmpTrap& trap);

// Receives traps and informs on its transports and hands each decoded one to the handler,
// informs after their response went out. The library keeps process-wide state (MIB tree,
// users), so it is initialised with the first listener and shut down with the last one;
// one listener is used from one thread only.
class CSnmpTrapListener {
  public:
    CSnmpTrapListener(SnmpListenerOptions options, SnmpTrapHandler handler, SnmpLogSink log);
    ~CSnmpTrapListener();
    CSnmpTrapListener(const CSnmpTrapListener&) = delete;
    CSnmpTrapListener& operator=(const CSnmpTrapListener&) = delete;

    // Opens every transport; false (after logging why) when none could be opened.
    bool open();
    // Waits up to `timeout` for datagrams and handles all that arrived; false on a failed wait.
    bool poll(std::chrono::milliseconds timeout);
    void close();

    // The full dotted name path of an object id, for tests; the library's own printing when
    // the path does not fit `bufferSize`.
    std::string longName(const std::vector<uint32_t>& oid, size_t bufferSize = 1024) const;

  private:
    struct Impl;
    friend bool decodeSnmpDatagram(std::string_view, bool, SnmpTrap&);
    std::unique_ptr<Impl> m_impl;
};

}  // namespace vt
