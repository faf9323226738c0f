#include "VeskLinux/SecretServiceStore.h"

#include <libsecret/secret.h>

#include <memory>

#include "VeskCore/Support/Text.h"

namespace vesk {

namespace {

struct Unref {
    void operator()(GHashTable* table) const { g_hash_table_unref(table); }
    void operator()(SecretValue* value) const { secret_value_unref(value); }
    void operator()(GError* error) const { g_error_free(error); }
    void operator()(GList* list) const { g_list_free_full(list, g_object_unref); }
};
template <class T>
using Owned = std::unique_ptr<T, Unref>;

constexpr const char* lockedWords = "The desktop's keyring is locked. Unlock it and try again.";

const SecretSchema& schema() {
    static const SecretSchema value = [] {
        SecretSchema made{};
        made.name = "com.tarnlight.vesk.Secret";
        made.flags = SECRET_SCHEMA_NONE;
        made.attributes[0] = {"service", SECRET_SCHEMA_ATTRIBUTE_STRING};
        made.attributes[1] = {"account", SECRET_SCHEMA_ATTRIBUTE_STRING};
        return made;
    }();
    return value;
}

Owned<GHashTable> attributes(std::string_view service, std::string_view account) {
    for (const std::string_view text : {service, account}) {
        // D-Bus carries neither.
        if (!isValidUtf8(text) || text.find('\0') != text.npos) {
            throw SecretStoreError("The keyring can't keep an entry under this name.");
        }
    }
    Owned<GHashTable> table(g_hash_table_new_full(g_str_hash, g_str_equal, g_free, g_free));
    const auto add = [&](const char* name, std::string_view value) {
        g_hash_table_insert(table.get(), g_strdup(name), g_strndup(value.data(), value.size()));
    };
    add("service", service);
    add("account", account);
    return table;
}

/// What GLib tells of a failure, as words for the user.
void requireSuccess(GError* failure) {
    if (!failure) return;
    const Owned<GError> error(failure);
    if (g_error_matches(failure, SECRET_ERROR, SECRET_ERROR_IS_LOCKED)) throw SecretStoreError(lockedWords);
    g_dbus_error_strip_remote_error(failure);
    const bool isRefusal = failure->domain == SECRET_ERROR;
    throw SecretStoreError(std::string(isRefusal
                                           ? "The desktop's keyring refused: "
                                           : "The desktop's keyring (Secret Service) can't be reached: ") +
                           failure->message);
}

/// An item that is locked answers a look-up like one that isn't there: the user closed the prompt.
void requireNoLockedItem(GHashTable* names) {
    GError* failure = nullptr;
    const Owned<GList> found(
        secret_password_searchv_sync(&schema(), names, SECRET_SEARCH_ALL, nullptr, &failure));
    requireSuccess(failure);
    for (const GList* item = found.get(); item; item = item->next) {
        gboolean isLocked = FALSE;
        g_object_get(item->data, "locked", &isLocked, nullptr);
        if (isLocked) throw SecretStoreError(lockedWords);
    }
}

}  // namespace

std::optional<std::string> SecretServiceStore::get(std::string_view service, std::string_view account) const {
    const auto names = attributes(service, account);
    GError* failure = nullptr;
    const Owned<SecretValue> value(
        secret_password_lookupv_binary_sync(&schema(), names.get(), nullptr, &failure));
    requireSuccess(failure);
    if (!value) {
        requireNoLockedItem(names.get());
        return {};
    }
    gsize size = 0;
    const gchar* bytes = secret_value_get(value.get(), &size);
    return std::string(bytes, size);
}

void SecretServiceStore::add(std::string_view service, std::string_view account, std::string_view value) {
    const auto names = attributes(service, account);
    const bool isText = isValidUtf8(value) && value.find('\0') == value.npos;
    const Owned<SecretValue> secret(secret_value_new(value.data(), static_cast<gssize>(value.size()),
                                                     isText ? "text/plain" : "application/octet-stream"));
    const std::string label = "Vesk: " + std::string(account);
    GError* failure = nullptr;
    const gboolean isStored = secret_password_storev_binary_sync(
        &schema(), names.get(), SECRET_COLLECTION_DEFAULT, label.c_str(), secret.get(), nullptr, &failure);
    requireSuccess(failure);
    if (!isStored) throw SecretStoreError(lockedWords);
}

void SecretServiceStore::remove(std::string_view service, std::string_view account) {
    const auto names = attributes(service, account);
    GError* failure = nullptr;
    const gboolean isRemoved = secret_password_clearv_sync(&schema(), names.get(), nullptr, &failure);
    requireSuccess(failure);
    if (!isRemoved) requireNoLockedItem(names.get());
}

}  // namespace vesk
