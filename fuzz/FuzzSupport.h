#pragma once

#include "support/CLogFile.h"
#include "support/CancelFlag.h"
#include "support/Clock.h"
#include "support/Host.h"
#include "support/Services.h"

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QTemporaryDir>

#include <cstdint>
#include <cstdlib>
#include <functional>

// What the fuzz targets share: the input as bytes, a face that answers nothing and turns
// every wait into a step of a mock clock, and a scratch folder for the readers that only
// take a file name. A target aborts (and so reports a finding) through fuzzCheck when a
// property of the parser it drives does not hold.

namespace kestrova::fuzz {

inline QByteArray bytesOf(const uint8_t* data, size_t size)
{
    return QByteArray(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
}

// A property that must hold for every input; a failure is a finding like a crash.
#define fuzzCheck(cond)                                                                                            \
    do {                                                                                                           \
        if (!(cond)) {                                                                                             \
            qFatal("fuzz check failed: %s (%s:%d)", #cond, __FILE__, __LINE__);                                    \
        }                                                                                                          \
    } while (0)

// Qt's warnings about odd input ("QString::arg: Argument missing") are expected here and
// would only flood the fuzzer's output; fatal messages still abort.
inline void quietQt()
{
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext&, const QString& msg) {
        if (type == QtFatalMsg) {
            fprintf(stderr, "%s\n", qPrintable(msg));
            abort();
        }
    });
}

// A face with nobody in front of it: boxes get their default answer, and a yield moves the
// mock clock on by the time the caller was willing to wait, so a 60-second wait costs 600
// calls and no real time. onYield lets a target play a peer (a modem answering).
class FuzzHost final : public support::Host
{
public:
    explicit FuzzHost(support::MockClock& clock) : m_clock(clock) {}

    void appendStatusLine(const QString&) override {}
    void setStatusText(const QString&) override {}
    void setProgress(const QString&, const QString&) override {}
    void terminalEcho(const QString&) override {}
    support::MsgAnswer messageBox(const QString&, support::MsgButtons buttons, support::MsgIcon) override
    {
        ++boxes;
        return buttons == support::MsgButtons::YesNo || buttons == support::MsgButtons::YesNoCancel
                   ? support::MsgAnswer::No
                   : support::MsgAnswer::Ok;
    }
    QString inputBox(const QString&, const QString&) override { return {}; }
    void setBusy(bool) override {}
    bool openUrl(const QString&) override { return false; }
    void yield(int maxWaitMs) override
    {
        ++yields;
        m_clock.advanceMs(maxWaitMs > 0 ? maxWaitMs : 1);
        if (onYield) {
            onYield();
        }
    }

    std::function<void()> onYield;
    long yields = 0;
    int boxes = 0;

private:
    support::MockClock& m_clock;
};

// Clock, face, cancel flag and a switched-off activity log: what an engine operation needs.
struct FuzzServices
{
    support::MockClock clock;
    FuzzHost host{clock};
    support::CancelFlag cancel;
    support::CLogFile log{clock, host};
    support::Services services{clock, host, cancel, log};
};

// A story goes into news.dat as one line of tab-separated fields: a field holding a tab or
// a line break would corrupt the store.
template <class Story> void checkStory(const Story& story)
{
    fuzzCheck(!story.headline.isEmpty());
    for (const QString* field : {&story.headline, &story.source, &story.date, &story.time}) {
        fuzzCheck(!field->contains(u'\t') && !field->contains(u'\r') && !field->contains(u'\n'));
    }
}

// One scratch file per target process, rewritten for every input.
class ScratchFile
{
public:
    explicit ScratchFile(const QString& name) : m_path(m_dir.filePath(name)) {}

    const QString& write(const QByteArray& bytes)
    {
        QFile f(m_path);
        if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate) || f.write(bytes) != bytes.size()) {
            qFatal("cannot write the scratch file %s", qPrintable(m_path));
        }
        return m_path;
    }
    const QString& path() const { return m_path; }
    QString sibling(const QString& name) const { return m_dir.filePath(name); }

private:
    QTemporaryDir m_dir;
    QString m_path;
};

} // namespace kestrova::fuzz
