#pragma once

#include "core/Options.h"
#include "quotes/PageFetcher.h"

#include <functional>
#include <memory>

namespace kestrova::support {
class Host;
}

namespace kestrova::quotes {

// The page fetcher over libcurl. Transfers run on curl's multi interface; while they run,
// the fetcher waits in curl_multi_poll for at most 100 ms at a time and lets the face
// process its events in between, so the program stays responsive and never spins.
//
// It is polite to the services it asks: at most hostConnections() connections to one host,
// connections kept open and reused from one fetch to the next (the multi handle lives as
// long as the fetcher), and over HTTPS all of a host's requests multiplexed on one HTTP/2
// connection when the server offers it. A request over HTTPS that would need a new
// connection while the first one to its host is still being set up waits for it, so a
// whole portfolio asked of an HTTP/2 service goes over a single connection; over plain
// HTTP, where nothing is ever multiplexed, no request waits for another's connection.
//
// What a TLS connection needs is set up once per fetcher, not per connection: the trusted
// certificates are read into a store that libcurl keeps for the next connections, and TLS
// sessions are kept so that a server that closes every connection can resume them.
class CurlFetcher final : public PageFetcher
{
public:
    // The most transfers one fetch runs at once: a cycle's pages go out together, so over
    // HTTP/2 they all share one round; over HTTP/1.x the per-host limit decides how many
    // of them reach one service at once, the rest wait in line.
    static constexpr int kMaxParallel = PageFetcher::kMaxTransfers;
    // Connections at once over all hosts.
    static constexpr int kMaxConnections = 50;
    // Redirects one request follows at most.
    static constexpr int kMaxRedirects = 10;
    // What a browser allows itself per host.
    static constexpr int kDefaultHostConnections = 6;
    // No quote page or source answer comes near this; a body past it is cut off and
    // reported, so a hostile or broken server cannot fill the memory.
    static constexpr qint64 kDefaultMaxBodyBytes = 8 * 1024 * 1024;

    CurlFetcher(support::Host& host, core::ProxyOptions proxy = {});
    ~CurlFetcher() override;
    CurlFetcher(const CurlFetcher&) = delete;
    CurlFetcher& operator=(const CurlFetcher&) = delete;

    void setProxy(const core::ProxyOptions& proxy) { m_proxy = proxy; }
    // Whole-transfer and connect time-outs (30 s and 15 s unless changed).
    void setTimeoutMs(int ms) { m_timeoutMs = ms; }
    void setConnectTimeoutMs(int ms) { m_connectTimeoutMs = ms; }
    // The most transfers getMany runs at once, whatever its caller asks for.
    void setParallelLimit(int limit) { m_parallelLimit = qMax(1, limit); }
    // Connections to one host at once (1 to 50).
    void setHostConnections(int limit) { m_hostConnections = qBound(1, limit, kMaxConnections); }
    int hostConnections() const { return m_hostConnections; }
    void setMaxBodyBytes(qint64 bytes) { m_maxBodyBytes = qMax<qint64>(1, bytes); }
    // A certificate file trusted instead of the system's bundle (a private or a test CA).
    void setCaFile(const QString& path) { m_caFile = path.toLocal8Bit(); }
    // New connections made since the fetcher was created (reused ones do not count).
    qint64 connectionsOpened() const { return m_connectionsOpened; }
    // Asked between polls: when it returns true, every transfer still queued or in flight
    // is dropped at once (a Cancel, a signal), however long its server keeps silent.
    void setCancelCheck(std::function<bool()> cancelled) { m_cancelled = std::move(cancelled); }

    void setUrl(const QString& url) override;
    QString host() const override { return m_host; }
    QString path() const override { return m_path; }
    QString get(const QString& url) override;
    QStringList getMany(const QStringList& urls, int maxParallel = kMaxParallel,
                        const CompletionCallback& onDone = {}) override;
    std::vector<PageBody> getPages(const QStringList& urls, int maxParallel = kMaxParallel,
                                   const PageCallback& onDone = {}) override;
    std::vector<HttpResponse> fetch(const std::vector<HttpRequest>& requests,
                                    const ResponseCallback& onDone = {}) override;
    QString markupToText(const QString& page) const override;

    // The last transfer that ended (in completion order) and the page it brought, for
    // the raw-page window; the URL as requested, so redact it before showing it.
    QString lastUrl() const { return m_lastUrl; }
    QString lastPage() const { return m_lastPage.text(); }
    // "libcurl/7.88.1 OpenSSL/3.0.11 ...", for the diagnostics window.
    static QString libraryVersion();

    // The URL with the password of a "user:password@" part replaced by "***": the only
    // form in which a URL may reach a log line or a message.
    static QString redactUrl(const QString& url);

private:
    struct Job;
    // Runs the jobs to their end (or until onDone returns false), at most maxParallel at once.
    void run(std::vector<Job>& jobs, int maxParallel, const std::function<bool(Job&)>& onDone);
    // Why a transfer failed, in the words a user reads on the error output: "refused",
    // "reset", "timed out after 30 s", "HTTP 500", "page too large: ...", "could
    // not resolve www.example.com".
    QString describeFailure(int curlCode, const QString& url, long httpStatus, long osErrno, bool tooLarge,
                            const char* detail) const;

    support::Host& m_hostFace;
    core::ProxyOptions m_proxy;
    int m_timeoutMs = 30000;
    int m_connectTimeoutMs = 15000;
    int m_parallelLimit = kMaxParallel;
    int m_hostConnections = kDefaultHostConnections;
    qint64 m_maxBodyBytes = kDefaultMaxBodyBytes;
    QByteArray m_caFile;
    qint64 m_connectionsOpened = 0;
    // TLS sessions (and resolved names) shared by every transfer of this fetcher; it must
    // outlive the multi handle, whose cached connections may still hold sessions.
    std::unique_ptr<void, void (*)(void*)> m_share;
    // Kept between fetches so that its connection cache lets the next fetch reuse them, and
    // with it the certificate store libcurl built for the first TLS connection.
    std::unique_ptr<void, void (*)(void*)> m_multi;
    bool m_running = false;
    std::function<bool()> m_cancelled;
    QString m_host;
    QString m_path;
    QString m_lastUrl;
    PageBody m_lastPage;
};

} // namespace kestrova::quotes
