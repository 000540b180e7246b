#pragma once

#include "core/Options.h"
#include "core/PortfolioEntries.h"
#include "core/PortfolioTable.h"

#include <QHash>
#include <QString>

#include <functional>
#include <optional>
#include <vector>

namespace kestrova::app {

// One security of the set-up assistant's watch list, as typed: the ticker and its optional
// alarm limits (a move of N % in a day in either direction).
struct WatchInput
{
    QString ticker;
    QString high;
    QString low;
    QString move;
};

// What the assistant found wrong: the watch-list row and field, or the option, and the
// message naming the field as the user reads it.
struct SetupProblem
{
    int row = -1; // watch-list row; -1 for a notification setting
    core::EntryField field = core::EntryField::Ticker;
    QString option; // registry name of the notification setting at fault
    QString message;
};

// The portfolio of the watch list: one stock entry per row, in the pager's pages, with the
// limits as typed (empty: none). A move of N % becomes a high % change of N and a low one of
// -N; "5", "5%" and "+5 %" are the same move. The rows are checked by the portfolio
// editor's own rules, in order, and table is left alone on a problem.
std::optional<SetupProblem> buildWatchList(const std::vector<WatchInput>& rows, core::PortfolioTable& table);

// How alarms reach the user: a push to the phone, an e-mail, both, or neither (then the
// desktop's own notifications are all).
struct RouteInput
{
    bool push = false;
    bool email = false;
    // Field texts by option name: push.url, smtp.recipient, smtp.host (a name or an
    // address), smtp.port, smtp.security, smtp.user, smtp.password.
    QHash<QString, QString> texts;
};

// Sets the routes into options through the option registry's checks and then the options
// dialog's form checks, so nothing is stored that the options dialog would refuse; the
// first refusal names its field by labelOf(option name). Paging goes on, and pages carry
// alarms only (every security at the open and the close, which always page); a push to a
// phone needs no pager behind it. The sender of the mails is the log-on name when that is
// an address, else the recipient. options is left alone on a problem.
std::optional<SetupProblem> applyRoutes(const RouteInput& in, core::Options& options,
                                        const std::function<QString(const QString& option)>& labelOf);

} // namespace kestrova::app
