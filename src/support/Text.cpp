#include "support/Text.h"

#include "support/Format.h"
#include "support/Secrets.h"

#include <cmath>

namespace kestrova::support {

QString RemoveAll(const QString& text, const QString& sub)
{
    if (sub.isEmpty()) {
        return text;
    }
    QString out = text;
    out.remove(sub, Qt::CaseSensitive);
    return out;
}

QString ReplaceAll(const QString& text, const QString& find, const QString& with)
{
    if (find.isEmpty()) {
        return text;
    }
    QString out = text;
    out.replace(find, with, Qt::CaseSensitive);
    return out;
}

QString ExtractBetween(const QString& startKey, const QString& endKey, const QString& text)
{
    // Positions are 1-based as in the original routine; Qt's are 0-based.
    qsizetype p = 0;
    if (startKey.isEmpty()) {
        p = 2;
    } else {
        p = text.indexOf(startKey) + 1;
        if (p == 0) {
            return {};
        }
    }
    const qsizetype from = p + startKey.size(); // 1-based
    if (from - 1 > text.size()) {
        return {};
    }
    const qsizetype e = text.indexOf(endKey, from - 1);
    if (e < 0) {
        return {};
    }
    return text.mid(from - 1, e - (from - 1));
}

QString pricePattern(int digits)
{
    return QStringLiteral("####0.") + QString(qMax(0, digits), u'0');
}

QString ConvertFraction(const QString& text, int digits)
{
    if (digits < 0) {
        digits = 2;
    }
    const QString pattern = pricePattern(digits);
    QString t = text;
    t.remove(u',');
    t = t.trimmed();
    if (t == QStringLiteral("n/a")) {
        return t;
    }
    const qsizetype slash = t.indexOf(u'/');
    if (slash < 0) {
        return formatNumber(leadingNumber(t), pattern);
    }
    const double den = leadingNumber(QStringView(t).mid(slash + 1));
    const qsizetype blank = t.lastIndexOf(u' ', slash);
    double whole = 0;
    double sign = 1;
    double num = 0;
    if (blank >= 0) {
        num = leadingNumber(QStringView(t).mid(blank + 1, slash - blank - 1));
        const QString wholeText = t.left(blank);
        whole = std::trunc(leadingNumber(wholeText));
        if (whole != 0) {
            sign = whole < 0 ? -1 : 1;
        } else {
            sign = wholeText.contains(u'-') ? -1 : 1;
        }
    } else {
        num = leadingNumber(QStringView(t).left(slash));
    }
    float value = 0;
    if (den != 0) {
        value = static_cast<float>(sign) *
                (std::fabs(static_cast<float>(whole)) + static_cast<float>(num) / static_cast<float>(den));
    } else {
        value = static_cast<float>(whole);
    }
    return formatNumber(static_cast<double>(value), pattern);
}

QString redactUrl(const QString& url)
{
    const qsizetype scheme = url.indexOf(QLatin1String("://"));
    const qsizetype start = scheme < 0 ? 0 : scheme + 3;
    qsizetype end = start;
    while (end < url.size() && url[end] != u'/' && url[end] != u'?' && url[end] != u'#') {
        ++end;
    }
    // A key the URL carries elsewhere (a query parameter) goes like every other secret.
    const qsizetype at = url.lastIndexOf(u'@', end - 1);
    if (at < start) {
        return redactSecrets(url);
    }
    const qsizetype colon = url.indexOf(u':', start);
    if (colon < 0 || colon > at) {
        return redactSecrets(url);
    }
    return redactSecrets(url.left(colon + 1) + QStringLiteral("***") + url.mid(at));
}

} // namespace kestrova::support
