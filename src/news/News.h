#pragma once

#include <QString>

namespace kestrova::news {

// One headline scraped for a security of the portfolio.
class News
{
public:
    // Sent in a page already.
    bool paged() const { return m_paged; }
    void setPaged(bool value) { m_paged = value; }
    // Dated today: fresh news for the ticker.
    bool bNew() const { return m_bNew; }
    void setBNew(bool value) { m_bNew = value; }
    // The date as text; stories from the news pages carry "mm/dd/yyyy".
    QString sDate() const { return m_sDate; }
    void setSDate(const QString& value) { m_sDate = value; }
    QString ticker() const { return m_ticker; }
    void setTicker(const QString& value) { m_ticker = value; }
    QString newsSource() const { return m_newsSource; }
    void setNewsSource(const QString& value) { m_newsSource = value; }
    QString newsLine() const { return m_newsLine; }
    void setNewsLine(const QString& value) { m_newsLine = value; }
    QString time() const { return m_time; }
    void setTime(const QString& value) { m_time = value; }

private:
    bool m_paged = false;
    bool m_bNew = false;
    QString m_sDate;
    QString m_ticker;
    QString m_newsSource;
    QString m_newsLine;
    QString m_time;
};

} // namespace kestrova::news
