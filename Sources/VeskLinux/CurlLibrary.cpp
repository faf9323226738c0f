#include "VeskLinux/CurlLibrary.h"

#include <dlfcn.h>

#include "VeskCore/Platform/HttpTransport.h"

namespace vesk {

namespace {

template <class Function>
void find(void* library, const char* name, Function& function) {
    function = reinterpret_cast<Function>(dlsym(library, name));
    if (!function) throw HttpError(HttpError::Kind::badRequest, "libcurl is too old");
}

CurlLibrary load() {
    void* library = dlopen("libcurl.so.4", RTLD_NOW | RTLD_LOCAL);
    if (!library) throw HttpError(HttpError::Kind::badRequest, "libcurl is missing");
    CurlLibrary curl;
    find(library, "curl_easy_cleanup", curl.easyCleanup);
    find(library, "curl_easy_init", curl.easyInit);
    find(library, "curl_easy_setopt", curl.easySetopt);
    find(library, "curl_easy_strerror", curl.easyStrerror);
    find(library, "curl_free", curl.free);
    find(library, "curl_multi_add_handle", curl.multiAddHandle);
    find(library, "curl_multi_cleanup", curl.multiCleanup);
    find(library, "curl_multi_info_read", curl.multiInfoRead);
    find(library, "curl_multi_init", curl.multiInit);
    find(library, "curl_multi_perform", curl.multiPerform);
    find(library, "curl_multi_poll", curl.multiPoll);
    find(library, "curl_multi_remove_handle", curl.multiRemoveHandle);
    find(library, "curl_multi_setopt", curl.multiSetopt);
    find(library, "curl_multi_wakeup", curl.multiWakeup);
    find(library, "curl_slist_append", curl.slistAppend);
    find(library, "curl_slist_free_all", curl.slistFreeAll);
    find(library, "curl_url", curl.url);
    find(library, "curl_url_cleanup", curl.urlCleanup);
    find(library, "curl_url_get", curl.urlGet);
    find(library, "curl_url_set", curl.urlSet);
    decltype(&curl_global_init) start = nullptr;
    find(library, "curl_global_init", start);
    start(CURL_GLOBAL_DEFAULT);
    return curl;
}

}  // namespace

const CurlLibrary& CurlLibrary::shared() {
    static const CurlLibrary library = load();
    return library;
}

}  // namespace vesk
