#include "app/FirstSetup.h"

#include "core/OptionChecks.h"
#include "core/OptionRegistry.h"

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
    core::Options o = options;
    auto assign = [&](const char* name, const QString& text) -> std::optional<SetupProblem> {
        const QString option = QString::fromLatin1(name);
        const core::OptionDef* def = core::OptionRegistry::find(option);
        QString why = core::OptionRegistry::assign(*def, o, text);
        if (why.isEmpty()) {
            return std::nullopt;
        }
        // The registry names the option; the user knows the field by its label.
        const QString prefix = option + QStringLiteral(": ");
        if (why.startsWith(prefix)) {
            why = labelOf(option) + QStringLiteral(": ") + why.mid(prefix.size());
        }
        return SetupProblem{-1, core::EntryField::Ticker, option, why};
    };
    auto text = [&](const char* name) { return in.texts.value(QString::fromLatin1(name)).trimmed(); };

    o.paging.enabled = true;
    o.paging.numeric = false;
    o.alarms.select = true;
    o.alarms.selectMode = 1;
    o.alarms.mode = 0;

    o.push.enabled = in.push;
    if (in.push) {
        o.push.style = 0;
        if (auto p = assign("push.url", text("push.url"))) {
            return p;
        }
    }

    o.smtp.enabled = in.email;
    if (in.email) {
        const QString host = text("smtp.host");
        const bool address = core::isHostAddress(host);
        if (auto p = assign(address ? "smtp.address" : "smtp.host", host)) {
            return p;
        }
        if (auto p = assign(address ? "smtp.host" : "smtp.address", QString())) {
            return p;
        }
        for (const char* name : {"smtp.port", "smtp.security", "smtp.recipient", "smtp.user"}) {
            if (auto p = assign(name, text(name))) {
                return p;
            }
        }
        // A password is taken as typed: blanks may belong to it.
        if (auto p = assign("smtp.password", in.texts.value(QStringLiteral("smtp.password")))) {
            return p;
        }
        const QString user = text("smtp.user");
        if (auto p = assign("smtp.from", core::isEmailAddress(user) ? user : text("smtp.recipient"))) {
            return p;
        }
    }

    const auto failure = core::firstFailedOptionCheck([&o](const QString& name) {
        const core::OptionDef* def = core::OptionRegistry::find(name);
        return def && def->get ? def->get(o) : QString();
    });
    if (failure) {
        return SetupProblem{-1, core::EntryField::Ticker, failure->option, failure->message};
    }
    options = o;
    return std::nullopt;
}

} // namespace kestrova::app
