#pragma once

#include <QString>
#include <QtGlobal>

#include <array>

namespace kestrova::core {

// One message of the last mail check.
struct MailRecord
{
    QString date;
    QString messageId;
    QString headerText; // the whole reply to TOP n 0
    QString sender;
    QString subject;
    QString text;       // the downloaded message, when downloaded
    bool isNew = false; // its message id was not among the previous check's records
    qint64 size = 0;    // octets, from the "+OK" line
};

// The mail record table: records 1..100 (0 unused), the message count of the last check
// and the mail-waiting flag. Shared by the mail watch and both paging routes.
struct MailBox
{
    static constexpr int kMaxRecords = 100;
    std::array<MailRecord, kMaxRecords + 1> records{};
    qint16 messageCount = 0;
    bool countKnown = false;
    bool mailWaiting = false;
};

} // namespace kestrova::core
