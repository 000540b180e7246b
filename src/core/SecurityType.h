#pragma once

#include <QString>
#include <QtGlobal>

namespace kestrova::core {

// The kind of a watched security. The same 16-bit code travels in the portfolio table,
// in Security and in Quote; values outside 0..3 can arrive from damaged files and simply
// have no name.
enum class SecurityType : qint16 {
    Stock = 0,
    Option = 1,
    MutualFund = 2,
    Future = 3,
};

// "Stock", "Option", "Mutual Fund", "Future"; empty for any other code.
inline QString securityTypeName(qint16 code)
{
    switch (code) {
    case qint16(SecurityType::Stock):
        return QStringLiteral("Stock");
    case qint16(SecurityType::Option):
        return QStringLiteral("Option");
    case qint16(SecurityType::MutualFund):
        return QStringLiteral("Mutual Fund");
    case qint16(SecurityType::Future):
        return QStringLiteral("Future");
    default:
        return {};
    }
}

} // namespace kestrova::core
