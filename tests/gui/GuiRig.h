#pragma once

#include "app/Application.h"
#include "gui/GuiHost.h"
#include "news/News.h"
#include "news/NewsStories.h"
#include "secrets/FileSecrets.h"
#include "settings/SettingsStore.h"
#include "support/Clock.h"
#include "support/EventWait.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDialog>
#include <QDir>
#include <QFile>
#include <QLineEdit>
#include <QPointer>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QWidget>

#include <functional>
#include <memory>

namespace kestrova::testing {

// The desktop host with a mock clock: each yield lets real events in for a moment and
// then moves the clock on, so a modem's 60-second wait passes in a few hundred rounds.
class ClockedGuiHost : public gui::GuiHost
{
public:
    explicit ClockedGuiHost(support::MockClock& clock) : m_clock(clock) { scripted = true; }
    void yield(int maxWaitMs) override
    {
        support::waitForEvents(std::min(maxWaitMs, 5));
        m_clock.advanceMs(100);
    }

private:
    support::MockClock& m_clock;
};

// One desktop program's engine for a dialog test: its own data folder, a scripted host
// (boxes are answered from the host's queues and recorded), and a fresh settings store.
struct GuiRig
{
    QTemporaryDir dir;
    support::MockClock clock;
    ClockedGuiHost host{clock};
    std::unique_ptr<app::Application> app;

    explicit GuiRig(app::Transports transports = {})
    {
        app = std::make_unique<app::Application>(clock, host, dir.path(), std::move(transports));
    }

    // Start-up as the program runs it, with the given portfolio file (none: an empty setup).
    void start(const QString& file = {})
    {
        app->startup(file);
        host.shownMessages.clear();
    }

    QString path(const QString& name) const { return dir.filePath(name); }
};

// Clears the settings store this test program was given (tests run with their own
// XDG_CONFIG_HOME), so a run never sees what an earlier run remembered.
inline void clearSettingsStore()
{
    QFile::remove(settings::SettingsStore().fileName());
    QDir(secrets::FileSecrets::defaultFolder()).removeRecursively();
}

// Runs `act` on the next modal dialog of type T once it is shown (a dialog opened with
// exec() blocks the test until it closes, so the test acts on it from the event loop).
// Returns a flag that tells whether it ran.
template <class T> std::shared_ptr<bool> onModal(std::function<void(T*)> act)
{
    auto ran = std::make_shared<bool>(false);
    auto* timer = new QTimer;
    timer->setInterval(10);
    QObject::connect(timer, &QTimer::timeout, [timer, ran, act] {
        if (auto* dialog = qobject_cast<T*>(QApplication::activeModalWidget())) {
            timer->stop();
            timer->deleteLater();
            *ran = true;
            act(dialog);
        }
    });
    // A dialog that never shows up must not leave the timer running into other tests.
    QTimer::singleShot(20000, timer, [timer] {
        timer->stop();
        timer->deleteLater();
    });
    timer->start();
    return ran;
}

// The named widget of a dialog; a test that names one the dialog lacks stops there.
template <class T> T* child(QWidget* w, const QString& name)
{
    T* c = w->findChild<T*>(name);
    if (!c) {
        qFatal("no widget %s", qPrintable(name));
    }
    return c;
}

// Types over a line edit's text as a person does: select it all, delete it, type.
inline void retype(QWidget* dialog, const QString& name, const QString& text)
{
    auto* edit = child<QLineEdit>(dialog, name);
    edit->setFocus();
    edit->selectAll();
    QTest::keyClick(edit, Qt::Key_Backspace);
    QTest::keyClicks(edit, text);
}

// A headline as a news update stores it.
inline void addStory(app::Application& app, const char* ticker, const char* date, const char* time, const char* line,
                     bool fresh)
{
    auto story = std::make_shared<news::News>();
    story->setTicker(QString::fromLatin1(ticker));
    story->setSDate(QString::fromLatin1(date));
    story->setTime(QString::fromLatin1(time));
    story->setNewsLine(QString::fromLatin1(line));
    story->setNewsSource(QStringLiteral("Wire"));
    story->setBNew(fresh);
    app.news().Add(story);
}

// Ticks or unticks a check box from the keyboard. (Two quick mouse clicks on different
// boxes would reach the second as a double click, which a check box does not toggle on.)
inline void toggle(QAbstractButton* box)
{
    box->setFocus();
    QTest::keyClick(box, Qt::Key_Space);
}

// Saves a picture of a widget when the run asked for screenshots.
inline void saveScreenshot(QWidget* widget, const QString& name)
{
    const QString dir = qEnvironmentVariable("KESTROVA_SCREENSHOT_DIR");
    if (dir.isEmpty()) {
        return;
    }
    QDir().mkpath(dir);
    widget->grab().save(dir + u'/' + name + QStringLiteral(".png"));
}

} // namespace kestrova::testing
