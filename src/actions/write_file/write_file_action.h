#pragma once
#include <string>

#include "actions/write_file/write_file_config.h"
#include "engine/action_config.h"

// Appends one line per unit to the action's file, in the line format the settings choose.
class CActionRelaylogV3FlatFile : public CAction {
  public:
    explicit CActionRelaylogV3FlatFile(CActionConfigWriteFile& config) : m_config(config) {}
    void doAction(CInfoUnit& unit, const CConfigSettings& settings,
                  CActionListEntry& entry) override;

  private:
    // Hands the narrow line to the file (at once with `atOnce`); false when a write failed
    // (logged).
    bool writeFileFormatRelaylog(const std::string& line, size_t& written, bool atOnce);

    CActionConfigWriteFile& m_config;
    // Line buffers, reused from unit to unit (only touched under the action's lock).
    std::u16string m_wide;
    std::string m_narrow;
};
