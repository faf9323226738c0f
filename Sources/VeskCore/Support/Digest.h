// SHA-256 (FIPS 180-4).
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace vesk {

using Sha256Digest = std::array<std::uint8_t, 32>;

Sha256Digest sha256(std::string_view bytes);
/// Lower-case hexadecimal, two digits per byte.
std::string sha256Hex(std::string_view bytes);
std::string hexadecimal(std::string_view bytes);

/// A digest of text that comes in pieces.
class Sha256 {
public:
    Sha256();
    ~Sha256();
    Sha256(const Sha256&) = delete;
    Sha256& operator=(const Sha256&) = delete;
    void update(std::string_view bytes);
    /// Ends the digest; no update after it.
    Sha256Digest finish();

private:
    struct Context;
    std::unique_ptr<Context> context_;
};

}  // namespace vesk
