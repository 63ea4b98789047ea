#include "sources/threshold_watch.h"

CThresholdWatch::Event CThresholdWatch::observe(bool beyond,
                                                std::chrono::steady_clock::time_point now) {
    if (!beyond) {
        const bool was = m_beyond;
        m_beyond = false;
        return was && m_reportRecovery ? Event::Recovered : Event::None;
    }
    if (!m_beyond) {
        m_beyond = true;
        m_lastAlert = now;
        return Event::Crossed;
    }
    if (m_repeat.count() == 0 || now - m_lastAlert < m_repeat) return Event::None;
    m_lastAlert = now;
    return Event::StillBeyond;
}
