#include <gtest/gtest.h>

#include "Support/Fakes.h"
#include "VeskCore/Brain/CustomEndpoint.h"
#include "VeskCore/Brain/Keychain.h"

namespace vesk::test {
namespace {

TEST(Keychains, KeepOneKeyForEachAccount) {
    MemorySecretStore store;
    Keychain keychain(store);
    EXPECT_FALSE(keychain.has("openai"));
    keychain.set("one", "openai");
    keychain.set("two", "openai");
    keychain.set("three", "gemini");
    EXPECT_EQ(keychain.get("openai"), "two");
    EXPECT_EQ(store.get("com.tarnlight.vesk.apikeys", "gemini"), "three");
    keychain.set("", "openai");
    EXPECT_FALSE(keychain.has("openai"));
    EXPECT_EQ(store.get("com.tarnlight.vesk.apikeys", "openai"), std::nullopt);
    keychain.set(std::nullopt, "gemini");
    EXPECT_FALSE(keychain.has("gemini"));
}

TEST(Keychains, ReadAnythingUnusableAsNoKey) {
    MemorySecretStore store;
    Keychain keychain(store);
    store.add("com.tarnlight.vesk.apikeys", "empty", "");
    store.add("com.tarnlight.vesk.apikeys", "bytes", "\xFF\xFE");
    EXPECT_EQ(keychain.get("empty"), std::nullopt);
    EXPECT_EQ(keychain.get("bytes"), std::nullopt);
    EXPECT_EQ(keychain.masked("bytes"), std::nullopt);
    keychain.set("key", "openai");
    store.unreachable = true;
    EXPECT_FALSE(keychain.has("openai"));
    EXPECT_NO_THROW(keychain.set("other", "openai"));
    store.unreachable = false;
    EXPECT_EQ(keychain.get("openai"), "key");
}

TEST(Keychains, MaskKeysByTheirCharacters) {
    struct Row {
        std::string_view key, masked;
    };
    const Row rows[] = {
        {"x", "•"},         {"123456789012", "••••••••••••"},  {"1234567890123", "1234567…0123"},
        {"ä\u0301😀", "••"}, {"éééééééxxéééé", "ééééééé…éééé"},
    };
    MemorySecretStore store;
    Keychain keychain(store);
    for (const auto& row : rows) {
        keychain.set(std::string(row.key), "a");
        EXPECT_EQ(keychain.masked("a"), row.masked) << row.key;
    }
    EXPECT_EQ(keychain.masked("none"), std::nullopt);
}

TEST(CustomEndpoints, MakeABaseAddressOfWhatIsTyped) {
    struct Row {
        std::string_view name, input;
        std::optional<std::string> expected;
    };
    const Row rows[] = {
        {"loopback", "http://127.0.0.1:1234", "http://127.0.0.1:1234/v1"},
        {"a bare host", " api.example.com\n", "https://api.example.com/v1"},
        {"host and port", "localhost:11434/", "https://localhost:11434/v1"},
        {"the whole call", "api.example.com/v1/chat/completions/", "https://api.example.com/v1"},
        {"the older call", "https://h/v1/completions", "https://h/v1"},
        {"the call without a version", "https://h/api/chat/completions", "https://h/api/v1"},
        {"a version stands", "https://h/openai/v1///", "https://h/openai/v1"},
        {"a longer version stands", "https://h/v1beta/openai", "https://h/v1beta/openai"},
        {"another version does not", "https://h/api/v2", "https://h/api/v2/v1"},
        {"a version in the host does not count", "https://x/?y=/v1", "https://x/v1?y=/v1"},
        {"an escaped version counts", "https://h/%761", "https://h/%761"},
        {"a query stays behind the path", "http://h/api?key=1", "http://h/api/v1?key=1"},
        {"a query without a path", "http://h?key=1#f", "http://h/v1?key=1#f"},
        {"user information", "https://u:p%40@h:8443/a", "https://u:p%40@h:8443/a/v1"},
        {"an IPv6 host", "http://[::1]:1234/", "http://[::1]:1234/v1"},
        {"blanks", " \t\r\n", std::nullopt},
        {"a scheme alone", "https://", std::nullopt},
        {"slashes alone", "///", std::nullopt},
        {"a port without a host", "https://:80", std::nullopt},
        {"a query without a host", "https://?x", std::nullopt},
        {"a file", "file:///tmp/v1", std::nullopt},
        {"a port out of range", "https://h:99999", std::nullopt},
        {"a broken IPv6 host", "http://[::1", std::nullopt},
        {"a broken escape", "https://h/%zz", std::nullopt},
        {"a blank inside", "https://my server/v1", std::nullopt},
        {"a line end inside", "https://h/a\nHost: b", std::nullopt},
        {"marks that no URL holds", "https://h/<v1>", std::nullopt},
        {"a NUL", std::string_view("https://h\0x", 11), std::nullopt},
    };
    for (const auto& row : rows) EXPECT_EQ(CustomEndpoint::normalise(row.input), row.expected) << row.name;
}

TEST(CustomEndpoints, LiveInTheUserDefaults) {
    MemoryUserDefaults defaults;
    CustomEndpoint endpoint(defaults);
    EXPECT_FALSE(endpoint.isConfigured());
    EXPECT_EQ(endpoint.model(), "");
    endpoint.setBaseURL("http://127.0.0.1:1/v1");
    endpoint.setModel("llama");
    EXPECT_EQ(endpoint.baseURL(), "http://127.0.0.1:1/v1");
    EXPECT_EQ(defaults.string("vesk.custom.baseURL"), "http://127.0.0.1:1/v1");
    EXPECT_EQ(defaults.string("vesk.custom.model"), "llama");
    endpoint.setBaseURL(std::nullopt);
    EXPECT_EQ(defaults.value("vesk.custom.baseURL"), std::nullopt);
    for (const auto* stored : {"", "no address", "%"}) {
        defaults.set("vesk.custom.baseURL", Json(stored));
        EXPECT_FALSE(endpoint.isConfigured()) << stored;
    }
}

}  // namespace
}  // namespace vesk::test
