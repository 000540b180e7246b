#pragma once

#include "delivery/PageTable.h"

#include <QString>

namespace kestrova::core {
struct MailBox;
struct Options;
} // namespace kestrova::core

namespace kestrova::delivery {

class ModemLine;

// Alphanumeric paging: dials the paging service and hands it the pages as TAP blocks,
// retrying the whole call as configured.
class TapPager
{
public:
    // mail may be null when no mail check runs; then no e-mail pages are sent.
    TapPager(ModemLine& modem, const core::Options& options, const core::MailBox* mail = nullptr);

    // Sends a composed message (quote/alarm page, manual page). Returns the text that was
    // logged for the outcome ("Pager: Message Sent (3 Pages)", "Pager: Busy", ...); empty
    // when nothing was attempted.
    QString SendPage(const QString& message);
    // Forwards only the headers of new mail.
    QString SendEmailPage();

    // The result code of the last attempt.
    qint16 result() const;
    // The pages of the last split.
    const PageTable& pages() const { return m_pages; }

    // One block: STX id CR text CR ETX, its checksum, CR.
    static QString buildBlock(const QString& pagerId, const QString& text);
    // The text of a mail record's page; empty when the options say mail is not paged.
    static QString mailPageText(const core::Options& options, const core::MailBox& mail, int record);

private:
    QString send(const QString& message, bool mailOnly);
    qint16 session(const QString& message, bool mailOnly);
    qint16 logon(QString& received);
    // Sends the pages of one message; statusPrefix names them on the status line.
    qint16 sendPages(const PageTable& pages, const QString& statusPrefix, QString& received);
    qint16 failed(qint16 code) const;

    ModemLine& m_modem;
    const core::Options& m_options;
    const core::MailBox* m_mail;
    PageTable m_pages;
};

} // namespace kestrova::delivery
