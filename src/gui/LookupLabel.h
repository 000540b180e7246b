#pragma once

#include <QWidget>

class QLabel;

namespace kestrova::quotes {
struct LookupResult;
}

namespace kestrova::gui {

// One symbol look-up's outcome as a line: "IBM — International Business Machines, 241.30
// (Stooq)", or a warning sign with "XYZQ: no source knows this symbol", or that the
// sources are being asked.
class LookupLabel : public QWidget
{
    Q_OBJECT
public:
    explicit LookupLabel(QWidget* parent = nullptr);

    void showAsking(const QString& symbol);
    void showResult(const quotes::LookupResult& result);
    void clear();
    QString text() const;
    bool warning() const;

private:
    QLabel* m_icon;
    QLabel* m_text;
};

} // namespace kestrova::gui
