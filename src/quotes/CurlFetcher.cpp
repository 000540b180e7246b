#include "quotes/CurlFetcher.h"

#include "quotes/MarkupText.h"
#include "support/Host.h"
#include "support/Text.h"

#include <QRegularExpression>
#include <QUrl>

#include <curl/curl.h>

#include <cerrno>
#include <chrono>
#include <deque>
#include <map>

namespace kestrova::quotes {

using SteadyClock = std::chrono::steady_clock;

// One request on its way: what to send, and what has come back so far.
struct CurlFetcher::Job
{
    int index = -1;
    HttpRequest request;
    QByteArray hostKey;       // scheme://host:port, what the per-host limits count by
    bool failOnError = false; // getMany: an HTTP error status is a failure without a body
    CURL* easy = nullptr;
    curl_slist* headers = nullptr;
    qint64 maxBody = 0;
    bool tooLarge = false;
    bool finished = false;
    HttpResponse response;
    char error[CURL_ERROR_SIZE] = {};
    QByteArray currentUrl; // where the request now goes, after the redirects followed
    int redirects = 0;

    static size_t collect(char* data, size_t size, size_t count, void* user)
    {
        auto* job = static_cast<Job*>(user);
        const qint64 n = qint64(size * count);
        if (job->response.body.size() + n > job->maxBody) {
            job->tooLarge = true;
            return 0; // curl ends the transfer with a write error
        }
        job->response.body.append(data, qsizetype(n));
        return size * count;
    }
};

namespace {

void cleanupMulti(void* multi)
{
    if (multi)
        curl_multi_cleanup(static_cast<CURLM*>(multi));
}

void cleanupShare(void* share)
{
    if (share)
        curl_share_cleanup(static_cast<CURLSH*>(share));
}

// Whether libcurl was built with a CA bundle file of its own (Debian's: the system bundle).
bool hasDefaultCaFile()
{
    static const bool has = [] {
        CURL* e = curl_easy_init();
        if (!e)
            return false;
        char* path = nullptr;
        const bool found = curl_easy_getinfo(e, CURLINFO_CAINFO, &path) == CURLE_OK && path && *path;
        curl_easy_cleanup(e);
        return found;
    }();
    return has;
}

bool isHttps(const QByteArray& url)
{
    return url.size() >= 6 && qstrnicmp(url.constData(), "https:", 6) == 0;
}

QByteArray hostKeyOf(const QString& url)
{
    const QUrl u(url);
    const bool https = u.scheme().compare(QLatin1String("https"), Qt::CaseInsensitive) == 0;
    return (u.scheme().toLower() + QStringLiteral("://") + u.host().toLower() + u':' +
            QString::number(u.port(https ? 443 : 80)))
        .toUtf8();
}

QString sizeText(qint64 bytes)
{
    return bytes % (1024 * 1024) == 0 ? QString::number(bytes / (1024 * 1024)) + QStringLiteral(" MB")
                                      : QString::number(bytes / 1024) + QStringLiteral(" KB");
}

QString hostOf(const QString& url)
{
    const QString host = QUrl(url).host();
    if (!host.isEmpty()) {
        return host;
    }
    // QUrl gives no host for one it finds malformed (a label past 63 characters), which is
    // the very host the user must see named: take it as the URL writes it.
    static const QRegularExpression authority(
        QStringLiteral(R"(^[A-Za-z][A-Za-z0-9+.-]*://(?:[^/?#@]*@)?(\[[^\]/]*\]|[^/?#:]+))"));
    const QRegularExpressionMatch m = authority.match(url);
    return m.hasMatch() ? m.captured(1) : url;
}

bool isHttps(const QUrl& url)
{
    return url.scheme().compare(QLatin1String("https"), Qt::CaseInsensitive) == 0;
}

// Why a redirect from one URL to the next is not followed (empty: it may be). A page never
// goes from https to http, where anyone on the way could read or change it; a request that
// carries a key goes on only to the host it was meant for.
QString refusedRedirect(const QString& from, const QString& to, bool carriesSecret)
{
    const QUrl a(from);
    const QUrl b = a.resolved(QUrl(to));
    if (isHttps(a) && !isHttps(b)) {
        return QStringLiteral("the server sent the request on from https to ") + support::redactUrl(b.toString()) +
               QStringLiteral("; not followed");
    }
    if (carriesSecret && a.host().compare(b.host(), Qt::CaseInsensitive) != 0) {
        return QStringLiteral("the server sent the request on to another host (") + b.host() +
               QStringLiteral("); a request that carries a key is not followed there");
    }
    return {};
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

CurlFetcher::CurlFetcher(support::Host& host, core::ProxyOptions proxy)
    : m_hostFace(host), m_proxy(std::move(proxy)), m_share(nullptr, &cleanupShare), m_multi(nullptr, &cleanupMulti)
{
    // Nothing of libcurl here: it is loaded by the first transfer.
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

QString CurlFetcher::describeFailure(int curlCode, const QString& url, long httpStatus, long osErrno, bool tooLarge,
                                     const char* detail) const
{
    const auto code = static_cast<CURLcode>(curlCode);
    const QString extra = QString::fromUtf8(detail && *detail ? detail : curl_easy_strerror(code)).trimmed();
    switch (code) {
    case CURLE_COULDNT_RESOLVE_HOST:
        return QStringLiteral("could not resolve ") + hostOf(url);
    case CURLE_COULDNT_RESOLVE_PROXY:
        return QStringLiteral("could not resolve the proxy ") +
               (m_proxy.hostAddress.isEmpty() ? m_proxy.hostName : m_proxy.hostAddress);
    case CURLE_COULDNT_CONNECT:
        return osErrno == ECONNREFUSED ? QStringLiteral("refused") : QStringLiteral("could not connect: ") + extra;
    case CURLE_OPERATION_TIMEDOUT:
        return QStringLiteral("timed out after ") + QString::number((m_timeoutMs + 999) / 1000) + QStringLiteral(" s");
    case CURLE_HTTP_RETURNED_ERROR:
        return QStringLiteral("HTTP ") + QString::number(httpStatus);
    case CURLE_GOT_NOTHING:
        return QStringLiteral("empty answer (the server closed the connection without a reply)");
    case CURLE_WRITE_ERROR:
        if (tooLarge) {
            return QStringLiteral("page too large: the answer is larger than ") + sizeText(m_maxBodyBytes);
        }
        return extra;
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
        return osErrno == ECONNRESET ? QStringLiteral("reset") : QStringLiteral("connection broken: ") + extra;
    case CURLE_PARTIAL_FILE:
        return QStringLiteral("the page was cut off: ") + extra;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CACERT_BADFILE:
        return QStringLiteral("TLS handshake failed: ") + extra;
    default:
        return extra;
    }
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
    getPages(urls, maxParallel, [&](int index, const PageBody& page) {
        bodies[index] = page.text();
        return !onDone || onDone(index, bodies[index]);
    });
    return bodies;
}

std::vector<PageBody> CurlFetcher::getPages(const QStringList& urls, int maxParallel, const PageCallback& onDone)
{
    std::vector<PageBody> pages(size_t(urls.size()));
    std::vector<Job> jobs(size_t(urls.size()));
    for (int i = 0; i < urls.size(); ++i) {
        jobs[size_t(i)].request.url = urls[i];
        jobs[size_t(i)].failOnError = true;
    }
    run(jobs, qBound(1, maxParallel, m_parallelLimit), [&](Job& job) {
        PageBody& page = pages[size_t(job.index)];
        if (job.response.error.isEmpty()) {
            page.bytes = std::move(job.response.body);
            page.charset = charsetOf(job.response.contentType);
        } else {
            reportError(redactUrl(urls[job.index]), job.response.error);
        }
        job.response.body = QByteArray();
        m_lastUrl = urls[job.index];
        m_lastPage = page;
        return !onDone || onDone(job.index, page);
    });
    return pages;
}

std::vector<HttpResponse> CurlFetcher::fetch(const std::vector<HttpRequest>& requests, const ResponseCallback& onDone)
{
    std::vector<Job> jobs(requests.size());
    for (size_t i = 0; i < requests.size(); ++i)
        jobs[i].request = requests[i];
    run(jobs, m_parallelLimit, [&](Job& job) { return !onDone || onDone(job.index, job.response); });
    std::vector<HttpResponse> out(requests.size());
    for (size_t i = 0; i < jobs.size(); ++i)
        out[i] = std::move(jobs[i].response);
    return out;
}

void CurlFetcher::run(std::vector<Job>& jobs, int maxParallel, const std::function<bool(Job&)>& onDone)
{
    if (jobs.empty())
        return;
    // A fetch started from inside another one's yield (a timer of the face) gets a multi
    // handle of its own: the two must not read each other's finished transfers.
    std::unique_ptr<void, void (*)(void*)> own(nullptr, &cleanupMulti);
    CURLM* multi = nullptr;
    const bool nested = m_running;
    if (nested) {
        own.reset(curl_multi_init());
        multi = own.get();
    } else {
        if (!m_multi)
            m_multi = std::unique_ptr<void, void (*)(void*)>(curl_multi_init(), &cleanupMulti);
        multi = m_multi.get();
    }
    const QString cannotStart = QStringLiteral("cannot start a transfer");
    if (!multi) {
        for (Job& job : jobs) {
            job.response.error = cannotStart;
            if (!onDone(job))
                break;
        }
        return;
    }
    m_running = true;
    // One thread uses the fetcher, so the share needs no locks.
    if (!m_share) {
        if (CURLSH* share = curl_share_init()) {
            curl_share_setopt(share, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
            curl_share_setopt(share, CURLSHOPT_SHARE, CURL_LOCK_DATA_DNS);
            m_share.reset(share);
        }
    }
    curl_multi_setopt(multi, CURLMOPT_PIPELINING, CURLPIPE_MULTIPLEX);
    curl_multi_setopt(multi, CURLMOPT_MAX_HOST_CONNECTIONS, long(m_hostConnections));
    curl_multi_setopt(multi, CURLMOPT_MAX_TOTAL_CONNECTIONS, long(kMaxConnections));
    // A cycle's pages on one HTTP/2 connection (libcurl's own default is 100 streams).
    curl_multi_setopt(multi, CURLMOPT_MAX_CONCURRENT_STREAMS, long(kMaxParallel));
    // libcurl keeps the certificate store it builds for the first TLS connection only when
    // it is read from a bundle file alone; with the hashed directory as well (Debian's
    // default) it parses the whole bundle again for every new connection, some 25 ms of CPU
    // each. The bundle holds the same certificates, so the directory is left out.
    const bool caFileOnly = !m_caFile.isEmpty() || hasDefaultCaFile();

    QByteArray proxy;
    if (m_proxy.enabled) {
        const QString host = m_proxy.hostAddress.isEmpty() ? m_proxy.hostName : m_proxy.hostAddress;
        proxy = (host + u':' + m_proxy.port).toUtf8();
    }

    auto start = [&](Job& job) -> bool {
        job.easy = curl_easy_init();
        if (!job.easy)
            return false;
        CURL* e = job.easy;
        // A ticker with a blank ("ES Z6") goes out percent-encoded, as a browser sends it;
        // libcurl refuses a URL with a raw blank.
        job.currentUrl = job.request.url.toUtf8();
        job.currentUrl.replace(' ', "%20");
        job.maxBody = m_maxBodyBytes;
        curl_easy_setopt(e, CURLOPT_URL, job.currentUrl.constData());
        curl_easy_setopt(e, CURLOPT_PRIVATE, &job);
        curl_easy_setopt(e, CURLOPT_WRITEFUNCTION, &Job::collect);
        curl_easy_setopt(e, CURLOPT_WRITEDATA, &job);
        curl_easy_setopt(e, CURLOPT_ERRORBUFFER, job.error);
        // A request with a key follows its redirects here, one by one, after looking where
        // each goes; libcurl would send the key's header to whatever host a server names.
        curl_easy_setopt(e, CURLOPT_FOLLOWLOCATION, job.request.carriesSecret ? 0L : 1L);
        curl_easy_setopt(e, CURLOPT_MAXREDIRS, long(kMaxRedirects));
        curl_easy_setopt(e, CURLOPT_PROTOCOLS_STR, "http,https");
        // From https, only on to https.
        const bool https = isHttps(job.currentUrl);
        curl_easy_setopt(e, CURLOPT_REDIR_PROTOCOLS_STR, https ? "https" : "http,https");
        curl_easy_setopt(e, CURLOPT_SSL_VERIFYPEER, 1L);
        curl_easy_setopt(e, CURLOPT_SSL_VERIFYHOST, 2L);
        if (!m_caFile.isEmpty())
            curl_easy_setopt(e, CURLOPT_CAINFO, m_caFile.constData());
        if (caFileOnly)
            curl_easy_setopt(e, CURLOPT_CAPATH, nullptr);
        if (m_share)
            curl_easy_setopt(e, CURLOPT_SHARE, m_share.get());
        curl_easy_setopt(e, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(e, CURLOPT_FAILONERROR, job.failOnError ? 1L : 0L);
        curl_easy_setopt(e, CURLOPT_TIMEOUT_MS, long(m_timeoutMs));
        curl_easy_setopt(e, CURLOPT_CONNECTTIMEOUT_MS, long(qMin(m_connectTimeoutMs, m_timeoutMs)));
        curl_easy_setopt(e, CURLOPT_MAXFILESIZE_LARGE, curl_off_t(m_maxBodyBytes));
        curl_easy_setopt(e, CURLOPT_ACCEPT_ENCODING, "");
        curl_easy_setopt(e, CURLOPT_USERAGENT, "Kestrova/" KESTROVA_VERSION);
        // HTTP/2 where TLS negotiates it, and then every request to the host shares that
        // one connection; a request waits for the first connection's handshake to learn that.
        // Plain HTTP is never multiplexed: there a request that waited would wait for the
        // whole answer on the first connection, and against a server that closes every
        // connection the pages would come one at a time.
        curl_easy_setopt(e, CURLOPT_HTTP_VERSION, long(CURL_HTTP_VERSION_2TLS));
        curl_easy_setopt(e, CURLOPT_PIPEWAIT, https ? 1L : 0L);
        for (const auto& [name, value] : job.request.headers)
            job.headers = curl_slist_append(job.headers, QByteArray(name + ": " + value).constData());
        if (job.headers)
            curl_easy_setopt(e, CURLOPT_HTTPHEADER, job.headers);
        // An empty proxy also keeps curl from taking one from the environment: the options
        // are the only place that decides.
        curl_easy_setopt(e, CURLOPT_PROXY, proxy.constData());
        if (curl_multi_add_handle(multi, e) != CURLM_OK) {
            curl_easy_cleanup(e);
            job.easy = nullptr;
            return false;
        }
        return true;
    };

    auto release = [&](Job& job) {
        if (job.easy) {
            curl_multi_remove_handle(multi, job.easy);
            curl_easy_cleanup(job.easy);
            job.easy = nullptr;
        }
        curl_slist_free_all(job.headers);
        job.headers = nullptr;
    };

    // Per host: requests in flight and when the last one started, for the limits that a
    // request carries itself (a quote source's "so many at once, so far apart").
    struct HostState
    {
        int active = 0;
        SteadyClock::time_point lastStart{};
        bool started = false;
    };
    std::map<QByteArray, HostState> hosts;
    std::deque<Job*> waiting;
    for (size_t i = 0; i < jobs.size(); ++i) {
        jobs[i].index = int(i);
        jobs[i].hostKey = hostKeyOf(jobs[i].request.url);
        waiting.push_back(&jobs[i]);
    }

    int active = 0;
    bool abandoned = false;
    // Starts what the limits allow; returns how long until a spaced request may start
    // (-1: nothing is waiting for its spacing).
    auto fill = [&]() -> int {
        int wakeMs = -1;
        const auto now = SteadyClock::now();
        for (auto it = waiting.begin(); it != waiting.end() && !abandoned && active < maxParallel;) {
            Job& job = **it;
            HostState& host = hosts[job.hostKey];
            if (job.request.hostLimit > 0 && host.active >= job.request.hostLimit) {
                ++it;
                continue;
            }
            if (job.request.spacingMs > 0 && host.started) {
                const auto ready = host.lastStart + std::chrono::milliseconds(job.request.spacingMs);
                if (ready > now) {
                    const int ms = int(std::chrono::ceil<std::chrono::milliseconds>(ready - now).count());
                    wakeMs = wakeMs < 0 ? ms : qMin(wakeMs, ms);
                    ++it;
                    continue;
                }
            }
            it = waiting.erase(it);
            if (start(job)) {
                ++active;
                ++host.active;
                host.lastStart = now;
                host.started = true;
            } else {
                job.response.error = cannotStart;
                job.finished = true;
                if (!onDone(job))
                    abandoned = true;
            }
        }
        return wakeMs;
    };

    int wakeMs = fill();
    while (!abandoned && (active > 0 || !waiting.empty())) {
        int running = 0;
        curl_multi_perform(multi, &running);
        int queued = 0;
        while (CURLMsg* msg = curl_multi_info_read(multi, &queued)) {
            if (msg->msg != CURLMSG_DONE)
                continue;
            Job* job = nullptr;
            curl_easy_getinfo(msg->easy_handle, CURLINFO_PRIVATE, &job);
            const CURLcode code = msg->data.result;
            HttpResponse& r = job->response;
            long status = 0;
            curl_easy_getinfo(job->easy, CURLINFO_RESPONSE_CODE, &status);
            long connects = 0;
            curl_easy_getinfo(job->easy, CURLINFO_NUM_CONNECTS, &connects);
            m_connectionsOpened += connects;
            char* location = nullptr;
            curl_easy_getinfo(job->easy, CURLINFO_REDIRECT_URL, &location);
            QString refused;
            if (code == CURLE_OK && job->request.carriesSecret && status >= 300 && status < 400 && location) {
                const QString from = QString::fromUtf8(job->currentUrl);
                refused = refusedRedirect(from, QString::fromUtf8(location), true);
                if (refused.isEmpty() && job->redirects >= kMaxRedirects) {
                    refused = QStringLiteral("more than %1 redirects").arg(kMaxRedirects);
                }
                if (refused.isEmpty()) {
                    // Same host: asked again at the new place, on the same handle and connection.
                    ++job->redirects;
                    job->currentUrl = QByteArray(location);
                    job->response.body.clear();
                    job->tooLarge = false;
                    curl_multi_remove_handle(multi, job->easy);
                    curl_easy_setopt(job->easy, CURLOPT_URL, job->currentUrl.constData());
                    if (curl_multi_add_handle(multi, job->easy) == CURLM_OK)
                        continue;
                    refused = cannotStart;
                }
            } else if (code == CURLE_UNSUPPORTED_PROTOCOL && isHttps(QUrl(job->request.url))) {
                // libcurl stopped at a redirect to a scheme it was not let follow from https;
                // following itself, it keeps the target as the transfer's URL, not as a redirect.
                if (!location)
                    curl_easy_getinfo(job->easy, CURLINFO_EFFECTIVE_URL, &location);
                if (location)
                    refused = refusedRedirect(QString::fromUtf8(job->currentUrl), QString::fromUtf8(location), false);
                if (refused.isEmpty())
                    refused = QStringLiteral("the server sent the request on from https to plain http; not followed");
            }
            if (!refused.isEmpty()) {
                r.status = int(status);
                r.body = QByteArray();
                r.error = refused;
            } else if (code == CURLE_OK) {
                r.status = int(status);
                const char* type = nullptr;
                curl_easy_getinfo(job->easy, CURLINFO_CONTENT_TYPE, &type);
                r.contentType = QByteArray(type ? type : "");
                curl_off_t retryAfter = 0;
                curl_easy_getinfo(job->easy, CURLINFO_RETRY_AFTER, &retryAfter);
                r.retryAfterSeconds = retryAfter > 0 ? int(qMin<curl_off_t>(retryAfter, 86400)) : -1;
            } else {
                long osErrno = 0;
                curl_easy_getinfo(job->easy, CURLINFO_OS_ERRNO, &osErrno);
                const bool tooLarge = job->tooLarge || code == CURLE_FILESIZE_EXCEEDED;
                r.status = int(status);
                r.body = QByteArray();
                r.error = describeFailure(tooLarge ? int(CURLE_WRITE_ERROR) : int(code), job->request.url, status,
                                          osErrno, tooLarge, job->error);
            }
            release(*job);
            job->finished = true;
            --active;
            --hosts[job->hostKey].active;
            if (!onDone(*job)) {
                abandoned = true;
                break;
            }
        }
        if (abandoned)
            break;
        wakeMs = fill();
        if (active == 0 && waiting.empty())
            break;
        const int pollMs = wakeMs < 0 ? 100 : qBound(1, wakeMs, 100);
        int fds = 0;
        curl_multi_poll(multi, nullptr, 0, pollMs, &fds);
        m_hostFace.yield(0);
        if (m_cancelled && m_cancelled()) {
            break;
        }
    }

    // Transfers still in flight when the caller gave up are dropped unread.
    for (Job& job : jobs) {
        release(job);
        if (!job.finished) {
            job.response = HttpResponse();
        }
    }
    m_running = nested;
}

} // namespace kestrova::quotes
