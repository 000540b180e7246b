#pragma once

#include "core/Options.h"
#include "quotes/PageFetcher.h"

namespace kestrova::support {
class Host;
}

namespace kestrova::quotes {

// The page fetcher over libcurl. Transfers run on curl's multi interface; while they run,
// the fetcher waits in curl_multi_poll for at most 100 ms at a time and lets the face
// process its events in between, so the program stays responsive and never spins.
class CurlFetcher final : public PageFetcher
{
public:
    // A full portfolio (50 securities) goes out in one round; a cycle never asks more of
    // one service than a browser with as many tabs would.
    static constexpr int kMaxParallel = 50;

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

    void setUrl(const QString& url) override;
    QString host() const override { return m_host; }
    QString path() const override { return m_path; }
    QString get(const QString& url) override;
    QStringList getMany(const QStringList& urls, int maxParallel = kMaxParallel,
                        const CompletionCallback& onDone = {}) override;
    QString markupToText(const QString& page) const override;

    // The last transfer that ended (in completion order) and the page it brought, for
    // the raw-page window; the URL as requested, so redact it before showing it.
    QString lastUrl() const { return m_lastUrl; }
    QString lastPage() const { return m_lastPage; }
    // "libcurl/7.88.1 OpenSSL/3.0.11 ...", for the diagnostics window.
    static QString libraryVersion();

    // The URL with the password of a "user:password@" part replaced by "***": the only
    // form in which a URL may reach a log line or a message.
    static QString redactUrl(const QString& url);

private:
    support::Host& m_hostFace;
    core::ProxyOptions m_proxy;
    int m_timeoutMs = 30000;
    int m_connectTimeoutMs = 15000;
    int m_parallelLimit = kMaxParallel;
    QString m_host;
    QString m_path;
    QString m_lastUrl;
    QString m_lastPage;
};

} // namespace kestrova::quotes
