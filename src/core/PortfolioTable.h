#pragma once

#include "support/Currency.h"

#include <QString>
#include <QtGlobal>

#include <array>

namespace kestrova::core {

// One slot of the portfolio table, in the order the portfolio file carries its fields.
struct PortfolioRecord
{
    QString ticker;
    float highLimit = 0;
    float lowLimit = 0;
    qint16 marketOnly = 0;   // 0/1: page only at market moments (PageCloseOnly)
    qint16 toPager = 0;      // 0/1: include in pages (ToPager)
    qint16 legacyOption = 0; // 0/1: set by old files; forces the type to Option for display
    qint16 securityType = 0; // 0 Stock, 1 Option, 2 Mutual Fund, 3 Future
    float highChgLimit = 0;  // percent
    float lowChgLimit = 0;   // percent
    qint32 volumeLimit = 0;
    qint16 digits = 2;
    qint16 server = 0; // index into the built-in quote-server list
    qint16 news = 0;   // 0/1: fetch news for this ticker
    // The holding itself, kept after the fixed layout of the file (see PortfolioFile).
    QString name;
    float shares = 0;
    support::Currency costBasis; // cost of one share

    bool hasHolding() const { return !name.isEmpty() || shares != 0 || costBasis != support::Currency(); }

    // The type the rest of the program works with (the legacy flag means Option).
    qint16 effectiveType() const { return legacyOption ? qint16(1) : securityType; }
    bool operator==(const PortfolioRecord&) const = default;
};

// Slots 0..50, of which the first `count` are in use (at most 50).
struct PortfolioTable
{
    static constexpr int kSlots = 51;
    static constexpr int kMaxInUse = 50;
    std::array<PortfolioRecord, kSlots> records{};
    qint16 count = 0;
};

} // namespace kestrova::core
