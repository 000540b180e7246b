#pragma once

#include "quotes/Qserver.h"
#include "support/KeyedCollection.h"

#include <QString>

#include <memory>

namespace kestrova::quotes {

// Whatever shows a list of server names (a combo box in the GUI, a plain list in tests).
struct NameList
{
    virtual ~NameList() = default;
    virtual void clear() = 0;
    virtual void addItem(const QString& text) = 0;
};

// The stock or option quote servers, in file order, keyed by ServerName (without regard
// to case). Unknown keys and positions raise VbError like every collection here.
class QServers
{
public:
    using Ptr = std::shared_ptr<Qserver>;

    void Clear() { m_col.clear(); }
    // Raises VbError 457 when the key is already present; an empty key appends unkeyed.
    Ptr Add(Ptr server, const QString& key = {})
    {
        m_col.add(server, key);
        return server;
    }
    void FillServerNameList(NameList& list) const
    {
        list.clear();
        for (const Ptr& s : m_col)
            list.addItem(s->serverName());
    }
    Ptr Item(int position) const { return m_col.item(position); }
    Ptr Item(const QString& key) const { return m_col.item(key); }
    bool contains(const QString& key) const { return m_col.contains(key); }
    int Count() const { return m_col.count(); }
    void UpdateItem(int position, Ptr server) { m_col.replace(position, std::move(server)); }
    void Remove(int position) { m_col.remove(position); }
    void Remove(const QString& key) { m_col.remove(key); }

    auto begin() const { return m_col.begin(); }
    auto end() const { return m_col.end(); }

private:
    support::KeyedCollection<Qserver> m_col;
};

} // namespace kestrova::quotes
