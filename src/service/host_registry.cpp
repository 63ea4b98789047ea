#include "service/host_registry.h"

#include "base/debug_log.h"
#include "platform/registry.h"
#include "platform/system_error.h"
#include "platform/text_codec.h"

namespace vt {

bool registerEventSourceKey(const char* serviceName, const std::string& messageFile) {
    std::u16string path = u"SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\";
    std::u16string name;
    narrowToWide(serviceName, name);
    path += name;
    RegKey key;
    uint32_t rc = key.create(RegRoot::LocalMachine, path, kKeySetValue);
    if (rc == kRegOk) {
        std::u16string file;
        narrowToWide(messageFile, file);
        const std::vector<uint8_t> fileBytes = regStringBytes(file);
        rc = key.setValue(u"EventMessageFile", kRegExpandSz, fileBytes.data(), fileBytes.size());
        if (rc == kRegOk) {
            const std::vector<uint8_t> types = regDwordBytes(7);
            rc = key.setValue(u"TypesSupported", kRegDword, types.data(), types.size());
        }
    }
    if (rc != kRegOk) {
        debugPrintf(DBG_ERROR,
                    "CNTService|Install: event source key could not be written, Error '%d'\r\n",
                    static_cast<int>(rc));
        setLastSystemError(rc);
        return false;
    }
    return true;
}

}  // namespace vt
