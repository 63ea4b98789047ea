#pragma once
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string_view>

#include "base/quillet_string.h"
#include "model/property_names.h"

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
    virtual void detachAfter(CLinkedListEntry* predecessor, CLinkedListEntry* entry) noexcept;

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

// An entry with a name, compared case-sensitively. The name is fixed at construction: the list
// indexes its entries by name. Its narrow form is not built: entries of a shared list are named
// by their wide text only.
class CSearchableLinkedListEntry : public CLinkedListEntry {
  public:
    CSearchableLinkedListEntry() : CSearchableLinkedListEntry(std::u16string_view()) {}
    explicit CSearchableLinkedListEntry(std::u16string_view name);
    explicit CSearchableLinkedListEntry(const vt::SharedPropertyName& name) noexcept
        : m_pName(name.text), m_hash(name.hash) {}

    const CQuilletString& getName() const noexcept { return *m_pName; }

  private:
    friend class CSearchableLinkedList;
    // The shared copy of a standard property name, or the entry's own name. An entry is
    // created for every property of every unit, so it stays small and the standard names
    // cost no allocation.
    const CQuilletString* m_pName;
    std::unique_ptr<CQuilletString> m_ownName;
    uint32_t m_hash;  // of the name, for the list's index
};

// Every property read and write of an info unit is a look-up by name, a few dozen per unit, so
// the list keeps a small hash index of the first entry of each name next to the chain. A list
// with more distinct names than the index holds well falls back to walking the chain.
class CSearchableLinkedList : public CLinkedList {
  public:
    // The first entry whose name has exactly these characters, or null.
    CSearchableLinkedListEntry* find(std::u16string_view name) const noexcept;
    CSearchableLinkedListEntry* find(const char16_t* name, size_t length) const noexcept {
        return find(std::u16string_view(name, length));
    }
    // The same for a standard name: no hashing, and names compare by their shared copy.
    CSearchableLinkedListEntry* find(const vt::SharedPropertyName& name) const noexcept;

    void append(CLinkedListEntry* entry) noexcept override;
    void clear() noexcept override;
    void removeFirst() noexcept override;
    // removeAfter needs no twin: it unlinks through detachAfter, which rebuilds the index.
    void detachAfter(CLinkedListEntry* predecessor, CLinkedListEntry* entry) noexcept override;

  private:
    static constexpr size_t kSlots = 32;
    static constexpr size_t kMaxIndexed = 24;  // three quarters full keeps probe runs short

    CSearchableLinkedListEntry* findLinear(std::u16string_view name) const noexcept;
    void index(CSearchableLinkedListEntry* entry) noexcept;
    void rebuildIndex() noexcept;

    std::array<CSearchableLinkedListEntry*, kSlots> m_slots{};
    // The hashes of the names in m_slots, beside them, so that a probe touches no entry.
    std::array<uint32_t, kSlots> m_hashes{};
    uint32_t m_indexed = 0;
    bool m_overflow = false;  // a name is missing from the index: search the chain
};

class CThreadSafeSearchableLinkedListEntry : public CLinkedListEntry {
  public:
    CThreadSafeSearchableLinkedListEntry() = default;
    explicit CThreadSafeSearchableLinkedListEntry(std::u16string_view name) : m_name(name) {}
    explicit CThreadSafeSearchableLinkedListEntry(const vt::SharedPropertyName& name)
        : m_name(*name.text) {}

    const CQuilletString& getName() const noexcept { return m_name; }

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
    CThreadSafeSearchableLinkedListEntry* find(const vt::SharedPropertyName& name) const noexcept {
        return find(name.text->view());
    }
};
