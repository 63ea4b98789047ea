#include "actions/spawn_command/action_spawn_command.h"

#include <cstdio>

#include "base/debug_log.h"
#include "model/info_unit.h"
#include "model/property_replacer.h"
#include "platform/local_time.h"
#include "platform/spawn_process.h"
#include "platform/utf_codec.h"

namespace {

constexpr std::u16string_view kTimeGenerated = u"%timegenerated%";

// The generation time in the form command lines have always had it.
std::u16string timeGeneratedText(const CInfoUnit& unit) {
    vt::CivilTime t;
    if (!vt::localTimeOf(unit.getPropertyTime(u"timegenerated"), t)) return u"";
    char text[32];
    std::snprintf(text, sizeof text, "%4.4d-%2.2d-%2.2d %2.2d:%2.2d:%2.2d", t.year, t.month, t.day,
                  t.hour, t.minute, t.second);
    return vt::utf8ToUtf16(text);
}

std::string expand(const std::string& argument, const CInfoUnit& unit) {
    std::u16string templ = vt::utf8ToUtf16(argument);
    for (size_t at = templ.find(kTimeGenerated); at != std::u16string::npos;
         at = templ.find(kTimeGenerated, at)) {
        const std::u16string time = timeGeneratedText(unit);
        templ.replace(at, kTimeGenerated.size(), time);
        at += time.size();
    }
    return vt::utf16ToUtf8(vt::replaceProperties(templ, &unit));
}

}  // namespace

void CActionConfigSpawnCommand::LoadConfig() {
    if (!loadEnabled()) return;
    m_regAccess.ReadStringValue(u"szCommand", m_szCommand, u"");
    m_regAccess.ReadStringValue(u"szParameters", m_szParameters, u"");
    m_regAccess.ReadDWORDValue(u"nProcMode", m_nProcMode, 0);
    m_regAccess.ReadDWORDValue(u"nSyncTimeout", m_nSyncTimeout, 10);
    m_regAccess.ReadDWORDValue(u"nSetEnvVars", m_nSetEnvVars, 0);
    m_regAccess.ReadDWORDValue(u"nUseLegacyProcessing", m_nUseLegacyProcessing, 1);
    m_regAccess.CloseKey();
}

std::vector<std::string> CActionSpawnCommand::commandLine(const CInfoUnit& unit) const {
    const std::string command = m_config.m_szCommand.getStringA();
    const std::string parameters = m_config.m_szParameters.getStringA();
    std::string line = command;
    if (!parameters.empty()) line += " " + parameters;
    vt::debugPrintf(vt::DBG_INFO, "CActionSpawnCommand|generateCommandLine: %s \r\n", line.c_str());
    std::vector<std::string> templates;
    if (m_config.m_nUseLegacyProcessing == 1) {
        templates = vt::splitCommandLine(line);
    } else {
        templates = vt::splitCommandLine(parameters);
        templates.insert(templates.begin(), command);
    }
    std::vector<std::string> args;
    for (const std::string& t : templates) args.push_back(expand(t, unit));
    return args;
}

std::vector<std::pair<std::string, std::string>> CActionSpawnCommand::environmentOf(
    const CInfoUnit& unit) {
    std::vector<std::pair<std::string, std::string>> vars;
    const CNameValueTree& properties = unit.getProperties();
    for (auto* e = properties.firstEntry(); e; e = properties.nextEntry(e)) {
        if (e->getChild()) continue;  // a nested tree has no one text
        std::string name = "VTAGENT_";
        for (const char c : std::string(e->getName().getStringA())) {
            const char upper = (c >= 'a' && c <= 'z') ? char(c - 'a' + 'A') : c;
            const bool plain = (upper >= 'A' && upper <= 'Z') || (upper >= '0' && upper <= '9');
            name.push_back(plain ? upper : '_');
        }
        vars.emplace_back(name, vt::utf16ToUtf8(e->getValue().getString()));
    }
    return vars;
}

void CActionSpawnCommand::doAction(CInfoUnit& unit, const CConfigSettings&, CActionListEntry&) {
    const std::vector<std::string> args = commandLine(unit);
    vt::debugPrintf(vt::DBG_INFO, "CActionSpawnCommand|expanded commandline: %s \r\n",
                    vt::joinCommandLine(args).c_str());
    vt::SpawnOptions options;
    options.wait = m_config.m_nProcMode == 1;
    options.timeoutMs = m_config.m_nSyncTimeout * 1000;
    if (m_config.m_nSetEnvVars == 1) options.environment = environmentOf(unit);
    vt::SpawnResult result;
    if (!vt::spawnProgram(args, options, result)) {
        vt::debugPrintf(vt::DBG_ERROR, "CreateProcess failed!\r\n");
        vt::debugPrintf(vt::DBG_ERROR,
                        "CActionSpawnCommand| '%s' could not be started - error %u\r\n",
                        args.empty() ? "" : args[0].c_str(), result.error);
        return;
    }
    if (result.killed)
        vt::debugWrite(vt::DBG_ERROR, "Spawn: we need to kill it...\r\n");
    else
        vt::debugWrite(vt::DBG_INFO, "Spawn: all went well.\r\n");
}
