#pragma once

#include "core/Options.h"
#include "core/PortfolioFile.h"
#include "core/PortfolioTable.h"

#include <QProcess>
#include <QTemporaryDir>

#include <functional>

namespace kestrova::testing {

// The built kestrova-cli (named by KESTROVA_CLI) keeps its settings under dir/config, so
// a test never reads or changes the settings of the user running it.
inline QProcessEnvironment cliEnvironment(const QTemporaryDir& dir)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), dir.filePath(QStringLiteral("config")));
    env.remove(QStringLiteral("KESTROVA_HOME"));
    return env;
}

struct CliRun
{
    int code = -1; // -1: did not start, -2: crashed or did not finish in time
    QString out;
    QString err;
};

// Runs kestrova-cli to its end with input on its standard input; childSetup runs in the
// child before it starts the program (limits, signal dispositions); extraEnv is added to
// its environment (TZ=...).
inline CliRun runCli(const QTemporaryDir& dir, const QStringList& args, int timeoutMs = 60000,
                     const QByteArray& input = {}, const std::function<void()>& childSetup = {},
                     const QList<QPair<QString, QString>>& extraEnv = {})
{
    QProcess p;
    QProcessEnvironment env = cliEnvironment(dir);
    for (const auto& [name, value] : extraEnv) {
        env.insert(name, value);
    }
    p.setProcessEnvironment(env);
    if (childSetup) {
        p.setChildProcessModifier(childSetup);
    }
    p.start(qEnvironmentVariable("KESTROVA_CLI"), args);
    CliRun r;
    if (!p.waitForStarted(10000)) {
        return r;
    }
    p.write(input);
    p.closeWriteChannel();
    const bool finished = p.waitForFinished(timeoutMs);
    if (!finished) {
        p.kill();
        p.waitForFinished(3000);
    }
    r.code = finished && p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -2;
    r.out = QString::fromUtf8(p.readAllStandardOutput());
    r.err = QString::fromUtf8(p.readAllStandardError());
    return r;
}

// A portfolio file with no members and the given options, as dir/name; empty on failure.
inline QString writeOptionsFile(const QTemporaryDir& dir, const core::Options& options, const QString& name)
{
    const QString path = dir.filePath(name);
    core::PortfolioTable table;
    return core::PortfolioFile::write(path, table, options).ok() ? path : QString();
}

} // namespace kestrova::testing
