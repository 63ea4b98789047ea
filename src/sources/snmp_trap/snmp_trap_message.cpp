#include "sources/snmp_trap/snmp_trap_message.h"

#include <cstdio>

namespace vt {
namespace {

constexpr const char* kGenericNames[] = {
    "Cold Start",        "Warm Start",         "Link Down", "Link Up", "Authentication Failure",
    "EGP Neighbor Loss", "Enterprise Specific"};
constexpr char kTruncated[] = " [TRUNCATED]\n";

std::string versionOneMessage(const SnmpTrap& trap) {
    // No blank before version=: receivers' filters have matched this text for years.
    return "source=\"" + trap.source + "\" community=\"" + trap.community + "\" enterprise=\"" +
           trap.enterprise + "\" generic_name=\"" + snmpGenericTrapName(trap.genericType) +
           "\"version=\"Ver1\" specific_type=\"" + std::to_string(trap.specificType) +
           "\" uptime=\"" + snmpUptimeText(trap.uptime) + "\"";
}

std::string variablesMessage(const SnmpTrap& trap) {
    std::string text = "source=\"" + trap.source + "\" community=\"" + trap.community +
                       "\" version=\"" + (trap.version == 3 ? "Ver3" : "Ver2") + "\" variables: ";
    for (size_t i = 0; i < trap.bindings.size(); ++i) {
        if (i > 0) text += " , ";
        text += snmpVarPropertyName(i + 1);
        text += " = '";
        text += snmpVarPropertyText(trap.bindings[i]);
        text += '\'';
    }
    return text;
}

}  // namespace

const char* snmpGenericTrapName(long genericType) noexcept {
    if (genericType < 0 || genericType > 6) return "Unknown Type";
    return kGenericNames[genericType];
}

std::string snmpUptimeText(unsigned long ticks) {
    const unsigned long days = ticks / 8640000;
    const unsigned long rest = ticks % 8640000;
    char clock[64];
    std::snprintf(clock, sizeof clock, "%lu:%02lu:%02lu.%02lu", rest / 360000, rest / 6000 % 60,
                  rest / 100 % 60, rest % 100);
    std::string dayText;
    if (days > 0) dayText = std::to_string(days) + (days == 1 ? " day " : " days ");
    std::string text = std::to_string(ticks);
    text += ", ";
    text += dayText;
    text += clock;
    return text;
}

std::string snmpVarPropertyName(size_t number) {
    std::string name = "snmp_var_";
    name += std::to_string(number);
    return name;
}

std::string snmpVarPropertyText(const SnmpVarBind& binding) {
    std::string text = binding.name;
    text += ": '";
    text += binding.value;
    text += '\'';
    return text;
}

std::string snmpTrapMessage(const SnmpTrap& trap, size_t limit) {
    std::string text =
        trap.kind == SnmpPduKind::TrapV1 ? versionOneMessage(trap) : variablesMessage(trap);
    const size_t mark = sizeof kTruncated - 1;
    if (text.size() > limit && limit > mark) {
        text.resize(limit - mark);
        text += kTruncated;
    }
    return text;
}

}  // namespace vt
