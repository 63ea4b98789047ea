#include "sources/file_monitor/file_monitor.h"

#include <algorithm>
#include <chrono>
#include <ctime>

#include "base/debug_log.h"
#include "base/error_reporter.h"
#include "base/reg_access.h"
#include "model/info_unit_types.h"
#include "platform/local_time.h"
#include "platform/utf_codec.h"

namespace {

constexpr size_t kReadChunk = 64 * 1024;
// A larger limit would let one line hold that much memory; pieces are handed on anyway.
constexpr uint32_t kMaxPieceLimit = 16u * 1024u * 1024u;
constexpr uint32_t kFileMonitorWarningEvent = 1050;
constexpr uint32_t kFileNotFoundEvent = 1051;

std::string dirOf(const std::string& path) {
    for (size_t i = path.size(); i > 0; --i)
        if (vt::isPathSeparator(path[i - 1])) return path.substr(0, i - 1 == 0 ? 1 : i - 1);
    return std::string();
}
std::string baseOf(const std::string& path) {
    for (size_t i = path.size(); i > 0; --i)
        if (vt::isPathSeparator(path[i - 1])) return path.substr(i);
    return path;
}
std::string joinPath(const std::string& dir, const std::string& name) {
    if (dir.empty()) return name;
    if (vt::isPathSeparator(dir.back())) return dir + name;
#ifdef _WIN32
    return dir + "\\" + name;
#else
    return dir + "/" + name;
#endif
}

}  // namespace

CInfoSourceFileMonitor::CInfoSourceFileMonitor(const vt::InfoSourceContext& context)
    : CInfoSource(context) {}

CInfoSourceFileMonitor::~CInfoSourceFileMonitor() = default;

bool CInfoSourceFileMonitor::LoadConfig() {
    vt::debugWrite(vt::DBG_INFO, "CInfoSourceFileMonitor|LoadConfig: Loading settings\r\n");
    CRegAccess reg;
    if (!beginLoadConfig(reg)) return isEnabled();
    reg.ReadStringValue(u"szPathAndFileName", m_szPathAndFileName, CQuilletString());
    reg.ReadDWORDValue(u"nSleepTime", m_nSleepTime, 60000);
    reg.ReadDWORDValue(u"nPreventOverrunDelay", m_nPreventOverrunDelay, 5);
    reg.ReadDWORDValue(u"nTimeMode", m_nTimeMode, 1);
    reg.ReadDWORDValue(u"nReportErrorOnFNF", m_nReportErrorOnFNF, 0);
    reg.ReadDWORDValue(u"nLogFileType", m_nLogFileType, 0);
    reg.ReadDWORDValue(u"nUseWildcard", m_nUseWildcard, 0);
    reg.ReadDWORDValue(u"nMultipleFiles", m_nMultipleFiles, 0);
    reg.ReadDWORDValue(u"nKeepReadingUntilNew", m_nKeepReadingUntilNew, 0);
    reg.ReadDWORDValue(u"nCompressSpaces", m_nCompressSpaces, 0);
    reg.ReadDWORDValue(u"nRemoveControlChars", m_nRemoveControlChars, 0);
    reg.ReadDWORDValue(u"nIgnoreEmptyLines", m_nIgnoreEmptyLines, 0);
    reg.ReadDWORDValue(u"nRemoveLeadingSpaces", m_nRemoveLeadingSpaces, 0);
    reg.ReadDWORDValue(u"nPropertyMsgSep", m_nPropertyMsgSep, 0);
    reg.ReadDWORDValue(u"nPropertyMsgSepReset", m_nPropertyMsgSepReset, 0);
    reg.ReadDWORDValue(u"nSkipLinesEnabled", m_nSkipLinesEnabled, 0);
    reg.ReadDWORDValue(u"nMaxBytesPerMessage", m_nMaxBytesPerMessage, 65536);
    reg.ReadDWORDValue(u"nEntriesCount", m_nEntriesCount, 0);
    reg.ReadDWORDValue(u"nFileEncoding", m_nFileEncoding, 0);
    if (m_nFileEncoding > 3) {
        vt::debugPrintf(vt::DBG_ERROR,
                        "CInfoSourceFileMonitor|LoadConfig: nFileEncoding %u unknown - "
                        "recognising the encoding by its BOM\r\n",
                        m_nFileEncoding);
        m_nFileEncoding = 0;
    }
    if (m_nMaxBytesPerMessage == 0 || m_nMaxBytesPerMessage > kMaxPieceLimit) {
        vt::debugPrintf(vt::DBG_ERROR,
                        "CInfoSourceFileMonitor|LoadConfig: nMaxBytesPerMessage %u out of range "
                        "- using %u\r\n",
                        m_nMaxBytesPerMessage,
                        m_nMaxBytesPerMessage == 0 ? 65536u : kMaxPieceLimit);
        m_nMaxBytesPerMessage = m_nMaxBytesPerMessage == 0 ? 65536u : kMaxPieceLimit;
    }
    m_msgSeparators.clear();
    for (uint32_t i = 1; i <= m_nEntriesCount && i <= 10000; ++i) {
        CQuilletString entry;
        const std::string name = "szMsgSep" + std::to_string(i);
        reg.ReadStringValue(CQuilletString(std::string_view(name)), entry, CQuilletString());
        m_msgSeparators.emplace_back(entry.getString());
    }
    reg.CloseKey();
    return isEnabled();
}

void CInfoSourceFileMonitor::setRegPathes() {
    CInfoSource::setRegPathes();
    CRegAccess data;
    if (!data.CreateKey(m_root, getStatePath()))
        vt::debugWrite(vt::DBG_ERROR, "CInfoSourceFileMonitor| Can't Create DATA registryKey!\r\n");
    data.CloseKey();
    migrateStateValues();
    m_state = FileState{};
    m_state.statePath = getStatePath();
    loadState(m_state);
    m_multi.clear();
}

void CInfoSourceFileMonitor::migrateStateValues() {
    CRegAccess config;
    if (!config.OpenKey(m_root, getConfigPath(), vt::kKeyAllAccess)) {
        vt::debugWrite(vt::DBG_ERROR,
                       "CInfoSourceFileMonitor| MigrateStateValue: Error opening "
                       "MasterConfigKey\r\n");
        return;
    }
    // Each value is moved on its own: a value the data key already has is newer and wins.
    CRegAccess data;
    bool dataOpen = false;
    const auto openData = [&]() {
        if (!dataOpen && !(dataOpen = data.CreateKey(m_root, getStatePath())))
            vt::debugWrite(vt::DBG_ERROR,
                           "CInfoSourceFileMonitor| MigrateStateValue: Error creating "
                           "MasterDataKey\r\n");
        return dataOpen;
    };
    const auto moved = [&](const char16_t* name, bool written) {
        if (!written) {
            vt::debugWrite(vt::DBG_ERROR,
                           "CInfoSourceFileMonitor| MigrateStateValue: Error creating Tmp "
                           "DataKey\r\n");
            return;
        }
        config.DeleteValue(CQuilletString(name));
        vt::debugPrintf(vt::DBG_INFO,
                        "CInfoSourceFileMonitor| MigrateStateValue: moved '%s' to the data "
                        "key\r\n",
                        CQuilletString(name).getStringA());
    };
    for (const char16_t* name : {u"nLastPosLow", u"nLastPosHigh"}) {
        uint32_t value = 0, existing = 0;
        if (!config.ReadDWORDValue(CQuilletString(name), value) || !openData()) continue;
        const bool written = data.ReadDWORDValue(CQuilletString(name), existing) ||
                             data.SetDWORDValue(CQuilletString(name), value);
        moved(name, written);
    }
    CQuilletString header, existing;
    if (config.ReadStringValue(u"szW3CHeader", header) && openData()) {
        const bool written = data.ReadStringValue(u"szW3CHeader", existing) ||
                             data.SetStringValue(u"szW3CHeader", header);
        moved(u"szW3CHeader", written);
    }
}

void CInfoSourceFileMonitor::loadState(FileState& state) {
    CRegAccess data;
    if (!data.OpenKey(m_root, state.statePath, vt::kKeyRead)) return;
    uint32_t low = 0, high = 0;
    const bool haveLow = data.ReadDWORDValue(u"nLastPosLow", low);
    data.ReadDWORDValue(u"nLastPosHigh", high, 0);
    state.offset = (static_cast<uint64_t>(high) << 32) | low;
    CQuilletString text;
    if (data.ReadStringValue(u"szW3CHeader", text)) {
        state.w3cHeader = text.getString();
        const std::u16string& h = state.w3cHeader;
        state.w3cHeader = h.rfind(u"#Fields:", 0) == 0 ? h.substr(8) : h;
    }
    if (data.ReadStringValue(u"szLastFileName", text))
        state.name = vt::utf16ToUtf8(text.getString());
    uint64_t volume = 0, index = 0;
    if (data.ReadQWORDValue(u"nFileVolume", volume) && data.ReadQWORDValue(u"nFileIndex", index)) {
        state.identity = {volume, index};
        state.identityKnown = true;
    }
    state.known = haveLow;
}

void CInfoSourceFileMonitor::saveState(const FileState& state, bool offsetOnly) {
    CRegAccess data;
    if (!data.OpenKey(m_root, state.statePath, vt::kKeyAllAccess) &&
        !data.CreateKey(m_root, state.statePath)) {
        vt::debugWrite(vt::DBG_ERROR,
                       "CInfoSourceFileMonitor| UpdateStateValues: Error opening "
                       "MasterDataKey\r\n");
        return;
    }
    bool ok = data.SetDWORDValue(u"nLastPosLow", static_cast<uint32_t>(state.offset));
    ok = data.SetDWORDValue(u"nLastPosHigh", static_cast<uint32_t>(state.offset >> 32)) && ok;
    if (offsetOnly) {
        if (!ok)
            vt::debugPrintf(vt::DBG_ERROR,
                            "CInfoSourceFileMonitor| UpdateStateValues: writing the offset failed "
                            "- error %u\r\n",
                            data.GetLastError());
        return;
    }
    ok = data.SetStringValue(u"szW3CHeader", CQuilletString(u"#Fields:" + state.w3cHeader)) && ok;
    ok = data.SetStringValue(u"szLastFileName", CQuilletString(vt::utf8ToUtf16(state.name))) && ok;
    if (state.identityKnown) {
        ok = data.SetQWORDValue(u"nFileVolume", state.identity.volume) && ok;
        ok = data.SetQWORDValue(u"nFileIndex", state.identity.index) && ok;
    }
    if (!ok)
        vt::debugPrintf(vt::DBG_ERROR,
                        "CInfoSourceFileMonitor| UpdateStateValues: writing the state failed - "
                        "error %u\r\n",
                        data.GetLastError());
}

std::u16string CInfoSourceFileMonitor::expandedName() const {
    const int64_t now = getClock().nowSeconds();
    vt::CivilTime when = vt::utcCivilTime(now);
    if (m_nTimeMode != 1 && !vt::localTimeOf(now, when)) when = vt::utcCivilTime(now);
    return vt::expandFileName(m_szPathAndFileName.getString(), when);
}

void CInfoSourceFileMonitor::Run() {
    while (keepRunning()) {
        doProcessFile();
        if (!waitWhileRunning(std::chrono::milliseconds(m_nSleepTime))) break;
    }
}

void CInfoSourceFileMonitor::reportNotFound(const std::string& name, uint32_t error,
                                            bool isDirectory) {
    if (!m_notFoundLogged) {
        vt::debugPrintf(vt::DBG_ERROR,
                        isDirectory ? "CInfoSourceFileMonitor| '%s' is a directory, not a file - "
                                      "waiting for a file of that name\r\n"
                                    : "CInfoSourceFileMonitor| Can't open file '%s' - error %u\r\n",
                        name.c_str(), error);
        m_notFoundLogged = true;
    }
    if (m_nReportErrorOnFNF == 1 && !m_notFoundReported) {
        vt::reportError(kFileNotFoundEvent, "CInfoSourceFileMonitor", name);
        m_notFoundReported = true;
    }
}

bool CInfoSourceFileMonitor::resolveWildcard(const std::string& pattern,
                                             std::vector<std::string>& matches) {
    vt::debugWrite(vt::DBG_INFO, "CInfoSourceFileMonitor| Check for Wildcards now\r\n");
    matches.clear();
    const std::string dir = dirOf(pattern);
    const std::string mask = baseOf(pattern);
    std::vector<std::string> names;
    if (!vt::listDirectoryFiles(dir, names)) {
        vt::debugPrintf(vt::DBG_ERROR, "CInfoSourceFileMonitor| Can't list the directory '%s'\r\n",
                        dir.c_str());
        return false;
    }
    for (const std::string& name : names)
        if (vt::wildcardMatch(mask, name)) matches.push_back(joinPath(dir, name));
    return !matches.empty();
}

void CInfoSourceFileMonitor::doProcessFile() {
    std::string name = vt::utf16ToUtf8(expandedName());
    if (m_nUseWildcard == 1 && m_nMultipleFiles == 1) {
        processMultipleFiles(name);
        return;
    }
    if (m_nUseWildcard == 1) {
        std::vector<std::string> matches;
        if (!resolveWildcard(name, matches)) {
            vt::debugWrite(vt::DBG_INFO,
                           "CInfoSourceFileMonitor| No file was the configured wildcards was "
                           "found\r\n");
            reportNotFound(name, 2, false);
            // The file read last may still have lines the rename left behind.
            if (!m_state.name.empty()) processFile(m_state);
            return;
        }
        if (matches.size() > 1)
            vt::reportWarning(kFileMonitorWarningEvent, "Warning in FileMonitor",
                              "Warning, more then one file was found using the configured "
                              "wildcards!");
        // The highest name: date-named logs sort by their date.
        name = matches.back();
    }

    if (!m_state.name.empty() && name != m_state.name) {
        bool switchNow = true;
        if (m_nKeepReadingUntilNew == 1) {
            vt::SharedReadFile probe;
            uint32_t error = 0;
            bool isDirectory = false;
            switchNow = probe.open(name, error, isDirectory);
        }
        if (!switchNow) {
            vt::debugPrintf(vt::DBG_INFO,
                            "CInfoSourceFileMonitor| '%s' does not exist yet - reading on in "
                            "'%s'\r\n",
                            name.c_str(), m_state.name.c_str());
            name = m_state.name;
        } else {
            vt::debugWrite(vt::DBG_MINIMUM,
                           "CInfoSourceFileMonitor| New Filename detected - Finishing the old "
                           "file first\r\n");
            if (!processFile(m_state)) return;  // the old file's rest comes first, next check
            vt::debugWrite(vt::DBG_MINIMUM,
                           "CInfoSourceFileMonitor| New Filename detected - Old file was "
                           "finished. Resetting LastFileOffset\r\n");
            m_state.name = name;
            m_state.offset = 0;
            m_state.identityKnown = false;
            m_state.known = true;  // a file that appears while we follow is read whole
            if (m_nPropertyMsgSepReset == 1) m_msgSepCurrent = m_msgSepLast = -1;
            saveState(m_state);
        }
    }
    if (m_state.name.empty()) m_state.name = name;
    processFile(m_state);
}

void CInfoSourceFileMonitor::processMultipleFiles(const std::string& pattern) {
    std::vector<std::string> matches;
    if (!resolveWildcard(pattern, matches)) {
        vt::debugWrite(vt::DBG_INFO,
                       "CInfoSourceFileMonitor|doMultipleFileReport: No file with the "
                       "configured wildcards was found\r\n");
        reportNotFound(pattern, 2, false);
    }
    // Files that no longer match are read to their end once and then forgotten.
    for (auto it = m_multi.begin(); it != m_multi.end() && keepRunning();) {
        if (std::find(matches.begin(), matches.end(), it->name) != matches.end()) {
            ++it;
            continue;
        }
        if (!processFile(*it)) return;
        CRegAccess gone;
        gone.DeleteKey(m_root, it->statePath);
        it = m_multi.erase(it);
    }
    for (const std::string& name : matches) {
        if (!keepRunning()) return;
        auto it = std::find_if(m_multi.begin(), m_multi.end(),
                               [&name](const FileState& s) { return s.name == name; });
        if (it == m_multi.end()) {
            FileState state;
            // Registry key names cannot hold a backslash; the file name within the directory
            // is unique among the matches of one pattern.
            std::u16string keyName = vt::utf8ToUtf16(baseOf(name));
            std::replace(keyName.begin(), keyName.end(), u'\\', u'_');
            state.statePath =
                CQuilletString(std::u16string(getStatePath().getString()) + u"\\Files\\" + keyName);
            loadState(state);
            state.name = name;
            m_multi.push_back(std::move(state));
            it = m_multi.end() - 1;
        }
        processFile(*it);
    }
}

bool CInfoSourceFileMonitor::processFile(FileState& state) {
    vt::SharedReadFile file;
    uint32_t error = 0;
    bool isDirectory = false;
    if (!file.open(state.name, error, isDirectory)) {
        reportNotFound(state.name, error, isDirectory);
        vt::debugWrite(vt::DBG_INFO,
                       "CInfoSourceFileMonitor|doProcessFile: liFileSize INVALID_FILE_SIZE "
                       "detected, only happens when the filename has changed and the old file "
                       "does not exists.\r\n");
        return true;
    }
    m_notFoundLogged = false;
    m_notFoundReported = false;
    uint64_t size = 0;
    if (!file.size(size, error)) {
        vt::debugWrite(vt::DBG_INFO,
                       "CInfoSourceFileMonitor|doProcessFile: liFileSize INVALID_FILE_SIZE "
                       "detected, only happens when the filename has changed and the old file "
                       "does not exists.\r\n");
        return true;
    }
    vt::FileIdentity identity;
    if (file.identity(identity, error)) {
        if (state.identityKnown && !(identity == state.identity)) {
            vt::debugPrintf(vt::DBG_MINIMUM,
                            "CInfoSourceFileMonitor|doProcessFile: '%s' is another file than "
                            "before (rotated or replaced) - reading it from its start\r\n",
                            state.name.c_str());
            // A rotation by rename keeps the old file in the directory under another name:
            // its lines after the saved offset come first.
            if (!finishRotatedFile(state)) return false;
            state.offset = 0;
        }
        if (!state.identityKnown || !(identity == state.identity)) {
            state.identity = identity;
            state.identityKnown = true;
            saveState(state);
        }
    }
    if (size < state.offset) {
        vt::debugWrite(vt::DBG_MINIMUM,
                       "CInfoSourceFileMonitor|doProcessFile: Resetting FilePos because we saw "
                       "an error\r\n");
        state.offset = 0;
        saveState(state);
    }
    const bool skipping = !state.known && m_nSkipLinesEnabled == 1;
    if (skipping)
        vt::debugPrintf(vt::DBG_INFO,
                        "CInfoSourceFileMonitor|doProcessFile: skipping the lines '%s' already "
                        "holds\r\n",
                        state.name.c_str());
    state.known = true;

    char head[3] = {};
    size_t headBytes = 0;
    if (!file.readAt(0, head, sizeof head, headBytes, error)) headBytes = 0;
    const auto [encoding, bomBytes] = vt::detectEncoding(
        std::string_view(head, headBytes), static_cast<vt::TextEncoding>(m_nFileEncoding));
    if (state.offset < bomBytes) state.offset = bomBytes;

    const vt::LineCleanup cleanup{m_nRemoveControlChars == 1, m_nRemoveLeadingSpaces == 1,
                                  m_nCompressSpaces == 1};
    std::string& buffer = m_readBuffer;
    buffer.clear();
    uint64_t bufferStart = state.offset;
    size_t pos = 0;
    bool endOfFile = false;
    bool finished = true;
    while (keepRunning()) {
        vt::LineCut cut;
        if (!vt::findLine(std::string_view(buffer).substr(pos), encoding, m_nMaxBytesPerMessage,
                          cut)) {
            if (endOfFile) break;
            buffer.erase(0, pos);
            bufferStart += pos;
            pos = 0;
            const size_t had = buffer.size();
            buffer.resize(had + kReadChunk);
            size_t got = 0;
            if (!file.readAt(bufferStart + had, buffer.data() + had, kReadChunk, got, error)) {
                vt::debugPrintf(vt::DBG_INFO,
                                "CInfoSourceFileMonitor| after readFile: GetLastError() returns "
                                "%d, Bytes Read: m_iFileIOBufNbrBytes: %d.\r\n",
                                static_cast<int>(error), 0);
                vt::debugWrite(vt::DBG_ERROR,
                               "CInfoSourceFileMonitor| couldn't read file - Throwing "
                               "excpetion\r\n");
                finished = false;
                break;
            }
            buffer.resize(had + got);
            if (got == 0) endOfFile = true;
            continue;
        }
        const std::u16string raw =
            vt::decodeLine(std::string_view(buffer).substr(pos, cut.contentBytes), encoding);
        size_t nulCount = 0;
        const std::u16string line = vt::cleanLine(raw, cleanup, nulCount);
        if (cut.piece)
            vt::debugPrintf(vt::DBG_INFO,
                            "CInfoSourceFileMonitor|doProcessFile: line longer than %u bytes - "
                            "handing it on in pieces\r\n",
                            m_nMaxBytesPerMessage);
        bool handOn = !skipping;
        if (nulCount > 0) {
            vt::debugPrintf(vt::DBG_ERROR,
                            "CInfoSourceFileMonitor|doProcessFile: removed %u NUL character(s) "
                            "from a line of '%s'%s\r\n",
                            static_cast<unsigned>(nulCount), state.name.c_str(),
                            line.empty() ? " - nothing else left, no message" : "");
            if (line.empty()) handOn = false;
        }
        if (line.empty() && m_nIgnoreEmptyLines == 1) handOn = false;
        if (handOn && !enqueueLine(state, line)) {
            vt::debugPrintf(vt::DBG_ERROR,
                            "CInfoSourceFileMonitor|doProcessFile: the rule engine failed a "
                            "line of '%s' - it is read again at the next check\r\n",
                            state.name.c_str());
            finished = false;
            break;
        }
        pos += cut.consumed;
        state.offset = bufferStart + pos;
        saveState(state, true);
        if (m_nPreventOverrunDelay != 0 && !skipping)
            waitWhileRunning(std::chrono::milliseconds(m_nPreventOverrunDelay));
    }
    vt::debugPrintf(vt::DBG_ULTRA,
                    "CInfoSourceFileMonitor|closeCurrFile: BEGIN File '%s' handle '%d'\r\n",
                    state.name.c_str(), static_cast<int>(file.nativeHandle()));
    file.close();
    saveState(state);
    return finished && keepRunning();
}

bool CInfoSourceFileMonitor::finishRotatedFile(FileState& state) {
    const std::string dir = dirOf(state.name);
    std::vector<std::string> names;
    if (!vt::listDirectoryFiles(dir, names)) return true;
    for (const std::string& name : names) {
        const std::string path = joinPath(dir, name);
        if (path == state.name) continue;
        vt::SharedReadFile probe;
        uint32_t error = 0;
        bool isDirectory = false;
        vt::FileIdentity identity;
        if (!probe.open(path, error, isDirectory) || !probe.identity(identity, error) ||
            !(identity == state.identity))
            continue;
        probe.close();
        vt::debugPrintf(vt::DBG_MINIMUM,
                        "CInfoSourceFileMonitor|doProcessFile: finishing the rotated file '%s' "
                        "first\r\n",
                        path.c_str());
        // Read under the rotated name with the same state; the offset it reaches is the
        // state's until the new file is started.
        FileState rotated = state;
        rotated.name = path;
        const bool done = processFile(rotated);
        state.offset = rotated.offset;
        state.w3cHeader = rotated.w3cHeader;
        return done;
    }
    return true;
}

bool CInfoSourceFileMonitor::enqueueLine(FileState& state, std::u16string_view line) {
    const CQuilletString text{line};
    vt::debugPrintf(vt::DBG_ULTRA,
                    "CInfoSourceFileMonitor|EnqueueEvent: Line to process = '%s'\r\n",
                    text.getStringA());
    CInfoUnitFileMonitor unit;
    if (m_nLogFileType == 1) {
        if (!line.empty() && line[0] == u'#') {
            if (line.rfind(u"#Fields:", 0) == 0) {
                state.w3cHeader = std::u16string(line.substr(8));
                saveState(state);
            }
            return true;
        }
        const std::vector<std::u16string> fields = vt::parseW3CFields(state.w3cHeader);
        const std::vector<std::u16string> columns = vt::splitW3CColumns(line);
        for (size_t i = 0; i < columns.size(); ++i)
            unit.setPropertyString(vt::w3cColumnName(fields, i), columns[i]);
    }
    if (m_nPropertyMsgSep == 1 && !m_msgSeparators.empty()) {
        for (size_t i = 0; i < m_msgSeparators.size(); ++i) {
            if (m_msgSeparators[i].empty() || line.find(m_msgSeparators[i]) == line.npos) continue;
            if (static_cast<int>(i) != m_msgSepCurrent) {
                m_msgSepLast = m_msgSepCurrent;
                m_msgSepCurrent = static_cast<int>(i);
            }
            break;
        }
        if (m_msgSepCurrent >= 0) {
            const CQuilletString sep{std::u16string_view(m_msgSeparators[m_msgSepCurrent])};
            vt::debugPrintf(vt::DBG_ULTRA, "CInfoSourceFileMonitor|EnqueueEvent: MsgSep = '%s'\r\n",
                            sep.getStringA());
            unit.setPropertyString(u"msgsep", sep);
        }
        if (m_msgSepLast >= 0) {
            const CQuilletString sep{std::u16string_view(m_msgSeparators[m_msgSepLast])};
            vt::debugPrintf(vt::DBG_ULTRA,
                            "CInfoSourceFileMonitor|EnqueueEvent: MsgSepLast = '%s'\r\n",
                            sep.getStringA());
            unit.setPropertyString(u"msgseplast", sep);
        }
    }
    unit.setPropertyString(u"genericfilename", m_szPathAndFileName);
    unit.setPropertyString(u"generatedfilename", CQuilletString(vt::utf8ToUtf16(state.name)));
    unit.setMsg(line);
    setCommonInfoUnitSettings(unit);
    return handOver(unit);
}

bool CInfoSourceFileMonitor::handOver(CInfoUnitFileMonitor& unit) {
    const bool processed = EnqueueAndWait(unit);
    return processed && unit.getActionFailed() == 0;
}
