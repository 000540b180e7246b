#pragma once

#include "delivery/PageTable.h"

#include <QString>

namespace kestrova::core {
struct Options;
}

namespace kestrova::delivery {

class ModemLine;

// Numeric ("digital") paging: no protocol, just the service number followed by the
// page's digits, the line held while the service takes them, then a hang-up. One call
// per page.
class NumericPager
{
public:
    NumericPager(ModemLine& modem, const core::Options& options);

    // Sends every page of the table. Returns true when every page was sent.
    bool SendDigitalPage(const PageTable& pages);

    // Seconds the line stays up after dialling: 2 per comma of the preceding
    // characters (a modem's comma pause) plus 5.
    static int holdSeconds(const QString& prefix);
    // The log lines written by the last send, in order.
    const QStringList& outcomes() const { return m_outcomes; }

private:
    void note(const QString& text);

    ModemLine& m_modem;
    const core::Options& m_options;
    QStringList m_outcomes;
};

} // namespace kestrova::delivery
