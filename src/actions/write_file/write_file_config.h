#pragma once
#include <cstdint>
#include <string>
#include <string_view>

#include "engine/action_config.h"
#include "platform/append_file.h"

class CInfoUnit;

// Settings of the write-file action, and the file it writes: the open handle, the file name
// (with its cache), and the size bookkeeping of circular files and segments. Everything but
// LoadConfig runs under the action's lock.
class CActionConfigWriteFile : public CActionConfig {
  public:
    explicit CActionConfigWriteFile(const CQuilletString& keyPath);
    ~CActionConfigWriteFile() override;
    void LoadConfig() override;

    // Makes sure the file for `unit` is open. False when it could not be opened (logged).
    bool OpenFile(const CInfoUnit& unit);
    void CloseFile() noexcept;
    bool isFileOpen() const noexcept { return m_file.isOpen(); }
    // Takes a whole line for the file. Under load, lines are gathered and written in blocks of
    // whole lines: the first line of a block at once, the others when the block is full, when
    // the worker that began the block runs out of units, and before the file is closed or
    // changed. On a thread without a timer queue every line is written at once. False when a
    // write failed (the file is closed then, so that the next unit opens it again); `written`
    // is what the file took from this call. With `atOnce` the line and all gathered before it
    // are written before the call returns.
    bool writeLine(const char* data, size_t size, size_t& written, uint32_t& error,
                   bool atOnce = false);
    // Writes the gathered lines. False on failure (they are lost, as a failed line always was).
    bool flushLines(uint32_t& error) noexcept;
    bool hasPendingLines() const noexcept { return !m_pendingLines.empty(); }
    // Counts `bytes` against the circle's or the segment's limit and moves to the next file
    // when the limit is reached.
    void addToCurrentFileSize(uint64_t bytes, const CInfoUnit& unit);

    // The idle routine: closes the file.
    static void TimerAPCProc(void* context, uint32_t timeLow, uint32_t timeHigh);
    static constexpr uint32_t kIdleCloseMs = 3000;
    // The routine that writes the gathered lines once their worker has no unit left.
    static void FlushAPCProc(void* context, uint32_t timeLow, uint32_t timeHigh);
    static constexpr size_t kBlockBytes = 64 * 1024;

    // Settings, as loaded.
    const std::u16string& filePath() const noexcept { return m_szFilePath; }
    const std::u16string& fileBaseName() const noexcept { return m_szFileBaseName; }
    const std::u16string& fileExtension() const noexcept { return m_szFileExtension; }
    const std::u16string& lineFormat() const noexcept { return m_szLineFormat; }
    int32_t fileFormat() const noexcept { return m_nFileFormat; }
    int32_t uniqueFileName() const noexcept { return m_nUniqueFileName; }
    int32_t fileDateTime() const noexcept { return m_nFileDateTime; }
    int32_t fileDateTimeReported() const noexcept { return m_nFileDateTimeReported; }
    int32_t fileSource() const noexcept { return m_nFileSource; }
    int32_t fileFacility() const noexcept { return m_nFileFacility; }
    int32_t filePriority() const noexcept { return m_nFilePriority; }
    int32_t useXMLtoReport() const noexcept { return m_nUseXMLtoReport; }
    int32_t useUTCInFileName() const noexcept { return m_nUseUTCInFileName; }
    int32_t useUTCForTimestamps() const noexcept { return m_nUseUTCForTimestamps; }
    int32_t includeSourceInFilename() const noexcept { return m_nIncludeSourceInFilename; }
    int32_t includeMessage() const noexcept { return m_nIncludeMessage; }
    int32_t includeRAWMessage() const noexcept { return m_nIncludeRAWMessage; }
    int32_t circularLogging() const noexcept { return m_nCircularLogging; }
    int32_t numberOfLogfiles() const noexcept { return m_nNumberOfLogfiles; }
    uint64_t maxFileSize() const noexcept { return m_nMaxFileSize; }
    int32_t lastFileNumber() const noexcept { return m_nLastFileNumber; }
    int32_t enablePropertyFileName() const noexcept { return m_nEnablePropertyFileName; }
    int32_t segmentFileEnable() const noexcept { return m_nSegmentFileEnable; }
    uint64_t segmentFileBySize() const noexcept { return m_nSegmentFileBySize; }

    // Run-time state, for the behaviour class and for tests.
    const std::u16string& currentFileName() const noexcept { return m_currentFileName; }
    uint64_t currentFileSize() const noexcept { return m_currentFileSize; }
    int32_t segmentCounter() const noexcept { return m_segmentCounter; }

    // The name the unit's line goes to at time `now` (seconds since 1970); fills the cache.
    std::u16string GenerateFileName(const CInfoUnit& unit, int64_t now);

  private:
    // The path, base name and source a unit's file name is made of. `key` tells units that
    // share a cached name apart (empty when the name does not depend on the unit).
    struct NameInputs {
        std::u16string path;
        std::u16string base;
        std::u16string source;
        std::u16string key;
    };
    void nameInputsFor(const CInfoUnit& unit, NameInputs& inputs) const;
    std::u16string GenerateFileNameBySegment(const NameInputs& inputs, int64_t now);
    bool openNamed(const std::u16string& name);
    void advanceCircle(const CInfoUnit& unit);

    // Settings.
    std::u16string m_szFilePath;
    std::u16string m_szFileBaseName;
    std::u16string m_szFileExtension;
    std::u16string m_szLineFormat;
    int32_t m_nUniqueFileName = 1;
    int32_t m_nFileDateTime = 1;
    int32_t m_nFileDateTimeReported = 1;
    int32_t m_nFileSource = 1;
    int32_t m_nFileFacility = 1;
    int32_t m_nFilePriority = 1;
    int32_t m_nUseXMLtoReport = 0;
    int32_t m_nUseUTCInFileName = 0;
    int32_t m_nUseUTCForTimestamps = 0;
    int32_t m_nFileFormat = 0;
    int32_t m_nIncludeSourceInFilename = 0;
    int32_t m_nIncludeMessage = 1;
    int32_t m_nIncludeRAWMessage = 0;
    int32_t m_nCircularLogging = 0;
    int32_t m_nNumberOfLogfiles = 10;
    uint64_t m_nMaxFileSize = 4096ull * 1024;
    int32_t m_nLastFileNumber = 1;
    int32_t m_nEnablePropertyFileName = 0;
    int32_t m_nSegmentFileEnable = 0;
    uint64_t m_nSegmentFileBySize = 4096ull * 1024;

    // Run-time state (under the action's lock).
    vt::AppendFile m_file;
    uint64_t m_openedGeneration = 0;  // the reopen request m_file was opened under
    std::string m_pendingLines;       // whole lines not yet written to m_file
    bool m_blockOpen = false;         // a block has begun; its flush routine is pending
    vt::WaitableTimer m_flushTimer;
    std::u16string m_currentFileName;
    std::u16string m_cachedFileName;  // the previous name, valid until m_cachedUntil
    std::u16string m_cachedKey;
    int64_t m_cachedUntil = 0;
    uint64_t m_currentFileSize = 0;
    int32_t m_segmentCounter = 1;
    std::u16string m_segmentStem;
    NameInputs m_inputs;  // reused between units
};
