// libcurl, loaded when the first request is made: with all that it draws in it takes longer to load than most
// commands take to run, and most commands make no request.
#pragma once

#include <curl/curl.h>

namespace vesk {

/// libcurl's functions by their names there.
struct CurlLibrary {
    decltype(&curl_easy_cleanup) easyCleanup = nullptr;
    decltype(&curl_easy_init) easyInit = nullptr;
    decltype(&curl_easy_setopt) easySetopt = nullptr;
    decltype(&curl_easy_strerror) easyStrerror = nullptr;
    decltype(&curl_free) free = nullptr;
    decltype(&curl_multi_add_handle) multiAddHandle = nullptr;
    decltype(&curl_multi_cleanup) multiCleanup = nullptr;
    decltype(&curl_multi_info_read) multiInfoRead = nullptr;
    decltype(&curl_multi_init) multiInit = nullptr;
    decltype(&curl_multi_perform) multiPerform = nullptr;
    decltype(&curl_multi_poll) multiPoll = nullptr;
    decltype(&curl_multi_remove_handle) multiRemoveHandle = nullptr;
    decltype(&curl_multi_setopt) multiSetopt = nullptr;
    decltype(&curl_multi_wakeup) multiWakeup = nullptr;
    decltype(&curl_slist_append) slistAppend = nullptr;
    decltype(&curl_slist_free_all) slistFreeAll = nullptr;
    decltype(&curl_url) url = nullptr;
    decltype(&curl_url_cleanup) urlCleanup = nullptr;
    decltype(&curl_url_get) urlGet = nullptr;
    decltype(&curl_url_set) urlSet = nullptr;

    /// Loaded and started at the first call, for good. Throws HttpError if the system has no such library.
    static const CurlLibrary& shared();
};

}  // namespace vesk
