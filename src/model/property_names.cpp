#include "model/property_names.h"

#include <array>

namespace vt {
namespace {
// Names of up to seven characters fit into the string object itself and need no sharing.
constexpr std::array<std::u16string_view, 10> kLongNames = {
    u"timegenerated", u"timereported", u"importance", u"syslogpriority", u"syslogfacility",
    u"resource",      u"syslogtag",    u"CustomerID", u"SystemID",       u"rawsyslogmsg"};

struct SharedNames {
    std::array<CQuilletString, kLongNames.size()> names;
    SharedNames() {
        for (size_t i = 0; i < kLongNames.size(); ++i) {
            names[i] = kLongNames[i];
            names[i].getStringA();
        }
    }
};
}  // namespace

const CQuilletString* sharedPropertyName(std::u16string_view name) noexcept {
    if (name.size() < 8) return nullptr;
    static const SharedNames shared;
    for (size_t i = 0; i < kLongNames.size(); ++i)
        if (kLongNames[i] == name) return &shared.names[i];
    return nullptr;
}
}  // namespace vt
