#include "cli/Cli.h"

#include <QCoreApplication>

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Kestrova"));
    QCoreApplication::setOrganizationName(QStringLiteral("Kestrova"));
    return kestrova::cli::run(QCoreApplication::arguments());
}
