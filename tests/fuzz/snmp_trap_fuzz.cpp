// Feeds arbitrary datagrams to the SNMP library's parser and the receiver's decoding, as the
// trap port would: nothing may crash, and a decoded trap names every binding.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "platform/snmp_trap_listener.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    vt::SnmpTrap trap;
    const std::string_view datagram(reinterpret_cast<const char*>(data), size);
    if (vt::decodeSnmpDatagram(datagram, size % 2 == 1, trap)) {
        for (const vt::SnmpVarBind& binding : trap.bindings)
            if (binding.name.empty()) std::abort();
    }
    return 0;
}
