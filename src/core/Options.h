#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>

#include <array>

namespace kestrova::core {

// A modem profile: the name shown in the list, the init string and the pager init string.
struct ModemProfile
{
    QString name;
    QString init;
    QString pagerInit;
};

constexpr int kModemSlots = 21; // indices 0..20
constexpr int kBuiltInServers = 13;

// The log-on the user entered for one of the built-in quote services.
struct ServerLogon
{
    QString user;
    QString password;
};

// Alphanumeric and numeric paging through the modem.
struct PagingOptions
{
    bool enabled = false;     // paging enabled (chkPageEnable / mnuEnablePaging)
    QString pagerId;          // "Pager Identifier:"
    QString phone;            // "PGR Service Phone No.:"
    qint16 maxLength = 80;    // characters per page (txtPGRMaxLength)
    qint16 retries = 3;       // "No. of Retries:"
    qint16 retrySeconds = 30; // "Seconds between retries:"
    bool numeric = false;     // "Digital Pager?"
    qint16 numericWait = 10;  // wait after dialling, seconds
    QString numericPrefix;    // characters that precede the numeric page (txtPrefix)
    qint16 numericPause = 4;  // pause setting whose half gives the commas of a numeric page
    QString user;             // 25-character fixed-width pager user field
    bool forwardMail = false; // forward mail headers to the pager
    bool pageNews = false;    // append fresh news to the quote page
    qint16 layout = 0;        // page layout switch: 1 adds the price change
};

struct ModemOptions
{
    qint16 port = 1; // COM1..COM8
    QString settings = QStringLiteral("9600,N,8,1");
    qint16 flowControl = 0;   // 0 None, 1 XON/XOFF, 2 RTS/CTS, 3 BOTH
    bool pulse = false;       // "DP" instead of "DT"
    qint16 speakerVolume = 1; // 0..2 -> " L1".." L3"
    qint16 speakerMode = 1;   // 0..3 -> " M0".." M3"
    qint16 selected = 2;      // selected profile index
    qint16 lastIndex = 2;     // last used slot of the profile table
    std::array<ModemProfile, kModemSlots> profiles{};
    bool quoteService = false; // quotes come by modem, not the Internet (no update runs)
};

struct SmtpOptions
{
    bool enabled = false; // "Enable SMTP (Internet email) Paging"
    QString hostName;     // "SMTP Host Name:"
    QString hostAddress;  // "SMTP Host Address:"
    qint16 port = 25;
    QString from;
    QString recipient;      // "Recipient Email Address:"
    QString domain;         // EHLO name
    qint16 maxLength = 160; // "Max Page Length:"
    qint16 security = 0;    // 0 plain, 1 STARTTLS, 2 implicit TLS
    QString user;           // AUTH user name; empty: no AUTH
    QString password;       // AUTH password (scrambled in the file, never logged)
};

struct MailOptions
{
    QString server; // POP server
    qint16 port = 110;
    QString user;
    QString password;          // scrambled in the file, never logged
    qint16 mode = 0;           // 0 Notify Only, 1 Download and Notify, 2 Download, Page MSG Header, 3 Download Messages
    bool pageHeaders = false;  // "Page Email Headers"
    bool notifyWaiting = true; // "Notify if Email is waiting"
    bool markerComma = false;  // e-mail marker followed by "," instead of a blank
    qint16 security = 0;       // 0 plain, 1 STLS, 2 implicit TLS
};

struct ConnectionOptions
{
    qint16 type = 1;     // 0 dial-up, 1 Direct, 2 External Dialer
    QString entry;       // dial-up entry (NetworkManager connection id)
    QString user;        // kept for the dialog; NetworkManager holds the secrets
    qint16 timeout = 60; // seconds per dial attempt (txtRASTimeout)
    bool hangUpAfterUpdate = false;
};

struct ProxyOptions
{
    bool enabled = false;
    QString hostName;
    QString hostAddress;
    QString port = QStringLiteral("80");
};

struct QuoteOptions
{
    qint16 server = 0;          // default stock server index (built-in list 0..12)
    qint16 optionServer = 0;    // default option server index
    bool fastest = false;       // pick the fastest built-in service before each update
    bool updateServers = false; // fetch fresh server files at each update
    bool marketSummary = true;  // fetch the market summary
    bool pageDow = true;
    bool pageNasdaq = true;
    bool pageSp500 = true;
    QString marketUrl = QStringLiteral("http://www.pcquote.com/cgi-bin/getquote.dll?ticker=csco");
    std::array<ServerLogon, kBuiltInServers> logons{};
};

// The modern quote sources (sources.json): which to ask in what order, and whether the
// health check may page.
struct SourceOptions
{
    // Source names and "servers.dat", comma-separated, first asked first; empty: the
    // order sources.json recommends (a file written before sources existed reads empty).
    QString order;
    bool pageHealth = false; // page health warnings (at most once a day) by the paging route
};

struct NewsOptions
{
    bool retrieve = false; // news retrieval before each quote cycle
    qint16 maxStories = 5; // stories per page
    qint16 purgeDays = 7;
};

struct AlarmOptions
{
    qint16 mode = 0;       // 0, 1: LimitPage; 2: NewLimitPage
    bool select = false;   // selection switch: page only selected members
    qint16 selectMode = 0; // 0 all, 1 alarmed, 2 new alarm
};

// The push route: every page the program sends is mirrored to a push server by HTTP POST.
struct PushOptions
{
    bool enabled = false;
    qint16 style = 0;   // 0 ntfy-style topic URL, 1 JSON webhook
    QString url;        // scrambled in the file: it may carry a log-on
    QString token;      // bearer token; scrambled in the file, never logged
    qint16 timeout = 5; // seconds one attempt may take
};

struct ScheduleOptions
{
    bool enabled = false;                                   // chkScheduleEnable / mnuEnableSchedule
    std::array<bool, 5> days{true, true, true, true, true}; // Monday..Friday
    bool marketOpen = false;                                // chkMktOpen
    bool midday = false;                                    // chkMktMidday
    bool marketClose = false;                               // chkMktClose
    bool interval = false;                                  // chkOther
    QString openTime = QStringLiteral("9:30 am");
    QString middayTime = QStringLiteral("12:00 pm");
    QString closeTime = QStringLiteral("4:00 pm");
    QString startTime = QStringLiteral("9:00 am");
    QString stopTime = QStringLiteral("4:00 pm");
    qint16 intervalMinutes = 15;
};

// Positions of the portfolio file that no option uses yet. They are kept exactly as read,
// so a file written by a later version loses nothing when this one saves it.
struct SpareItems
{
    std::array<QString, 7> texts{};
    std::array<qint16, 3> numbers{};
    // Sections after the ones this version knows, kept byte for byte and written back.
    QByteArray laterSections;
};

// Every option a watch setup carries. The portfolio file is its only persistent form
// (except modem.device, which belongs to the machine and lives in the settings store).
struct Options
{
    PagingOptions paging;
    ModemOptions modem;
    SmtpOptions smtp;
    MailOptions mail;
    ConnectionOptions connection;
    ProxyOptions proxy;
    QuoteOptions quotes;
    SourceOptions sources;
    NewsOptions news;
    AlarmOptions alarms;
    ScheduleOptions schedule;
    PushOptions push;
    qint16 gateFlag = 0; // when set: no fastest-server test, no "Waiting to Dial Pager"
    SpareItems spare;
};

} // namespace kestrova::core
