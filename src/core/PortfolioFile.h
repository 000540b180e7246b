#pragma once

#include "core/Options.h"
#include "core/PortfolioTable.h"

#include <QByteArray>
#include <QString>

namespace kestrova::core {

// The outcome of reading or writing a portfolio file: the error number (0 when all went
// well) and the message the program shows for it.
struct PortfolioFileResult
{
    int error = 0;
    QString message;

    bool ok() const { return error == 0; }
    // The file ended early: what was read stays in force, and saving converts the file.
    bool olderVersion() const;
};

// The portfolio file: the portfolio table, the modem profile table, the quote-service
// log-ons, the schedule and nearly every option, as a sequence of comma-separated items
// (quoted strings, plain decimals, #TRUE#/#FALSE#) in Windows-1252 with CR LF line ends.
// The table is written column group by column group, with option lines in between, so
// reading must follow the same sequence item by item. docs/portfolio-file.md lists which
// option sits at which position.
class PortfolioFile
{
public:
    // Fills table and options in place. A file that ends early leaves every later item
    // at the value it had before; an empty file changes nothing.
    static PortfolioFileResult read(const QString& path, PortfolioTable& table, Options& options);
    // Writes atomically (a crash mid-save leaves the old file whole) with mode 0600, since
    // the file carries passwords, scrambled but not encrypted.
    static PortfolioFileResult write(const QString& path, const PortfolioTable& table, const Options& options);

    // The item sequence itself; both throw support::VbError.
    static QByteArray encode(const PortfolioTable& table, const Options& options);
    static void decode(const QByteArray& bytes, PortfolioTable& table, Options& options);

    static QString readerMessage(int error, const QString& fileName, const QString& description = {});
    static QString writerMessage(int error, const QString& fileName);

    // The old scrambling of stored passwords: every code moved up by 128.
    static QByteArray scramble(const QString& text);
    static QString unscramble(const QByteArray& bytes);
};

} // namespace kestrova::core
