// A POP3 server's reply on arbitrary bytes, read every way the mail check reads one: the
// test for a whole reply, the STAT and LIST numbers, a RETR message, and the TOP headers
// (message id, sender, subject, date) with the size from the status line.

#include "FuzzSupport.h"

#include "mail/MailWatch.h"
#include "mail/PopReplies.h"

using namespace kestrova;

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::quietQt();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray reply = fuzz::bytesOf(data, size);
    const bool line = mail::popReplyComplete(reply, false);
    const bool whole = mail::popReplyComplete(reply, true);
    // A multi-line reply is complete only once its status line is.
    fuzzCheck(!whole || line);
    if (line && reply.startsWith("+OK")) {
        int count = 0;
        qint64 octets = 0;
        mail::popStatReply(reply, &count, &octets);
        mail::popListSize(reply);
    }
    if (whole && reply.startsWith("+OK")) {
        fuzzCheck(mail::popMessageText(reply).size() <= reply.size());
    }

    const QString text = QString::fromLatin1(reply);
    for (const QString& value : {mail::MailWatch::messageIdOf(text), mail::MailWatch::senderOf(text),
                                 mail::MailWatch::subjectOf(text), mail::MailWatch::dateOf(text)}) {
        // A header value ends at the line's CR.
        fuzzCheck(!value.contains(u'\r'));
    }
    fuzzCheck(mail::MailWatch::sizeOf(text) >= 0 || text.contains(u'-'));
    return 0;
}
