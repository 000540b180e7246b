// libcurl is not linked: it and the twenty-odd libraries it brings (a second TLS stack,
// Kerberos, LDAP, SSH, RTMP, ...) would be loaded and relocated at every start, which cost
// a command that never fetches more than all of its own work. The curl_* functions the
// program calls are defined here instead, with curl.h's own signatures: the first of them
// to be called loads libcurl and runs curl_global_init, and each forwards to the real one.
// Without libcurl every handle fails to start, which callers report as for any transfer
// that cannot start.

// The type-checking wrappers curl.h puts around curl_easy_setopt and curl_easy_getinfo are
// macros, which would rewrite the definitions below.
#define CURL_DISABLE_TYPECHECK

#include "support/CurlLibrary.h"

#include <QtGlobal>

#include <curl/curl.h>

#include <cstdarg>
#include <dlfcn.h>

#ifndef KESTROVA_CURL_SONAME
#define KESTROVA_CURL_SONAME "libcurl.so.4"
#endif

namespace {

struct CurlApi
{
    CURLcode (*globalInit)(long) = nullptr;
    CURL* (*easyInit)() = nullptr;
    CURLcode (*easySetopt)(CURL*, CURLoption, ...) = nullptr;
    CURLcode (*easyGetinfo)(CURL*, CURLINFO, ...) = nullptr;
    void (*easyCleanup)(CURL*) = nullptr;
    const char* (*easyStrerror)(CURLcode) = nullptr;
    CURLM* (*multiInit)() = nullptr;
    CURLMcode (*multiSetopt)(CURLM*, CURLMoption, ...) = nullptr;
    CURLMcode (*multiAddHandle)(CURLM*, CURL*) = nullptr;
    CURLMcode (*multiRemoveHandle)(CURLM*, CURL*) = nullptr;
    CURLMcode (*multiPerform)(CURLM*, int*) = nullptr;
    CURLMcode (*multiPoll)(CURLM*, curl_waitfd[], unsigned int, int, int*) = nullptr;
    CURLMsg* (*multiInfoRead)(CURLM*, int*) = nullptr;
    CURLMcode (*multiCleanup)(CURLM*) = nullptr;
    CURLSH* (*shareInit)() = nullptr;
    CURLSHcode (*shareSetopt)(CURLSH*, CURLSHoption, ...) = nullptr;
    CURLSHcode (*shareCleanup)(CURLSH*) = nullptr;
    curl_slist* (*slistAppend)(curl_slist*, const char*) = nullptr;
    void (*slistFreeAll)(curl_slist*) = nullptr;
    char* (*version)() = nullptr;
    // OpenSSL's, when libcurl brought it (optional: another TLS back-end has none).
    void (*tlsThreadStop)() = nullptr;
};

template <typename F> bool resolve(void* library, const char* name, F& function)
{
    function = reinterpret_cast<F>(dlsym(library, name));
    return function != nullptr;
}

CurlApi loadCurl()
{
    CurlApi api;
    void* library = dlopen(KESTROVA_CURL_SONAME, RTLD_NOW | RTLD_LOCAL);
    if (!library) {
        qWarning("libcurl could not be loaded: %s", dlerror());
        return api;
    }
    const bool complete =
        resolve(library, "curl_global_init", api.globalInit) && resolve(library, "curl_easy_init", api.easyInit) &&
        resolve(library, "curl_easy_setopt", api.easySetopt) &&
        resolve(library, "curl_easy_getinfo", api.easyGetinfo) &&
        resolve(library, "curl_easy_cleanup", api.easyCleanup) &&
        resolve(library, "curl_easy_strerror", api.easyStrerror) &&
        resolve(library, "curl_multi_init", api.multiInit) && resolve(library, "curl_multi_setopt", api.multiSetopt) &&
        resolve(library, "curl_multi_add_handle", api.multiAddHandle) &&
        resolve(library, "curl_multi_remove_handle", api.multiRemoveHandle) &&
        resolve(library, "curl_multi_perform", api.multiPerform) &&
        resolve(library, "curl_multi_poll", api.multiPoll) &&
        resolve(library, "curl_multi_info_read", api.multiInfoRead) &&
        resolve(library, "curl_multi_cleanup", api.multiCleanup) &&
        resolve(library, "curl_share_init", api.shareInit) && resolve(library, "curl_share_setopt", api.shareSetopt) &&
        resolve(library, "curl_share_cleanup", api.shareCleanup) &&
        resolve(library, "curl_slist_append", api.slistAppend) &&
        resolve(library, "curl_slist_free_all", api.slistFreeAll) && resolve(library, "curl_version", api.version);
    if (!complete) {
        // A libcurl older than the one built against: use none of it.
        qWarning("%s lacks a function this program uses", KESTROVA_CURL_SONAME);
        return CurlApi();
    }
    // Looked up through libcurl's handle, which searches the libraries it brought.
    resolve(library, "OPENSSL_thread_stop", api.tlsThreadStop);
    // Not thread-safe, and needed once before any handle exists: here, where the first
    // handle is about to be made, under the static initialisation's own lock.
    api.globalInit(CURL_GLOBAL_DEFAULT);
    return api;
}

// Null when libcurl could not be loaded.
const CurlApi* curl()
{
    static const CurlApi api = loadCurl();
    return api.globalInit ? &api : nullptr;
}

// The variadic argument of a set-option call, by the option's number range (curl.h's
// CURLOPTTYPE_*): a long, an object or function pointer, or a curl_off_t.
template <typename Handle, typename Option, typename Result>
Result forwardOption(Result (*set)(Handle*, Option, ...), Handle* handle, Option option, va_list args)
{
    const int kind = int(option) / 10000 * 10000;
    if (kind == CURLOPTTYPE_LONG) {
        return set(handle, option, va_arg(args, long));
    }
    if (kind == CURLOPTTYPE_OFF_T) {
        return set(handle, option, va_arg(args, curl_off_t));
    }
    return set(handle, option, va_arg(args, void*));
}

} // namespace

namespace kestrova::support {

void releaseCurlThreadState()
{
    // OpenSSL frees a thread's state from a thread-exit handler, which runs after
    // QThread::wait() has returned to the thread that waits: a program that ends right
    // after its worker thread can be gone before the handler has run.
    const CurlApi* api = curl();
    if (api && api->tlsThreadStop) {
        api->tlsThreadStop();
    }
}

} // namespace kestrova::support

extern "C" {

CURLcode curl_global_init(long flags)
{
    const CurlApi* api = curl();
    return api ? api->globalInit(flags) : CURLE_FAILED_INIT;
}

CURL* curl_easy_init()
{
    const CurlApi* api = curl();
    return api ? api->easyInit() : nullptr;
}

CURLcode curl_easy_setopt(CURL* handle, CURLoption option, ...)
{
    const CurlApi* api = curl();
    if (!api) {
        return CURLE_FAILED_INIT;
    }
    va_list args;
    va_start(args, option);
    const CURLcode result = forwardOption(api->easySetopt, handle, option, args);
    va_end(args);
    return result;
}

CURLcode curl_easy_getinfo(CURL* handle, CURLINFO info, ...)
{
    const CurlApi* api = curl();
    if (!api) {
        return CURLE_FAILED_INIT;
    }
    va_list args;
    va_start(args, info);
    void* out = va_arg(args, void*);
    va_end(args);
    return api->easyGetinfo(handle, info, out);
}

void curl_easy_cleanup(CURL* handle)
{
    if (const CurlApi* api = curl()) {
        api->easyCleanup(handle);
    }
}

const char* curl_easy_strerror(CURLcode code)
{
    const CurlApi* api = curl();
    return api ? api->easyStrerror(code) : "libcurl could not be loaded";
}

CURLM* curl_multi_init()
{
    const CurlApi* api = curl();
    return api ? api->multiInit() : nullptr;
}

CURLMcode curl_multi_setopt(CURLM* multi, CURLMoption option, ...)
{
    const CurlApi* api = curl();
    if (!api) {
        return CURLM_INTERNAL_ERROR;
    }
    va_list args;
    va_start(args, option);
    const CURLMcode result = forwardOption(api->multiSetopt, multi, option, args);
    va_end(args);
    return result;
}

CURLMcode curl_multi_add_handle(CURLM* multi, CURL* handle)
{
    const CurlApi* api = curl();
    return api ? api->multiAddHandle(multi, handle) : CURLM_INTERNAL_ERROR;
}

CURLMcode curl_multi_remove_handle(CURLM* multi, CURL* handle)
{
    const CurlApi* api = curl();
    return api ? api->multiRemoveHandle(multi, handle) : CURLM_INTERNAL_ERROR;
}

CURLMcode curl_multi_perform(CURLM* multi, int* running)
{
    const CurlApi* api = curl();
    return api ? api->multiPerform(multi, running) : CURLM_INTERNAL_ERROR;
}

CURLMcode curl_multi_poll(CURLM* multi, curl_waitfd extra[], unsigned int extraCount, int timeoutMs, int* ready)
{
    const CurlApi* api = curl();
    return api ? api->multiPoll(multi, extra, extraCount, timeoutMs, ready) : CURLM_INTERNAL_ERROR;
}

CURLMsg* curl_multi_info_read(CURLM* multi, int* queued)
{
    const CurlApi* api = curl();
    return api ? api->multiInfoRead(multi, queued) : nullptr;
}

CURLMcode curl_multi_cleanup(CURLM* multi)
{
    const CurlApi* api = curl();
    return api ? api->multiCleanup(multi) : CURLM_INTERNAL_ERROR;
}

CURLSH* curl_share_init()
{
    const CurlApi* api = curl();
    return api ? api->shareInit() : nullptr;
}

CURLSHcode curl_share_setopt(CURLSH* share, CURLSHoption option, ...)
{
    const CurlApi* api = curl();
    if (!api) {
        return CURLSHE_NOT_BUILT_IN;
    }
    va_list args;
    va_start(args, option);
    CURLSHcode result;
    // What to share is an int; the lock functions and their data are pointers.
    if (option == CURLSHOPT_SHARE || option == CURLSHOPT_UNSHARE) {
        result = api->shareSetopt(share, option, va_arg(args, int));
    } else {
        result = api->shareSetopt(share, option, va_arg(args, void*));
    }
    va_end(args);
    return result;
}

CURLSHcode curl_share_cleanup(CURLSH* share)
{
    const CurlApi* api = curl();
    return api ? api->shareCleanup(share) : CURLSHE_NOT_BUILT_IN;
}

curl_slist* curl_slist_append(curl_slist* list, const char* text)
{
    const CurlApi* api = curl();
    return api ? api->slistAppend(list, text) : nullptr;
}

void curl_slist_free_all(curl_slist* list)
{
    if (const CurlApi* api = curl()) {
        api->slistFreeAll(list);
    }
}

char* curl_version()
{
    const CurlApi* api = curl();
    static char missing[] = "libcurl (could not be loaded)";
    return api ? api->version() : missing;
}

} // extern "C"
