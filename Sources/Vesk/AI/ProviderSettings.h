// The settings of the model providers, without their page: keys, the servers on this machine, endpoints of
// the user's own. A key goes into the system's keyring and never comes back from it in full.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Brain/BrainProviders.h"
#include "VeskCore/Support/Executors.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/Observable.h"

namespace vesk {

/// Main thread. The keyring and the servers are asked on workers.
class ProviderSettings : public std::enable_shared_from_this<ProviderSettings> {
public:
    struct Key {
        BrainProviderID provider;
        std::optional<std::string> masked;  ///< as it may be shown; none without a key
        bool operator==(const Key&) const = default;
    };
    struct Server {
        BrainProviderID provider;
        bool isReady = false;
        std::string state;  ///< "Connected · 2 models", or why it can't be asked
        bool operator==(const Server&) const = default;
    };
    struct State {
        std::vector<Key> keys;  ///< empty until the keyring has answered
        std::vector<Server> servers;
        bool checking = false;
        bool operator==(const State&) const = default;
    };
    /// The providers with a key, the custom endpoint last.
    static const std::vector<BrainProviderID>& keyed();
    static constexpr std::string_view keyNotKept = marked(
        "The system's keyring didn't take the key, so it wasn't kept. Unlock the keyring and try again.");
    static constexpr std::string_view keyNotRemoved =
        marked("The system's keyring didn't let go of the key. Unlock the keyring and try again.");

    static std::shared_ptr<ProviderSettings> make(const BrainProviders& providers, SecretStore& secrets,
                                                  UserDefaults& defaults, MainQueue& mainQueue,
                                                  Background& background);

    Observable<State> state;
    /// Words about what could not be done.
    EventStream<std::string> problem;
    /// Something that decides which provider can answer is another now.
    std::function<void()> onChanged;

    /// Reads the keys and asks the servers anew.
    void refresh();
    /// Blanks around it are no part of a key; an empty one changes nothing.
    void setKey(BrainProviderID provider, std::string_view key);
    void removeKey(BrainProviderID provider);

    std::string customAddress() const;
    std::string customModel() const;
    /// An empty address takes the endpoint away. What is wrong with it, or none.
    std::optional<std::string> setCustom(std::string_view address, std::string_view model);

    std::string onDeviceAddress() const;
    std::string onDeviceModel() const;
    std::optional<int> onDeviceContext() const;
    /// The server on this machine that plays the on-device model.
    std::optional<std::string> setOnDevice(std::string_view address, std::string_view model,
                                           std::string_view contextTokens);

private:
    ProviderSettings(const BrainProviders& providers, SecretStore& secrets, UserDefaults& defaults,
                     MainQueue& mainQueue, Background& background);
    void keep(BrainProviderID provider, const std::optional<std::string>& key);
    void changed();

    const BrainProviders& providers_;
    SecretStore& secrets_;
    const Keychain keychain_;
    UserDefaults& defaults_;
    MainQueue& mainQueue_;
    Background& background_;
    std::unique_ptr<SerialQueue> keys_;  ///< one keyring call after the other, in order
    std::uint64_t check_ = 0;
};

}  // namespace vesk
