// An on-device model behind a server on this machine that the user named: for a system that has no model of
// its own.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "VeskCore/Brain/LocalServerProbe.h"
#include "VeskCore/Platform/HttpTransport.h"
#include "VeskCore/Platform/SystemLanguageModel.h"
#include "VeskCore/Platform/UserDefaults.h"

namespace vesk {

/// Any thread. Borrows the transport and the defaults. An address beyond this machine is never asked.
class LocalServerModel final : public SystemLanguageModel {
public:
    /// The server's base address ("http://127.0.0.1:11434/v1"), the model's name there, and its context in
    /// tokens.
    static constexpr std::string_view baseURLKey = "vesk.ondevice.baseURL";
    static constexpr std::string_view modelKey = "vesk.ondevice.model";
    static constexpr std::string_view contextSizeKey = "vesk.ondevice.contextSize";

    LocalServerModel(HttpTransport& transport, const UserDefaults& defaults,
                     std::shared_ptr<ProbeCache> probes)
        : transport_(transport), defaults_(defaults), probes_(std::move(probes)) {}

    /// By the server's last answer to a probe; one that was not asked yet counts as there, and is asked.
    std::optional<Unavailability> unavailability() const override;
    std::optional<int> contextSize() const override;
    void streamResponse(const std::string& instructions, const std::string& prompt,
                        const GenerationOptions& options,
                        const std::function<void(const std::string& snapshot)>& onSnapshot,
                        std::stop_token stop) override;
    std::map<std::string, std::string> respond(const std::string& instructions, const std::string& prompt,
                                               const GenerationSchema& schema,
                                               const GenerationOptions& options,
                                               std::stop_token stop) override;

    /// None if nothing is named or it lies beyond this machine.
    std::optional<std::string> baseURL() const;

private:
    /// The model that was named, else the first the server told of; "" if neither.
    std::string model(const std::string& baseURL) const;
    HttpRequest request(const std::string& instructions, const std::string& prompt,
                        const GenerationOptions& options, const GenerationSchema* schema) const;

    HttpTransport& transport_;
    const UserDefaults& defaults_;
    const std::shared_ptr<ProbeCache> probes_;
};

}  // namespace vesk
