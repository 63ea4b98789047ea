#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "base/quillet_string.h"
#include "model/linked_list.h"

// Name/value trees: the property store of an info unit and what the XML reader builds. Each
// entry has a name, a text value and optionally a child tree that it owns. Int and Time values
// are kept as text and parsed on the first read after a set; the parsed value is cached in the
// entry, so a tree is used by one thread at a time (the thread-safe twin guards only the list
// operations of its base).
//
// The plain and the thread-safe trees share one implementation (the two templates below); a
// tree only ever holds entries of its own entry type.

namespace vt {

// Digits only, no sign; empty text is 0. False (and the debug line) for anything else, and for
// a value beyond the 32-bit range.
bool parseIntValue(std::u16string_view text, int32_t& value);

template <class EntryBase, class Tree>
class BasicNameValueTreeEntry : public EntryBase {
  public:
    explicit BasicNameValueTreeEntry(std::u16string_view name) : EntryBase(name) {}
    explicit BasicNameValueTreeEntry(const vt::SharedPropertyName& name) : EntryBase(name) {}
    ~BasicNameValueTreeEntry() override;

    // An entry lives either on the heap or in the block of entries its tree reserved; a header
    // before the entry tells delete which, so lists delete both kinds the same way.
    static void* operator new(size_t size);
    static void* operator new(size_t, void* place) noexcept { return place; }
    static void operator delete(void* entry) noexcept;
    static void operator delete(void*, void*) noexcept {}
    static constexpr size_t kHeaderBytes = 16;

    // The child tree, or null when the entry holds a text value.
    Tree* getChild() const noexcept { return m_pChild; }
    // Gives the entry a fresh, empty child tree (an existing one is deleted) and returns it.
    Tree* createChild();
    // Hands the child tree to the caller, who owns it afterwards; the entry keeps no child.
    Tree* detachChild() noexcept;

    const CQuilletString& getValue() const {
        if (m_pendingText != PendingText::None) writePendingText();
        return m_value;
    }
    void setValue(std::u16string_view value);
    void setValue(const CQuilletString& value);
    void setValue(const char16_t* value) { setValue(std::u16string_view(value ? value : u"")); }
    void setValueA(std::string_view narrow);
    // Moves the text in: the reader and the replacer fill values without a copy.
    void setValue(std::u16string&& value);

    // -1 (and "No Numeric value in Tag!!!" in the debug log) when the value is not a number.
    int32_t getInt() const;
    // 0 (and "Invalid Date value in Tag!!!") when the value is not a time text.
    int64_t getTime() const;
    void setInt(int32_t value);
    void setTime(int64_t seconds);

  private:
    // A number or time set on a unit is mostly read as a number or time, if at all, so its
    // text is written on the first read of the text.
    enum class PendingText : uint8_t { None, Int, Time };
    void writePendingText() const;
    void clearCaches() noexcept {
        m_intParsed = m_timeParsed = false;
        m_pendingText = PendingText::None;
    }

    Tree* m_pChild = nullptr;
    mutable CQuilletString m_value;
    mutable PendingText m_pendingText = PendingText::None;
    mutable int32_t m_intValue = 0;
    mutable bool m_intParsed = false;
    mutable bool m_timeParsed = false;
    mutable int64_t m_timeValue = 0;
};

template <class ListBase, class Entry>
class BasicNameValueTree : public ListBase {
  public:
    using EntryType = Entry;

    BasicNameValueTree() = default;
    // Deletes the entries first: some may live in storage that the owner frees after the tree.
    ~BasicNameValueTree() override { this->clear(); }

    // Bytes one entry takes in storage handed to useEntryStorage (its header, the entry, and
    // alignment), and the alignment that storage needs.
    static constexpr size_t kEntrySlotBytes =
        (Entry::kHeaderBytes + sizeof(Entry) + alignof(std::max_align_t) - 1) /
        alignof(std::max_align_t) * alignof(std::max_align_t);
    // The next `count` entries added are built in `storage` (count * kEntrySlotBytes bytes,
    // aligned for std::max_align_t) instead of on the heap. A unit's store gets a dozen
    // properties at once and loses them all at once, so its owner keeps the room beside the
    // tree, and it must outlive the tree's entries. Only for a tree that one thread fills.
    void useEntryStorage(std::byte* storage, size_t count) noexcept;

    Entry* findEntry(std::u16string_view name) const noexcept {
        return static_cast<Entry*>(ListBase::find(name));
    }
    Entry* findEntry(const vt::SharedPropertyName& name) const noexcept {
        return static_cast<Entry*>(ListBase::find(name));
    }
    // The first entry of a standard name; appended (with an empty value) when there is none.
    Entry* entryFor(const vt::SharedPropertyName& name) {
        Entry* e = findEntry(name);
        return e ? e : addEntry(name);
    }
    Entry* firstEntry() const noexcept { return static_cast<Entry*>(ListBase::getFirst()); }
    Entry* nextEntry(const Entry* entry) const noexcept {
        return static_cast<Entry*>(ListBase::next(entry));
    }

    // Null when absent. With `mustExist` an absent value is logged at the error level.
    const char16_t* getString(std::u16string_view name, bool mustExist = false) const;
    const CQuilletString* getStringObject(std::u16string_view name, bool mustExist = false) const;
    // -1 when absent or not numeric; with `mustExist` an absent value is logged and thrown as a
    // CErrorReport* with code 1100.
    int32_t getInt(std::u16string_view name, bool mustExist = false) const;
    // 0 when absent (logged at the ultra level) or not a time text.
    int64_t getTime(std::u16string_view name) const;

    // Overwrite the first entry with the name, or append a new one. Return the entry.
    Entry* setString(std::u16string_view name, std::u16string_view value);
    Entry* setString(std::u16string_view name, const CQuilletString& value);
    Entry* setString(std::u16string_view name, const char16_t* value) {
        return setString(name, std::u16string_view(value ? value : u""));
    }
    Entry* setStringA(std::u16string_view name, std::string_view narrow);
    Entry* setInt(std::u16string_view name, int32_t value);
    Entry* setTime(std::u16string_view name, int64_t seconds);
    // Moves the text in: long values (a message, its raw form) are not copied again.
    Entry* takeString(std::u16string_view name, std::u16string&& value);
    // printf-style narrow format, at most 10 arguments by convention; the result is converted
    // to wide text.
    Entry* setFormatted(std::u16string_view name, const char* format, ...)
        __attribute__((format(printf, 3, 4)));

    // Always append, even when the name exists.
    Entry* addString(std::u16string_view name, std::u16string_view value);
    Entry* addEntry(std::u16string_view name);
    Entry* addEntry(const vt::SharedPropertyName& name);

    // Reads XML text into this tree (appending). Never fails; complaints go to the debug log.
    void parse(std::u16string_view xml);
    void parse(const char16_t* xml, size_t length) { parse(std::u16string_view(xml, length)); }
    // The entries' values under one root element; child trees are not written.
    CQuilletString toXML(std::u16string_view rootName, int blanksBefore = 0,
                         int blanksAfter = 0) const;
    // Appends the same text to `out` (no intermediate string).
    void appendXML(std::u16string& out, std::u16string_view rootName, int blanksBefore = 0,
                   int blanksAfter = 0) const;

    // The entry that holds this tree as its child; null for a root tree.
    Entry* getOwner() const noexcept { return m_pOwner; }

  private:
    template <class, class>
    friend class BasicNameValueTreeEntry;
    template <class Name>
    Entry* emplaceEntry(const Name& name);

    Entry* m_pOwner = nullptr;
    std::byte* m_block = nullptr;  // the owner's entry slots, each after its header
    size_t m_blockSlots = 0;
    size_t m_blockUsed = 0;
};

}  // namespace vt

class CNameValueTree;
class CThreadSafeNameValueTree;

class CNameValueTreeEntry
    : public vt::BasicNameValueTreeEntry<CSearchableLinkedListEntry, CNameValueTree> {
  public:
    using BasicNameValueTreeEntry::BasicNameValueTreeEntry;
};

class CNameValueTree : public vt::BasicNameValueTree<CSearchableLinkedList, CNameValueTreeEntry> {};

class CThreadSafeNameValueTreeEntry
    : public vt::BasicNameValueTreeEntry<CThreadSafeSearchableLinkedListEntry,
                                         CThreadSafeNameValueTree> {
  public:
    using BasicNameValueTreeEntry::BasicNameValueTreeEntry;
};

class CThreadSafeNameValueTree : public vt::BasicNameValueTree<CThreadSafeSearchableLinkedList,
                                                               CThreadSafeNameValueTreeEntry> {};

namespace vt {
// The five XML escapes; every other character is written as it is.
void appendXmlEscaped(std::u16string& out, std::u16string_view value);
}  // namespace vt
