#include "model/name_value_tree.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <limits>
#include <string>

#include "base/debug_log.h"
#include "base/error_report.h"
#include "model/unit_time.h"
#include "platform/text_codec.h"

namespace vt {

bool parseIntValue(std::u16string_view text, int32_t& value) {
    int64_t v = 0;
    for (char16_t c : text) {
        if (c < u'0' || c > u'9' || v > std::numeric_limits<int32_t>::max()) {
            debugWrite(DBG_INFO, "No Numeric value in Tag!!!\r\n");
            return false;
        }
        v = v * 10 + (c - u'0');
    }
    if (v > std::numeric_limits<int32_t>::max()) {
        debugWrite(DBG_INFO, "No Numeric value in Tag!!!\r\n");
        return false;
    }
    value = static_cast<int32_t>(v);
    return true;
}

namespace {
std::string narrowName(std::u16string_view name) {
    std::string s;
    wideToNarrow(name, s);
    return s;
}
}  // namespace

// ---------------------------------------------------------------- entries

template <class EntryBase, class Tree>
BasicNameValueTreeEntry<EntryBase, Tree>::~BasicNameValueTreeEntry() {
    delete m_pChild;
}

namespace {
constexpr std::byte kInBlock{0};
constexpr std::byte kOnHeap{1};
}  // namespace

template <class EntryBase, class Tree>
void* BasicNameValueTreeEntry<EntryBase, Tree>::operator new(size_t size) {
    auto* raw = static_cast<std::byte*>(::operator new(size + kHeaderBytes));
    raw[0] = kOnHeap;
    return raw + kHeaderBytes;
}

template <class EntryBase, class Tree>
void BasicNameValueTreeEntry<EntryBase, Tree>::operator delete(void* entry) noexcept {
    if (!entry) return;
    auto* raw = static_cast<std::byte*>(entry) - kHeaderBytes;
    if (raw[0] == kOnHeap) ::operator delete(raw);
}

template <class EntryBase, class Tree>
Tree* BasicNameValueTreeEntry<EntryBase, Tree>::createChild() {
    auto* child = new Tree();
    delete m_pChild;
    m_pChild = child;
    child->m_pOwner = static_cast<typename Tree::EntryType*>(this);
    return child;
}

template <class EntryBase, class Tree>
Tree* BasicNameValueTreeEntry<EntryBase, Tree>::detachChild() noexcept {
    Tree* child = m_pChild;
    m_pChild = nullptr;
    if (child) child->m_pOwner = nullptr;
    return child;
}

template <class EntryBase, class Tree>
void BasicNameValueTreeEntry<EntryBase, Tree>::setValue(std::u16string_view value) {
    m_value.setString(value);
    clearCaches();
}

template <class EntryBase, class Tree>
void BasicNameValueTreeEntry<EntryBase, Tree>::setValue(const CQuilletString& value) {
    m_value = value;
    clearCaches();
}

template <class EntryBase, class Tree>
void BasicNameValueTreeEntry<EntryBase, Tree>::setValueA(std::string_view narrow) {
    m_value.setString(narrow);
    clearCaches();
}

template <class EntryBase, class Tree>
void BasicNameValueTreeEntry<EntryBase, Tree>::setValue(std::u16string&& value) {
    m_value.takeString(std::move(value));
    clearCaches();
}

template <class EntryBase, class Tree>
int32_t BasicNameValueTreeEntry<EntryBase, Tree>::getInt() const {
    if (!m_intParsed) {
        int32_t v = 0;
        m_intValue = parseIntValue(getValue().view(), v) ? v : -1;
        m_intParsed = true;
    }
    return m_intValue;
}

template <class EntryBase, class Tree>
int64_t BasicNameValueTreeEntry<EntryBase, Tree>::getTime() const {
    if (!m_timeParsed) {
        int64_t v = 0;
        if (!parseTimeText(getValue().view(), v)) {
            debugWrite(DBG_INFO, "Invalid Date value in Tag!!!");
            v = 0;
        }
        m_timeValue = v;
        m_timeParsed = true;
    }
    return m_timeValue;
}

namespace {
// "%d" by hand: this runs a dozen times for every unit created.
std::u16string_view intText(int32_t value, std::array<char16_t, 12>& digits) noexcept {
    size_t pos = digits.size();
    uint32_t magnitude =
        value < 0 ? 0u - static_cast<uint32_t>(value) : static_cast<uint32_t>(value);
    do {
        digits[--pos] = static_cast<char16_t>(u'0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude);
    if (value < 0) digits[--pos] = u'-';
    return std::u16string_view(digits.data() + pos, digits.size() - pos);
}
}  // namespace

template <class EntryBase, class Tree>
void BasicNameValueTreeEntry<EntryBase, Tree>::writePendingText() const {
    if (m_pendingText == PendingText::Int) {
        std::array<char16_t, 12> digits;
        m_value.setString(intText(m_intValue, digits));
    } else {
        std::u16string text;
        appendTimeText(m_timeValue, text);
        m_value.takeString(std::move(text));
    }
    m_pendingText = PendingText::None;
}

template <class EntryBase, class Tree>
void BasicNameValueTreeEntry<EntryBase, Tree>::setInt(int32_t value) {
    if (value < 0) {
        // Read back, "-5" is no number (-1, and a line in the debug log): keep that as it is.
        std::array<char16_t, 12> digits;
        setValue(intText(value, digits));
        return;
    }
    clearCaches();
    m_intValue = value;
    m_intParsed = true;
    m_pendingText = PendingText::Int;
}

template <class EntryBase, class Tree>
void BasicNameValueTreeEntry<EntryBase, Tree>::setTime(int64_t seconds) {
    // Every new unit is stamped twice with the current second, so what a read of that
    // second's text yields is kept per thread.
    struct LastTime {
        int64_t seconds = 0;
        bool valid = false;
        int64_t value = 0;
    };
    thread_local LastTime last;
    if (!last.valid || last.seconds != seconds) {
        std::u16string text;
        appendTimeText(seconds, text);
        int64_t parsed = 0;
        // A read of the text decides the value, so a time before 1970 still reads 0.
        last.value = parseTimeText(text, parsed) ? parsed : 0;
        last.seconds = seconds;
        last.valid = true;
    }
    clearCaches();
    m_timeValue = last.value;
    m_timeParsed = true;
    if (last.value == seconds) {
        m_pendingText = PendingText::Time;
        return;
    }
    // The text of a time that does not read back as itself is written now, as it was set.
    std::u16string text;
    appendTimeText(seconds, text);
    m_value.takeString(std::move(text));
}

// ---------------------------------------------------------------- trees

template <class ListBase, class Entry>
const char16_t* BasicNameValueTree<ListBase, Entry>::getString(std::u16string_view name,
                                                               bool mustExist) const {
    if (Entry* e = findEntry(name)) return e->getValue().getString();
    if (mustExist && debugOn(DBG_ERROR))
        debugPrintf(DBG_ERROR, "CNameValueTree|Fatal error, Szt VALUE NOT FOUND: %s",
                    narrowName(name).c_str());
    return nullptr;
}

template <class ListBase, class Entry>
const CQuilletString* BasicNameValueTree<ListBase, Entry>::getStringObject(std::u16string_view name,
                                                                           bool mustExist) const {
    if (Entry* e = findEntry(name)) return &e->getValue();
    if (mustExist && debugOn(DBG_ERROR))
        debugPrintf(DBG_ERROR, "CNameValueTree| Fatal error, Astr VALUE NOT FOUND: %s",
                    narrowName(name).c_str());
    return nullptr;
}

template <class ListBase, class Entry>
int32_t BasicNameValueTree<ListBase, Entry>::getInt(std::u16string_view name,
                                                    bool mustExist) const {
    if (Entry* e = findEntry(name)) return e->getInt();
    if (!mustExist) return -1;
    char text[512];
    std::snprintf(text, sizeof text, "CNameValueTree|Fatal error, Int VALUE NOT FOUND: %s",
                  narrowName(name).c_str());
    debugWrite(DBG_ERROR, text);
    throw new CErrorReport(1100, CQuilletString(std::string_view(text)));
}

template <class ListBase, class Entry>
int64_t BasicNameValueTree<ListBase, Entry>::getTime(std::u16string_view name) const {
    if (Entry* e = findEntry(name)) return e->getTime();
    if (debugOn(DBG_ULTRA))
        debugPrintf(DBG_ULTRA, "CNameValueTree|Fatal error, Time VALUE NOT FOUND: %s",
                    narrowName(name).c_str());
    return 0;
}

template <class ListBase, class Entry>
void BasicNameValueTree<ListBase, Entry>::useEntryStorage(std::byte* storage,
                                                          size_t count) noexcept {
    // One block per tree: its slots are not reused.
    if (m_block || !storage || count == 0) return;
    m_block = storage;
    m_blockSlots = count;
    m_blockUsed = 0;
}

template <class ListBase, class Entry>
Entry* BasicNameValueTree<ListBase, Entry>::addEntry(std::u16string_view name) {
    return emplaceEntry(name);
}

template <class ListBase, class Entry>
Entry* BasicNameValueTree<ListBase, Entry>::addEntry(const SharedPropertyName& name) {
    return emplaceEntry(name);
}

template <class ListBase, class Entry>
template <class Name>
Entry* BasicNameValueTree<ListBase, Entry>::emplaceEntry(const Name& name) {
    Entry* e;
    if (m_blockUsed < m_blockSlots) {
        std::byte* raw = m_block + m_blockUsed * kEntrySlotBytes;
        raw[0] = kInBlock;
        e = new (raw + Entry::kHeaderBytes) Entry(name);
        ++m_blockUsed;
    } else {
        // The class's own new and delete are a pair, which the compiler's name-based check
        // cannot see once it has looked into the first one.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
        e = new Entry(name);
#pragma GCC diagnostic pop
    }
    this->append(e);
    return e;
}

template <class ListBase, class Entry>
Entry* BasicNameValueTree<ListBase, Entry>::setString(std::u16string_view name,
                                                      std::u16string_view value) {
    Entry* e = findEntry(name);
    if (!e) e = addEntry(name);
    e->setValue(value);
    return e;
}

template <class ListBase, class Entry>
Entry* BasicNameValueTree<ListBase, Entry>::setString(std::u16string_view name,
                                                      const CQuilletString& value) {
    Entry* e = findEntry(name);
    if (!e) e = addEntry(name);
    e->setValue(value);
    return e;
}

template <class ListBase, class Entry>
Entry* BasicNameValueTree<ListBase, Entry>::setStringA(std::u16string_view name,
                                                       std::string_view narrow) {
    Entry* e = findEntry(name);
    if (!e) e = addEntry(name);
    e->setValueA(narrow);
    return e;
}

template <class ListBase, class Entry>
Entry* BasicNameValueTree<ListBase, Entry>::setInt(std::u16string_view name, int32_t value) {
    Entry* e = findEntry(name);
    if (!e) e = addEntry(name);
    e->setInt(value);
    return e;
}

template <class ListBase, class Entry>
Entry* BasicNameValueTree<ListBase, Entry>::setTime(std::u16string_view name, int64_t seconds) {
    Entry* e = findEntry(name);
    if (!e) e = addEntry(name);
    e->setTime(seconds);
    return e;
}

template <class ListBase, class Entry>
Entry* BasicNameValueTree<ListBase, Entry>::takeString(std::u16string_view name,
                                                       std::u16string&& value) {
    Entry* e = findEntry(name);
    if (!e) e = addEntry(name);
    e->setValue(std::move(value));
    return e;
}

template <class ListBase, class Entry>
Entry* BasicNameValueTree<ListBase, Entry>::setFormatted(std::u16string_view name,
                                                         const char* format, ...) {
    char buffer[4096];
    va_list args;
    va_start(args, format);
    const int n = std::vsnprintf(buffer, sizeof buffer, format, args);
    va_end(args);
    const size_t len = n < 0 ? 0 : std::min<size_t>(static_cast<size_t>(n), sizeof buffer - 1);
    return setStringA(name, std::string_view(buffer, len));
}

template <class ListBase, class Entry>
Entry* BasicNameValueTree<ListBase, Entry>::addString(std::u16string_view name,
                                                      std::u16string_view value) {
    Entry* e = addEntry(name);
    e->setValue(value);
    return e;
}

template class BasicNameValueTreeEntry<CSearchableLinkedListEntry, CNameValueTree>;
template class BasicNameValueTreeEntry<CThreadSafeSearchableLinkedListEntry,
                                       CThreadSafeNameValueTree>;
template class BasicNameValueTree<CSearchableLinkedList, CNameValueTreeEntry>;
template class BasicNameValueTree<CThreadSafeSearchableLinkedList, CThreadSafeNameValueTreeEntry>;

}  // namespace vt
