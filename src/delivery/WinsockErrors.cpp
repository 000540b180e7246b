#include "delivery/WinsockErrors.h"

#include <cerrno>

namespace kestrova::delivery {

namespace {

struct Entry
{
    int code;
    const char* name;
    const char* text;
};

constexpr Entry kTable[] = {
    {10000, "WSABASEERR", "No Error"},
    {10004, "WSAEINTR", "Interrupted system call"},
    {10009, "WSAEBADF", "Bad file number"},
    {10013, "WSAEACCES", "Permission denied"},
    {10014, "WSAEFAULT", "Bad address"},
    {10022, "WSAEINVAL", "Invalid argument"},
    {10024, "WSAEMFILE", "Too many open files"},
    {10035, "WSAEWOULDBLOCK", "Operation would block"},
    {10036, "WSAEINPROGRESS", "Operation now in progress"},
    {10037, "WSAEALREADY", "Operation already in progress"},
    {10038, "WSAENOTSOCK", "Socket operation on non-socket"},
    {10039, "WSAEDESTADDRREQ", "Destination address required"},
    {10040, "WSAEMSGSIZE", "Message too long"},
    {10041, "WSAEPROTOTYPE", "Protocol wrong type for socket"},
    {10042, "WSAENOPROTOOPT", "Bad protocol option"},
    {10043, "WSAEPROTONOSUPPORT", "Protocol not supported"},
    {10044, "WSAESOCKTNOSUPPORT", "Socket type not supported"},
    {10045, "WSAEOPNOTSUPP", "Operation not supported on socket"},
    {10046, "WSAEPFNOSUPPORT", "Protocol family not supported"},
    {10047, "WSAEAFNOSUPPORT", "Address family not supported by protocol family"},
    {10048, "WSAEADDRINUSE", "Address already in use"},
    {10049, "WSAEADDRNOTAVAIL", "Can't assign requested address"},
    {10050, "WSAENETDOWN", "Network is down"},
    {10051, "WSAENETUNREACH", "Network is unreachable"},
    {10052, "WSAENETRESET", "Net dropped connection or reset"},
    {10053, "WSAECONNABORTED", "Software caused connection abort"},
    {10054, "WSAECONNRESET", "Connection reset by peer"},
    {10055, "WSAENOBUFS", "No buffer space available"},
    {10056, "WSAEISCONN", "Socket is already connected"},
    {10057, "WSAENOTCONN", "Socket is not connected"},
    {10058, "WSAESHUTDOWN", "Can't send after socket shutdown"},
    {10059, "WSAETOOMANYREFS", "Too many references, can't splice"},
    {10060, "WSAETIMEDOUT", "Connection timed out"},
    {10061, "WSAECONNREFUSED", "Connection refused"},
    {10062, "WSAELOOP", "Too many levels of symbolic links"},
    {10063, "WSAENAMETOOLONG", "File name too long"},
    {10064, "WSAEHOSTDOWN", "Host is down"},
    {10065, "WSAEHOSTUNREACH", "No Route to Host"},
    {10066, "WSAENOTEMPTY", "Directory not empty"},
    {10067, "WSAEPROCLIM", "Too many processes"},
    {10068, "WSAEUSERS", "Too many users"},
    {10069, "WSAEDQUOT", "Disc Quota Exceeded"},
    {10070, "WSAESTALE", "Stale NFS file handle"},
    {10071, "WSAEREMOTE", "Too many levels of remote in path"},
    {10091, "WSASYSNOTREADY", "Network SubSystem is unavailable"},
    {10092, "WSAVERNOTSUPPORTED", "WINSOCK DLL Version out of range"},
    {10093, "WSANOTINITIALISED", "Successful WSASTARTUP not yet performed"},
    {11001, "WSAHOST_NOT_FOUND", "Host not found"},
    {11002, "WSATRY_AGAIN", "Non-Authoritative Host not found"},
    {11003, "WSANO_RECOVERY", "Non-Recoverable errors: FORMERR, REFUSED, NOTIMP"},
    {11004, "WSANO_DATA", "Valid name, no data record of requested type *OR* No address, look for MX record"},
};

} // namespace

QString winsockErrorText(int code, QString* name)
{
    for (const Entry& e : kTable) {
        if (e.code == code) {
            if (name) {
                *name = QString::fromLatin1(e.name);
            }
            return QString::fromLatin1(e.text);
        }
    }
    if (name) {
        name->clear();
    }
    return QStringLiteral("Unknown Error");
}

int winsockFromErrno(int osErrno)
{
    switch (osErrno) {
    case EINTR:
        return 10004;
    case EBADF:
        return 10009;
    case EACCES:
        return 10013;
    case EFAULT:
        return 10014;
    case EINVAL:
        return 10022;
    case EMFILE:
        return 10024;
    case EWOULDBLOCK:
        return 10035;
    case EINPROGRESS:
        return 10036;
    case EALREADY:
        return 10037;
    case ENOTSOCK:
        return 10038;
    case EDESTADDRREQ:
        return 10039;
    case EMSGSIZE:
        return 10040;
    case EPROTOTYPE:
        return 10041;
    case ENOPROTOOPT:
        return 10042;
    case EPROTONOSUPPORT:
        return 10043;
    case ESOCKTNOSUPPORT:
        return 10044;
    case EOPNOTSUPP:
        return 10045;
    case EPFNOSUPPORT:
        return 10046;
    case EAFNOSUPPORT:
        return 10047;
    case EADDRINUSE:
        return 10048;
    case EADDRNOTAVAIL:
        return 10049;
    case ENETDOWN:
        return 10050;
    case ENETUNREACH:
        return 10051;
    case ENETRESET:
        return 10052;
    case ECONNABORTED:
        return 10053;
    case ECONNRESET:
        return 10054;
    case EPIPE:
        return 10058; // writing after the peer shut the connection
    case ENOBUFS:
        return 10055;
    case EISCONN:
        return 10056;
    case ENOTCONN:
        return 10057;
    case ESHUTDOWN:
        return 10058;
    case ETOOMANYREFS:
        return 10059;
    case ETIMEDOUT:
        return 10060;
    case ECONNREFUSED:
        return 10061;
    case ELOOP:
        return 10062;
    case ENAMETOOLONG:
        return 10063;
    case EHOSTDOWN:
        return 10064;
    case EHOSTUNREACH:
        return 10065;
    case ENOTEMPTY:
        return 10066;
    case EUSERS:
        return 10068;
    case EDQUOT:
        return 10069;
    case ESTALE:
        return 10070;
    case EREMOTE:
        return 10071;
    default:
        return 0;
    }
}

int winsockFromCurl(CURLcode code, long osErrno)
{
    switch (code) {
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
        return 11001;
    case CURLE_OPERATION_TIMEDOUT:
        return 10060;
    case CURLE_COULDNT_CONNECT:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_GOT_NOTHING:
    case CURLE_PARTIAL_FILE: {
        // The OS error is the most precise account of what the socket went through.
        if (const int fromOs = winsockFromErrno(static_cast<int>(osErrno)); fromOs != 0) {
            return fromOs;
        }
        if (code == CURLE_COULDNT_CONNECT) {
            return 10061;
        }
        // The server closed the connection under us.
        return 10054;
    }
    case CURLE_OUT_OF_MEMORY:
        return 10055;
    case CURLE_FAILED_INIT:
        return 10093;
    default:
        return 0;
    }
}

} // namespace kestrova::delivery
