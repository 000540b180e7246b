// Saves one of two large portfolios over the same file, alternately, for as long as it
// lives, and says "saved N" after each save. The crash test kills it at random moments.
#include "core/PortfolioFile.h"

#include <QCoreApplication>
#include <QTextStream>

using namespace kestrova::core;

namespace {

void fill(PortfolioTable& t, Options& o, int variant)
{
    t.count = PortfolioTable::kMaxInUse;
    for (int i = 0; i < t.count; ++i) {
        PortfolioRecord& r = t.records[static_cast<size_t>(i)];
        r.ticker = QStringLiteral("V%1-TICKER-%2-").arg(variant).arg(i) + QString(40, QChar(u'A' + variant));
        r.highLimit = static_cast<float>(100 + i + variant);
        r.lowLimit = static_cast<float>(i);
        r.volumeLimit = 1000 * i + variant;
        r.securityType = static_cast<qint16>(i % 4);
    }
    o.paging.pagerId = QStringLiteral("variant %1").arg(variant);
    o.mail.password = QStringLiteral("pw%1").arg(variant);
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    if (argc < 2) {
        return 2;
    }
    const QString path = QString::fromLocal8Bit(argv[1]);
    PortfolioTable tables[2];
    Options options[2];
    fill(tables[0], options[0], 0);
    fill(tables[1], options[1], 1);
    QTextStream out(stdout);
    for (qint64 n = 0;; ++n) {
        const PortfolioFileResult r = PortfolioFile::write(path, tables[n % 2], options[n % 2]);
        if (!r.ok()) {
            QTextStream(stderr) << r.message << '\n';
            return 1;
        }
        out << "saved " << n << '\n';
        out.flush();
    }
}
