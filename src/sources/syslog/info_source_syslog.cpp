#include "sources/syslog/info_source_syslog.h"

#include <memory>

#include "base/debug_log.h"
#include "base/error_report.h"
#include "base/error_reporter.h"
#include "base/net/dns_cache_list.h"
#include "base/net/rfc5424_parser.h"
#include "base/reg_access.h"
#include "model/info_unit_types.h"
#include "platform/utf_codec.h"
#include "sources/syslog/syslog_splitter.h"

namespace {
void setIfPresent(CInfoUnit& unit, std::u16string_view name, std::u16string_view value) {
    if (!value.empty()) unit.setPropertyString(name, value);
}

constexpr char kBindFailed[] =
    "Can't bind to socket - please make sure no other service is listening on the same "
    "port/protocol.";
constexpr uint32_t kSourceErrorEvent = 114;

// Runs `bind`, which throws a CErrorReport* when the address or port cannot be had; false
// once that is logged and reported.
template <class Bind>
bool bindOrReport(Bind&& bind) {
    try {
        bind();
        return true;
    } catch (CErrorReport* raw) {
        std::unique_ptr<CErrorReport> report(raw);
        vt::debugPrintf(vt::DBG_ERROR, "CInfoSourceSyslog::Run: %s (%s)\r\n", kBindFailed,
                        report->getMessage().getStringA());
        vt::reportError(kSourceErrorEvent, "CInfoSourceSyslog", kBindFailed,
                        report->getMessage().getStringA());
        return false;
    }
}
}  // namespace

CInfoSourceSyslog::CInfoSourceSyslog(const vt::InfoSourceContext& context) : CInfoSource(context) {}

CInfoSourceSyslog::~CInfoSourceSyslog() = default;

bool CInfoSourceSyslog::LoadConfig() {
    CRegAccess reg;
    const int32_t version = OpenConfig(reg, vt::kKeyRead);
    if (version != m_nLoadedConfigVersion) {
        vt::debugWrite(vt::DBG_INFO, "CInfoSourceSyslog: Loading config!\r\n");
        uint32_t port = 0;
        reg.ReadDWORDValue(u"nListenPort", port, 0);
        m_nListenPort = vt::syslogListenPort(port, m_nListenPort);
        reg.ReadDWORDValue(u"bServiceEnabled", m_bServiceEnabled, 1);
        reg.ReadDWORDValue(u"nProtocolType", m_nProtocolType, kProtocolUdp);
        reg.ReadDWORDValue(u"nParseSyslogDate", m_nParseSyslogDate, 0);
        reg.ReadDWORDValue(u"nTakeSourceSysFromSyslogMsg", m_nTakeSourceSysFromSyslogMsg, 0);
        reg.ReadDWORDValue(u"nResolveNames", m_nResolveNames, 0);
        reg.ReadDWORDValue(u"nRFC3164Parsing", m_nRFC3164Parsing, 1);
        reg.ReadDWORDValue(u"nParseRFC5424", m_nParseRFC5424, 0);
        reg.ReadDWORDValue(u"nTCPOctetCounting", m_nTCPOctetCounting, 0);
        readTlsSettings(reg);
        reg.ReadDWORDValue(u"nEscapeControlCharacters", m_nEscapeControlCharacters, 0);
        reg.ReadDWORDValue(u"nEnableTCPMsgSep", m_nEnableTCPMsgSep, 0);
        reg.ReadDWORDValue(u"nTimeOutMsg", m_nTimeOutMsg, 15000);
        reg.ReadDWORDValue(u"nTimeOutSession", m_nTimeOutSession, 900000);
        reg.ReadStringValue(u"szTCPMsgSep", m_szTCPMsgSep, CQuilletString());
        reg.ReadStringValue(u"szMyIPAddress", m_szMyIPAddress, CQuilletString(u"0.0.0.0"));
        // The values every source has (default facility and priority, resource, tag).
        readCommonValues(reg);
        m_nLoadedConfigVersion = version;
    }
    reg.CloseKey();
    return isEnabled();
}

void CInfoSourceSyslog::OnBeforeRun() {
    m_boundPort.store(0, std::memory_order_release);
}

void CInfoSourceSyslog::wake() {
    CInfoSource::wake();
    // Both servers end a blocked wait at once, also one that starts after this call.
    m_udp.stop();
    CTCPServer::stop();
}

void CInfoSourceSyslog::Run() {
    // A stop left over from an earlier run would end this one at once; a shutdown that comes
    // after these lines clears the run flag before it stops the servers, so it is not lost.
    m_udp.clearStop();
    CTCPServer::clearStop();
    if (!keepRunning()) return;

    switch (m_nProtocolType) {
        case kProtocolUdp:
            runUdp();
            break;
        case kProtocolTcp:
            runTcp();
            break;
        case kProtocolRfc3195:
            vt::debugWrite(vt::DBG_ERROR,
                           "CInfoSourceSyslog::Error, can't initialize RFC3195 lib.\r\n");
            vt::reportError(kSourceErrorEvent, "CInfoSourceSyslog",
                            "CInfoSourceSyslog::Error, can't initialize RFC3195 lib.",
                            "RFC 3195 reception is not part of this build.");
            break;
        default:
            vt::debugPrintf(vt::DBG_ERROR,
                            "CInfoSourceSyslog::Run: unknown protocol type %u - source not "
                            "started\r\n",
                            m_nProtocolType);
            vt::reportError(kSourceErrorEvent, "CInfoSourceSyslog",
                            "CInfoSourceSyslog: unknown protocol type (nProtocolType) - the "
                            "source does not run.");
            break;
    }
}

void CInfoSourceSyslog::runUdp() {
    if (m_nUseTLS == 1)
        vt::debugWrite(vt::DBG_ERROR,
                       "CInfoSourceSyslog::Run: nUseTLS is set on a UDP source - ignored, TLS "
                       "needs nProtocolType 1\r\n");
    m_udp.setRFC3164Parsing(m_nRFC3164Parsing == 1);
    m_udp.setEscapeControlCharacters(m_nEscapeControlCharacters == 1);
    if (!bindOrReport([this] { m_udp.open(m_szMyIPAddress.getStringA(), m_nListenPort); })) return;
    m_boundPort.store(m_udp.localPort(), std::memory_order_release);
    vt::debugPrintf(vt::DBG_MINIMUM, "CInfoSourceSyslog: listening on UDP %s port %u\r\n",
                    m_szMyIPAddress.getStringA(), unsigned(m_udp.localPort()));

    std::string message;
    CIPAddress sender;
    while (keepRunning()) {
        const CUDPServer::Result result = m_udp.receiveMessage(message, sender, -1);
        if (result == CUDPServer::Result::Stopped) break;
        if (result != CUDPServer::Result::Message) continue;
        vt::debugWrite(vt::DBG_ULTRA, "InfoSourceSyslog: UDP syslog message received.\r\n");
        try {
            deliverMessage(message, senderText(sender, std::string()));
        } catch (CErrorReport* raw) {
            std::unique_ptr<CErrorReport> report(raw);
            vt::debugPrintf(vt::DBG_ERROR, "CInfoSourceSyslog| UDP message not delivered: %s\r\n",
                            report->getMessage().getStringA());
        }
    }
    m_udp.close();
}

void CInfoSourceSyslog::runTcp() {
    TcpServerSettings settings;
    settings.silence.msgTimeoutMs = m_nTimeOutMsg;
    settings.silence.sessionTimeoutMs = m_nTimeOutSession;
    settings.framing = vt::TcpFramingSettings::fromConfig(
        m_nEnableTCPMsgSep == 1, m_szTCPMsgSep.view(), m_nEscapeControlCharacters == 1);
    settings.framing.detectOctetCounting = m_nTCPOctetCounting == 1;
    if (m_nUseTLS == 1 && !(settings.tls = makeTlsContext())) return;
    setSettings(settings);
    if (!bindOrReport([this] { listen(m_szMyIPAddress.getStringA(), m_nListenPort); })) return;
    m_boundPort.store(localPort(), std::memory_order_release);
    vt::debugPrintf(vt::DBG_MINIMUM, "CInfoSourceSyslog: listening on TCP %s port %u\r\n",
                    m_szMyIPAddress.getStringA(), unsigned(localPort()));
    if (!run())
        vt::debugWrite(vt::DBG_ERROR, "CInfoSourceSyslog::Run: the TCP listener could not run\r\n");
    m_socket.close();
}

void CInfoSourceSyslog::readTlsSettings(CRegAccess& reg) {
    reg.ReadDWORDValue(u"nUseTLS", m_nUseTLS, 0);
    reg.ReadDWORDValue(u"nTLSVerifyPeer", m_nTLSVerifyPeer, 0);
    reg.ReadStringValue(u"szTLSCertFile", m_szTLSCertFile, CQuilletString());
    reg.ReadStringValue(u"szTLSKeyFile", m_szTLSKeyFile, CQuilletString());
    reg.ReadStringValue(u"szTLSCAFile", m_szTLSCAFile, CQuilletString());
    reg.ReadStringValue(u"szTLSPeerFingerprint", m_szTLSPeerFingerprint, CQuilletString());
}

std::shared_ptr<const vt::net::CTlsContext> CInfoSourceSyslog::makeTlsContext() const {
    vt::net::TlsEndpointOptions options;
    options.server = true;
    options.certFile = m_szTLSCertFile.getStringA();
    options.keyFile = m_szTLSKeyFile.getStringA();
    options.caFile = m_szTLSCAFile.getStringA();
    options.verifyPeer = m_nTLSVerifyPeer == 1;
    options.fingerprint = m_szTLSPeerFingerprint.getStringA();
    auto context = std::make_shared<vt::net::CTlsContext>();
    std::string error;
    if (context->init(options, error)) return context;
    vt::debugPrintf(vt::DBG_ERROR, "CInfoSourceSyslog::Run: TLS listener not started: %s\r\n",
                    error.c_str());
    vt::reportError(kSourceErrorEvent, "CInfoSourceSyslog",
                    "CInfoSourceSyslog: the TLS listener could not start - the source does not "
                    "run.",
                    error);
    return nullptr;
}

void CInfoSourceSyslog::OnReceive(const CTcpConnection& connection, std::string_view message) {
    vt::debugWrite(vt::DBG_ULTRA, "CInfoSourceSyslog| ENTER OnReceive\r\n");
    deliverMessage(message, senderText(connection.peer(), connection.peerText()));
    vt::debugWrite(vt::DBG_ULTRA, "CInfoSourceSyslog| EXIT OnReceive\r\n");
}

std::string CInfoSourceSyslog::senderText(const CIPAddress& address,
                                          const std::string& numeric) const {
    if (m_nResolveNames == 1) {
        if (CDNSCacheList* cache = getDnsCache()) return cache->hostName(address);
    }
    return numeric.empty() ? address.toText() : numeric;
}

std::unique_ptr<CInfoUnitSyslog> CInfoSourceSyslog::buildUnit(std::string_view bytes,
                                                              const std::string& peerText) const {
    // Received bytes are taken as UTF-8; invalid sequences become replacement characters.
    std::u16string text;
    vt::utf8ToUtf16(bytes, text);
    if (m_nParseRFC5424 == 1) {
        vt::Rfc5424Fields fields;
        if (vt::parseRfc5424(text, fields))
            return buildRfc5424Unit(std::move(text), fields, peerText);
    }
    const vt::SyslogFields parts =
        vt::splitSyslogFields(text, m_nRFC3164Parsing == 1, vt::SyslogClock::now());

    auto unit = std::make_unique<CInfoUnitSyslog>();
    setCommonInfoUnitSettings(*unit);
    unit->setMsg(parts.msg);
    unit->setSyslogFacility(static_cast<int32_t>(parts.facility));
    unit->setSyslogPriority(static_cast<int32_t>(parts.severity));
    unit->setPropertyString(vt::StdProperty::SyslogTag, parts.tag);
    if (m_nTakeSourceSysFromSyslogMsg == 1 && parts.hostParsed && !parts.host.empty())
        unit->setPropertyString(vt::StdProperty::Source, parts.host);
    else
        unit->setPropertyStringA(vt::StdProperty::Source, peerText);
    if (m_nParseSyslogDate == 1)
        unit->setPropertyTime(vt::StdProperty::TimeReported, parts.timestamp);
    // Last, because the parts above are views into the text that moves into the unit here.
    unit->takeRawMsg(std::move(text));
    return unit;
}

std::unique_ptr<CInfoUnitSyslog> CInfoSourceSyslog::buildRfc5424Unit(
    std::u16string&& text, const vt::Rfc5424Fields& fields, const std::string& peerText) const {
    auto unit = std::make_unique<CInfoUnitSyslog>();
    setCommonInfoUnitSettings(*unit);
    // The separator that ended a TCP message belongs to the framing, not to MSG.
    std::u16string_view msg = fields.msg;
    while (!msg.empty() && (msg.back() == u'\n' || msg.back() == u'\r')) msg.remove_suffix(1);
    unit->setMsg(msg);
    unit->setSyslogFacility(static_cast<int32_t>(fields.facility));
    unit->setSyslogPriority(static_cast<int32_t>(fields.severity));
    unit->takePropertyString(vt::StdProperty::SyslogTag, vt::rfc5424Tag(fields));
    if (m_nTakeSourceSysFromSyslogMsg == 1 && !fields.host.empty())
        unit->setPropertyString(vt::StdProperty::Source, fields.host);
    else
        unit->setPropertyStringA(vt::StdProperty::Source, peerText);
    if (m_nParseSyslogDate == 1 && fields.hasTime)
        unit->setPropertyTime(vt::StdProperty::TimeReported, fields.time);
    // Only fields that carry something become properties: each one costs the unit an entry,
    // and a relay rebuilds the header from the raw message anyway.
    setIfPresent(*unit, u"appname", fields.appName);
    setIfPresent(*unit, u"procid", fields.procId);
    setIfPresent(*unit, u"msgid", fields.msgId);
    setIfPresent(*unit, u"structureddata", fields.structuredData);
    for (const vt::SdParam& param : fields.params) {
        std::u16string name = u"sd_";
        name.append(param.sdId).append(u"_").append(param.name);
        unit->takePropertyString(name, vt::unescapeSdValue(param.value));
    }
    unit->takeRawMsg(std::move(text));
    return unit;
}

void CInfoSourceSyslog::deliverMessage(std::string_view bytes, const std::string& peerText) {
    Enqueue(buildUnit(bytes, peerText));
}
