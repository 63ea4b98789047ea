#include "model/linked_list.h"

#include "base/debug_log.h"
#include "model/property_names.h"

CLinkedList::~CLinkedList() {
    clearUnlocked();
}

void CLinkedList::append(CLinkedListEntry* entry) noexcept {
    appendUnlocked(entry);
}

void CLinkedList::clear() noexcept {
    clearUnlocked();
}

void CLinkedList::removeFirst() noexcept {
    removeFirstUnlocked();
}

void CLinkedList::removeAfter(CLinkedListEntry* predecessor, CLinkedListEntry* entry) noexcept {
    if (!entry) return;
    detachAfter(predecessor, entry);
    delete entry;
}

void CLinkedList::detachAfter(CLinkedListEntry* predecessor, CLinkedListEntry* entry) noexcept {
    if (!entry) return;
    if (predecessor)
        predecessor->m_pNext = entry->m_pNext;
    else
        m_pFirst = entry->m_pNext;
    if (m_pLast == entry) m_pLast = predecessor;
    entry->m_pNext = nullptr;
}

size_t CLinkedList::count() const noexcept {
    size_t n = 0;
    for (auto* e = m_pFirst; e; e = e->m_pNext) ++n;
    return n;
}

void CLinkedList::appendUnlocked(CLinkedListEntry* entry) noexcept {
    if (!entry) return;
    entry->m_pNext = nullptr;
    if (m_pLast)
        m_pLast->m_pNext = entry;
    else
        m_pFirst = entry;
    m_pLast = entry;
}

void CLinkedList::clearUnlocked() noexcept {
    // Iterative on purpose: a long list must not cost stack depth.
    CLinkedListEntry* e = m_pFirst;
    m_pFirst = m_pLast = nullptr;
    while (e) {
        CLinkedListEntry* next = e->m_pNext;
        delete e;
        e = next;
    }
}

void CLinkedList::removeFirstUnlocked() noexcept {
    CLinkedListEntry* e = m_pFirst;
    if (!e) return;
    m_pFirst = e->m_pNext;
    if (!m_pFirst) m_pLast = nullptr;
    delete e;
}

CThreadSafeLinkedList::~CThreadSafeLinkedList() {
    {
        std::lock_guard guard(m_lock);
        clearUnlocked();
    }
    vt::debugWrite(vt::DBG_INFO, "CThreadSafeLinkedList::~CThreadSafeLinkedList() called\r\n");
}

void CThreadSafeLinkedList::append(CLinkedListEntry* entry) noexcept {
    std::lock_guard guard(m_lock);
    appendUnlocked(entry);
}

void CThreadSafeLinkedList::clear() noexcept {
    std::lock_guard guard(m_lock);
    clearUnlocked();
}

void CThreadSafeLinkedList::removeFirst() noexcept {
    std::lock_guard guard(m_lock);
    removeFirstUnlocked();
}

CSearchableLinkedListEntry::CSearchableLinkedListEntry(std::u16string_view name)
    : m_hash(vt::propertyNameHash(name)) {
    if (const vt::SharedPropertyName* shared = vt::findSharedPropertyName(name)) {
        m_pName = shared->text;
        return;
    }
    m_ownName = std::make_unique<CQuilletString>(name);
    m_pName = m_ownName.get();
}

CSearchableLinkedListEntry* CSearchableLinkedList::find(
    const vt::SharedPropertyName& name) const noexcept {
    for (size_t i = name.hash & (kSlots - 1);; i = (i + 1) & (kSlots - 1)) {
        CSearchableLinkedListEntry* e = m_slots[i];
        if (!e) break;
        if (e->m_pName == name.text) return e;
    }
    if (!m_overflow) return nullptr;
    for (auto* e = getFirst(); e; e = e->getNext()) {
        auto* s = static_cast<CSearchableLinkedListEntry*>(e);
        if (s->m_pName == name.text) return s;
    }
    return nullptr;
}

CSearchableLinkedListEntry* CSearchableLinkedList::find(std::u16string_view name) const noexcept {
    const uint32_t hash = vt::propertyNameHash(name);
    for (size_t i = hash & (kSlots - 1);; i = (i + 1) & (kSlots - 1)) {
        CSearchableLinkedListEntry* e = m_slots[i];
        if (!e) break;
        if (m_hashes[i] == hash && e->getName().view() == name) return e;
    }
    return m_overflow ? findLinear(name) : nullptr;
}

CSearchableLinkedListEntry* CSearchableLinkedList::findLinear(
    std::u16string_view name) const noexcept {
    for (auto* e = getFirst(); e; e = e->getNext()) {
        auto* s = static_cast<CSearchableLinkedListEntry*>(e);
        if (s->getName().view() == name) return s;
    }
    return nullptr;
}

void CSearchableLinkedList::index(CSearchableLinkedListEntry* entry) noexcept {
    if (m_overflow) return;
    const std::u16string_view name = entry->getName().view();
    const uint32_t hash = entry->m_hash;
    size_t i = hash & (kSlots - 1);
    for (; m_slots[i]; i = (i + 1) & (kSlots - 1))
        if (m_hashes[i] == hash &&
            (m_slots[i]->m_pName == entry->m_pName || m_slots[i]->getName().view() == name))
            return;  // an earlier entry of the name wins
    if (m_indexed == kMaxIndexed) {
        m_overflow = true;
        return;
    }
    m_slots[i] = entry;
    m_hashes[i] = hash;
    ++m_indexed;
}

void CSearchableLinkedList::rebuildIndex() noexcept {
    m_slots.fill(nullptr);
    m_indexed = 0;
    m_overflow = false;
    for (auto* e = getFirst(); e; e = e->getNext())
        index(static_cast<CSearchableLinkedListEntry*>(e));
}

void CSearchableLinkedList::append(CLinkedListEntry* entry) noexcept {
    if (!entry) return;
    CLinkedList::append(entry);
    index(static_cast<CSearchableLinkedListEntry*>(entry));
}

void CSearchableLinkedList::clear() noexcept {
    CLinkedList::clear();
    rebuildIndex();
}

void CSearchableLinkedList::removeFirst() noexcept {
    CLinkedList::removeFirst();
    rebuildIndex();
}

void CSearchableLinkedList::detachAfter(CLinkedListEntry* predecessor,
                                        CLinkedListEntry* entry) noexcept {
    CLinkedList::detachAfter(predecessor, entry);
    rebuildIndex();
}

CThreadSafeSearchableLinkedListEntry* CThreadSafeSearchableLinkedList::find(
    std::u16string_view name) const noexcept {
    for (auto* e = getFirst(); e; e = e->getNext()) {
        auto* s = static_cast<CThreadSafeSearchableLinkedListEntry*>(e);
        if (s->getName().view() == name) return s;
    }
    return nullptr;
}
