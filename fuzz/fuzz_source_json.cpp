// A JSON quote source's answer on arbitrary bytes. The first line holds JSON pointers
// (blank-separated), the rest is the answer. The answer is read by every shipped JSON
// definition, and by the quick reader that builds only what the pointers lead to: when
// both it and the full parser accept the text, they must find the very same value (or
// nothing) at every pointer.

#include "FuzzSources.h"

#include "quotes/JsonPrune.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace kestrova;

namespace {

// RFC 6901 on a full document, written apart from the reader under test.
std::optional<QJsonValue> at(QJsonValue v, const QString& pointer)
{
    if (pointer.isEmpty())
        return v;
    for (QString token : pointer.mid(1).split(u'/')) {
        token.replace(QLatin1String("~1"), QLatin1String("/")).replace(QLatin1String("~0"), QLatin1String("~"));
        if (v.isObject()) {
            const QJsonObject o = v.toObject();
            if (!o.contains(token))
                return std::nullopt;
            v = o.value(token);
        } else if (v.isArray()) {
            bool ok = false;
            const int i = token.toInt(&ok);
            if (!ok || i < 0 || i >= v.toArray().size() || token != QString::number(i))
                return std::nullopt;
            v = v.toArray().at(i);
        } else {
            return std::nullopt;
        }
    }
    return v;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::quietQt();
    fuzzCheck(fuzz::shippedSources().problems.isEmpty());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray input = fuzz::bytesOf(data, size);
    const qsizetype eol = input.indexOf('\n');
    const QByteArray body = eol < 0 ? input : input.mid(eol + 1);
    QStringList pointers;
    if (eol >= 0) {
        for (const QString& p : QString::fromUtf8(input.left(eol)).split(u' ', Qt::SkipEmptyParts)) {
            if (quotes::isJsonPointer(p))
                pointers << p;
        }
    }

    quotes::JsonPaths paths;
    for (const QString& p : pointers)
        paths.add(p);
    const std::optional<QJsonValue> quick = quotes::pruneJson(body, paths);
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(body, &error);
    // The quick reader may refuse what the full parser takes (numbers such as ".5" it does
    // not know); the answer is then read by the full parser. What it does read must agree.
    if (quick && error.error == QJsonParseError::NoError && (doc.isObject() || doc.isArray())) {
        const QJsonValue full = doc.isObject() ? QJsonValue(doc.object()) : QJsonValue(doc.array());
        for (const QString& p : pointers) {
            const std::optional<QJsonValue> want = at(full, p);
            const std::optional<QJsonValue> got = at(*quick, p);
            fuzzCheck(want.has_value() == got.has_value());
            fuzzCheck(!want || *want == *got);
        }
    }

    const QStringList symbols{QStringLiteral("IBM")};
    for (const quotes::SourceDefinition& source : fuzz::shippedSources().sources) {
        if (source.format != quotes::SourceFormat::Json)
            continue;
        fuzz::checkAnswer(quotes::parseSourceAnswer(source, body, symbols), symbols);
    }
    return 0;
}
