#pragma once
#include <cstddef>
#include <mutex>
#include <string_view>

#include "model/quillet_string.h"

// Intrusive, singly linked lists. A list owns its entries: append hands the entry over, and
// remove/clear/destruction delete it through its virtual destructor. The thread-safe twins
// guard append, clear and removeFirst; whoever walks one (or uses removeAfter) holds lock()
// for the whole walk. The lock is recursive, so a walk may append or clear under it.

class CLinkedListEntry {
  public:
    CLinkedListEntry() = default;
    CLinkedListEntry(const CLinkedListEntry&) = delete;
    CLinkedListEntry& operator=(const CLinkedListEntry&) = delete;
    virtual ~CLinkedListEntry() = default;

    CLinkedListEntry* getNext() const noexcept { return m_pNext; }

  private:
    friend class CLinkedList;
    CLinkedListEntry* m_pNext = nullptr;
};

class CLinkedList {
  public:
    CLinkedList() = default;
    CLinkedList(const CLinkedList&) = delete;
    CLinkedList& operator=(const CLinkedList&) = delete;
    virtual ~CLinkedList();

    // Takes ownership of `entry`.
    virtual void append(CLinkedListEntry* entry) noexcept;
    virtual void clear() noexcept;
    virtual void removeFirst() noexcept;
    // `predecessor` is null when `entry` is the first entry.
    virtual void removeAfter(CLinkedListEntry* predecessor, CLinkedListEntry* entry) noexcept;

    // The successor of `entry`, or the first entry when `entry` is null: the one way to iterate.
    CLinkedListEntry* next(const CLinkedListEntry* entry) const noexcept {
        return entry ? entry->m_pNext : m_pFirst;
    }
    CLinkedListEntry* getFirst() const noexcept { return m_pFirst; }
    CLinkedListEntry* getLast() const noexcept { return m_pLast; }
    bool isEmpty() const noexcept { return m_pFirst == nullptr; }
    size_t count() const noexcept;

    // Unlinks `entry` without deleting it; the caller owns it afterwards.
    void detachAfter(CLinkedListEntry* predecessor, CLinkedListEntry* entry) noexcept;

  protected:
    void appendUnlocked(CLinkedListEntry* entry) noexcept;
    void clearUnlocked() noexcept;
    void removeFirstUnlocked() noexcept;

  private:
    CLinkedListEntry* m_pFirst = nullptr;
    CLinkedListEntry* m_pLast = nullptr;
};

class CThreadSafeLinkedList : public CLinkedList {
  public:
    CThreadSafeLinkedList() = default;
    ~CThreadSafeLinkedList() override;

    void append(CLinkedListEntry* entry) noexcept override;
    void clear() noexcept override;
    void removeFirst() noexcept override;

    void lock() const { m_lock.lock(); }
    void unlock() const noexcept { m_lock.unlock(); }

  private:
    mutable std::recursive_mutex m_lock;
};

// An entry with a name, compared case-sensitively.
class CSearchableLinkedListEntry : public CLinkedListEntry {
  public:
    CSearchableLinkedListEntry() = default;
    explicit CSearchableLinkedListEntry(std::u16string_view name) : m_name(name) {}

    const CQuilletString& getName() const noexcept { return m_name; }
    void setName(std::u16string_view name) { m_name.setString(name); }

  private:
    CQuilletString m_name;
};

class CSearchableLinkedList : public CLinkedList {
  public:
    // The first entry whose name has exactly these characters, or null.
    CSearchableLinkedListEntry* find(std::u16string_view name) const noexcept;
    CSearchableLinkedListEntry* find(const char16_t* name, size_t length) const noexcept {
        return find(std::u16string_view(name, length));
    }
};

class CThreadSafeSearchableLinkedListEntry : public CLinkedListEntry {
  public:
    CThreadSafeSearchableLinkedListEntry() = default;
    explicit CThreadSafeSearchableLinkedListEntry(std::u16string_view name) : m_name(name) {}

    const CQuilletString& getName() const noexcept { return m_name; }
    void setName(std::u16string_view name) { m_name.setString(name); }

  private:
    CQuilletString m_name;
};

class CThreadSafeSearchableLinkedList : public CThreadSafeLinkedList {
  public:
    // Does not lock: callers that may race with writers hold lock() around the call and their
    // use of the result.
    CThreadSafeSearchableLinkedListEntry* find(std::u16string_view name) const noexcept;
    CThreadSafeSearchableLinkedListEntry* find(const char16_t* name, size_t length) const noexcept {
        return find(std::u16string_view(name, length));
    }
};
