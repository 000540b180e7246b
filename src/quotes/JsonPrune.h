#pragma once

#include <QByteArray>
#include <QJsonValue>
#include <QString>
#include <QStringList>

#include <map>
#include <memory>
#include <optional>

namespace kestrova::quotes {

// The places in a JSON document that a quote source's pointers lead to, as a tree of
// pointer tokens. A chart answer is mostly series the definition never reads (a day of
// minute bars is a quarter of a megabyte), so the answer is read for these places only.
class JsonPaths
{
public:
    // Adds an RFC 6901 pointer ("/chart/result/0/meta/regularMarketPrice"; "" is the whole
    // document) whose value is read in full.
    void add(const QString& pointer);
    // Adds a pointer that applies to every element of the list at listPointer.
    void addForEach(const QString& listPointer, const QString& pointer);

    struct Node
    {
        bool whole = false;                 // the value here is read in full
        std::unique_ptr<Node> everyElement; // applies to each element of a list here
        std::map<QString, Node> children;   // by object key or list index
    };
    const Node& root() const { return m_root; }

private:
    Node& nodeAt(Node& from, const QString& pointer);
    Node m_root;
};

// The document with only what the paths lead to: objects keep just the keys on a path,
// lists keep their length (elements off every path read as null), and each value a path
// ends at is read in full. Nothing when the text is not one well-formed JSON object or
// list as far as the skipped parts show (brackets, strings, nesting up to 1024 deep, no
// trailing text); the caller then asks a full parser for the reason. Works in one pass,
// in time linear in the size of the text and without recursion into skipped parts.
std::optional<QJsonValue> pruneJson(const QByteArray& text, const JsonPaths& paths);

} // namespace kestrova::quotes
