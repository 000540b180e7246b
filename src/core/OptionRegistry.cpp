#include "core/OptionRegistry.h"

#include "support/Cp1252.h"
#include "support/Format.h"

#include <QRegularExpression>

#include <limits>

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

QString checkPagerUser(const Options&, const QString& v)
{
    return v.size() <= 25 ? QString() : QStringLiteral("holds at most 25 characters");
}

std::vector<OptionDef> buildAll()
{
    std::vector<OptionDef> v;
    // Paging by modem
    v.push_back(boolOption(
        "paging.enabled", [](Options& o) -> bool& { return o.paging.enabled; }, "pages are sent after an update"));
    v.push_back(textOption(
        "pager.id", [](Options& o) -> QString& { return o.paging.pagerId; }, "pager identifier sent in every block"));
    v.push_back(textOption(
        "pager.phone", [](Options& o) -> QString& { return o.paging.phone; }, "paging service phone number"));
    v.push_back(intOption(
        "pager.max_length", [](Options& o) -> qint16& { return o.paging.maxLength; }, 1, 32767, "characters per page"));
    v.push_back(intOption(
        "pager.retries", [](Options& o) -> qint16& { return o.paging.retries; }, 1, 99, "whole attempts per page"));
    v.push_back(intOption(
        "pager.retry_seconds", [](Options& o) -> qint16& { return o.paging.retrySeconds; }, 0, 3600,
        "pause before a retry"));
    v.push_back(boolOption(
        "pager.numeric", [](Options& o) -> bool& { return o.paging.numeric; }, "the pager shows digits only"));
    v.push_back(intOption(
        "pager.numeric_wait", [](Options& o) -> qint16& { return o.paging.numericWait; }, 0, 600,
        "seconds to hold the line after a numeric page"));
    v.push_back(textOption(
        "pager.numeric_prefix", [](Options& o) -> QString& { return o.paging.numericPrefix; },
        "characters sent before a numeric page"));
    v.push_back(intOption(
        "pager.numeric_pause", [](Options& o) -> qint16& { return o.paging.numericPause; }, 0, 100,
        "pause setting; half of it gives the commas"));
    {
        // A fixed-width field: the blanks that pad it to 25 characters are not part of the value.
        OptionDef d = withCheck(
            textOption(
                "pager.user", [](Options& o) -> QString& { return o.paging.user; }, "pager user field (25 characters)"),
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
        "forward mail headers to the pager"));
    v.push_back(boolOption(
        "page.news", [](Options& o) -> bool& { return o.paging.pageNews; }, "append fresh news to the quote page"));
    v.push_back(intOption(
        "page.layout", [](Options& o) -> qint16& { return o.paging.layout; }, 0, 1,
        "1 adds the price change to each member"));
    // Modem
    v.push_back(intOption(
        "modem.port", [](Options& o) -> qint16& { return o.modem.port; }, 1, 8, "serial port COM1..COM8"));
    v.push_back(withCheck(textOption(
                              "modem.settings", [](Options& o) -> QString& { return o.modem.settings; },
                              "speed,parity,data bits,stop bits"),
                          checkPortSettings));
    {
        OptionDef d;
        d.name = QStringLiteral("modem.device");
        d.type = OptionType::Text;
        d.description = QStringLiteral("device path that overrides the port number (this machine only)");
        d.storeKey = QStringLiteral("ModemDevice");
        v.push_back(d);
    }
    v.push_back(withCheck(intOption(
                              "modem.profile", [](Options& o) -> qint16& { return o.modem.selected; }, 0,
                              kModemSlots - 1, "selected modem profile"),
                          checkProfile));
    v.push_back(boolOption(
        "modem.pulse", [](Options& o) -> bool& { return o.modem.pulse; }, "pulse dialling instead of tone"));
    v.push_back(intOption(
        "modem.flow_control", [](Options& o) -> qint16& { return o.modem.flowControl; }, 0, 3,
        "0 None, 1 XON/XOFF, 2 RTS/CTS, 3 BOTH"));
    v.push_back(intOption(
        "modem.speaker_volume", [](Options& o) -> qint16& { return o.modem.speakerVolume; }, 0, 2,
        "0 Low, 1 Med, 2 High"));
    v.push_back(intOption(
        "modem.speaker_mode", [](Options& o) -> qint16& { return o.modem.speakerMode; }, 0, 3,
        "0 off .. 3 on until CD except dialling"));
    v.push_back(boolOption(
        "modem.quote_service", [](Options& o) -> bool& { return o.modem.quoteService; },
        "quotes come by modem, not the Internet"));
    // SMTP
    v.push_back(boolOption(
        "smtp.enabled", [](Options& o) -> bool& { return o.smtp.enabled; }, "send pages by e-mail"));
    v.push_back(textOption(
        "smtp.host", [](Options& o) -> QString& { return o.smtp.hostName; }, "SMTP host name"));
    v.push_back(textOption(
        "smtp.address", [](Options& o) -> QString& { return o.smtp.hostAddress; }, "SMTP host address"));
    v.push_back(portOption(
        "smtp.port", [](Options& o) -> qint16& { return o.smtp.port; }, "SMTP port"));
    v.push_back(textOption(
        "smtp.from", [](Options& o) -> QString& { return o.smtp.from; }, "return address"));
    v.push_back(withCheck(
        textOption(
            "smtp.recipient", [](Options& o) -> QString& { return o.smtp.recipient; }, "the pager's mail address"),
        checkNonEmptyRecipient));
    v.push_back(textOption(
        "smtp.domain", [](Options& o) -> QString& { return o.smtp.domain; }, "domain announced to the server"));
    v.push_back(intOption(
        "smtp.max_length", [](Options& o) -> qint16& { return o.smtp.maxLength; }, 1, 32767, "characters per mail"));
    v.push_back(intOption(
        "smtp.security", [](Options& o) -> qint16& { return o.smtp.security; }, 0, 2, "0 plain, 1 STARTTLS, 2 TLS"));
    v.push_back(textOption(
        "smtp.user", [](Options& o) -> QString& { return o.smtp.user; }, "AUTH user; empty for none"));
    v.push_back(textOption(
        "smtp.password", [](Options& o) -> QString& { return o.smtp.password; }, "AUTH password",
        OptionType::Password));
    // POP mail
    v.push_back(textOption(
        "mail.server", [](Options& o) -> QString& { return o.mail.server; }, "POP server"));
    v.push_back(portOption(
        "mail.port", [](Options& o) -> qint16& { return o.mail.port; }, "POP port"));
    v.push_back(textOption(
        "mail.user", [](Options& o) -> QString& { return o.mail.user; }, "POP user"));
    v.push_back(textOption(
        "mail.password", [](Options& o) -> QString& { return o.mail.password; }, "POP password", OptionType::Password));
    v.push_back(intOption(
        "mail.mode", [](Options& o) -> qint16& { return o.mail.mode; }, 0, 3, "0 Notify Only .. 3 Download Messages"));
    v.push_back(boolOption(
        "mail.page_headers", [](Options& o) -> bool& { return o.mail.pageHeaders; }, "page date, sender and subject"));
    v.push_back(boolOption(
        "mail.notify_waiting", [](Options& o) -> bool& { return o.mail.notifyWaiting; }, "notify if mail is waiting"));
    v.push_back(boolOption(
        "mail.marker_comma", [](Options& o) -> bool& { return o.mail.markerComma; },
        "e-mail marker followed by a comma"));
    v.push_back(intOption(
        "mail.security", [](Options& o) -> qint16& { return o.mail.security; }, 0, 2, "0 plain, 1 STLS, 2 TLS"));
    // Connection and proxy
    v.push_back(intOption(
        "connection.type", [](Options& o) -> qint16& { return o.connection.type; }, 0, 2,
        "0 dial-up, 1 Direct, 2 External Dialer"));
    v.push_back(textOption(
        "connection.entry", [](Options& o) -> QString& { return o.connection.entry; }, "dial-up connection name"));
    v.push_back(textOption(
        "connection.user", [](Options& o) -> QString& { return o.connection.user; }, "dial-up user name"));
    v.push_back(intOption(
        "connection.timeout", [](Options& o) -> qint16& { return o.connection.timeout; }, 1, 3600,
        "seconds per dial attempt"));
    v.push_back(boolOption(
        "connection.hang_up", [](Options& o) -> bool& { return o.connection.hangUpAfterUpdate; },
        "hang up after each update"));
    v.push_back(boolOption(
        "proxy.enabled", [](Options& o) -> bool& { return o.proxy.enabled; }, "fetch pages through a proxy"));
    v.push_back(textOption(
        "proxy.host", [](Options& o) -> QString& { return o.proxy.hostName; }, "proxy host name"));
    v.push_back(textOption(
        "proxy.address", [](Options& o) -> QString& { return o.proxy.hostAddress; }, "proxy host address"));
    v.push_back(textOption(
        "proxy.port", [](Options& o) -> QString& { return o.proxy.port; }, "proxy port"));
    // Quotes and market summary
    v.push_back(intOption(
        "quotes.server", [](Options& o) -> qint16& { return o.quotes.server; }, 0, kBuiltInServers - 1,
        "default stock quote service"));
    v.push_back(intOption(
        "quotes.option_server", [](Options& o) -> qint16& { return o.quotes.optionServer; }, 0, kBuiltInServers - 1,
        "default option quote service"));
    v.push_back(boolOption(
        "quotes.fastest", [](Options& o) -> bool& { return o.quotes.fastest; },
        "pick the fastest service before each update"));
    v.push_back(boolOption(
        "quotes.update_servers", [](Options& o) -> bool& { return o.quotes.updateServers; },
        "fetch fresh server files at each update"));
    v.push_back(boolOption(
        "quotes.market_summary", [](Options& o) -> bool& { return o.quotes.marketSummary; },
        "fetch the market summary"));
    v.push_back(boolOption(
        "quotes.page_dow", [](Options& o) -> bool& { return o.quotes.pageDow; }, "Dow in the page text"));
    v.push_back(boolOption(
        "quotes.page_nasdaq", [](Options& o) -> bool& { return o.quotes.pageNasdaq; }, "NASDAQ in the page text"));
    v.push_back(boolOption(
        "quotes.page_sp500", [](Options& o) -> bool& { return o.quotes.pageSp500; }, "S&P 500 in the page text"));
    v.push_back(textOption(
        "quotes.market_url", [](Options& o) -> QString& { return o.quotes.marketUrl; }, "market summary page"));
    for (int i = 0; i < kBuiltInServers; ++i) {
        const auto idx = static_cast<size_t>(i);
        OptionDef user;
        user.name = QStringLiteral("quotes.logon.%1.user").arg(i);
        user.type = OptionType::Text;
        user.description = QStringLiteral("user name for quote service %1").arg(i);
        user.get = [idx](const Options& o) { return o.quotes.logons[idx].user; };
        user.set = [idx](Options& o, const QString& s) { o.quotes.logons[idx].user = s; };
        v.push_back(user);
        OptionDef pass = user;
        pass.name = QStringLiteral("quotes.logon.%1.password").arg(i);
        pass.type = OptionType::Password;
        pass.description = QStringLiteral("password for quote service %1").arg(i);
        pass.get = [idx](const Options& o) { return o.quotes.logons[idx].password; };
        pass.set = [idx](Options& o, const QString& s) { o.quotes.logons[idx].password = s; };
        v.push_back(pass);
    }
    // News
    v.push_back(boolOption(
        "news.retrieve", [](Options& o) -> bool& { return o.news.retrieve; }, "fetch news before each quote cycle"));
    v.push_back(intOption(
        "news.max_stories", [](Options& o) -> qint16& { return o.news.maxStories; }, 0, 100, "stories per page"));
    v.push_back(intOption(
        "news.purge_days", [](Options& o) -> qint16& { return o.news.purgeDays; }, 0, 3650, "days a story is kept"));
    // Alarms
    v.push_back(intOption(
        "alarms.mode", [](Options& o) -> qint16& { return o.alarms.mode; }, 0, 2,
        "0/1 page on alarms, 2 page on new alarms"));
    v.push_back(boolOption(
        "alarms.select", [](Options& o) -> bool& { return o.alarms.select; }, "page only selected members"));
    v.push_back(intOption(
        "alarms.select_mode", [](Options& o) -> qint16& { return o.alarms.selectMode; }, 0, 2,
        "0 all, 1 alarmed, 2 new alarm"));
    // Schedule
    v.push_back(boolOption(
        "schedule.enabled", [](Options& o) -> bool& { return o.schedule.enabled; }, "run scheduled updates"));
    v.push_back(intOption(
        "schedule.interval", [](Options& o) -> qint16& { return o.schedule.intervalMinutes; }, 1, 1440,
        "minutes between interval updates"));
    v.push_back(boolOption(
        "schedule.interval_updates", [](Options& o) -> bool& { return o.schedule.interval; },
        "repeat updates between start and stop"));
    v.push_back(boolOption(
        "schedule.market_open", [](Options& o) -> bool& { return o.schedule.marketOpen; }, "update at market open"));
    v.push_back(boolOption(
        "schedule.midday", [](Options& o) -> bool& { return o.schedule.midday; }, "update at midday"));
    v.push_back(boolOption(
        "schedule.market_close", [](Options& o) -> bool& { return o.schedule.marketClose; }, "update at market close"));
    static const char* const dayNames[] = {"monday", "tuesday", "wednesday", "thursday", "friday"};
    for (int i = 0; i < 5; ++i) {
        const auto idx = static_cast<size_t>(i);
        OptionDef d;
        d.name = QStringLiteral("schedule.") + QLatin1String(dayNames[i]);
        d.type = OptionType::Bool;
        d.description = QStringLiteral("update on ") + QLatin1String(dayNames[i]);
        d.get = [idx](const Options& o) {
            return o.schedule.days[idx] ? QStringLiteral("true") : QStringLiteral("false");
        };
        d.set = [idx](Options& o, const QString& s) { o.schedule.days[idx] = s == QLatin1String("true"); };
        v.push_back(d);
    }
    v.push_back(withCheck(
        textOption(
            "schedule.open_time", [](Options& o) -> QString& { return o.schedule.openTime; }, "market open time"),
        checkTime));
    v.push_back(withCheck(
        textOption(
            "schedule.midday_time", [](Options& o) -> QString& { return o.schedule.middayTime; }, "midday time"),
        checkTime));
    v.push_back(withCheck(
        textOption(
            "schedule.close_time", [](Options& o) -> QString& { return o.schedule.closeTime; }, "market close time"),
        checkTime));
    v.push_back(withCheck(textOption(
                              "schedule.start_time", [](Options& o) -> QString& { return o.schedule.startTime; },
                              "first interval update"),
                          checkTime));
    v.push_back(withCheck(
        textOption(
            "schedule.stop_time", [](Options& o) -> QString& { return o.schedule.stopTime; }, "last interval update"),
        checkTime));
    v.push_back(intOption(
        "gate_flag", [](Options& o) -> qint16& { return o.gateFlag; }, 0, 1,
        "1: no fastest-server test, no waiting notice"));
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
    return nullptr;
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

QString OptionRegistry::display(const OptionDef& def, const Options& options)
{
    if (!def.get) {
        return {};
    }
    const QString value = def.get(options);
    if (def.type == OptionType::Password) {
        return value.isEmpty() ? QString() : QStringLiteral("***");
    }
    return value;
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
