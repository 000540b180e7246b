#pragma once

#include "quotes/PageBody.h"

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

#include <functional>
#include <utility>
#include <vector>

namespace kestrova::quotes {

// One GET of fetch(): the URL, what a message may show of it, extra request headers, and
// how politely its host wants to be treated.
struct HttpRequest
{
    QString url;
    // The URL as log lines and messages show it, with any key replaced by "***"; empty:
    // the URL with the password of a "user:password@" part hidden.
    QString shownUrl;
    QList<QPair<QByteArray, QByteArray>> headers;
    // At most this many of the batch's requests to one host at once (0: no limit of the
    // request's own; the fetcher's connection limit per host still holds).
    int hostLimit = 0;
    // At least this long between the starts of two requests to one host.
    int spacingMs = 0;
    // A key travels with the request (in its URL or a header): a redirect is followed only
    // on the same host, never to another one that would receive the key.
    bool carriesSecret = false;
};

// What came back: the HTTP status (0 when no answer arrived) with the body as bytes, or
// why there is none. Error statuses keep their bodies: services explain themselves there.
struct HttpResponse
{
    int status = 0;
    QByteArray body;
    QByteArray contentType;
    // Seconds the server asked to wait (Retry-After), -1 when it said nothing.
    int retryAfterSeconds = -1;
    QString error; // transport failure, time-out, an answer over the size limit

    bool answered() const { return status != 0 && error.isEmpty(); }
};

// The web-page fetcher that quote scraping, the market summary and news retrieval share.
// One object lives for the whole run; the real one is CurlFetcher (libcurl), tests may
// substitute their own when they need a fault that no loopback server can produce.
class PageFetcher
{
public:
    // A transport failure: the URL (with any password already replaced by "***") and the
    // reason. A failed fetch also returns an empty body.
    using ErrorCallback = std::function<void(const QString& url, const QString& message)>;
    // Called once per finished transfer of getMany, in completion order, with the URL's
    // index and its body (empty on failure). Returning false abandons every transfer still
    // queued or in flight; getMany then returns at once.
    using CompletionCallback = std::function<bool(int index, const QString& body)>;

    // The most transfers a fetch runs at once unless its caller asks for fewer: enough for
    // a cycle's pages to go out together, few enough that a runaway list cannot open a
    // flood of transfers.
    static constexpr int kMaxTransfers = 128;

    virtual ~PageFetcher() = default;

    // Splits a URL so that a log-on can be put in front of its host: after setUrl,
    // host() is the host (with ":port" when the URL names one) and path() everything
    // from the first "/" after the host on, query included ("/" when the URL has none).
    virtual void setUrl(const QString& url) = 0;
    virtual QString host() const = 0;
    virtual QString path() const = 0;

    // One GET; the body decoded to text, empty on failure (reported through the error
    // callback).
    virtual QString get(const QString& url) = 0;

    // Fetches every URL, at most maxParallel at once; the result holds one
    // body per URL in the order given, empty for failures and for transfers abandoned
    // through the completion callback.
    virtual QStringList getMany(const QStringList& urls, int maxParallel = kMaxTransfers,
                                const CompletionCallback& onDone = {}) = 0;

    // The same fetch with each page handed over as its bytes and charset: a quote fill
    // decodes only the part of a page it keeps. onDone is called as for getMany.
    using PageCallback = std::function<bool(int index, const PageBody& page)>;
    virtual std::vector<PageBody> getPages(const QStringList& urls, int maxParallel = kMaxTransfers,
                                           const PageCallback& onDone = {}) = 0;

    // Fetches every request (HTTP errors included, with status, body and Retry-After),
    // keeping to each request's host limit and spacing. onDone is called once per finished
    // request in completion order; returning false abandons the rest, which come back with
    // status 0 and an empty error.
    using ResponseCallback = std::function<bool(int index, const HttpResponse& response)>;
    virtual std::vector<HttpResponse> fetch(const std::vector<HttpRequest>& requests,
                                            const ResponseCallback& onDone = {}) = 0;

    // Markup to tab-separated text: every tag becomes exactly one tab (see MarkupText.h).
    virtual QString markupToText(const QString& page) const = 0;

    void setErrorCallback(ErrorCallback callback) { m_onError = std::move(callback); }

protected:
    void reportError(const QString& url, const QString& message) const
    {
        if (m_onError)
            m_onError(url, message);
    }

private:
    ErrorCallback m_onError;
};

} // namespace kestrova::quotes
