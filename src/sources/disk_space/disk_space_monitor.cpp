#include "sources/disk_space/disk_space_monitor.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>

#include "base/debug_log.h"
#include "base/reg_access.h"
#include "model/info_unit_types.h"
#include "platform/utf_codec.h"
#include "sources/setting_list.h"

namespace {

constexpr uint64_t kMB = 1024 * 1024;

int32_t toMB(uint64_t bytes) {
    return static_cast<int32_t>(std::min<uint64_t>(bytes / kMB, INT32_MAX));
}

}  // namespace

CInfoSourceDiskSpaceMonitor::CInfoSourceDiskSpaceMonitor(const vt::InfoSourceContext& context)
    : CInfoSource(context) {}
CInfoSourceDiskSpaceMonitor::~CInfoSourceDiskSpaceMonitor() = default;

bool CInfoSourceDiskSpaceMonitor::LoadConfig() {
    vt::debugWrite(vt::DBG_INFO, "CInfoSourceDiskSpaceMonitor|LoadConfig: Loading settings\r\n");
    CRegAccess reg;
    if (!beginLoadConfig(reg)) return isEnabled();
    reg.ReadDWORDValue(u"nSleepTime", m_nSleepTime, 60000);
    reg.ReadStringValue(u"szDiskPaths", m_szDiskPaths,
                        CQuilletString(std::string_view(vt::defaultDiskPath())));
    reg.ReadDWORDValue(u"nThresholdMode", m_nThresholdMode, 1);
    reg.ReadDWORDValue(u"nThreshold", m_nThreshold, 10);
    reg.ReadDWORDValue(u"nRepeatInterval", m_nRepeatInterval, 3600);
    reg.ReadDWORDValue(u"nReportRecovery", m_nReportRecovery, 1);
    reg.CloseKey();
    if (m_nThresholdMode > 1) {
        vt::debugPrintf(vt::DBG_ERROR,
                        "CInfoSourceDiskSpaceMonitor|LoadConfig: nThresholdMode %u unknown - "
                        "using percent\r\n",
                        m_nThresholdMode);
        m_nThresholdMode = 1;
    }
    m_watched.clear();
    for (const std::string& path : vt::splitSettingList(vt::utf16ToUtf8(m_szDiskPaths.getString())))
        m_watched.push_back({path, CThresholdWatch(m_nRepeatInterval, m_nReportRecovery == 1)});
    if (m_watched.empty())
        vt::debugWrite(vt::DBG_ERROR, "CInfoSourceDiskSpaceMonitor|LoadConfig: no disk paths\r\n");
    return isEnabled();
}

void CInfoSourceDiskSpaceMonitor::Run() {
    while (keepRunning()) {
        check();
        if (!waitWhileRunning(std::chrono::milliseconds(m_nSleepTime))) break;
    }
}

bool CInfoSourceDiskSpaceMonitor::isLow(const vt::DiskSpace& space) const {
    if (m_nThresholdMode == 0) return space.availableBytes / kMB < m_nThreshold;
    return space.totalBytes > 0 && space.availableBytes * 100 < space.totalBytes * m_nThreshold;
}

void CInfoSourceDiskSpaceMonitor::check() {
    const auto now = getClock().steadyNow();
    for (Watched& w : m_watched) {
        vt::DiskSpace space;
        uint32_t error = 0;
        if (!m_reader(w.path, space, error)) {
            // Logged once until it can be read again: a missing mount is not worth a line a poll.
            if (!w.failureLogged)
                vt::debugPrintf(
                    vt::DBG_ERROR,
                    "CInfoSourceDiskSpaceMonitor|check: cannot read '%s' - error %u\r\n",
                    w.path.c_str(), error);
            w.failureLogged = true;
            continue;
        }
        w.failureLogged = false;
        if (auto unit = makeUnit(w.path, space, w.watch.observe(isLow(space), now)))
            Enqueue(std::move(unit));
    }
}

std::unique_ptr<CInfoUnit> CInfoSourceDiskSpaceMonitor::makeUnit(
    const std::string& path, const vt::DiskSpace& space, CThresholdWatch::Event event) const {
    if (event == CThresholdWatch::Event::None) return nullptr;
    auto unit = std::make_unique<CInfoUnitDiskSpaceMonitor>();
    setCommonInfoUnitSettings(*unit);
    const int32_t total = toMB(space.totalBytes);
    const int32_t free = toMB(space.availableBytes);
    unit->setPropertyInt(u"currusage", total - free);
    unit->setPropertyInt(u"maxavailable", total);
    unit->setPropertyStringA(u"diskpath", path);
    const unsigned percent =
        space.totalBytes ? static_cast<unsigned>(space.availableBytes * 100 / space.totalBytes) : 0;
    const bool recovered = event == CThresholdWatch::Event::Recovered;
    char text[512];
    std::snprintf(text, sizeof text,
                  "Disk space %s on '%s': %d MB free of %d MB (%u%%), threshold %u%s",
                  recovered ? "recovered" : "low", path.c_str(), free, total, percent, m_nThreshold,
                  m_nThresholdMode == 0 ? " MB" : "%");
    unit->setMsgA(text);
    return unit;
}
