#include "actions/write_file/write_file_config.h"

#include <limits>

#include "actions/write_file/write_file_format.h"
#include "base/debug_log.h"
#include "base/reopen_request.h"
#include "model/info_unit.h"
#include "model/unit_time.h"
#include "platform/utf_codec.h"

namespace {

#ifdef _WIN32
constexpr const char16_t* kDefaultFilePath = u"C:\\temp";
#else
constexpr const char16_t* kDefaultFilePath = u"/var/log/vtagent";
#endif

// The event log type property was once spelled with capitals in templates; the unit stores it
// in lower case.
void lowerEventLogType(std::u16string& text) {
    static constexpr std::u16string_view kOld = u"%NTEventLogType%";
    static constexpr std::u16string_view kNew = u"%nteventlogtype%";
    for (size_t at = text.find(kOld); at != std::u16string::npos;
         at = text.find(kOld, at + kNew.size()))
        text.replace(at, kOld.size(), kNew);
}

// Narrow text for debug lines.
std::string narrow(std::u16string_view text) {
    return vt::utf16ToUtf8(text);
}

int32_t readInt(CRegAccess& reg, const char16_t* name, uint32_t defaultValue) {
    uint32_t value = defaultValue;
    reg.ReadDWORDValue(name, value, defaultValue);
    return static_cast<int32_t>(value);
}

std::u16string readString(CRegAccess& reg, const char16_t* name, const char16_t* defaultValue) {
    CQuilletString value;
    reg.ReadStringValue(name, value, defaultValue);
    return std::u16string(value.view());
}

size_t directoryEnd(const std::u16string& name) {
    const size_t at = name.find_last_of(u"/\\");
    return at == std::u16string::npos ? 0 : at;
}

}  // namespace

CActionConfigWriteFile::CActionConfigWriteFile(const CQuilletString& keyPath)
    : CActionConfig(keyPath),
      m_szFilePath(kDefaultFilePath),
      m_szFileBaseName(u"Vantor"),
      m_szFileExtension(u"log"),
      m_szLineFormat(u"%msg%") {}

CActionConfigWriteFile::~CActionConfigWriteFile() {
    // The timers go first, so that their routines can no longer reach a closed object.
    closeTimer();
    m_flushTimer.cancel();
    CloseFile();
}

void CActionConfigWriteFile::LoadConfig() {
    if (loadEnabled()) {
        CRegAccess& reg = m_regAccess;
        m_szFilePath = readString(reg, u"szFilePath", kDefaultFilePath);
        m_szFileBaseName = readString(reg, u"szFileBaseName", u"Vantor");
        m_szFileExtension = readString(reg, u"szFileExtension", u"log");
        m_szLineFormat = readString(reg, u"szLineFormat", u"%msg%");
        m_nUniqueFileName = readInt(reg, u"nUniqueFileName", 1);
        m_nFileDateTime = readInt(reg, u"nFileDateTime", 1);
        m_nFileDateTimeReported = readInt(reg, u"nFileDateTimeReported", 1);
        m_nFileSource = readInt(reg, u"nFileSource", 1);
        m_nFileFacility = readInt(reg, u"nFileFacility", 1);
        m_nFilePriority = readInt(reg, u"nFilePriority", 1);
        m_nUseXMLtoReport = readInt(reg, u"nUseXMLtoReport", 0);
        m_nUseUTCInFileName = readInt(reg, u"nUseUTCInFileName", 0);
        m_nUseUTCForTimestamps = readInt(reg, u"nUseUTCForTimestamps", 0);
        m_nFileFormat = readInt(reg, u"nFileFormat", 0);
        m_nIncludeSourceInFilename = readInt(reg, u"nIncludeSourceInFilename", 0);
        m_nIncludeMessage = readInt(reg, u"nIncludeMessage", 1);
        m_nIncludeRAWMessage = readInt(reg, u"nIncludeRAWMessage", 0);
        m_nCircularLogging = readInt(reg, u"nCircularLogging", 0);
        m_nNumberOfLogfiles = readInt(reg, u"nNumberOfLogfiles", 10);
        m_nMaxFileSize =
            static_cast<uint64_t>(static_cast<uint32_t>(readInt(reg, u"nMaxFileSize", 4096))) *
            1024;
        m_nLastFileNumber = readInt(reg, u"nLastFileNumber", 1);
        m_nEnablePropertyFileName = readInt(reg, u"nEnablePropertyFileName", 0);
        m_nSegmentFileEnable = readInt(reg, u"nSegmentFileEnable", 0);
        m_nSegmentFileBySize = static_cast<uint64_t>(static_cast<uint32_t>(
                                   readInt(reg, u"nSegmentFileBySize", 4096))) *
                               1024;
        reg.CloseKey();
    }
    if (m_nNumberOfLogfiles < 1) {
        vt::debugPrintf(vt::DBG_ERROR,
                        "CActionConfigWriteFile| nNumberOfLogfiles %d is not a number of files, "
                        "using 1.\r\n",
                        m_nNumberOfLogfiles);
        m_nNumberOfLogfiles = 1;
    }
    lowerEventLogType(m_szFilePath);
    lowerEventLogType(m_szFileBaseName);
    lowerEventLogType(m_szLineFormat);
    createTimer();
}

void CActionConfigWriteFile::nameInputsFor(const CInfoUnit& unit, NameInputs& inputs) const {
    inputs.key.clear();
    if (m_nEnablePropertyFileName == 1) {
        inputs.path = vt::expandNameTemplate(m_szFilePath, unit);
        inputs.base = vt::expandNameTemplate(m_szFileBaseName, unit);
        inputs.key.append(inputs.path).push_back(u'\0');
        inputs.key.append(inputs.base).push_back(u'\0');
    } else {
        inputs.path = m_szFilePath;
        inputs.base = m_szFileBaseName;
    }
    inputs.source.clear();
    if (m_nIncludeSourceInFilename == 1) {
        if (const CQuilletString* source = unit.getPropertyStringObject(u"source"))
            inputs.source.assign(source->view());
        vt::sanitizeNamePart(inputs.source);
        inputs.key.append(inputs.source);
    }
}

std::u16string CActionConfigWriteFile::GenerateFileNameBySegment(const NameInputs& inputs,
                                                                 int64_t now) {
    const vt::CivilTime day = vt::breakDownTime(now, m_nUseUTCInFileName != 0);
    std::u16string stem =
        vt::makeDailyStem(inputs.path, inputs.base, m_nIncludeSourceInFilename == 1, inputs.source,
                          day, vt::kPathSeparator);
    if (stem != m_segmentStem) {
        if (!m_segmentStem.empty())
            vt::debugWrite(vt::DBG_ULTRA,
                           "CActionConfigWriteFile| GenerateFileNameBySegment: Basename changed, "
                           "resetting counter\r\n");
        m_segmentStem = std::move(stem);
        m_segmentCounter = 1;
    }
    return vt::makeSegmentName(m_segmentStem, m_segmentCounter, m_szFileExtension);
}

std::u16string CActionConfigWriteFile::GenerateFileName(const CInfoUnit& unit, int64_t now) {
    nameInputsFor(unit, m_inputs);
    const bool utc = m_nUseUTCInFileName != 0;
    std::u16string name;
    int64_t until = std::numeric_limits<int64_t>::max();
    if (m_nSegmentFileEnable == 1 && m_nCircularLogging != 1) {
        name = GenerateFileNameBySegment(m_inputs, now);
        until = vt::endOfDay(now, utc);
    } else if (m_nUniqueFileName != 0) {
        name = vt::makeDailyName(m_inputs.path, m_inputs.base, m_nIncludeSourceInFilename == 1,
                                 m_inputs.source, vt::breakDownTime(now, utc), m_szFileExtension,
                                 vt::kPathSeparator);
        until = vt::endOfDay(now, utc);
    } else if (m_nCircularLogging == 1) {
        name = vt::makeCircularName(m_inputs.path, m_inputs.base, m_nLastFileNumber,
                                    m_szFileExtension, vt::kPathSeparator);
    } else {
        name =
            vt::makePlainName(m_inputs.path, m_inputs.base, m_szFileExtension, vt::kPathSeparator);
    }
    m_cachedFileName = name;
    m_cachedKey = m_inputs.key;
    m_cachedUntil = until;
    if (vt::debugOn(vt::DBG_ULTRA)) {
        const std::string text = narrow(name);
        if (until != std::numeric_limits<int64_t>::max())
            vt::debugPrintf(vt::DBG_ULTRA,
                            "CActionConfigWriteFile| File name '%s' will be cached until %ld.\r\n",
                            text.c_str(), static_cast<long>(until));
        vt::debugPrintf(vt::DBG_ULTRA, "CActionConfigWriteFile| GeneratedFilename: '%s'\r\n",
                        text.c_str());
    }
    return name;
}

bool CActionConfigWriteFile::OpenFile(const CInfoUnit& unit) {
    const int64_t now = vt::currentTime();
    // A rotation asked for a reopen: what was gathered goes to the old file, the next line to
    // a new one of the same name.
    if (m_file.isOpen() && m_openedGeneration != vt::reopenGeneration()) CloseFile();
    if (m_file.isOpen() && !m_cachedFileName.empty() && now < m_cachedUntil) {
        const bool dependsOnUnit =
            m_nEnablePropertyFileName == 1 || m_nIncludeSourceInFilename == 1;
        if (dependsOnUnit) nameInputsFor(unit, m_inputs);
        if (!dependsOnUnit || m_inputs.key == m_cachedKey) {
            // Lines already gathered for the file go to it; it is checked again after they
            // are written, which keeps the check to once per block.
            if (!m_pendingLines.empty() || !m_file.isDetached()) {
                vt::debugWrite(vt::DBG_ULTRA, "Reusing previous filename.\r\n");
                return true;
            }
            vt::debugPrintf(vt::DBG_INFO,
                            "CActionConfigWriteFile| file '%s' was renamed or deleted, opening "
                            "it anew.\r\n",
                            narrow(m_currentFileName).c_str());
            CloseFile();
        }
    }
    std::u16string name = GenerateFileName(unit, now);
    if (m_file.isOpen() && (name != m_currentFileName || m_file.isDetached())) CloseFile();
    if (m_file.isOpen()) return true;
    if (!openNamed(name)) return false;
    // A segment filled before (by an earlier run) is not written into again.
    if (m_nSegmentFileEnable == 1 && m_nCircularLogging != 1 && m_nSegmentFileBySize > 0) {
        for (int guard = 0; m_currentFileSize >= m_nSegmentFileBySize && guard < 100000; ++guard) {
            CloseFile();
            ++m_segmentCounter;
            m_cachedFileName =
                vt::makeSegmentName(m_segmentStem, m_segmentCounter, m_szFileExtension);
            if (!openNamed(m_cachedFileName)) return false;
        }
    }
    return true;
}

bool CActionConfigWriteFile::openNamed(const std::u16string& name) {
    m_openedGeneration = vt::reopenGeneration();
    vt::debugWrite(vt::DBG_ULTRA, "invalid file handle, so we need to open.\r\n");
    const std::string narrowName = narrow(name);
    if (const size_t end = directoryEnd(name); end > 0) {
        bool created = false;
        if (const uint32_t e =
                vt::createDirectories(std::u16string_view(name).substr(0, end), created)) {
            vt::debugPrintf(vt::DBG_ERROR,
                            "CActionConfigWriteFile| Failed to created subdirectories - Error: "
                            "%d.\r\n",
                            static_cast<int>(e));
        } else if (created) {
            vt::debugWrite(vt::DBG_ULTRA, "directory created\r\n");
        }
    }
    uint32_t error = m_file.open(name);
    if (error != 0) {
        if (vt::isSharingViolation(error))
            vt::debugPrintf(vt::DBG_ERROR,
                            "CActionConfigWriteFile| ERROR_SHARING_VIOLATION (%d), this can happen "
                            "if another process has locked the file.\r\n",
                            static_cast<int>(error));
        else
            vt::debugPrintf(vt::DBG_ERROR,
                            "CActionConfigWriteFile| Could not create or open File - Error: "
                            "%d.\r\n",
                            static_cast<int>(error));
        error = m_file.open(name);
        if (error != 0) {
            vt::debugPrintf(vt::DBG_ERROR,
                            "CActionConfigWriteFile| Second try - Could not create or open File "
                            "- Error: %d.\r\n",
                            static_cast<int>(error));
            return false;
        }
    }
    m_currentFileName = name;
    vt::debugPrintf(vt::DBG_INFO, "CActionConfigWriteFile| file '%s' open.\r\n",
                    narrowName.c_str());
    uint64_t size = 0;
    if (m_file.size(size, error)) {
        m_currentFileSize = size;
        vt::debugPrintf(vt::DBG_ULTRA, "CActionConfigWriteFile|OpenFile: FileSize %d obtained.\r\n",
                        static_cast<int>(size));
    } else {
        m_currentFileSize = 0;
        vt::debugPrintf(vt::DBG_ERROR,
                        "CActionConfigWriteFile|OpenFile: Error %d getting FileSize.\r\n",
                        static_cast<int>(error));
    }
    if (!m_file.seekEnd(error))
        vt::debugPrintf(vt::DBG_ERROR,
                        "CActionConfigWriteFile| Error setting FILE_END Position - Error: %d.\r\n",
                        static_cast<int>(error));
    return true;
}

void CActionConfigWriteFile::CloseFile() noexcept {
    uint32_t error = 0;
    if (!flushLines(error))
        vt::debugPrintf(vt::DBG_MINIMUM,
                        "CActionConfigWriteFile| lines lost when closing the file, system error "
                        "%d.\r\n",
                        static_cast<int>(error));
    m_file.close();
    m_currentFileSize = 0;
}

bool CActionConfigWriteFile::flushLines(uint32_t& error) noexcept {
    if (m_pendingLines.empty()) return true;
    size_t written = 0;
    const bool ok = m_file.write(m_pendingLines.data(), m_pendingLines.size(), written, error);
    m_pendingLines.clear();
    if (m_pendingLines.capacity() > 4 * kBlockBytes) std::string().swap(m_pendingLines);
    return ok;
}

bool CActionConfigWriteFile::writeLine(const char* data, size_t size, size_t& written,
                                       uint32_t& error, bool atOnce) {
    written = 0;
    error = 0;
    if (!m_blockOpen || atOnce) {
        // The first line of a block goes out at once: a file that refuses writes is noticed by
        // the unit that meets it, and a lone message is not held back.
        if (!flushLines(error) || !m_file.write(data, size, written, error)) {
            CloseFile();
            return false;
        }
        if (!m_blockOpen) m_blockOpen = m_flushTimer.arm(&FlushAPCProc, this, 0);
        return true;
    }
    // A line never straddles two writes, and a line longer than a block goes out alone.
    if (m_pendingLines.size() + size > kBlockBytes && !flushLines(error)) {
        CloseFile();
        return false;
    }
    m_pendingLines.append(data, size);
    written = size;
    if (m_pendingLines.size() < kBlockBytes || flushLines(error)) return true;
    written = 0;
    CloseFile();
    return false;
}

void CActionConfigWriteFile::addToCurrentFileSize(uint64_t bytes, const CInfoUnit& unit) {
    if (m_nCircularLogging == 1) {
        m_currentFileSize += bytes;
        if (m_currentFileSize >= m_nMaxFileSize) advanceCircle(unit);
    } else if (m_nSegmentFileEnable == 1) {
        m_currentFileSize += bytes;
        if (m_currentFileSize >= m_nSegmentFileBySize) {
            CloseFile();
            ++m_segmentCounter;
            m_cachedFileName =
                vt::makeSegmentName(m_segmentStem, m_segmentCounter, m_szFileExtension);
            openNamed(m_cachedFileName);
        }
    }
}

void CActionConfigWriteFile::advanceCircle(const CInfoUnit& unit) {
    CloseFile();
    m_nLastFileNumber = m_nLastFileNumber >= m_nNumberOfLogfiles ? 1 : m_nLastFileNumber + 1;
    CRegAccess reg;
    if (!reg.CreateKey(vt::RegRoot::LocalMachine, m_keyPath) ||
        !reg.SetDWORDValue(u"nLastFileNumber", static_cast<uint32_t>(m_nLastFileNumber)))
        vt::debugPrintf(
            vt::DBG_ERROR,
            "CActionConfigWriteFile| could not store nLastFileNumber %d under '%s'.\r\n",
            m_nLastFileNumber, m_keyPath.getStringA());
    const std::u16string name = GenerateFileName(unit, vt::currentTime());
    const std::string narrowName = narrow(name);
    if (const uint32_t e = vt::deleteFile(name))
        vt::debugPrintf(vt::DBG_INFO,
                        "addToCurrentFileSize: file '%s' could not be deleted: %d.\r\n",
                        narrowName.c_str(), static_cast<int>(e));
    else
        vt::debugPrintf(vt::DBG_INFO,
                        "addToCurrentFileSize: file '%s' was successfully deleted.\r\n",
                        narrowName.c_str());
    openNamed(name);
}

void CActionConfigWriteFile::FlushAPCProc(void* context, uint32_t, uint32_t) {
    auto* config = static_cast<CActionConfigWriteFile*>(context);
    config->enterLock();
    config->m_blockOpen = false;
    uint32_t error = 0;
    if (!config->flushLines(error)) {
        vt::debugPrintf(vt::DBG_MINIMUM,
                        "writeFileFormatRelaylog| WriteFile() failed in WriteFileAction, system "
                        "error %d.\r\n",
                        static_cast<int>(error));
        config->CloseFile();
    }
    config->leaveLock();
}

void CActionConfigWriteFile::TimerAPCProc(void* context, uint32_t, uint32_t) {
    auto* config = static_cast<CActionConfigWriteFile*>(context);
    config->enterLock();
    config->CloseFile();
    config->leaveLock();
}
