#pragma once

#include <QString>

namespace kestrova::support {

class Clock;
class Host;

// The activity log. One line per message (message, one space, general date, CR LF),
// appended and closed again at once, so the file is never held open. Switching logging
// on starts a fresh log and keeps the previous one under the ".old" name, unless the
// process only joins the current log: a one-shot command always does, and a program
// does when another one already has the folder (see NewLog).
class CLogFile
{
public:
    enum class Start {
        // A program that runs (the desktop, the daemon, an update): it marks the folder as
        // in use for as long as it logs, and starts a fresh log only when no other program
        // has marked it. The mark is a shared lock on "activity.lock" beside the log.
        NewLog,
        // A one-shot command: only adds to the current log.
        Append
    };

    CLogFile(const Clock& clock, Host& host);
    ~CLogFile();
    CLogFile(const CLogFile&) = delete;
    CLogFile& operator=(const CLogFile&) = delete;

    // Stores the folder and creates it (one level) when it does not exist.
    void setPath(const QString& path);
    QString path() const { return m_path; }
    // Stores the name and derives the old name from the text before its first dot.
    void setLogFileName(const QString& name);
    QString logFileName() const { return m_logFileName; }
    QString oldFileName() const { return m_oldFileName; }
    void setLogEnable(bool enable, Start start = Start::NewLog);
    bool logEnable() const { return m_logEnable; }

    QString fullPath() const;
    QString oldFullPath() const;
    QString lockFullPath() const;
    // Whether the last switch-on found another program using the folder and joined its log.
    bool joinedLog() const { return m_joined; }

    // Appends one line; when textBox is given the same line is appended to it.
    void LogMessage(const QString& message, QString* textBox = nullptr);
    // Shows the message in a plain box, then logs it.
    void MsgBoxLog(const QString& message);
    // Both deliberately do nothing: the log is only ever appended to and rotated.
    void ClearLogFile() {}
    void ReadLogFile() {}

private:
    void StartNewLog();
    bool appendBytes(const QByteArray& bytes, bool askOnFailure);
    // Marks the folder as used by this program; true when no other program had it.
    bool claimFolder();
    // A failure of the file system is said once, not at every line (on a read-only folder
    // every line would bring the same box); said again only after a line got through.
    bool alreadySaid(const QString& failure);

    const Clock& m_clock;
    Host& m_host;
    QString m_path;
    QString m_logFileName;
    QString m_oldFileName;
    bool m_logEnable = false;
    bool m_previousEnable = false;
    bool m_joined = false;
    int m_lockFd = -1;
    QString m_lastFailure;
};

} // namespace kestrova::support
