#pragma once
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "base/quillet_string.h"
#include "platform/file_access.h"
#include "sources/file_monitor/file_monitor_text.h"
#include "sources/info_source.h"

class CInfoUnitFileMonitor;
class CRegAccess;

// Follows a text log file that another program writes: every new line becomes a unit handed
// to the rule engine and waited for; the byte offset after it is saved at once, so each line
// is handed on once across restarts (at most the line in work during a kill comes twice).
class CInfoSourceFileMonitor : public CInfoSource {
  public:
    explicit CInfoSourceFileMonitor(const vt::InfoSourceContext& context);
    ~CInfoSourceFileMonitor() override;

    void Run() override;
    bool LoadConfig() override;
    void setRegPathes() override;

    // One check of the file (or files): reads every complete line not yet handed on.
    void doProcessFile();

    // Seconds since 1970 (UTC) for the date placeholders; tests put in their own clock.

    // The settings (public so that tests and the loader share one description).
    CQuilletString m_szPathAndFileName;
    uint32_t m_nSleepTime = 60000;
    uint32_t m_nPreventOverrunDelay = 5;
    uint32_t m_nTimeMode = 1;  // 1: UTC, otherwise local time
    uint32_t m_nReportErrorOnFNF = 0;
    uint32_t m_nLogFileType = 0;
    uint32_t m_nUseWildcard = 0;
    uint32_t m_nMultipleFiles = 0;
    uint32_t m_nKeepReadingUntilNew = 0;
    uint32_t m_nCompressSpaces = 0;
    uint32_t m_nRemoveControlChars = 0;
    uint32_t m_nIgnoreEmptyLines = 0;
    uint32_t m_nRemoveLeadingSpaces = 0;
    uint32_t m_nPropertyMsgSep = 0;
    uint32_t m_nPropertyMsgSepReset = 0;
    uint32_t m_nSkipLinesEnabled = 0;
    uint32_t m_nMaxBytesPerMessage = 65536;
    uint32_t m_nEntriesCount = 0;
    uint32_t m_nFileEncoding = 0;                 // vt::TextEncoding
    std::vector<std::u16string> m_msgSeparators;  // "szMsgSep1" .. "szMsgSep<nEntriesCount>"

    // The reading state of one followed file.
    struct FileState {
        std::string name;  // expanded name (UTF-8), empty before the first check
        uint64_t offset = 0;
        vt::FileIdentity identity;
        bool identityKnown = false;
        bool known = false;        // a saved state existed or the file was read before
        std::u16string w3cHeader;  // "#Fields:" remainder
        CQuilletString statePath;  // the data key (sub)key this state is saved in
    };
    const FileState& mainState() const { return m_state; }

  protected:
    // Hands the unit to the rule engine and waits; true when the rule engine did its work
    // without reporting a failure. Tests replace it.
    virtual bool handOver(CInfoUnitFileMonitor& unit);

  private:
    std::u16string expandedName() const;
    // Reads `state.name` from the saved offset to its last complete line. False when the
    // check must end (read error, a failed unit, stop).
    bool processFile(FileState& state);
    bool finishRotatedFile(FileState& state);
    bool enqueueLine(FileState& state, std::u16string_view line);
    void processMultipleFiles(const std::string& pattern);
    bool resolveWildcard(const std::string& pattern, std::vector<std::string>& matches);
    void migrateStateValues();
    void loadState(FileState& state);
    // The offset alone after each line; everything when the file, its identity or its W3C
    // header changed.
    void saveState(const FileState& state, bool offsetOnly = false);
    void reportNotFound(const std::string& name, uint32_t error, bool isDirectory);

    FileState m_state;
    std::vector<FileState> m_multi;  // with several files: one state per file name
    bool m_notFoundReported = false;
    bool m_notFoundLogged = false;
    int m_msgSepCurrent = -1;
    int m_msgSepLast = -1;
    std::string m_readBuffer;
};
