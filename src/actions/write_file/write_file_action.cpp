#include "actions/write_file/write_file_action.h"

#include <cstdio>

#include "actions/write_file/write_file_format.h"
#include "base/debug_log.h"
#include "base/error_reporter.h"
#include "model/info_unit.h"
#include "platform/text_codec.h"

void CActionRelaylogV3FlatFile::doAction(CInfoUnit& unit, const CConfigSettings& /*settings*/,
                                         CActionListEntry& /*entry*/) {
    vt::debugWrite(vt::DBG_ULTRA, "ENTER File:doAction\r\n");
    // The idle timer is not cancelled here: its routine needs the action's lock, which this
    // unit holds, and arming it at the end moves a pending expiry to the new deadline.

    const int32_t format = m_config.fileFormat();
    if (format < 0 || format > 3) {
        // Checked before the file is opened, so that a wrong setting leaves no empty file.
        char text[128];
        std::snprintf(text, sizeof text,
                      "Invalid file format %d for Action Write File - nothing written.", format);
        vt::reportError(114, "WriteFile", text);
    } else if (!m_config.OpenFile(unit)) {
        unit.setActionFailed(1);
    } else {
        const bool utc = m_config.useUTCForTimestamps() != 0;
        m_wide.clear();
        m_narrow.clear();
        switch (format) {
            case 0: {
                vt::RelaylogLineFields fields;
                fields.dateTime = m_config.fileDateTime();
                fields.dateTimeReported = m_config.fileDateTimeReported();
                fields.source = m_config.fileSource();
                fields.facility = m_config.fileFacility();
                fields.priority = m_config.filePriority();
                fields.useXml = m_config.useXMLtoReport();
                fields.message = m_config.includeMessage();
                fields.rawMessage = m_config.includeRAWMessage();
                fields.utc = utc;
                vt::formatRelaylogLine(unit, fields, m_wide);
                break;
            }
            case 1:
                vt::formatTextFormsLine(unit, utc, m_wide);
                break;
            case 2:
                vt::formatSyslogLine(unit, utc, m_narrow);
                break;
            default:
                vt::formatTemplateLine(unit, m_config.lineFormat(), m_wide);
                break;
        }
        if (format != 2) vt::wideToNarrow(m_wide, m_narrow);
        size_t written = 0;
        // A producer that waits for its unit takes the end of processing as the line being
        // in the file (a file monitor then stores its read position), so that line is not
        // held back in a block.
        if (!writeFileFormatRelaylog(m_narrow, written, unit.awaitsProcessing()))
            unit.setActionFailed(1);
        // Format 2 lines are not counted against the circle or segment sizes.
        if (format != 2 && written > 0) m_config.addToCurrentFileSize(written, unit);
    }

    m_config.armTimer(&CActionConfigWriteFile::TimerAPCProc, &m_config,
                      CActionConfigWriteFile::kIdleCloseMs);
    vt::debugWrite(vt::DBG_ULTRA, "EXIT File:doAction\r\n");
}

bool CActionRelaylogV3FlatFile::writeFileFormatRelaylog(const std::string& line, size_t& written,
                                                        bool atOnce) {
    uint32_t error = 0;
    const bool ok = m_config.writeLine(line.data(), line.size(), written, error, atOnce);
    if (!ok) {
        vt::debugWrite(vt::DBG_MINIMUM,
                       "writeFileFormatRelaylog| WriteFile() failed in WriteFileAction\r\n");
        vt::debugPrintf(vt::DBG_MINIMUM, "writeFileFormatRelaylog| system error %d.\r\n",
                        static_cast<int>(error));
    }
    vt::debugPrintf(vt::DBG_ULTRA,
                    "writeFileFormatRelaylog| WriteFile wrote %d octets, %d requested.\r\n",
                    static_cast<int>(written), static_cast<int>(line.size()));
    return ok;
}
