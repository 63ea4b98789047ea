// The XML form of name/value trees: only what the writer produces (nested elements with text,
// no attributes) is understood. The reader never fails; what it dislikes goes to the debug log
// and it carries on with the literal reading of the input.
#include <algorithm>
#include <string>
#include <type_traits>
#include <utility>

#include "base/debug_log.h"
#include "model/name_value_tree.h"
#include "platform/text_codec.h"

namespace vt {
namespace {

constexpr size_t kMaxTagName = 128;
// Elements nested deeper than this are read as if their start tag were followed by text, so a
// hostile document can neither exhaust the stack while reading nor while being destroyed.
constexpr int kMaxDepth = 256;

bool isXmlSpace(char16_t c) {
    return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n';
}

template <class Tree>
class XmlReader {
  public:
    explicit XmlReader(std::u16string_view in) : m_in(in) {}

    void read(Tree& root) {
        readList(root, 0);
        if (m_pos < m_in.size())
            debugWrite(DBG_INFO,
                       "XML parser detected extra information at the end of the XML stream.");
    }

  private:
    bool atEndTag() const {
        return m_pos + 1 < m_in.size() && m_in[m_pos] == u'<' && m_in[m_pos + 1] == u'/';
    }

    void readList(Tree& list, int depth) {
        for (;;) {
            if (depth == 0) {
                // Blanks and line ends after the last top-level element are no element; any
                // other text there is reported by read() as extra information.
                while (m_pos < m_in.size() && isXmlSpace(m_in[m_pos])) ++m_pos;
                if (m_pos >= m_in.size() || m_in[m_pos] != u'<') return;
            }
            if (m_pos >= m_in.size() || atEndTag()) return;

            while (m_pos < m_in.size() && isXmlSpace(m_in[m_pos])) ++m_pos;
            if (m_pos < m_in.size() && m_in[m_pos] == u'<')
                ++m_pos;
            else
                debugWrite(DBG_INFO, "XML parser expected tag but found none.");
            readTagName(m_name);
            auto* entry = list.addEntry(m_name);

            if (m_pos < m_in.size() && m_in[m_pos] == u'<' && depth + 1 < kMaxDepth) {
                readList(*entry->createChild(), depth + 1);
            } else {
                if (m_pos < m_in.size() && m_in[m_pos] == u'<')
                    debugWrite(DBG_INFO, "XML parser found elements nested too deeply.");
                readValue(*entry);
            }

            if (atEndTag()) {
                m_pos += 2;
                readTagName(m_endName);
                if (m_endName != entry->getName().view() && debugOn(DBG_ULTRA) &&
                    debugOn(DBG_INFO)) {
                    std::string begin, end;
                    wideToNarrow(entry->getName().view(), begin);
                    wideToNarrow(m_endName, end);
                    debugPrintf(DBG_INFO,
                                "XML parser found mismatch between begin (%s) and end (%s) tag "
                                "name.",
                                begin.c_str(), end.c_str());
                }
            } else {
                debugWrite(DBG_INFO, "XML parser expected ending tag but found none.");
            }
        }
    }

    // Everything up to ">", at most 128 characters; the ">" is consumed.
    void readTagName(std::u16string& name) {
        name.clear();
        bool blankSeen = false;
        const size_t limit = std::min(m_in.size(), m_pos + kMaxTagName);
        size_t i = m_pos;
        for (; i < limit && m_in[i] != u'>'; ++i) {
            if (isXmlSpace(m_in[i])) blankSeen = true;
        }
        name.assign(m_in.substr(m_pos, i - m_pos));
        if (blankSeen) debugWrite(DBG_INFO, "Invalid Tag!");
        if (i < m_in.size() && m_in[i] == u'>') {
            m_pos = i + 1;
        } else {
            debugWrite(DBG_INFO,
                       "XML parser did not find delimiter for tag name - tag might be too large.");
            m_pos = i;
        }
    }

    void readValue(typename Tree::EntryType& entry) {
        std::u16string value;
        size_t start = m_pos;
        while (m_pos < m_in.size() && m_in[m_pos] != u'<') {
            if (m_in[m_pos] != u'&') {
                ++m_pos;
                continue;
            }
            value.append(m_in.substr(start, m_pos - start));
            const std::u16string_view rest = m_in.substr(m_pos);
            char16_t decoded = 0;
            size_t length = 0;
            if (rest.starts_with(u"&gt;")) {
                decoded = u'>';
                length = 4;
            } else if (rest.starts_with(u"&lt;")) {
                decoded = u'<';
                length = 4;
            } else if (rest.starts_with(u"&amp;")) {
                decoded = u'&';
                length = 5;
            } else if (rest.starts_with(u"&quot;")) {
                decoded = u'"';
                length = 6;
            } else if (rest.starts_with(u"&apos;")) {
                decoded = u'\'';
                length = 6;
            }
            if (length) {
                value.push_back(decoded);
                m_pos += length;
            } else {
                value.push_back(u'&');
                ++m_pos;
            }
            start = m_pos;
        }
        value.append(m_in.substr(start, m_pos - start));
        entry.setValue(std::move(value));
    }

    std::u16string_view m_in;
    size_t m_pos = 0;
    std::u16string m_name;
    std::u16string m_endName;
};

}  // namespace

void appendXmlEscaped(std::u16string& out, std::u16string_view value) {
    size_t start = 0;
    for (size_t i = 0; i < value.size(); ++i) {
        std::u16string_view entity;
        switch (value[i]) {
            case u'"':
                entity = u"&quot;";
                break;
            case u'&':
                entity = u"&amp;";
                break;
            case u'\'':
                entity = u"&apos;";
                break;
            case u'<':
                entity = u"&lt;";
                break;
            case u'>':
                entity = u"&gt;";
                break;
            default:
                continue;
        }
        out.append(value.substr(start, i - start));
        out.append(entity);
        start = i + 1;
    }
    out.append(value.substr(start));
}

template <class ListBase, class Entry>
void BasicNameValueTree<ListBase, Entry>::parse(std::u16string_view xml) {
    using Tree = typename std::remove_pointer_t<decltype(std::declval<Entry>().getChild())>;
    XmlReader<Tree> reader(xml);
    reader.read(static_cast<Tree&>(*this));
}

template <class ListBase, class Entry>
void BasicNameValueTree<ListBase, Entry>::appendXML(std::u16string& out,
                                                    std::u16string_view rootName, int blanksBefore,
                                                    int blanksAfter) const {
    // One size pass, so the text is built with a single allocation.
    size_t size = 2 * rootName.size() + 5 + static_cast<size_t>(std::max(blanksBefore, 0)) +
                  static_cast<size_t>(std::max(blanksAfter, 0));
    for (Entry* e = firstEntry(); e; e = nextEntry(e))
        size += 2 * e->getName().getLength() + 5 + e->getValue().getLength() + 8;
    out.reserve(out.size() + size);

    out.append(static_cast<size_t>(std::max(blanksBefore, 0)), u' ');
    out.push_back(u'<');
    out.append(rootName);
    out.push_back(u'>');
    for (Entry* e = firstEntry(); e; e = nextEntry(e)) {
        out.push_back(u'<');
        out.append(e->getName().view());
        out.push_back(u'>');
        appendXmlEscaped(out, e->getValue().view());
        out.append(u"</");
        out.append(e->getName().view());
        out.push_back(u'>');
    }
    out.append(u"</");
    out.append(rootName);
    out.push_back(u'>');
    out.append(static_cast<size_t>(std::max(blanksAfter, 0)), u' ');
}

template <class ListBase, class Entry>
CQuilletString BasicNameValueTree<ListBase, Entry>::toXML(std::u16string_view rootName,
                                                          int blanksBefore, int blanksAfter) const {
    std::u16string out;
    appendXML(out, rootName, blanksBefore, blanksAfter);
    return CQuilletString(std::move(out));
}

template void BasicNameValueTree<CSearchableLinkedList, CNameValueTreeEntry>::parse(
    std::u16string_view);
template void BasicNameValueTree<CSearchableLinkedList, CNameValueTreeEntry>::appendXML(
    std::u16string&, std::u16string_view, int, int) const;
template CQuilletString BasicNameValueTree<CSearchableLinkedList, CNameValueTreeEntry>::toXML(
    std::u16string_view, int, int) const;
template void BasicNameValueTree<CThreadSafeSearchableLinkedList,
                                 CThreadSafeNameValueTreeEntry>::parse(std::u16string_view);
template void BasicNameValueTree<CThreadSafeSearchableLinkedList,
                                 CThreadSafeNameValueTreeEntry>::appendXML(std::u16string&,
                                                                           std::u16string_view, int,
                                                                           int) const;
template CQuilletString
BasicNameValueTree<CThreadSafeSearchableLinkedList, CThreadSafeNameValueTreeEntry>::toXML(
    std::u16string_view, int, int) const;

}  // namespace vt
