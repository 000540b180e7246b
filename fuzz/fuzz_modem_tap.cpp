// A paging call against a modem and paging terminal that answer with arbitrary bytes: the
// modem line's waits (init, dial, hang-up), the TAP logon and block replies, and numeric
// paging's listening window. Every wait runs on the mock clock, so a call that waits out
// all its time-outs costs a few thousand loop rounds and no real time.
//
// Input: a flags byte, a page-length byte, then the replies, separated by 0xFF. Each time
// the program writes to the line, the next reply is queued; its first byte says after how
// many yields (100 ms each) it arrives (low 7 bits) and whether it then keeps coming on
// every yield until the next write (bit 7: a modem spewing noise). Flags: bit 0 numeric
// pager, bit 1 send only the new mail, bit 2 the port cannot be opened, bits 3-4 retries
// - 1, bits 5-7 the user cancels after that many times 37 yields.
//
// Whatever the line says, the call must end, and end with the port closed: a port left
// open makes every later page refuse to start.

#include "FuzzSupport.h"

#include "core/MailRecords.h"
#include "core/ModemProfiles.h"
#include "core/Options.h"
#include "delivery/ModemLine.h"
#include "delivery/NumericPager.h"
#include "delivery/PageTable.h"
#include "delivery/SerialLine.h"
#include "delivery/TapPager.h"
#include "support/VbError.h"

#include <deque>

using namespace kestrova;

namespace {

class ScriptedLine final : public delivery::SerialLine
{
public:
    std::deque<QByteArray> replies;
    bool openFails = false;
    long writes = 0;

    void setPort(int) override {}
    void setDevice(const QString&) override {}
    void setSettings(const QString&) override {}
    void setFlowControl(int) override {}
    bool open(QString* error) override
    {
        if (openFails) {
            if (error) {
                *error = QStringLiteral("no such port");
            }
            return false;
        }
        m_open = true;
        return true;
    }
    void close() override { m_open = false; }
    bool isOpen() const override { return m_open; }
    void write(const QByteArray&) override
    {
        ++writes;
        m_pending.clear();
        m_repeat = false;
        if (replies.empty()) {
            return;
        }
        QByteArray next = replies.front();
        replies.pop_front();
        if (next.isEmpty()) {
            return;
        }
        const auto head = static_cast<unsigned char>(next.front());
        m_delay = head & 0x7F;
        m_repeat = (head & 0x80) != 0;
        m_pending = next.mid(1);
    }
    qint64 bytesAvailable() override { return m_rx.size(); }
    QByteArray readAll() override
    {
        QByteArray out;
        out.swap(m_rx);
        return out;
    }
    void clearInput() override { m_rx.clear(); }

    // One yield of the program: the queued reply comes closer, arrives, or comes again.
    void tick()
    {
        if (m_pending.isEmpty() || !m_open) {
            return;
        }
        if (m_delay > 0) {
            --m_delay;
            return;
        }
        m_rx += m_pending;
        if (!m_repeat) {
            m_pending.clear();
        }
    }

private:
    bool m_open = false;
    QByteArray m_rx;
    QByteArray m_pending;
    int m_delay = 0;
    bool m_repeat = false;
};

core::Options pagingOptions(int retries, int maxLength)
{
    core::Options o;
    core::setBuiltInModemProfiles(o.modem);
    o.paging.enabled = true;
    o.paging.pagerId = QStringLiteral("7654321");
    o.paging.phone = QStringLiteral("5550100");
    o.paging.retries = static_cast<qint16>(retries);
    o.paging.retrySeconds = 5;
    o.paging.maxLength = static_cast<qint16>(maxLength);
    o.paging.forwardMail = true;
    o.paging.numericPrefix = QStringLiteral(",,");
    o.mail.pageHeaders = true;
    return o;
}

core::MailBox* g_mail = nullptr;

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::quietQt();
    g_mail = new core::MailBox;
    g_mail->messageCount = 2;
    g_mail->mailWaiting = true;
    for (int r = 1; r <= 2; ++r) {
        core::MailRecord& m = g_mail->records[size_t(r)];
        m.isNew = true;
        m.date = QStringLiteral("mon, 23 nov 2026 09:1%1:00").arg(r);
        m.sender = QStringLiteral("alice smith <alice@example.net>");
        m.subject = QStringLiteral("quarterly figures, part %1").arg(r);
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 2) {
        return 0;
    }
    const unsigned flags = data[0];
    const int maxLength = 20 + data[1];
    const core::Options options = pagingOptions(1 + int((flags >> 3) & 3), maxLength);

    fuzz::FuzzServices rig;
    ScriptedLine line;
    line.openFails = (flags & 4) != 0;
    const QByteArray script = fuzz::bytesOf(data + 2, size - 2);
    for (const QByteArray& reply : script.split('\xFF')) {
        line.replies.push_back(reply);
    }
    const long cancelAt = long((flags >> 5) & 7) * 37;
    rig.host.onYield = [&] {
        line.tick();
        if (cancelAt > 0 && rig.host.yields == cancelAt) {
            rig.cancel.set();
        }
    };

    delivery::ModemLine modem(rig.services, line, options.modem);
    const QString message = QStringLiteral("+IBM 105.25*(V), MSFT 50.00, DOW 10345.21+12.5, ") +
                            QStringLiteral("NASD 2890.11-3.2, SP500 1402.02+0.4");
    if (flags & 1) {
        delivery::NumericPager pager(modem, options);
        pager.SendDigitalPage(delivery::splitPages(QStringLiteral("01*100*10525,02*000*5000"), maxLength, false));
    } else {
        delivery::TapPager pager(modem, options, g_mail);
        if (flags & 2) {
            pager.SendEmailPage();
        } else {
            pager.SendPage(message);
        }
    }
    fuzzCheck(!line.isOpen());
    return 0;
}
