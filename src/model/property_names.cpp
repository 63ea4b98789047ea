#include "model/property_names.h"

#include <array>

#include "base/setting_text.h"

namespace vt {
namespace {
constexpr std::array<std::u16string_view, kStdPropertyCount> kNames = {
    u"iut",        u"timegenerated",  u"timereported",
    u"importance", u"syslogpriority", u"syslogfacility",
    u"resource",   u"syslogtag",      u"iuvers",
    u"source",     u"CustomerID",     u"SystemID",
    u"msg",        u"rawsyslogmsg"};

// For each length, the (at most three) names of that length.
constexpr uint8_t kNone = 0xFF;
constexpr auto kByLength = [] {
    std::array<std::array<uint8_t, 3>, 16> table{};
    for (auto& slot : table) slot = {kNone, kNone, kNone};
    for (size_t i = 0; i < kNames.size(); ++i) {
        auto& slot = table[kNames[i].size()];
        // A fourth name of one length would not fit: the build stops here instead.
        if (slot[2] != kNone) throw "more than three shared names of one length";
        slot[slot[0] == kNone ? 0 : slot[1] == kNone ? 1 : 2] = static_cast<uint8_t>(i);
    }
    return table;
}();

struct SharedNames {
    std::array<CSettingText, kStdPropertyCount> texts;
    std::array<SharedPropertyName, kStdPropertyCount> names;
    SharedNames() {
        for (size_t i = 0; i < kNames.size(); ++i) {
            texts[i] = CSettingText(kNames[i]);
            names[i] = {&texts[i].text(), propertyNameHash(kNames[i])};
        }
    }
};

const SharedNames& shared() noexcept {
    static const SharedNames names;
    return names;
}
}  // namespace

const SharedPropertyName& sharedPropertyName(StdProperty id) noexcept {
    return shared().names[static_cast<size_t>(id)];
}

const SharedPropertyName* findSharedPropertyName(std::u16string_view name) noexcept {
    // By length first: this runs for every property added by name.
    if (name.size() >= kByLength.size()) return nullptr;
    for (const uint8_t i : kByLength[name.size()])
        if (i != kNone && kNames[i] == name) return &shared().names[i];
    return nullptr;
}

}  // namespace vt
