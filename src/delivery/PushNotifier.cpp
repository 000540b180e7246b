#include "delivery/PushNotifier.h"

#include "core/Options.h"
#include "support/Host.h"
#include "support/Services.h"
#include "support/Text.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QUrl>

#include <curl/curl.h>

#include <memory>

namespace kestrova::delivery {

namespace {

struct CurlEasyDeleter
{
    void operator()(CURL* c) const { curl_easy_cleanup(c); }
};
struct CurlMultiDeleter
{
    void operator()(CURLM* m) const { curl_multi_cleanup(m); }
};
struct SlistDeleter
{
    void operator()(curl_slist* l) const { curl_slist_free_all(l); }
};

size_t discardBody(char*, size_t size, size_t count, void*)
{
    return size * count;
}

} // namespace

PushNotifier::PushNotifier(const support::Services& services, const core::PushOptions& options)
    : m_services(services), m_options(options)
{}

QString PushNotifier::refusal(const QString& url)
{
    const QUrl u(url);
    const QString scheme = u.scheme().toLower();
    if (!u.isValid() || (scheme != QLatin1String("http") && scheme != QLatin1String("https")) || u.host().isEmpty()) {
        return QStringLiteral("only http:// and https:// URLs can be used");
    }
    return {};
}

QString PushNotifier::title(PushKind kind)
{
    switch (kind) {
    case PushKind::Alarm:
        return QStringLiteral("Kestrova alarm");
    case PushKind::Quotes:
        return QStringLiteral("Kestrova quotes");
    case PushKind::Mail:
        return QStringLiteral("Kestrova mail");
    case PushKind::Manual:
        return QStringLiteral("Kestrova page");
    }
    return {};
}

int PushNotifier::priority(PushKind kind)
{
    return kind == PushKind::Alarm ? 4 : 3;
}

QString PushNotifier::tags(PushKind kind)
{
    switch (kind) {
    case PushKind::Alarm:
        return QStringLiteral("warning,chart_with_upwards_trend");
    case PushKind::Quotes:
        return QStringLiteral("chart_with_upwards_trend");
    case PushKind::Mail:
        return QStringLiteral("email");
    case PushKind::Manual:
        return QStringLiteral("pager");
    }
    return {};
}

QString PushNotifier::suggestedTopicUrl(const QString& server)
{
    // Letters and digits that cannot be mistaken for each other when copied by hand; 14 of
    // them are 70 bits, beyond guessing.
    static const char kAlphabet[] = "abcdefghijkmnpqrstuvwxyz23456789";
    QString topic = QStringLiteral("kestrova-");
    for (int i = 0; i < 14; ++i) {
        topic += QLatin1Char(kAlphabet[QRandomGenerator::system()->bounded(int(sizeof kAlphabet) - 1)]);
    }
    QString base = server.trimmed();
    while (base.endsWith(u'/')) {
        base.chop(1);
    }
    return base + u'/' + topic;
}

QString PushNotifier::topicOf(const QString& url)
{
    const QString path = QUrl(url.trimmed()).path();
    return path.section(u'/', -1, -1, QString::SectionSkipEmpty);
}

PushRequest PushNotifier::buildRequest(int style, const QString& text, PushKind kind, const QString& token)
{
    PushRequest r;
    if (style == 1) {
        const QJsonObject body{{QStringLiteral("title"), title(kind)},
                               {QStringLiteral("message"), text},
                               {QStringLiteral("priority"), priority(kind)}};
        r.body = QJsonDocument(body).toJson(QJsonDocument::Compact);
        r.headers << "Content-Type: application/json";
    } else {
        r.body = text.toUtf8();
        r.headers << "Content-Type: text/plain; charset=utf-8";
        r.headers << "Title: " + title(kind).toUtf8();
        r.headers << "Priority: " + QByteArray::number(priority(kind));
        r.headers << "Tags: " + tags(kind).toUtf8();
    }
    if (!token.isEmpty()) {
        r.headers << "Authorization: Bearer " + token.toUtf8();
    }
    return r;
}

int PushNotifier::post(const QByteArray& url, const PushRequest& request, QString* error)
{
    std::unique_ptr<CURL, CurlEasyDeleter> easy(curl_easy_init());
    std::unique_ptr<CURLM, CurlMultiDeleter> multi(curl_multi_init());
    if (!easy || !multi) {
        *error = QStringLiteral("cannot start a transfer");
        return 0;
    }
    std::unique_ptr<curl_slist, SlistDeleter> headers;
    for (const QByteArray& h : request.headers) {
        headers.reset(curl_slist_append(headers.release(), h.constData()));
    }
    // A push must not wait for a "100 Continue" that many small servers never send.
    headers.reset(curl_slist_append(headers.release(), "Expect:"));
    const QByteArray caFile = m_caFile.toLocal8Bit();
    const long timeoutMs = std::max(1, int(m_options.timeout)) * 1000L;
    char errorBuffer[CURL_ERROR_SIZE] = {};

    CURL* c = easy.get();
    curl_easy_setopt(c, CURLOPT_URL, url.constData());
    curl_easy_setopt(c, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(c, CURLOPT_POST, 1L);
    curl_easy_setopt(c, CURLOPT_POSTFIELDS, request.body.constData());
    curl_easy_setopt(c, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
    curl_easy_setopt(c, CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(c, CURLOPT_WRITEFUNCTION, &discardBody);
    curl_easy_setopt(c, CURLOPT_ERRORBUFFER, errorBuffer);
    curl_easy_setopt(c, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(c, CURLOPT_TIMEOUT_MS, timeoutMs);
    curl_easy_setopt(c, CURLOPT_CONNECTTIMEOUT_MS, timeoutMs);
    curl_easy_setopt(c, CURLOPT_USERAGENT, "Kestrova/" KESTROVA_VERSION);
    // The options are the only place that decides on a proxy; a push never goes through
    // one taken from the environment.
    curl_easy_setopt(c, CURLOPT_PROXY, "");
    if (!caFile.isEmpty()) {
        curl_easy_setopt(c, CURLOPT_CAINFO, caFile.constData());
    }

    curl_multi_add_handle(multi.get(), c);
    CURLcode result = CURLE_OK;
    bool cancelled = false;
    for (;;) {
        int running = 0;
        if (curl_multi_perform(multi.get(), &running) != CURLM_OK) {
            result = CURLE_FAILED_INIT;
            break;
        }
        int queued = 0;
        bool done = false;
        while (CURLMsg* msg = curl_multi_info_read(multi.get(), &queued)) {
            if (msg->msg == CURLMSG_DONE) {
                result = msg->data.result;
                done = true;
            }
        }
        if (done || running == 0) {
            break;
        }
        if (m_services.cancelled()) {
            cancelled = true;
            break;
        }
        curl_multi_poll(multi.get(), nullptr, 0, 100, nullptr);
        m_services.host.yield(0);
    }
    long status = 0;
    curl_easy_getinfo(c, CURLINFO_RESPONSE_CODE, &status);
    curl_multi_remove_handle(multi.get(), c);
    if (cancelled) {
        *error = QStringLiteral("cancelled");
        return 0;
    }
    if (result != CURLE_OK) {
        *error = QString::fromUtf8(errorBuffer[0] ? errorBuffer : curl_easy_strerror(result)).trimmed();
        return 0;
    }
    m_services.host.terminalEcho(QStringLiteral("PUSH Recv: HTTP ") + QString::number(status) + QStringLiteral("\r\n"));
    return static_cast<int>(status);
}

void PushNotifier::report(const QString& line)
{
    m_outcome = line;
    m_services.StatusMessage(line);
}

bool PushNotifier::notify(const QString& text, PushKind kind)
{
    m_outcome.clear();
    if (!m_options.enabled || m_options.url.isEmpty() || m_services.cancelled()) {
        return false;
    }
    const QString shownUrl = support::redactUrl(m_options.url);
    if (const QString why = refusal(m_options.url); !why.isEmpty()) {
        report(QStringLiteral("Push: refused ") + shownUrl + QStringLiteral(": ") + why);
        return false;
    }
    const PushRequest request = buildRequest(m_options.style, text, kind, m_options.token);
    const QByteArray url = QUrl(m_options.url).toEncoded();
    const QString password = QUrl(m_options.url).password();
    QString why;
    for (int attempt = 1; attempt <= kAttempts; ++attempt) {
        if (attempt > 1) {
            m_services.pause(kRetryPauseSeconds);
        }
        if (m_services.cancelled()) {
            return false;
        }
        QString error;
        const int status = post(url, request, &error);
        if (status >= 200 && status < 300) {
            report(QStringLiteral("Push: Message Sent"));
            return true;
        }
        why = status > 0 ? QStringLiteral("HTTP ") + QString::number(status) : error;
    }
    // A transfer error could quote the URL it failed on; no secret leaves in it.
    for (const QString& secret : {password, m_options.token}) {
        if (!secret.isEmpty()) {
            why.replace(secret, QStringLiteral("***"));
        }
    }
    report(QStringLiteral("Push: Unable to send to ") + shownUrl +
           QStringLiteral(" after %1 attempts (").arg(kAttempts) + why + u')');
    return false;
}

} // namespace kestrova::delivery
