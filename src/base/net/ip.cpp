#include "base/net/ip.h"

#include <memory>

#include "base/debug_log.h"
#include "base/error_report.h"

uint16_t CIP::servicePort(const char* service, const char* protocol, uint16_t fallback) {
    vt::net::socketStartup();
    // getservbyname returns a static buffer; the port is copied out at once.
    const servent* entry = ::getservbyname(service, protocol);
    return entry ? ntohs(static_cast<uint16_t>(entry->s_port)) : fallback;
}

void CIP::bindSocket(std::string_view address, uint16_t port, int type) {
    static const char* const kBindFailed =
        "Can't bind to socket - please make sure no other service is listening on the same "
        "port/protocol.";
    CIPAddress local;
    if (!CIPAddress::fromText(address, port, local)) {
        vt::debugPrintf(vt::DBG_ERROR, "CIP|bindSocket: invalid address '%.*s'\r\n",
                        static_cast<int>(address.size()), address.data());
        throw new CWinSockError(vt::net::SOCKERR_ADDRNOTAVAIL, CQuilletString(kBindFailed),
                                vt::net::SOCKERR_ADDRNOTAVAIL);
    }
    m_socket = CWinSock::create(local.family(), type);
    if (local.isIPv6()) m_socket.setIPv6Only(!local.isAnyIPv6());
    // On Windows SO_REUSEADDR would let a second listener take over a port in use.
    if (type == SOCK_STREAM && vt::net::kReuseAddressIsSafe) m_socket.setReUseSocket();
    try {
        m_socket.bind(local);
    } catch (CErrorReport* report) {
        std::unique_ptr<CErrorReport> owned(report);
        const uint32_t error = m_socket.lastError();
        vt::debugPrintf(vt::DBG_ERROR, "CIP|bindSocket: bind to '%s' port %u failed, error %u\r\n",
                        local.toText().c_str(), static_cast<unsigned>(port),
                        static_cast<unsigned>(error));
        m_socket.close();
        throw new CWinSockError(error, CQuilletString(kBindFailed), error);
    }
    m_localAddress = m_socket.localAddress();
}
