#include "service/config_check.h"

#include <cctype>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>

#include "base/reg_access.h"
#include "engine/action_types.h"
#include "platform/utf_codec.h"
#include "service/action_type_table.h"
#include "service/info_source_types.h"

namespace vt {
namespace {

constexpr int32_t kActionWriteFile = 1003;
constexpr int32_t kActionCallRuleSet = 1014;
constexpr uint32_t kInputSyslog = 1;

class CChecker {
  public:
    explicit CChecker(std::string agentKey) : m_agent(std::move(agentKey)) {}

    std::vector<ConfigProblem> run() {
        checkValueTypes(m_agent);
        readRuleSetNames();
        checkInputs();
        checkRuleSets();
        return std::move(m_problems);
    }

  private:
    void add(const std::string& key, const std::string& value, std::string text) {
        m_problems.push_back({key, value, std::move(text)});
    }

    bool open(CRegAccess& reg, const std::string& key) {
        return reg.OpenKey(RegRoot::LocalMachine, CQuilletString(key), kKeyRead);
    }
    uint32_t dword(CRegAccess& reg, const char16_t* name, uint32_t fallback) {
        uint32_t value = fallback;
        reg.ReadDWORDValue(name, value, fallback);
        return value;
    }
    std::string text(CRegAccess& reg, const char16_t* name) {
        CQuilletString value;
        reg.ReadStringValue(name, value, CQuilletString());
        return utf16ToUtf8(value.view());
    }
    static std::u16string numbered(const char* prefix, int n) {
        return utf8ToUtf16(prefix + std::to_string(n));
    }

    // The agent's value names say their type: "n"/"b" and a capital for numbers, "sz" and a
    // capital for text. A value of another type is read as missing, so its default applies
    // unnoticed; that is what an administrator wants to hear about.
    void checkValueTypes(const std::string& key) {
        CRegAccess reg;
        if (!open(reg, key)) return;
        std::vector<RegValue> values;
        reg.EnumValues(values);
        for (const RegValue& v : values) {
            const std::string name = utf16ToUtf8(v.name);
            const bool number = name.size() > 1 && (name[0] == 'n' || name[0] == 'b') &&
                                std::isupper(static_cast<unsigned char>(name[1]));
            const bool text = name.size() > 2 && name.compare(0, 2, "sz") == 0 &&
                              std::isupper(static_cast<unsigned char>(name[2]));
            if (number && v.type != kRegDword && v.type != kRegQword)
                add(key, name, "is not a number (REG_DWORD); the default is used instead");
            if (text && v.type != kRegSz && v.type != kRegExpandSz)
                add(key, name, "is not text (REG_SZ); the default is used instead");
        }
        std::vector<std::u16string> subkeys;
        reg.EnumSubKeys(subkeys);
        for (const std::u16string& sub : subkeys) checkValueTypes(key + "\\" + utf16ToUtf8(sub));
    }

    void readRuleSetNames() {
        CRegAccess reg;
        if (!open(reg, m_agent + "\\RuleSets")) return;
        const uint32_t count = dword(reg, u"nRuleSetCount", 0);
        for (uint32_t n = 1; n <= count && n <= 65535; ++n)
            m_ruleSets.insert(text(reg, numbered("szRSName", static_cast<int>(n)).c_str()));
    }

    void checkInputs() {
        const std::string services = m_agent + "\\Services";
        CRegAccess reg;
        if (!open(reg, services)) return add(services, "", "missing: no input is configured");
        const uint32_t count = dword(reg, u"nInfoSourceCount", 0);
        if (count == 0) add(services, "nInfoSourceCount", "no input is configured");
        std::map<std::string, uint32_t> ports;  // "514/udp/0.0.0.0" -> the input using it
        for (uint32_t n = 1; n <= count && n <= 65535; ++n) {
            const std::string typeName = "nISType" + std::to_string(n);
            uint32_t type = 0;
            if (!reg.ReadDWORDValue(utf8ToUtf16(typeName), type)) {
                add(services, typeName, "missing: input " + std::to_string(n) + " has no type");
                continue;
            }
            const InfoSourceType* known = findInfoSourceType(type);
            if (!known)
                add(services, typeName, "unknown input type " + std::to_string(type));
            else if (!known->create)
                add(services, typeName,
                    "input type " + std::to_string(type) + " (" + known->className +
                        ") is not available in this build");
            checkInput(services + "\\IS" + std::to_string(n), n, type, ports);
        }
    }

    void checkInput(const std::string& key, uint32_t n, uint32_t type,
                    std::map<std::string, uint32_t>& ports) {
        CRegAccess reg;
        if (!open(reg, key)) return;
        const std::string ruleSet = text(reg, u"szRuleSetName");
        if (!m_ruleSets.count(ruleSet))
            add(key, "szRuleSetName",
                ruleSet.empty() ? "names no rule set: the input's events are not processed"
                                : "rule set '" + ruleSet + "' does not exist");
        if (type != kInputSyslog) return;
        const uint32_t protocol = dword(reg, u"nProtocolType", 0);
        std::string address = text(reg, u"szMyIPAddress");
        if (address.empty()) address = "0.0.0.0";
        const std::string port = std::to_string(dword(reg, u"nListenPort", 514)) +
                                 (protocol == 0 ? "/udp" : "/tcp") + " on " + address;
        auto [it, fresh] = ports.try_emplace(port, n);
        if (!fresh)
            add(key, "nListenPort",
                "port " + port + " is also used by input " + std::to_string(it->second));
    }

    void checkRuleSets() {
        const std::string rules = m_agent + "\\RuleSets";
        CRegAccess reg;
        if (!open(reg, rules)) return add(rules, "", "missing: there is no rule set");
        const uint32_t count = dword(reg, u"nRuleSetCount", 0);
        for (uint32_t s = 1; s <= count && s <= 65535; ++s) {
            const std::string set = rules + "\\RS" + std::to_string(s);
            CRegAccess setKey;
            if (!open(setKey, set)) continue;
            const uint32_t ruleCount = dword(setKey, u"nRuleCount", 0);
            for (uint32_t r = 1; r <= ruleCount && r <= 65535; ++r)
                checkRule(set + "\\R" + std::to_string(r));
        }
    }

    void checkRule(const std::string& key) {
        CRegAccess reg;
        if (!open(reg, key)) return;
        const uint32_t count = dword(reg, u"nActionCount", 0);
        for (uint32_t a = 1; a <= count && a <= 65535; ++a) {
            const std::string typeName = "nActionType" + std::to_string(a);
            const int32_t type = static_cast<int32_t>(dword(reg, utf8ToUtf16(typeName).c_str(), 0));
            if (type != 0 && type != 1 && !findActionType(agentActionTypes(), type))
                add(key, typeName, "unknown action type " + std::to_string(type));
            const std::string action = key + "\\A" + std::to_string(a);
            if (type == kActionWriteFile) checkWriteFile(action);
            if (type == kActionCallRuleSet) checkCallRuleSet(action);
        }
    }

    void checkCallRuleSet(const std::string& key) {
        CRegAccess reg;
        if (!open(reg, key)) return;
        const std::string target = text(reg, u"szRuleSet");
        if (!m_ruleSets.count(target))
            add(key, "szRuleSet", "rule set '" + target + "' does not exist");
    }

    // The action makes a missing directory itself, so the nearest existing one must take a file.
    void checkWriteFile(const std::string& key) {
        CRegAccess reg;
        if (!open(reg, key)) return;
        const std::string path = text(reg, u"szFilePath");
        if (path.empty()) return;
        std::error_code ec;
        std::filesystem::path dir = std::filesystem::u8path(path);
        while (!dir.empty() && !std::filesystem::exists(dir, ec) && dir != dir.parent_path())
            dir = dir.parent_path();
        const auto stamp = std::chrono::steady_clock::now().time_since_epoch().count();
        const std::filesystem::path probe =
            dir / ("vtagent-check-" + std::to_string(stamp) + ".tmp");
        bool writable = false;
        {
            std::ofstream file(probe);
            writable = file.good();
        }
        std::filesystem::remove(probe, ec);
        if (!writable) add(key, "szFilePath", "directory '" + path + "' cannot be written");
    }

    std::string m_agent;
    std::set<std::string> m_ruleSets;
    std::vector<ConfigProblem> m_problems;
};

}  // namespace

std::vector<ConfigProblem> checkConfiguration(const std::string& agentKey) {
    return CChecker(agentKey).run();
}

std::string formatProblem(const ConfigProblem& problem) {
    std::string line = "HKLM\\" + problem.key;
    if (!problem.value.empty()) line += "\\" + problem.value;
    line += ": ";
    line += problem.text;
    return line;
}

}  // namespace vt
