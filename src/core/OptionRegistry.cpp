#include "core/OptionRegistry.h"

#include "core/EntryRules.h"
#include "core/OptionChecks.h"

#include "secrets/SecretStore.h"
#include "settings/SettingsStore.h"
#include "support/Cp1252.h"
#include "support/Format.h"
#include "support/Secrets.h"
#include "support/Text.h"

#include <QRegularExpression>
#include <QUrl>

#include <deque>
#include <limits>
#include <memory>

namespace kestrova::core {

namespace {

using Ref16 = qint16& (*)(Options&);
using RefBool = bool& (*)(Options&);
using RefText = QString& (*)(Options&);

Options& mut(const Options& o)
{
    return const_cast<Options&>(o);
}

OptionDef intOption(const char* name, Ref16 ref, int min, int max, const char* description)
{
    OptionDef d;
    d.name = QString::fromLatin1(name);
    d.type = OptionType::Int;
    d.min = min;
    d.max = max;
    d.description = QString::fromLatin1(description);
    d.get = [ref](const Options& o) { return QString::number(ref(mut(o))); };
    d.set = [ref](Options& o, const QString& v) { ref(o) = static_cast<qint16>(v.toInt()); };
    return d;
}

// Port numbers go up to 65535 but live in 16-bit fields: the bits are kept and read back
// unsigned (quint16(value)).
OptionDef portOption(const char* name, Ref16 ref, const char* description)
{
    OptionDef d = intOption(name, ref, 1, 65535, description);
    d.get = [ref](const Options& o) { return QString::number(static_cast<quint16>(ref(mut(o)))); };
    d.set = [ref](Options& o, const QString& v) { ref(o) = static_cast<qint16>(static_cast<quint16>(v.toInt())); };
    return d;
}

OptionDef boolOption(const char* name, RefBool ref, const char* description)
{
    OptionDef d;
    d.name = QString::fromLatin1(name);
    d.type = OptionType::Bool;
    d.description = QString::fromLatin1(description);
    d.get = [ref](const Options& o) { return ref(mut(o)) ? QStringLiteral("true") : QStringLiteral("false"); };
    d.set = [ref](Options& o, const QString& v) { ref(o) = v == QLatin1String("true"); };
    return d;
}

OptionDef textOption(const char* name, RefText ref, const char* description, OptionType type = OptionType::Text)
{
    OptionDef d;
    d.name = QString::fromLatin1(name);
    d.type = type;
    d.description = QString::fromLatin1(description);
    d.get = [ref](const Options& o) { return ref(mut(o)); };
    d.set = [ref](Options& o, const QString& v) { ref(o) = v; };
    return d;
}

using Prefs = settings::Preferences;

// Store keys of quote sources' API keys; these are secrets and go to the secret store.
const QLatin1String kSourceKeyPrefix("SourceKey_");

QString boolText(bool b)
{
    return b ? QStringLiteral("true") : QStringLiteral("false");
}

// A preference of the settings store: flags are stored as "1"/"0", everything else as checked.
OptionDef preference(const char* name, OptionType type, const char* key, std::function<QString(const Prefs&)> get,
                     const char* description)
{
    OptionDef d;
    d.name = QString::fromLatin1(name);
    d.type = type;
    d.description = QString::fromLatin1(description);
    d.storeKey = QString::fromLatin1(key);
    d.getPref = std::move(get);
    if (type == OptionType::Bool) {
        d.storeText = [](const QString& v) {
            return v == QLatin1String("true") ? QStringLiteral("1") : QStringLiteral("0");
        };
    } else {
        d.storeText = [](const QString& v) { return v; };
    }
    return d;
}

OptionDef withCheck(OptionDef d, std::function<QString(const Options&, const QString&)> check)
{
    d.check = std::move(check);
    return d;
}

QString checkTime(const Options&, const QString& v)
{
    return OptionRegistry::isTimeText(v) ? QString() : QStringLiteral("expects a time such as 03:42:00 pm");
}

QString checkPortSettings(const Options&, const QString& v)
{
    static const QRegularExpression re(QStringLiteral("^(\\d{3,6}),([NEOMS]),([5-8]),(1|1\\.5|2)$"),
                                       QRegularExpression::CaseInsensitiveOption);
    return re.match(v).hasMatch() ? QString()
                                  : QStringLiteral("expects speed,parity,data bits,stop bits such as 9600,N,8,1");
}

QString checkNonEmptyRecipient(const Options&, const QString& v)
{
    return v.isEmpty() || v.contains(u'@') ? QString() : QStringLiteral("expects an e-mail address");
}

QString checkProfile(const Options& o, const QString& v)
{
    return v.toInt() <= o.modem.lastIndex
               ? QString()
               : QStringLiteral("must name a profile in use (0 to %1)").arg(o.modem.lastIndex);
}

// The push route speaks HTTP only; anything else (file:, ftp:, a bare host) is refused
// here, and again by the route itself for a hand-edited file.
QString checkPushUrl(const Options&, const QString& v)
{
    if (v.isEmpty()) {
        return {};
    }
    const QUrl url(v);
    const QString scheme = url.scheme().toLower();
    if (!url.isValid() || (scheme != QLatin1String("http") && scheme != QLatin1String("https")) ||
        url.host().isEmpty()) {
        return QStringLiteral("expects an http:// or https:// URL");
    }
    return {};
}

QString checkPagerUser(const Options&, const QString& v)
{
    return v.size() <= 25 ? QString() : QStringLiteral("holds at most 25 characters");
}

QString sourceId(const QString& sourceName)
{
    QString id;
    for (const QChar c : sourceName.toLower()) {
        if ((c >= u'a' && c <= u'z') || (c >= u'0' && c <= u'9'))
            id += c;
    }
    return id;
}

// A quote source's API key: the user's own secret, so it lives in the secret store, not in
// a portfolio file that may be passed around.
OptionDef sourceKeyDef(const QString& id)
{
    OptionDef d;
    d.name = QStringLiteral("sources.key.") + id;
    d.type = OptionType::Password;
    d.description = QStringLiteral("API key of the quote source %1 in sources.json, on this machine").arg(id);
    d.storeKey = kSourceKeyPrefix + id;
    d.secret = true;
    d.getPref = [key = d.storeKey](const settings::Preferences&) {
        return secrets::SecretStore().read(key).isEmpty() ? QString() : QStringLiteral("***");
    };
    d.allowed = QStringLiteral("the key the service gave you; give - as the value to type it on standard input");
    d.storeText = [](const QString& v) { return v; };
    return d;
}

QString checkSourceOrder(const Options&, const QString& v)
{
    if (v.trimmed().isEmpty())
        return {};
    for (const QString& name : v.split(u',')) {
        if (name.trimmed().isEmpty())
            return QStringLiteral("expects source names separated by commas, such as Stooq,Yahoo,servers.dat");
    }
    return {};
}

std::vector<OptionDef> buildAll()
{
    std::vector<OptionDef> v;
    // Paging by modem
    v.push_back(boolOption(
        "paging.enabled", [](Options& o) -> bool& { return o.paging.enabled; },
        "Enable Paging: send a page after each update"));
    v.push_back(textOption(
        "pager.id", [](Options& o) -> QString& { return o.paging.pagerId; },
        "Pager Identifier: the pager's PIN, sent in every block"));
    v.push_back(textOption(
        "pager.phone", [](Options& o) -> QString& { return o.paging.phone; },
        "PGR Service Phone No.: the paging service's modem number"));
    v.push_back(intOption(
        "pager.max_length", [](Options& o) -> qint16& { return o.paging.maxLength; }, 1, 32767,
        "Max Page Length: characters per page"));
    v.push_back(intOption(
        "pager.retries", [](Options& o) -> qint16& { return o.paging.retries; }, 1, 99,
        "No. of Retries: whole attempts per page"));
    v.push_back(intOption(
        "pager.retry_seconds", [](Options& o) -> qint16& { return o.paging.retrySeconds; }, 0, 3600,
        "Seconds between retries"));
    v.push_back(boolOption(
        "pager.numeric", [](Options& o) -> bool& { return o.paging.numeric; },
        "Digital Pager?: the pager shows digits only"));
    v.push_back(intOption(
        "pager.numeric_wait", [](Options& o) -> qint16& { return o.paging.numericWait; }, 0, 600,
        "Seconds to hold the line after dialling a numeric page"));
    v.push_back(textOption(
        "pager.numeric_prefix", [](Options& o) -> QString& { return o.paging.numericPrefix; },
        "Prefix: characters dialled before a numeric page"));
    v.push_back(intOption(
        "pager.numeric_pause", [](Options& o) -> qint16& { return o.paging.numericPause; }, 0, 100,
        "Pause before a numeric page: half of it gives the dial commas"));
    {
        // A fixed-width field: the blanks that pad it to 25 characters are not part of the value.
        OptionDef d =
            withCheck(textOption(
                          "pager.user", [](Options& o) -> QString& { return o.paging.user; }, "Pager user field"),
                      checkPagerUser);
        d.get = [](const Options& o) {
            QString s = o.paging.user;
            while (s.endsWith(u' ')) {
                s.chop(1);
            }
            return s;
        };
        v.push_back(d);
    }
    v.push_back(boolOption(
        "pager.forward_mail", [](Options& o) -> bool& { return o.paging.forwardMail; },
        "Forward new mail to the pager"));
    v.push_back(boolOption(
        "page.news", [](Options& o) -> bool& { return o.paging.pageNews; },
        "Page News: append fresh headlines to the quote page"));
    v.push_back(intOption(
        "page.layout", [](Options& o) -> qint16& { return o.paging.layout; }, 0, 1, "Page layout"));
    // Modem
    v.push_back(intOption(
        "modem.port", [](Options& o) -> qint16& { return o.modem.port; }, 1, 8, "Modem port: COM1 to COM8"));
    v.push_back(
        withCheck(textOption(
                      "modem.settings", [](Options& o) -> QString& { return o.modem.settings; }, "Port settings"),
                  checkPortSettings));
    // A device belongs to this machine, not to the watch setup in the portfolio file.
    v.push_back(preference(
        "modem.device", OptionType::Text, "ModemDevice", [](const Prefs& p) { return p.modemDevice; },
        "Modem device: a path that overrides the port number on this machine"));
    v.push_back(withCheck(intOption(
                              "modem.profile", [](Options& o) -> qint16& { return o.modem.selected; }, 0,
                              kModemSlots - 1, "Modem: the selected modem profile"),
                          checkProfile));
    v.push_back(boolOption(
        "modem.pulse", [](Options& o) -> bool& { return o.modem.pulse; },
        "Pulse Dial: pulse dialling instead of tone"));
    v.push_back(intOption(
        "modem.flow_control", [](Options& o) -> qint16& { return o.modem.flowControl; }, 0, 3, "Flow control"));
    v.push_back(intOption(
        "modem.speaker_volume", [](Options& o) -> qint16& { return o.modem.speakerVolume; }, 0, 2, "Speaker volume"));
    v.push_back(intOption(
        "modem.speaker_mode", [](Options& o) -> qint16& { return o.modem.speakerMode; }, 0, 3, "Speaker"));
    v.push_back(boolOption(
        "modem.quote_service", [](Options& o) -> bool& { return o.modem.quoteService; },
        "Quotes by modem: quotes come by modem, not the Internet (no updates run)"));
    // SMTP
    v.push_back(boolOption(
        "smtp.enabled", [](Options& o) -> bool& { return o.smtp.enabled; }, "Enable SMTP (Internet email) Paging"));
    v.push_back(textOption(
        "smtp.host", [](Options& o) -> QString& { return o.smtp.hostName; }, "SMTP Host Name"));
    v.push_back(textOption(
        "smtp.address", [](Options& o) -> QString& { return o.smtp.hostAddress; }, "SMTP Host Address"));
    v.push_back(portOption(
        "smtp.port", [](Options& o) -> qint16& { return o.smtp.port; }, "SMTP port"));
    v.push_back(textOption(
        "smtp.from", [](Options& o) -> QString& { return o.smtp.from; }, "From address of the mails sent"));
    v.push_back(withCheck(textOption(
                              "smtp.recipient", [](Options& o) -> QString& { return o.smtp.recipient; },
                              "Recipient Email Address: the pager's mail address"),
                          checkNonEmptyRecipient));
    v.push_back(textOption(
        "smtp.domain", [](Options& o) -> QString& { return o.smtp.domain; }, "Domain announced to the SMTP server"));
    v.push_back(intOption(
        "smtp.max_length", [](Options& o) -> qint16& { return o.smtp.maxLength; }, 1, 32767,
        "Max Page Length: characters per mail"));
    v.push_back(intOption(
        "smtp.security", [](Options& o) -> qint16& { return o.smtp.security; }, 0, 2, "SMTP connection security"));
    v.push_back(textOption(
        "smtp.user", [](Options& o) -> QString& { return o.smtp.user; }, "SMTP log-on user; empty for none"));
    v.push_back(textOption(
        "smtp.password", [](Options& o) -> QString& { return o.smtp.password; }, "SMTP log-on password",
        OptionType::Password));
    // POP mail
    v.push_back(textOption(
        "mail.server", [](Options& o) -> QString& { return o.mail.server; }, "POP server; empty: no mail check"));
    v.push_back(portOption(
        "mail.port", [](Options& o) -> qint16& { return o.mail.port; }, "POP port"));
    v.push_back(textOption(
        "mail.user", [](Options& o) -> QString& { return o.mail.user; }, "POP user name"));
    v.push_back(textOption(
        "mail.password", [](Options& o) -> QString& { return o.mail.password; }, "POP password", OptionType::Password));
    v.push_back(intOption(
        "mail.mode", [](Options& o) -> qint16& { return o.mail.mode; }, 0, 3, "Mail mode"));
    v.push_back(boolOption(
        "mail.page_headers", [](Options& o) -> bool& { return o.mail.pageHeaders; },
        "Page Date, From, and Subject of email message"));
    v.push_back(boolOption(
        "mail.notify_waiting", [](Options& o) -> bool& { return o.mail.notifyWaiting; }, "Notify if Email is waiting"));
    v.push_back(boolOption(
        "mail.marker_comma", [](Options& o) -> bool& { return o.mail.markerComma; },
        "E-mail marker followed by a comma instead of a blank"));
    v.push_back(intOption(
        "mail.security", [](Options& o) -> qint16& { return o.mail.security; }, 0, 2, "POP connection security"));
    // Connection and proxy
    v.push_back(intOption(
        "connection.type", [](Options& o) -> qint16& { return o.connection.type; }, 0, 2, "Internet connection"));
    v.push_back(textOption(
        "connection.entry", [](Options& o) -> QString& { return o.connection.entry; },
        "Dial-up entry: the NetworkManager connection to bring up"));
    v.push_back(textOption(
        "connection.user", [](Options& o) -> QString& { return o.connection.user; }, "Dial-up user name"));
    v.push_back(intOption(
        "connection.timeout", [](Options& o) -> qint16& { return o.connection.timeout; }, 1, 3600,
        "Seconds per dial attempt"));
    v.push_back(boolOption(
        "connection.hang_up", [](Options& o) -> bool& { return o.connection.hangUpAfterUpdate; },
        "Hang up a dial-up connection after each update"));
    v.push_back(boolOption(
        "proxy.enabled", [](Options& o) -> bool& { return o.proxy.enabled; }, "Use a proxy server for web pages"));
    v.push_back(textOption(
        "proxy.host", [](Options& o) -> QString& { return o.proxy.hostName; }, "Proxy host name"));
    v.push_back(textOption(
        "proxy.address", [](Options& o) -> QString& { return o.proxy.hostAddress; }, "Proxy host address"));
    v.push_back(textOption(
        "proxy.port", [](Options& o) -> QString& { return o.proxy.port; }, "Proxy port"));
    {
        // How hard this machine may press one web server: a machine setting, not a watch's.
        OptionDef d = preference(
            "fetch.host_connections", OptionType::Int, "HostConnections",
            [](const Prefs& p) { return QString::number(p.hostConnections); },
            "Connections to one web host at once on this machine (kept open, HTTP/2 shares one)");
        d.min = 1;
        d.max = 50;
        v.push_back(d);
    }
    // Quotes and market summary
    v.push_back(intOption(
        "quotes.server", [](Options& o) -> qint16& { return o.quotes.server; }, 0, kBuiltInServers - 1,
        "Default stock quote service"));
    v.push_back(intOption(
        "quotes.option_server", [](Options& o) -> qint16& { return o.quotes.optionServer; }, 0, kBuiltInServers - 1,
        "Default option quote service"));
    v.push_back(boolOption(
        "quotes.fastest", [](Options& o) -> bool& { return o.quotes.fastest; },
        "Use the fastest quote service, tested before each update"));
    v.push_back(boolOption(
        "quotes.update_servers", [](Options& o) -> bool& { return o.quotes.updateServers; },
        "Update the server files at each update"));
    v.push_back(boolOption(
        "quotes.market_summary", [](Options& o) -> bool& { return o.quotes.marketSummary; },
        "Market summary: fetch the Dow, NASDAQ and S&P 500"));
    v.push_back(boolOption(
        "quotes.page_dow", [](Options& o) -> bool& { return o.quotes.pageDow; }, "Page the Dow"));
    v.push_back(boolOption(
        "quotes.page_nasdaq", [](Options& o) -> bool& { return o.quotes.pageNasdaq; }, "Page the NASDAQ"));
    v.push_back(boolOption(
        "quotes.page_sp500", [](Options& o) -> bool& { return o.quotes.pageSp500; }, "Page the S&P 500"));
    v.push_back(textOption(
        "quotes.market_url", [](Options& o) -> QString& { return o.quotes.marketUrl; }, "Market summary page address"));
    for (int i = 0; i < kBuiltInServers; ++i) {
        const auto idx = static_cast<size_t>(i);
        OptionDef user;
        user.name = QStringLiteral("quotes.logon.%1.user").arg(i);
        user.type = OptionType::Text;
        user.description = QStringLiteral("User name for quote service %1").arg(i);
        user.get = [idx](const Options& o) { return o.quotes.logons[idx].user; };
        user.set = [idx](Options& o, const QString& s) { o.quotes.logons[idx].user = s; };
        v.push_back(user);
        OptionDef pass = user;
        pass.name = QStringLiteral("quotes.logon.%1.password").arg(i);
        pass.type = OptionType::Password;
        pass.description = QStringLiteral("Password for quote service %1").arg(i);
        pass.get = [idx](const Options& o) { return o.quotes.logons[idx].password; };
        pass.set = [idx](Options& o, const QString& s) { o.quotes.logons[idx].password = s; };
        v.push_back(pass);
    }
    // Modern quote sources
    v.push_back(withCheck(textOption(
                              "sources.order", [](Options& o) -> QString& { return o.sources.order; },
                              "Quote sources asked in turn, e.g. Stooq,Yahoo,servers.dat; empty: as sources.json says"),
                          checkSourceOrder));
    v.push_back(boolOption(
        "sources.page_health", [](Options& o) -> bool& { return o.sources.pageHealth; },
        "Page quote-source health warnings, at most once a day"));
    for (const char* shipped : {"alphavantage", "finnhub"})
        v.push_back(sourceKeyDef(QString::fromLatin1(shipped)));
    // News
    v.push_back(boolOption(
        "news.retrieve", [](Options& o) -> bool& { return o.news.retrieve; }, "Retrieve News before each quote cycle"));
    v.push_back(intOption(
        "news.max_stories", [](Options& o) -> qint16& { return o.news.maxStories; }, 0, 100, "News stories per page"));
    v.push_back(intOption(
        "news.purge_days", [](Options& o) -> qint16& { return o.news.purgeDays; }, 0, 3650,
        "Days a news story is kept"));
    // Alarms
    v.push_back(intOption(
        "alarms.mode", [](Options& o) -> qint16& { return o.alarms.mode; }, 0, 2, "Alarm test"));
    v.push_back(boolOption(
        "alarms.select", [](Options& o) -> bool& { return o.alarms.select; }, "Page only the selected members"));
    v.push_back(intOption(
        "alarms.select_mode", [](Options& o) -> qint16& { return o.alarms.selectMode; }, 0, 2, "Members selected"));
    // Schedule
    v.push_back(boolOption(
        "schedule.enabled", [](Options& o) -> bool& { return o.schedule.enabled; },
        "Enable Schedule: run scheduled updates"));
    v.push_back(intOption(
        "schedule.interval", [](Options& o) -> qint16& { return o.schedule.intervalMinutes; }, 1, 1440,
        "Update every so many minutes between the start and stop times"));
    v.push_back(boolOption(
        "schedule.interval_updates", [](Options& o) -> bool& { return o.schedule.interval; },
        "Interval updates between the start and stop times"));
    v.push_back(boolOption(
        "schedule.market_open", [](Options& o) -> bool& { return o.schedule.marketOpen; }, "Update at market open"));
    v.push_back(boolOption(
        "schedule.midday", [](Options& o) -> bool& { return o.schedule.midday; }, "Update at midday"));
    v.push_back(boolOption(
        "schedule.market_close", [](Options& o) -> bool& { return o.schedule.marketClose; }, "Update at market close"));
    static const char* const dayNames[] = {"monday", "tuesday", "wednesday", "thursday", "friday"};
    for (int i = 0; i < 5; ++i) {
        const auto idx = static_cast<size_t>(i);
        OptionDef d;
        d.name = QStringLiteral("schedule.") + QLatin1String(dayNames[i]);
        d.type = OptionType::Bool;
        const QString day = QLatin1String(dayNames[i]);
        d.description = QStringLiteral("Update on ") + day.left(1).toUpper() + day.mid(1);
        d.get = [idx](const Options& o) {
            return o.schedule.days[idx] ? QStringLiteral("true") : QStringLiteral("false");
        };
        d.set = [idx](Options& o, const QString& s) { o.schedule.days[idx] = s == QLatin1String("true"); };
        v.push_back(d);
    }
    v.push_back(withCheck(
        textOption(
            "schedule.open_time", [](Options& o) -> QString& { return o.schedule.openTime; }, "Market open time"),
        checkTime));
    v.push_back(withCheck(
        textOption(
            "schedule.midday_time", [](Options& o) -> QString& { return o.schedule.middayTime; }, "Midday time"),
        checkTime));
    v.push_back(withCheck(
        textOption(
            "schedule.close_time", [](Options& o) -> QString& { return o.schedule.closeTime; }, "Market close time"),
        checkTime));
    v.push_back(withCheck(textOption(
                              "schedule.start_time", [](Options& o) -> QString& { return o.schedule.startTime; },
                              "Start time of interval updates"),
                          checkTime));
    v.push_back(withCheck(textOption(
                              "schedule.stop_time", [](Options& o) -> QString& { return o.schedule.stopTime; },
                              "Stop time of interval updates"),
                          checkTime));
    // Push notifications beside the pager
    v.push_back(boolOption(
        "push.enabled", [](Options& o) -> bool& { return o.push.enabled; },
        "Push: mirror every page the program sends to a push server"));
    v.push_back(intOption(
        "push.style", [](Options& o) -> qint16& { return o.push.style; }, 0, 1,
        "Push style: an ntfy-style topic URL or a JSON webhook"));
    {
        OptionDef d = withCheck(
            textOption(
                "push.url", [](Options& o) -> QString& { return o.push.url; },
                "Push URL: the topic or webhook pages are posted to; a log-on in it is sent as basic authentication"),
            checkPushUrl);
        // Kept in its encoded form: ASCII, so it can be stored scrambled like a password.
        d.set = [](Options& o, const QString& v) {
            o.push.url = v.isEmpty() ? QString() : QString::fromLatin1(QUrl(v).toEncoded());
        };
        d.shown = [](const QString& v) { return support::redactUrl(v); };
        v.push_back(d);
    }
    v.push_back(textOption(
        "push.token", [](Options& o) -> QString& { return o.push.token; },
        "Push token: sent as a bearer token; empty for none", OptionType::Password));
    v.push_back(intOption(
        "push.timeout", [](Options& o) -> qint16& { return o.push.timeout; }, 1, 60,
        "Push time-out: seconds one attempt may take (three attempts at most)"));
    v.push_back(intOption(
        "gate_flag", [](Options& o) -> qint16& { return o.gateFlag; }, 0, 1,
        "Gate flag: skip the fastest-server test and the wait for the modem"));
    // Program-wide preferences, kept in the settings store in the forms start-up reads.
    v.push_back(preference(
        "prefs.default_file", OptionType::Text, "DefaultFile", [](const Prefs& p) { return p.defaultFile; },
        "Startup file: the portfolio file used when none is given"));
    v.push_back(preference(
        "prefs.check_mail", OptionType::Bool, "CheckMail", [](const Prefs& p) { return boolText(p.checkMail); },
        "Check Mail: look into the POP mailbox at each update"));
    v.push_back(preference(
        "prefs.get_mail", OptionType::Bool, "GetMail", [](const Prefs& p) { return boolText(p.getMail); },
        "Download the mail found"));
    {
        OptionDef d = preference(
            "prefs.mail_size", OptionType::Int, "MailSize", [](const Prefs& p) { return QString::number(p.mailSize); },
            "Largest mail downloaded, in kilobytes; larger messages are skipped");
        d.min = 1;
        d.max = 1024 * 1024;
        v.push_back(d);
    }
    {
        OptionDef d = preference(
            "prefs.max_page_kb", OptionType::Int, "MaxPageKB",
            [](const Prefs& p) { return QString::number(p.maxPageKb); },
            "Largest web page read, in kilobytes; a larger answer is cut off and reported as too large");
        d.min = 16;
        d.max = 1024 * 1024;
        v.push_back(d);
    }
    v.push_back(preference(
        "prefs.show_status", OptionType::Bool, "ShowStatus", [](const Prefs& p) { return boolText(p.showStatus); },
        "Show the status window during long operations"));
    v.push_back(preference(
        "prefs.system_tray", OptionType::Bool, "SystemTray", [](const Prefs& p) { return boolText(p.systemTray); },
        "Minimise to the notification area"));
    v.push_back(preference(
        "prefs.notifications", OptionType::Bool, "Notifications",
        [](const Prefs& p) { return boolText(p.notifications); },
        "Desktop notifications when an alarm page goes out or new mail arrives"));
    v.push_back(preference(
        "prefs.www_buttons", OptionType::Bool, "WWWButtons", [](const Prefs& p) { return boolText(p.wwwButtons); },
        "Show the web-site buttons on the main window"));
    {
        // The one flag that has always been stored as the words True and False.
        OptionDef d = preference(
            "prefs.check_updates", OptionType::Bool, "CheckUpdates",
            [](const Prefs& p) { return boolText(p.checkUpdates); }, "Check for a newer version at start-up");
        d.storeText = [](const QString& v) {
            return v == QLatin1String("true") ? QStringLiteral("True") : QStringLiteral("False");
        };
        v.push_back(d);
    }
    // The quote history belongs to this machine's data folder, so its switches live here too.
    v.push_back(preference(
        "history.enabled", OptionType::Bool, "HistoryEnabled",
        [](const Prefs& p) { return boolText(p.historyEnabled); },
        "History: keep every cycle's quotes and the alarms that fired in history.sqlite"));
    {
        OptionDef d = preference(
            "history.keep_days", OptionType::Int, "HistoryKeepDays",
            [](const Prefs& p) { return QString::number(p.historyKeepDays); },
            "History kept: days of quotes and alarms kept; older rows go once a day");
        d.min = 1;
        d.max = 36500;
        v.push_back(d);
    }

    // The values that the type and range alone do not explain.
    static const std::pair<const char*, const char*> allowedTexts[] = {
        {"pager.user", "at most 25 characters"},
        {"page.layout", "0 price, 1 price and change"},
        {"modem.settings", "speed,parity,data bits,stop bits such as 9600,N,8,1"},
        {"modem.device", "a device path such as /dev/ttyUSB0; empty uses the port number"},
        {"modem.flow_control", "0 None, 1 XON/XOFF, 2 RTS/CTS, 3 BOTH"},
        {"modem.speaker_volume", "0 Low, 1 Med, 2 High"},
        {"modem.speaker_mode", "0 off, 1 on until connected, 2 always on, 3 on until connected but not while dialling"},
        {"smtp.recipient", "an e-mail address"},
        {"smtp.security", "0 plain, 1 STARTTLS, 2 TLS"},
        {"mail.mode", "0 Notify Only, 1 Download and Notify, 2 Download, Page MSG Header, 3 Download Messages"},
        {"mail.security", "0 plain, 1 STLS, 2 TLS"},
        {"connection.type", "0 dial-up, 1 Direct, 2 External Dialer"},
        {"quotes.server", "0 to 12, a built-in quote service (kestrova-cli servers lists them)"},
        {"quotes.option_server", "0 to 12, a built-in quote service (kestrova-cli servers lists them)"},
        {"news.max_stories", "0 (no limit) to 100"},
        {"news.purge_days", "0 (keep every story) to 3650"},
        {"alarms.mode", "0 or 1 page on alarms, 2 page on new alarms"},
        {"alarms.select_mode", "0 all, 1 alarmed, 2 new alarms"},
        {"schedule.interval", "1 to 1440 minutes; a fraction is cut (7.9 is 7); below 5 is not recommended"},
        {"schedule.open_time", "a time such as 03:42:00 pm"},
        {"schedule.midday_time", "a time such as 03:42:00 pm"},
        {"schedule.close_time", "a time such as 03:42:00 pm"},
        {"schedule.start_time", "a time such as 03:42:00 pm, not after the stop time"},
        {"schedule.stop_time", "a time such as 03:42:00 pm, not before the start time"},
        {"gate_flag", "0 off, 1 on"},
        {"push.style", "0 ntfy-style topic (text body, Title/Priority/Tags headers), 1 JSON webhook"},
        {"push.url", "an http:// or https:// URL, e.g. https://ntfy.example.net/my-stocks"},
        {"prefs.default_file", "a portfolio file (.pgr)"},
        {"fetch.host_connections", "1 to 50 (default 6)"},
        {"sources.order", "source names from sources.json and servers.dat, separated by commas"},
    };
    for (OptionDef& d : v) {
        for (const auto& [name, allowed] : allowedTexts) {
            if (d.name == QLatin1String(name)) {
                d.allowed = QString::fromUtf8(allowed);
            }
        }
    }
    // Fields that take an address, a host, a phone number or a port refuse other text.
    for (OptionDef& d : v) {
        if (auto format = formatCheck(d.name)) {
            d.check = [own = d.check, format](const Options& o, const QString& value) {
                const QString why = own ? own(o, value) : QString();
                return why.isEmpty() ? format(value) : why;
            };
        }
    }
    return v;
}

} // namespace

const std::vector<OptionDef>& OptionRegistry::all()
{
    static const std::vector<OptionDef> defs = buildAll();
    return defs;
}

const OptionDef* OptionRegistry::find(const QString& name)
{
    for (const OptionDef& d : all()) {
        if (d.name.compare(name, Qt::CaseInsensitive) == 0) {
            return &d;
        }
    }
    const QLatin1String keyPrefix("sources.key.");
    if (name.startsWith(keyPrefix, Qt::CaseInsensitive)) {
        const QString id = name.mid(keyPrefix.size()).toLower();
        if (!id.isEmpty() && sourceId(id) == id) {
            // Kept for the whole run, so the pointer stays good like those into all().
            static std::deque<OptionDef> extra;
            for (const OptionDef& d : extra) {
                if (d.name == keyPrefix + id) {
                    return &d;
                }
            }
            extra.push_back(sourceKeyDef(id));
            return &extra.back();
        }
    }
    return nullptr;
}

QString OptionRegistry::sourceKeyOption(const QString& sourceName)
{
    return QStringLiteral("sources.key.") + sourceId(sourceName);
}

QString OptionRegistry::sourceKeyStoreKey(const QString& sourceName)
{
    return kSourceKeyPrefix + sourceId(sourceName);
}

QString OptionRegistry::storedSourceKey(const QString& sourceName)
{
    // Once read it is a secret no text may show.
    const QString key = secrets::SecretStore().read(sourceKeyStoreKey(sourceName));
    support::rememberSecret(key);
    return key;
}

QStringList OptionRegistry::keepStoreTexts(const QHash<QString, QString>& texts, settings::SettingsStore& store)
{
    QStringList failures;
    std::unique_ptr<secrets::SecretStore> secretStore;
    for (auto it = texts.begin(); it != texts.end(); ++it) {
        if (!it.key().startsWith(kSourceKeyPrefix)) {
            store.save(settings::kSettingsSection, it.key(), it.value());
            continue;
        }
        if (!secretStore) {
            secretStore = std::make_unique<secrets::SecretStore>(&store);
        }
        if (QString why; !secretStore->write(it.key(), it.value(), &why)) {
            failures << QStringLiteral("sources.key.") + it.key().mid(kSourceKeyPrefix.size()) + QStringLiteral(": ") +
                            why;
        }
    }
    return failures;
}

QString OptionRegistry::typeName(OptionType type)
{
    switch (type) {
    case OptionType::Bool:
        return QStringLiteral("bool");
    case OptionType::Int:
        return QStringLiteral("int");
    case OptionType::Text:
        return QStringLiteral("text");
    case OptionType::Password:
        return QStringLiteral("password");
    }
    return {};
}

QString OptionRegistry::display(const OptionDef& def, const Options& options, const settings::Preferences& prefs)
{
    if (def.inStore()) {
        return def.getPref ? def.getPref(prefs) : QString();
    }
    if (!def.get) {
        return {};
    }
    const QString value = def.get(options);
    if (def.type == OptionType::Password) {
        return value.isEmpty() ? QString() : QStringLiteral("***");
    }
    return def.shown ? def.shown(value) : value;
}

QString OptionRegistry::allowedValues(const OptionDef& def)
{
    if (!def.allowed.isEmpty()) {
        return def.allowed;
    }
    switch (def.type) {
    case OptionType::Bool:
        return QStringLiteral("true or false");
    case OptionType::Int:
        return QStringLiteral("%1 to %2").arg(def.min).arg(def.max);
    case OptionType::Text:
        return QStringLiteral("text");
    case OptionType::Password:
        return QStringLiteral("printable ASCII; give - as the value to type it on standard input");
    }
    return {};
}

bool OptionRegistry::parseBool(const QString& text, bool* ok)
{
    const QString t = text.trimmed().toLower();
    *ok = true;
    if (t == QLatin1String("true") || t == QLatin1String("yes") || t == QLatin1String("on") ||
        t == QLatin1String("1")) {
        return true;
    }
    if (t == QLatin1String("false") || t == QLatin1String("no") || t == QLatin1String("off") ||
        t == QLatin1String("0")) {
        return false;
    }
    *ok = false;
    return false;
}

bool OptionRegistry::isTimeText(const QString& text)
{
    return support::parseTimeOfDay(text).has_value();
}

QString OptionRegistry::validate(const OptionDef& def, const Options& options, const QString& value,
                                 QString* normalised)
{
    const QString refusal = def.name + QStringLiteral(": ");
    QString norm = value;
    switch (def.type) {
    case OptionType::Bool: {
        bool ok = false;
        const bool b = parseBool(value, &ok);
        if (!ok) {
            return refusal + QStringLiteral("expects true or false, not \"%1\"").arg(value);
        }
        norm = b ? QStringLiteral("true") : QStringLiteral("false");
        break;
    }
    case OptionType::Int: {
        bool ok = false;
        const qlonglong n = value.trimmed().toLongLong(&ok);
        if (!ok) {
            return refusal + QStringLiteral("expects a whole number, not \"%1\"").arg(value);
        }
        if (n < def.min || n > def.max) {
            return refusal + QStringLiteral("must be between %1 and %2").arg(def.min).arg(def.max);
        }
        norm = QString::number(n);
        break;
    }
    case OptionType::Password:
        for (QChar c : value) {
            const int b = support::cp1252Byte(c);
            if (b < 32 || b >= 127) {
                return refusal + QStringLiteral("a password may only hold printable ASCII characters");
            }
        }
        [[fallthrough]];
    case OptionType::Text:
        if (value.contains(u'"') || value.contains(u'\r') || value.contains(u'\n')) {
            return refusal + QStringLiteral("may not hold double quotes or line breaks");
        }
        // The portfolio file is Windows-1252; the settings store keeps any text.
        if (const QString why = def.inStore() ? QString() : unstorableCharacter(value); !why.isEmpty()) {
            return refusal + why;
        }
        break;
    }
    if (def.check) {
        const QString why = def.check(options, norm);
        if (!why.isEmpty()) {
            return refusal + why;
        }
    }
    if (normalised) {
        *normalised = norm;
    }
    return {};
}

QString OptionRegistry::assign(const OptionDef& def, Options& options, const QString& value)
{
    QString norm;
    const QString why = validate(def, options, value, &norm);
    if (why.isEmpty() && def.set) {
        def.set(options, norm);
    }
    return why;
}

} // namespace kestrova::core
