#pragma once

#include "support/VbError.h"

#include <QString>

#include <memory>
#include <vector>

namespace kestrova::support {

// The ordered, keyed collection every model class uses: 1-based positions, text keys
// compared without regard to case, a key used at most once, entries without a key
// reachable only by position. It holds shared pointers so that handing a set to another
// holder (CopyObjects) shares the same objects.
template <typename T> class KeyedCollection
{
public:
    using Ptr = std::shared_ptr<T>;
    struct Entry
    {
        QString key;
        Ptr value;
    };

    // Raises VbError 457 for a key already present (callers that swallow errors catch it).
    void add(Ptr item, const QString& key = {})
    {
        if (!key.isEmpty() && indexOf(key) > 0) {
            throw VbError(VbError::DuplicateKey);
        }
        m_items.push_back({key, std::move(item)});
    }
    // 1-based; raises VbError 9 when out of range.
    Ptr item(int position) const
    {
        if (position < 1 || position > count()) {
            throw VbError(VbError::Subscript);
        }
        return m_items[static_cast<size_t>(position - 1)].value;
    }
    // Raises VbError 5 for an unknown key.
    Ptr item(const QString& key) const
    {
        const int i = indexOf(key);
        if (i == 0) {
            throw VbError(VbError::InvalidCall);
        }
        return m_items[static_cast<size_t>(i - 1)].value;
    }
    void remove(int position)
    {
        if (position < 1 || position > count()) {
            throw VbError(VbError::Subscript);
        }
        m_items.erase(m_items.begin() + (position - 1));
    }
    void remove(const QString& key)
    {
        const int i = indexOf(key);
        if (i == 0) {
            throw VbError(VbError::InvalidCall);
        }
        m_items.erase(m_items.begin() + (i - 1));
    }
    // Replaces the entry at a position, keeping its key.
    void replace(int position, Ptr item)
    {
        if (position < 1 || position > count()) {
            throw VbError(VbError::Subscript);
        }
        m_items[static_cast<size_t>(position - 1)].value = std::move(item);
    }
    // 1-based position of a key, 0 when absent (an empty key is never found).
    int indexOf(const QString& key) const
    {
        if (key.isEmpty()) {
            return 0;
        }
        for (size_t i = 0; i < m_items.size(); ++i) {
            if (m_items[i].key.compare(key, Qt::CaseInsensitive) == 0) {
                return static_cast<int>(i + 1);
            }
        }
        return 0;
    }
    bool contains(const QString& key) const { return indexOf(key) > 0; }
    QString keyAt(int position) const { return m_items.at(static_cast<size_t>(position - 1)).key; }
    int count() const { return static_cast<int>(m_items.size()); }
    bool isEmpty() const { return m_items.empty(); }
    void clear() { m_items.clear(); }

    // Enumeration over the entries, first to last.
    class const_iterator
    {
    public:
        explicit const_iterator(typename std::vector<Entry>::const_iterator it) : m_it(it) {}
        const Ptr& operator*() const { return m_it->value; }
        const_iterator& operator++()
        {
            ++m_it;
            return *this;
        }
        bool operator!=(const const_iterator& o) const { return m_it != o.m_it; }
        bool operator==(const const_iterator& o) const { return m_it == o.m_it; }

    private:
        typename std::vector<Entry>::const_iterator m_it;
    };
    const_iterator begin() const { return const_iterator(m_items.cbegin()); }
    const_iterator end() const { return const_iterator(m_items.cend()); }

private:
    std::vector<Entry> m_items;
};

} // namespace kestrova::support
