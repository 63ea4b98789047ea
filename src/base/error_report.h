#pragma once
#include <cstdint>

#include "base/quillet_string.h"

// An error inside the engine. Thrown by pointer; the catcher owns it and destroys it, usually
// by holding it in a std::unique_ptr straight away.
class CErrorReport {
  public:
    CErrorReport() = default;
    CErrorReport(uint32_t code, const CQuilletString& message, uint32_t secondaryCode = 0);
    CErrorReport(const CErrorReport&) = delete;
    CErrorReport& operator=(const CErrorReport&) = delete;
    virtual ~CErrorReport() = default;
    virtual const char* getClassName() const { return "CErrorReport"; }

    void setMessage(const CQuilletString& message);
    const CQuilletString& getMessage() const noexcept { return m_message; }
    uint32_t getErrorCode() const noexcept { return m_code; }
    void setErrorCode(uint32_t code) noexcept { m_code = code; }
    uint32_t getSecondaryCode() const noexcept { return m_secondaryCode; }
    void setSecondaryCode(uint32_t code) noexcept { m_secondaryCode = code; }

  private:
    uint32_t m_code = 0;
    uint32_t m_secondaryCode = 0;
    CQuilletString m_message;
};

// A failed system call: carries the system's error number at the time the report was made
// (on Linux the errno mapped to its Winsock number where the platform layer says so).
class CWinSockError : public CErrorReport {
  public:
    CWinSockError(uint32_t code, const CQuilletString& message, uint32_t systemError);
    // Takes the calling thread's last system error as it is now.
    CWinSockError(uint32_t code, const CQuilletString& message);
    const char* getClassName() const override { return "CWinSockError"; }
    uint32_t getSystemError() const noexcept { return m_systemError; }

  private:
    uint32_t m_systemError = 0;
};
