#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

namespace kestrova::core {
struct PushOptions;
}
namespace kestrova::support {
struct Services;
}

namespace kestrova::delivery {

// What a mirrored page was; it chooses the title, priority and tags the push server shows.
enum class PushKind { Alarm, Quotes, Mail, Manual };

// One HTTP request of the push route, as it goes on the wire (less the URL).
struct PushRequest
{
    QList<QByteArray> headers; // "Name: value"
    QByteArray body;
};

// The push route beside the pager: mirrors a page to a self-hosted push server by HTTP
// POST, in either of the two conventions such servers use:
//   ntfy style (0): the text is the body; Title, Priority and Tags go as headers.
//   JSON webhook (1): {"title": ..., "message": ..., "priority": ...} as the body.
// Both send "Authorization: Bearer TOKEN" when a token is set; a log-on in the URL is
// used as HTTP basic authentication. A failed attempt (no answer within the time-out, a
// refused connection, any status other than 2xx) is tried twice more, two seconds apart;
// then the failure goes to the status line and the activity log, the URL shown with its
// password as ***. The transfer yields to the face while it waits, like every other wait.
class PushNotifier
{
public:
    static constexpr int kAttempts = 3;
    static constexpr int kRetryPauseSeconds = 2;

    PushNotifier(const support::Services& services, const core::PushOptions& options);

    // Mirrors one page. True when the server took it; false when it did not or when the
    // route is switched off or has no URL (then nothing is reported).
    bool notify(const QString& text, PushKind kind);

    // Why a URL cannot be used by the route; empty when it can.
    static QString refusal(const QString& url);
    // A topic URL on an ntfy-style server that nobody will guess: whoever knows a topic's
    // name can read what is posted to it. "https://ntfy.sh/kestrova-7k2m..." by default.
    static QString suggestedTopicUrl(const QString& server = QString::fromLatin1(kDefaultServer));
    // The topic a phone subscribes to: the last part of the URL's path.
    static QString topicOf(const QString& url);
    static constexpr const char* kDefaultServer = "https://ntfy.sh";
    static QString title(PushKind kind);
    // ntfy's scale: 3 default, 4 high.
    static int priority(PushKind kind);
    static QString tags(PushKind kind);
    static PushRequest buildRequest(int style, const QString& text, PushKind kind, const QString& token);

    // The status line the last notify() wrote ("Push: Message Sent" or why it failed).
    const QString& lastOutcome() const { return m_outcome; }

    // Certificate authorities for https (PEM file); empty uses the system's.
    void setCaFile(const QString& path) { m_caFile = path; }

private:
    // One POST; the HTTP status, or 0 with *error set when no answer came.
    int post(const QByteArray& url, const PushRequest& request, QString* error);

    const support::Services& m_services;
    const core::PushOptions& m_options;
    void report(const QString& line);

    QString m_caFile;
    QString m_outcome;
};

} // namespace kestrova::delivery
