#pragma once
#include <memory>
#include <string>

#include "platform/event_log_reader.h"

namespace vt {
// The reader of a classic .evt backup file, through libevt.
std::unique_ptr<IEventLogReader> makeEvtFileReader(const std::string& fileName);
}  // namespace vt
