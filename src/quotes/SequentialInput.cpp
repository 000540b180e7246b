#include "quotes/SequentialInput.h"

#include "support/VbError.h"

namespace kestrova::quotes {

namespace {

bool isBlank(QChar c)
{
    return c == u' ' || c == u'\t';
}

bool isLineEnd(QChar c)
{
    return c == u'\r' || c == u'\n';
}

} // namespace

bool SequentialInput::atEnd() const
{
    qsizetype p = m_pos;
    while (p < m_text.size() && (isBlank(m_text[p]) || isLineEnd(m_text[p])))
        ++p;
    return p >= m_text.size();
}

int SequentialInput::line() const
{
    return static_cast<int>(QStringView(m_text).left(m_pos).count(u'\n')) + 1;
}

QString SequentialInput::readString()
{
    if (atEnd())
        throw support::VbError(support::VbError::InputPastEnd);
    while (isBlank(m_text[m_pos]) || isLineEnd(m_text[m_pos]))
        ++m_pos;

    QString value;
    if (m_text[m_pos] == u'"') {
        const qsizetype close = m_text.indexOf(u'"', m_pos + 1);
        if (close < 0) {
            // An unterminated string runs to the end of the file, as it always did.
            value = m_text.mid(m_pos + 1);
            m_pos = m_text.size();
            return value;
        }
        value = m_text.mid(m_pos + 1, close - m_pos - 1);
        m_pos = close + 1;
        // Anything between the closing quote and the separator is ignored.
        while (m_pos < m_text.size() && m_text[m_pos] != u',' && !isLineEnd(m_text[m_pos]))
            ++m_pos;
    } else {
        const qsizetype start = m_pos;
        while (m_pos < m_text.size() && m_text[m_pos] != u',' && !isLineEnd(m_text[m_pos]))
            ++m_pos;
        value = m_text.mid(start, m_pos - start).trimmed();
    }
    if (m_pos < m_text.size()) {
        if (m_text[m_pos] == u',') {
            ++m_pos;
        } else {
            if (m_text[m_pos] == u'\r')
                ++m_pos;
            if (m_pos < m_text.size() && m_text[m_pos] == u'\n')
                ++m_pos;
        }
    }
    return value;
}

qint16 SequentialInput::readInt16()
{
    const QString text = readString();
    // An empty field reads as 0, as the input statement always gave.
    if (text.isEmpty())
        return 0;
    bool ok = false;
    const double value = text.toDouble(&ok);
    if (!ok)
        throw support::VbError(support::VbError::TypeMismatch);
    if (value < -32768.5 || value >= 32767.5)
        throw support::VbError(support::VbError::Overflow);
    return qint16(qRound(value));
}

} // namespace kestrova::quotes
