#pragma once

#include <QString>

#include <functional>
#include <optional>

namespace kestrova::core {

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

// The first failure of the form checks: the message, and the option to correct.
struct FormCheckFailure
{
    QString message;
    QString option;
};

// The checks the options dialog runs over the whole form before it saves, in their order.
// textOf gives the text entered for an option (by its registry name).
std::optional<FormCheckFailure> firstFailedOptionCheck(const std::function<QString(const QString& optionName)>& textOf);

} // namespace kestrova::core
