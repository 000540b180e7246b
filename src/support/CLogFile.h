#pragma once

#include <QString>

namespace kestrova::support {

class Clock;
class Host;

// The activity log. One line per message (message, one space, general date, CR LF),
// appended and closed again at once, so the file is never held open. Switching logging
// on starts a fresh log and keeps the previous one under the ".old" name, unless the
// process only joins the current log (a one-shot command beside a running program).
class CLogFile
{
public:
    enum class Start { NewLog, Append };

    CLogFile(const Clock& clock, Host& host);

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

    const Clock& m_clock;
    Host& m_host;
    QString m_path;
    QString m_logFileName;
    QString m_oldFileName;
    bool m_logEnable = false;
    bool m_previousEnable = false;
};

} // namespace kestrova::support
