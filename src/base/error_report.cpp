#include "base/error_report.h"

#include "base/debug_log.h"
#include "platform/system_error.h"

CErrorReport::CErrorReport(uint32_t code, const CQuilletString& message, uint32_t secondaryCode)
    : m_code(code), m_secondaryCode(secondaryCode) {
    setMessage(message);
}

void CErrorReport::setMessage(const CQuilletString& message) {
    m_message = message;
    if (vt::debugOn(vt::DBG_ULTRA))
        vt::debugPrintf(vt::DBG_ULTRA, "CErrorReport| Error Message set: '%s'\r\n",
                        m_message.getStringA());
}

CWinSockError::CWinSockError(uint32_t code, const CQuilletString& message, uint32_t systemError)
    : CErrorReport(code, message), m_systemError(systemError) {}

CWinSockError::CWinSockError(uint32_t code, const CQuilletString& message)
    : CWinSockError(code, message, vt::lastSystemError()) {}
