#pragma once
#include <cstdint>
#include <memory>

#include "sources/info_source.h"

namespace vt {

// How an input of one type is made.
using InfoSourceFactory = std::unique_ptr<CInfoSource> (*)(const InfoSourceContext& context);

// One configured type id ("nISType%d") with its class. `create` is null while the input of
// that type is not part of this build: the service manager then reports it and goes on.
struct InfoSourceType {
    uint32_t id;
    const char* className;
    InfoSourceFactory create;
};

// The row of `id`, or null for an id that no input type has (6, 7, 15, ...). A row of the
// agent's table with a null factory is a known type not built yet; a scoped type (tests)
// takes precedence over the table.
const InfoSourceType* findInfoSourceType(uint32_t id) noexcept;

// Makes an extra type known (or replaces a row) while the object lives: for test inputs,
// which do not belong in the agent's own table. Not for use while services start elsewhere.
class ScopedInfoSourceType {
  public:
    explicit ScopedInfoSourceType(const InfoSourceType& type);
    ~ScopedInfoSourceType();
    ScopedInfoSourceType(const ScopedInfoSourceType&) = delete;
    ScopedInfoSourceType& operator=(const ScopedInfoSourceType&) = delete;

  private:
    uint32_t m_id;
};

// Helper for table rows.
template <class Source>
std::unique_ptr<CInfoSource> makeInfoSource(const InfoSourceContext& context) {
    return std::make_unique<Source>(context);
}

}  // namespace vt
