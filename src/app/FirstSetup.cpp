#include "app/FirstSetup.h"

#include "core/OptionChecks.h"

namespace kestrova::app {

namespace {

// The move field: a number of percent, with or without its sign and "%".
std::optional<double> parseMove(QString text)
{
    text = text.trimmed();
    if (text.endsWith(u'%')) {
        text.chop(1);
    }
    const auto n = core::parseEntryNumber(text);
    if (!n) {
        return std::nullopt;
    }
    return *n < 0 ? -*n : *n;
}

} // namespace

std::optional<SetupProblem> buildWatchList(const std::vector<WatchInput>& rows, core::PortfolioTable& table)
{
    core::PortfolioTable built;
    for (size_t i = 0; i < rows.size(); ++i) {
        const WatchInput& row = rows[i];
        const int at = int(i);
        core::EntryInput in;
        in.ticker = row.ticker;
        in.highLimit = row.high;
        in.lowLimit = row.low;
        in.toPager = true;
        in.news = false;
        if (!row.move.trimmed().isEmpty()) {
            const auto move = parseMove(row.move);
            if (!move) {
                return SetupProblem{at,
                                    core::EntryField::HighChgLimit,
                                    {},
                                    row.ticker.trimmed() +
                                        QStringLiteral(": Move in a day: expects a number of percent such as 5")};
            }
            const QString percent = QString::number(*move, 'g', 9);
            in.highChgLimit = percent;
            in.lowChgLimit = *move == 0 ? percent : u'-' + percent;
        }
        core::PortfolioRecord record;
        if (const auto problem = core::parseEntry(in, record)) {
            const QString who =
                row.ticker.trimmed().isEmpty() ? QString() : row.ticker.trimmed() + QStringLiteral(": ");
            return SetupProblem{at, problem->field, {}, who + problem->message};
        }
        if (const QString refusal = core::addEntry(built, record); !refusal.isEmpty()) {
            return SetupProblem{at, core::EntryField::Ticker, {}, refusal};
        }
    }
    table = built;
    return std::nullopt;
}

std::optional<SetupProblem> applyRoutes(const RouteInput& in, core::Options& options,
                                        const std::function<QString(const QString&)>& labelOf)
{
    auto text = [&](const char* name) { return in.texts.value(QString::fromLatin1(name)).trimmed(); };
    auto flag = [](bool on) { return on ? QStringLiteral("true") : QStringLiteral("false"); };
    QList<core::OptionText> entered{
        {QStringLiteral("paging.enabled"), flag(true)},
        {QStringLiteral("pager.numeric"), flag(false)},
        // Alarms only: a phone is no pager to fill with every quote of every update.
        {QStringLiteral("alarms.select"), flag(true)},
        {QStringLiteral("alarms.select_mode"), QStringLiteral("1")},
        {QStringLiteral("alarms.mode"), QStringLiteral("0")},
        {QStringLiteral("push.enabled"), flag(in.push)},
        {QStringLiteral("smtp.enabled"), flag(in.email)},
    };
    if (in.push) {
        entered << core::OptionText{QStringLiteral("push.style"), QStringLiteral("0")}
                << core::OptionText{QStringLiteral("push.url"), text("push.url")};
    }
    if (in.email) {
        const QString host = text("smtp.host");
        const bool address = core::isHostAddress(host);
        const QString user = text("smtp.user");
        entered << core::OptionText{QStringLiteral("smtp.host"), address ? QString() : host}
                << core::OptionText{QStringLiteral("smtp.address"), address ? host : QString()};
        for (const char* name : {"smtp.port", "smtp.security", "smtp.recipient", "smtp.user"}) {
            entered << core::OptionText{QString::fromLatin1(name), text(name)};
        }
        // A password is taken as typed: blanks may belong to it.
        entered << core::OptionText{QStringLiteral("smtp.password"), in.texts.value(QStringLiteral("smtp.password"))}
                << core::OptionText{QStringLiteral("smtp.from"),
                                    core::isEmailAddress(user) ? user : text("smtp.recipient")};
    }
    const core::OptionCheck check = core::checkOptions(options, entered);
    if (!check.ok()) {
        return SetupProblem{-1, core::EntryField::Ticker, check.failure->option,
                            check.failure->namedAs(labelOf(check.failure->option))};
    }
    options = check.options;
    return std::nullopt;
}

} // namespace kestrova::app
