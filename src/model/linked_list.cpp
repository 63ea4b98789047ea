#include "model/linked_list.h"

#include "service/debug_log.h"

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

CSearchableLinkedListEntry* CSearchableLinkedList::find(std::u16string_view name) const noexcept {
    for (auto* e = getFirst(); e; e = e->getNext()) {
        auto* s = static_cast<CSearchableLinkedListEntry*>(e);
        if (s->getName().view() == name) return s;
    }
    return nullptr;
}

CThreadSafeSearchableLinkedListEntry* CThreadSafeSearchableLinkedList::find(
    std::u16string_view name) const noexcept {
    for (auto* e = getFirst(); e; e = e->getNext()) {
        auto* s = static_cast<CThreadSafeSearchableLinkedListEntry*>(e);
        if (s->getName().view() == name) return s;
    }
    return nullptr;
}
