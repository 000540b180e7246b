#pragma once

#include "core/PortfolioEntries.h"
#include "core/PortfolioTable.h"

#include <QDialog>

#include <optional>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QSpinBox;

namespace kestrova::app {
class Application;
}
namespace kestrova::quotes {
class SymbolLookup;
struct LookupResult;
} // namespace kestrova::quotes

namespace kestrova::gui {

class GuiHost;
class LookupLabel;

// The form of one portfolio entry. It works on the portfolio editor's copy of the table:
// OK checks every field with the engine's rules and adds or replaces the entry there,
// Cancel leaves the copy as it was.
class SecurityDialog : public QDialog
{
    Q_OBJECT
public:
    // slot -1 adds a new entry; otherwise the entry in that slot is edited.
    SecurityDialog(QWidget* parent, app::Application& app, GuiHost& host, core::PortfolioTable& table, int slot);
    ~SecurityDialog() override;

    // The slot the entry ended up in after OK.
    int slot() const { return m_slot; }

    void accept() override;

    // What the quote sources said of the ticker last looked up ("IBM — ..., 241.30 (Stooq)").
    QString lookupResult() const;

private:
    void updateFigures();
    // Asks the quote sources about the ticker in the background (when the field is left).
    void lookUpTicker();
    void showLookup(const quotes::LookupResult& result);
    QWidget* fieldFor(core::EntryField field) const;

    app::Application& m_app;
    GuiHost& m_host;
    core::PortfolioTable& m_table;
    int m_slot;

    QComboBox* m_type;
    QLineEdit* m_ticker;
    QLineEdit* m_name;
    QComboBox* m_server;
    QSpinBox* m_digits;
    QLineEdit* m_shares;
    QLineEdit* m_costBasis;
    QLabel* m_lastPrice;
    LookupLabel* m_lookupResult;
    quotes::SymbolLookup* m_lookup = nullptr;
    QString m_lookedUp; // the ticker the shown result is for
    QLabel* m_marketValue;
    QLabel* m_costValue;
    QLabel* m_gain;
    QLineEdit* m_highLimit;
    QLineEdit* m_lowLimit;
    QLineEdit* m_highChg;
    QLineEdit* m_lowChg;
    QLineEdit* m_volume;
    QCheckBox* m_toPager;
    QCheckBox* m_marketOnly;
    QCheckBox* m_news;
};

} // namespace kestrova::gui
