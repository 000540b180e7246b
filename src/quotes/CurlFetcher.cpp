#include "quotes/CurlFetcher.h"

#include "quotes/MarkupText.h"
#include "support/Cp1252.h"
#include "support/Host.h"
#include "support/Text.h"

#include <curl/curl.h>

#include <deque>
#include <memory>
#include <vector>

namespace kestrova::quotes {

namespace {

// curl_global_init is not thread-safe and must run once before any handle exists.
void ensureCurlReady()
{
    static const bool ready = [] {
        curl_global_init(CURL_GLOBAL_DEFAULT);
        return true;
    }();
    (void)ready;
}

struct Transfer
{
    int index = -1;
    CURL* easy = nullptr;
    QByteArray body;
    char error[CURL_ERROR_SIZE] = {};
};

size_t collectBody(char* data, size_t size, size_t count, void* user)
{
    static_cast<Transfer*>(user)->body.append(data, qsizetype(size * count));
    return size * count;
}

QString decodeBody(const QByteArray& body, const char* contentType)
{
    const QByteArray type = QByteArray(contentType ? contentType : "").toLower();
    if (type.contains("charset=utf-8") || type.contains("charset=\"utf-8\""))
        return QString::fromUtf8(body);
    return support::decodeCp1252(body);
}

// Start of the authority part (after "scheme://"), 0 for a URL without a scheme.
qsizetype authorityStart(const QString& url)
{
    const qsizetype scheme = url.indexOf(QLatin1String("://"));
    return scheme < 0 ? 0 : scheme + 3;
}

qsizetype authorityEnd(const QString& url, qsizetype start)
{
    qsizetype end = start;
    while (end < url.size() && url[end] != u'/' && url[end] != u'?' && url[end] != u'#')
        ++end;
    return end;
}

} // namespace

CurlFetcher::CurlFetcher(support::Host& host, core::ProxyOptions proxy) : m_hostFace(host), m_proxy(std::move(proxy))
{
    ensureCurlReady();
}

CurlFetcher::~CurlFetcher() = default;

QString CurlFetcher::redactUrl(const QString& url)
{
    return support::redactUrl(url);
}

void CurlFetcher::setUrl(const QString& url)
{
    const qsizetype start = authorityStart(url);
    const qsizetype end = authorityEnd(url, start);
    QString authority = url.mid(start, end - start);
    const qsizetype at = authority.lastIndexOf(u'@');
    if (at >= 0)
        authority = authority.mid(at + 1);
    m_host = authority;
    QString rest = url.mid(end);
    if (!rest.startsWith(u'/'))
        rest.prepend(u'/');
    m_path = rest;
}

QString CurlFetcher::get(const QString& url)
{
    return getMany(QStringList{url}, 1).value(0);
}

QString CurlFetcher::libraryVersion()
{
    return QString::fromLatin1(curl_version());
}

QString CurlFetcher::markupToText(const QString& page) const
{
    return markupToTabs(page);
}

QStringList CurlFetcher::getMany(const QStringList& urls, int maxParallel, const CompletionCallback& onDone)
{
    QStringList bodies;
    bodies.resize(urls.size());
    if (urls.isEmpty())
        return bodies;
    maxParallel = qBound(1, maxParallel, m_parallelLimit);

    std::unique_ptr<CURLM, decltype(&curl_multi_cleanup)> multi(curl_multi_init(), &curl_multi_cleanup);
    if (!multi) {
        for (const QString& u : urls)
            reportError(redactUrl(u), QStringLiteral("cannot start a transfer"));
        return bodies;
    }
    // Connections to one host are reused across the transfers of one cycle.
    curl_multi_setopt(multi.get(), CURLMOPT_MAX_TOTAL_CONNECTIONS, long(maxParallel));

    std::vector<std::unique_ptr<Transfer>> transfers(size_t(urls.size()));
    std::deque<int> waiting;
    for (int i = 0; i < urls.size(); ++i)
        waiting.push_back(i);

    QByteArray proxy;
    if (m_proxy.enabled) {
        const QString host = m_proxy.hostAddress.isEmpty() ? m_proxy.hostName : m_proxy.hostAddress;
        proxy = (host + u':' + m_proxy.port).toUtf8();
    }

    auto startOne = [&](int index) -> bool {
        auto t = std::make_unique<Transfer>();
        t->index = index;
        t->easy = curl_easy_init();
        if (!t->easy)
            return false;
        CURL* e = t->easy;
        // A ticker with a blank ("ES Z6") goes out percent-encoded, as a browser sends it;
        // libcurl refuses a URL with a raw blank.
        QByteArray url = urls[index].toUtf8();
        url.replace(' ', "%20");
        curl_easy_setopt(e, CURLOPT_URL, url.constData());
        curl_easy_setopt(e, CURLOPT_PRIVATE, t.get());
        curl_easy_setopt(e, CURLOPT_WRITEFUNCTION, &collectBody);
        curl_easy_setopt(e, CURLOPT_WRITEDATA, t.get());
        curl_easy_setopt(e, CURLOPT_ERRORBUFFER, t->error);
        curl_easy_setopt(e, CURLOPT_FOLLOWLOCATION, 1L);
        curl_easy_setopt(e, CURLOPT_MAXREDIRS, 10L);
        curl_easy_setopt(e, CURLOPT_PROTOCOLS_STR, "http,https");
        curl_easy_setopt(e, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
        curl_easy_setopt(e, CURLOPT_SSL_VERIFYPEER, 1L);
        curl_easy_setopt(e, CURLOPT_SSL_VERIFYHOST, 2L);
        curl_easy_setopt(e, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(e, CURLOPT_FAILONERROR, 1L);
        curl_easy_setopt(e, CURLOPT_TIMEOUT_MS, long(m_timeoutMs));
        curl_easy_setopt(e, CURLOPT_CONNECTTIMEOUT_MS, long(qMin(m_connectTimeoutMs, m_timeoutMs)));
        curl_easy_setopt(e, CURLOPT_ACCEPT_ENCODING, "");
        curl_easy_setopt(e, CURLOPT_USERAGENT, "Kestrova/" KESTROVA_VERSION);
        // An empty proxy also keeps curl from taking one from the environment: the options
        // are the only place that decides.
        curl_easy_setopt(e, CURLOPT_PROXY, proxy.constData());
        if (curl_multi_add_handle(multi.get(), e) != CURLM_OK) {
            curl_easy_cleanup(e);
            return false;
        }
        transfers[size_t(index)] = std::move(t);
        return true;
    };

    auto finish = [&](Transfer& t) {
        curl_multi_remove_handle(multi.get(), t.easy);
        curl_easy_cleanup(t.easy);
        t.easy = nullptr;
        t.body = QByteArray();
    };

    int running = 0;
    int active = 0;
    bool abandoned = false;
    auto fill = [&] {
        while (!abandoned && active < maxParallel && !waiting.empty()) {
            const int index = waiting.front();
            waiting.pop_front();
            if (startOne(index)) {
                ++active;
            } else {
                reportError(redactUrl(urls[index]), QStringLiteral("cannot start a transfer"));
                if (onDone && !onDone(index, QString()))
                    abandoned = true;
            }
        }
    };

    fill();
    while (!abandoned && (active > 0 || !waiting.empty())) {
        curl_multi_perform(multi.get(), &running);
        int queued = 0;
        while (CURLMsg* msg = curl_multi_info_read(multi.get(), &queued)) {
            if (msg->msg != CURLMSG_DONE)
                continue;
            Transfer* t = nullptr;
            curl_easy_getinfo(msg->easy_handle, CURLINFO_PRIVATE, &t);
            const CURLcode code = msg->data.result;
            QString body;
            if (code == CURLE_OK) {
                const char* type = nullptr;
                curl_easy_getinfo(t->easy, CURLINFO_CONTENT_TYPE, &type);
                body = decodeBody(t->body, type);
            } else {
                const QString reason = QString::fromUtf8(t->error[0] ? t->error : curl_easy_strerror(code)).trimmed();
                reportError(redactUrl(urls[t->index]), reason);
            }
            const int index = t->index;
            finish(*t);
            --active;
            m_lastUrl = urls[index];
            m_lastPage = body;
            bodies[index] = body;
            if (onDone && !onDone(index, body)) {
                abandoned = true;
                break;
            }
        }
        if (abandoned)
            break;
        fill();
        if (active == 0)
            continue;
        int fds = 0;
        curl_multi_poll(multi.get(), nullptr, 0, 100, &fds);
        m_hostFace.yield(0);
    }

    // Transfers still in flight when the caller gave up are dropped unread.
    for (auto& t : transfers) {
        if (t && t->easy)
            finish(*t);
    }
    return bodies;
}

} // namespace kestrova::quotes
