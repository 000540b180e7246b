#include "core/OptionChecks.h"

#include "core/OptionRegistry.h"
#include "core/Options.h"
#include "core/ScheduleRules.h"
#include "support/Format.h"
#include "support/Secrets.h"

#include <QRegularExpression>
#include <QUrl>

#include <algorithm>

namespace kestrova::core {

namespace {

bool truthy(const QString& text)
{
    const QString t = text.trimmed().toLower();
    return t == QLatin1String("true") || t == QLatin1String("1") || t == QLatin1String("yes") ||
           t == QLatin1String("on");
}

} // namespace

void rememberSecrets(const Options& options)
{
    support::rememberSecret(options.mail.password);
    support::rememberSecret(options.smtp.password);
    support::rememberSecret(options.push.token);
    support::rememberSecret(QUrl(options.push.url).password());
    for (const ServerLogon& logon : options.quotes.logons) {
        support::rememberSecret(logon.password);
    }
}

bool isHostName(const QString& text)
{
    static const QRegularExpression label(QStringLiteral("^[A-Za-z0-9]([A-Za-z0-9-]{0,61}[A-Za-z0-9])?$"));
    const QString t = text.endsWith(u'.') ? text.chopped(1) : text;
    if (t.isEmpty() || t.size() > 253) {
        return false;
    }
    for (const QString& part : t.split(u'.')) {
        if (!label.match(part).hasMatch()) {
            return false;
        }
    }
    return true;
}

bool isHostAddress(const QString& text)
{
    static const QRegularExpression v4(QStringLiteral("^(\\d{1,3})\\.(\\d{1,3})\\.(\\d{1,3})\\.(\\d{1,3})$"));
    if (const auto m = v4.match(text); m.hasMatch()) {
        for (int i = 1; i <= 4; ++i) {
            if (m.captured(i).toInt() > 255) {
                return false;
            }
        }
        return true;
    }
    // IPv6: up to eight hex groups of at most four digits, "::" standing for a run of zeros once.
    static const QRegularExpression v6(QStringLiteral("^[0-9A-Fa-f:]+$"));
    if (!text.contains(u':') || !v6.match(text).hasMatch() || text.count(QStringLiteral("::")) > 1 ||
        text.contains(QStringLiteral(":::"))) {
        return false;
    }
    const QStringList groups = text.split(u':');
    for (const QString& g : groups) {
        if (g.size() > 4) {
            return false;
        }
    }
    return text.contains(QStringLiteral("::")) ? groups.size() <= 9 : groups.size() == 8;
}

bool isEmailAddress(const QString& text)
{
    static const QRegularExpression local(QStringLiteral("^[A-Za-z0-9!#$%&'*+/=?^_`{|}~.-]+$"));
    const qsizetype at = text.lastIndexOf(u'@');
    if (at <= 0 || at == text.size() - 1) {
        return false;
    }
    const QString user = text.left(at);
    QString domain = text.mid(at + 1);
    if (!local.match(user).hasMatch() || user.startsWith(u'.') || user.endsWith(u'.') ||
        user.contains(QStringLiteral(".."))) {
        return false;
    }
    if (domain.startsWith(u'[') && domain.endsWith(u']')) {
        return isHostAddress(domain.mid(1, domain.size() - 2));
    }
    return isHostName(domain);
}

bool isDialString(const QString& text)
{
    // Digits, the tone keys, pauses (","), waits (W, @, !) and the formatting people type.
    static const QRegularExpression re(QStringLiteral("^[0-9*#,;!@WwPpTt()+. -]+$"));
    return re.match(text).hasMatch() && text.contains(QRegularExpression(QStringLiteral("[0-9*#]")));
}

bool isPortNumber(const QString& text)
{
    bool ok = false;
    const int n = text.trimmed().toInt(&ok);
    return ok && n >= 1 && n <= 65535;
}

std::function<QString(const QString&)> formatCheck(const QString& name)
{
    auto make = [](bool (*test)(const QString&), const char* why) {
        return [test, why](const QString& v) {
            const QString t = v.trimmed();
            return t.isEmpty() || test(t) ? QString() : QString::fromLatin1(why);
        };
    };
    static const char* const email = "expects an e-mail address such as pager@example.com";
    static const char* const host = "expects a host name such as mail.example.com";
    static const char* const address = "expects an IP address such as 192.168.1.10";
    static const char* const phone = "expects a phone number: digits and the dialling characters * # , ( ) - +";
    if (name == QLatin1String("smtp.from") || name == QLatin1String("smtp.recipient")) {
        return make(isEmailAddress, email);
    }
    if (name == QLatin1String("smtp.host") || name == QLatin1String("proxy.host") ||
        name == QLatin1String("mail.server") || name == QLatin1String("smtp.domain")) {
        return make([](const QString& t) { return isHostName(t) || isHostAddress(t); }, host);
    }
    if (name == QLatin1String("smtp.address") || name == QLatin1String("proxy.address")) {
        return make(isHostAddress, address);
    }
    if (name == QLatin1String("pager.phone") || name == QLatin1String("pager.numeric_prefix")) {
        return make(isDialString, phone);
    }
    if (name == QLatin1String("proxy.port")) {
        return make(isPortNumber, "expects a port number from 1 to 65535");
    }
    return {};
}

std::optional<OptionFailure> firstFailedOptionCheck(const std::function<QString(const QString&)>& textOf)
{
    auto failure = [](const char* message, const char* option) {
        return OptionFailure{QString::fromLatin1(option), QString::fromLatin1(message)};
    };
    if (textOf(QStringLiteral("pager.id")).contains(u'-')) {
        return failure("Please enter Pager ID without dashes", "pager.id");
    }
    const bool smtp = truthy(textOf(QStringLiteral("smtp.enabled")));
    if (support::leadingNumber(textOf(QStringLiteral("pager.max_length"))) == 0) {
        return failure("You must enter a non-zero maximum page length.", "pager.max_length");
    }
    if (smtp && support::leadingNumber(textOf(QStringLiteral("smtp.max_length"))) == 0) {
        return failure("You must enter a non-zero maximum page length.", "smtp.max_length");
    }
    if (smtp && !isEmailAddress(textOf(QStringLiteral("smtp.recipient")).trimmed())) {
        return failure("You must enter a valid recipient email address", "smtp.recipient");
    }
    if (truthy(textOf(QStringLiteral("proxy.enabled"))) && textOf(QStringLiteral("proxy.host")).trimmed().isEmpty() &&
        textOf(QStringLiteral("proxy.address")).trimmed().isEmpty()) {
        return failure("You must enter either a host name or host address for the proxy server.", "proxy.host");
    }
    if (smtp && textOf(QStringLiteral("smtp.host")).trimmed().isEmpty() &&
        textOf(QStringLiteral("smtp.address")).trimmed().isEmpty()) {
        return failure("You must enter either a host name or host address for the SMTP server.", "smtp.host");
    }
    if (truthy(textOf(QStringLiteral("push.enabled"))) && textOf(QStringLiteral("push.url")).trimmed().isEmpty()) {
        return failure("You must enter the URL of the push topic or webhook.", "push.url");
    }
    return std::nullopt;
}

QString OptionFailure::namedAs(const QString& label) const
{
    return ownCheck ? label + QStringLiteral(": ") + message : message;
}

QString OptionFailure::withOptionName() const
{
    return option + QStringLiteral(": ") + message;
}

OptionCheck checkOptions(const Options& base, const QList<OptionText>& entered, CheckScope scope)
{
    OptionCheck result;
    result.options = base;
    auto fail = [&result](const QString& option, const QString& message, bool ownCheck = false) {
        result.failure = OptionFailure{option, message, ownCheck};
        result.storeTexts.clear();
        return result;
    };

    std::vector<const OptionDef*> defs;
    bool setupEntered = false;
    for (const OptionText& e : entered) {
        const OptionDef* def = OptionRegistry::find(e.name);
        if (!def) {
            return fail(e.name, QStringLiteral("unknown option"));
        }
        defs.push_back(def);
        setupEntered = setupEntered || !def->inStore();
    }

    if (scope == CheckScope::Everything && setupEntered) {
        // The last text entered for an option counts, as it would on a form typed over.
        auto textOf = [&](const QString& name) {
            for (qsizetype i = entered.size() - 1; i >= 0; --i) {
                if (defs[static_cast<size_t>(i)]->name == name) {
                    return entered[i].text;
                }
            }
            const OptionDef* def = OptionRegistry::find(name);
            return def && def->get ? def->get(base) : QString();
        };
        if (auto failure = firstFailedOptionCheck(textOf)) {
            return fail(failure->option, failure->message);
        }
    }

    ScheduleEntry schedule = ScheduleEntry::from(base.schedule);
    bool scheduleEntered = false;
    for (qsizetype i = 0; i < entered.size(); ++i) {
        const OptionDef& def = *defs[static_cast<size_t>(i)];
        if (std::find(defs.begin() + i + 1, defs.end(), &def) != defs.end()) {
            continue; // typed over later
        }
        // The schedule dialog's fields answer to the schedule's own rules below, which look
        // at the whole schedule.
        if (!def.inStore() && setScheduleField(schedule, def.name, entered[i].text)) {
            scheduleEntered = true;
            continue;
        }
        QString value;
        const QString refusal = OptionRegistry::validate(def, result.options, entered[i].text, &value);
        if (!refusal.isEmpty()) {
            const QString prefix = def.name + QStringLiteral(": ");
            return fail(def.name, refusal.startsWith(prefix) ? refusal.mid(prefix.size()) : refusal, true);
        }
        if (def.inStore()) {
            result.storeTexts.insert(def.storeKey, def.storeText(value));
        } else if (def.set) {
            def.set(result.options, value);
        }
    }

    if (scheduleEntered) {
        const ScheduleVerdict verdict = validateSchedule(schedule);
        if (!verdict.ok()) {
            return fail(scheduleOptionName(verdict.field), verdict.error);
        }
        storeSchedule(result.options.schedule, schedule, verdict);
        result.shortInterval = verdict.shortInterval;
    }
    return result;
}

} // namespace kestrova::core
