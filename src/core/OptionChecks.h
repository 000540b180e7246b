#pragma once

#include "core/Options.h"

#include <QHash>
#include <QList>
#include <QString>

#include <functional>
#include <optional>

namespace kestrova::core {

// Tells support::rememberSecret every secret the options hold (passwords, the push token,
// a log-on in the push URL), so no text shown or logged carries one.
void rememberSecrets(const Options& options);

// Text forms the option fields take. Each answers whether the whole text is of that form;
// an empty text is never one (fields that may stay empty test for that first).
bool isEmailAddress(const QString& text);
bool isHostName(const QString& text);
bool isHostAddress(const QString& text); // IPv4 dotted quad or IPv6
bool isDialString(const QString& text);  // what a modem dials: digits and dialling characters
bool isPortNumber(const QString& text);  // 1..65535

// The format check of an option that takes an address, a host, a phone number or a port:
// why a non-empty value is refused, or an empty text. Null for other options.
std::function<QString(const QString& value)> formatCheck(const QString& optionName);

// Checking a proposed set of options before it is saved. Every face that lets the user
// change options runs these: the options dialog (all of its fields), the modem dialog (its
// own fields), `kestrova-cli options set` (the pairs it was given) and any assistant that
// asks for a few of them. So the same values are refused with the same message wherever
// they are typed.
//
//   Options base = the setup in use;
//   const OptionCheck c = checkOptions(base, {{"smtp.enabled", "true"}, {"smtp.recipient", typed}});
//   if (!c.ok()) { show c.failure->message (or namedAs(label)); focus c.failure->option; }
//   else { save c.options and, for options of the settings store, c.storeTexts }
//
// Order of the checks, and the first failure wins:
//   1. The whole-form checks, on the texts as entered (options not entered keep their value
//      in base): a pager ID without dashes, a non-zero page length ("You must enter a
//      non-zero maximum page length."), with e-mail paging on a valid recipient ("You must
//      enter a valid recipient email address") and a non-zero mail length, with the proxy on
//      a host name or address ("You must enter either a host name or host address for the
//      proxy server."), with e-mail paging on a host name or address of the SMTP server.
//      They run only when an option the portfolio file keeps is entered: preferences of the
//      settings store alone change nothing these checks look at.
//   2. Each entered option's own check, in the order given (an option entered twice: its
//      last text only): type, range, text form (formatCheck), and the registry's extra rule. Each checked value is
//      applied to the copy before the next is checked, so a rule that looks at other options (the modem profile in use)
//      sees the values entered before it.
//   3. When a field of the schedule dialog is entered (schedule.*_time, schedule.interval),
//      the schedule's own rules on the schedule as it would be (ScheduleRules.h): times,
//      the start not after the stop, the interval's range.
// Nothing is applied to base; a caller saves the result only when ok().

// One value as the user entered it, by the option's registry name.
struct OptionText
{
    QString name;
    QString text;
};

// Why a proposed set of options cannot be saved.
struct OptionFailure
{
    QString option;        // the option to correct, by its registry name ("pager.max_length")
    QString message;       // the message, without the option's name
    bool ownCheck = false; // the option's own check: its message reads after the field's name

    // As a form shows it: an option's own refusal after the field's label ("SMTP Port: must
    // be between 1 and 65535"), the whole-form and schedule messages as they stand.
    QString namedAs(const QString& label) const;
    // As the command line shows it, after the option's name ("smtp.port: must be between 1
    // and 65535", "pager.max_length: You must enter a non-zero maximum page length.").
    QString withOptionName() const;
};

// The outcome of checkOptions.
struct OptionCheck
{
    std::optional<OptionFailure> failure;
    Options options;                    // base with every entered value applied
    QHash<QString, QString> storeTexts; // settings-store texts by store key, for preferences entered
    bool shortInterval = false;         // an interval below five minutes: kShortIntervalWarning after saving

    bool ok() const { return !failure.has_value(); }
};

enum class CheckScope {
    Everything, // the whole-form checks too: a form or a command that saves the setup
    OwnChecks,  // only the entered options' own checks: a part of a form saved elsewhere
};

// Checks the entered values against base as described above. An unknown option name is a
// failure ("NAME: unknown option").
OptionCheck checkOptions(const Options& base, const QList<OptionText>& entered,
                         CheckScope scope = CheckScope::Everything);

// The first failure of the whole-form checks alone; textOf gives the text entered for an
// option (by its registry name).
std::optional<OptionFailure> firstFailedOptionCheck(const std::function<QString(const QString& optionName)>& textOf);

} // namespace kestrova::core
