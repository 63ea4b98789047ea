#include "platform/console_io.h"

namespace vt {
void setBinaryStdio() noexcept {}
}  // namespace vt
