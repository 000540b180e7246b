// Saves one of two large portfolios over the same file, alternately, for as long as it
// lives, and says "saved N" after each save. The crash test kills it at random moments.
//
//   portfolio_saver FILE                   save for ever
//   portfolio_saver FILE --once V [LIMIT]  save variant V once; exit 1 with the error text
//
// LIMIT is "fsize=BYTES" (a full disk: every file this process writes stops at BYTES) or
// "nobody" (run as an unprivileged user, so a read-only folder is read-only even when the
// tests run as root).
#include "core/PortfolioFile.h"

#include <QCoreApplication>
#include <QTextStream>

#include <csignal>
#include <sys/resource.h>
#include <unistd.h>

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
    if (argc >= 4 && qstrcmp(argv[2], "--once") == 0) {
        const int v = QByteArray(argv[3]) == "1" ? 1 : 0;
        const QByteArray limit = argc >= 5 ? QByteArray(argv[4]) : QByteArray();
        if (limit.startsWith("fsize=")) {
            // A write past the limit fails with EFBIG instead of killing the process.
            std::signal(SIGXFSZ, SIG_IGN);
            const rlim_t bytes = limit.mid(6).toULongLong();
            const rlimit rl{bytes, bytes};
            if (setrlimit(RLIMIT_FSIZE, &rl) != 0) {
                return 3;
            }
        } else if (limit == "nobody" && getuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) {
            return 3;
        }
        const PortfolioFileResult r = PortfolioFile::write(path, tables[v], options[v]);
        if (!r.ok()) {
            QTextStream(stderr) << r.message << '\n';
            return 1;
        }
        return 0;
    }
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
