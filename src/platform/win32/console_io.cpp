#include "platform/console_io.h"

#include <fcntl.h>
#include <io.h>

#include <cstdio>

namespace vt {
void setBinaryStdio() noexcept {
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stdin), _O_BINARY);
}
}  // namespace vt
