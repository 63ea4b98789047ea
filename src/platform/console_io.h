#pragma once

namespace vt {
// Puts standard input and output into binary mode, so that bytes written are the bytes that
// arrive (Windows would otherwise turn every LF into CRLF). Nothing to do on Linux.
void setBinaryStdio() noexcept;
}  // namespace vt
