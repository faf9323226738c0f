#include "VeskCore/Support/Digest.h"

#include <openssl/evp.h>

#include "VeskCore/Support/Ensure.h"

namespace vesk {

namespace {

/// Looked up once: finding an algorithm takes longer than a short digest.
const EVP_MD* sha256Algorithm() {
    static EVP_MD* const algorithm = EVP_MD_fetch(nullptr, "SHA256", nullptr);
    VESK_ENSURE(algorithm != nullptr);
    return algorithm;
}

}  // namespace

Sha256Digest sha256(std::string_view bytes) {
    Sha256Digest digest{};
    unsigned size = 0;
    VESK_ENSURE(EVP_Digest(bytes.data(), bytes.size(), digest.data(), &size, sha256Algorithm(), nullptr) ==
                1);
    return digest;
}

std::string sha256Hex(std::string_view bytes) {
    auto digest = sha256(bytes);
    return hexadecimal({reinterpret_cast<const char*>(digest.data()), digest.size()});
}

std::string hexadecimal(std::string_view bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (char c : bytes) {
        auto byte = static_cast<unsigned char>(c);
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

struct Sha256::Context {
    EVP_MD_CTX* handle = EVP_MD_CTX_new();
    ~Context() { EVP_MD_CTX_free(handle); }
};

Sha256::Sha256() : context_(std::make_unique<Context>()) {
    VESK_ENSURE(context_->handle && EVP_DigestInit_ex(context_->handle, sha256Algorithm(), nullptr) == 1);
}

Sha256::~Sha256() = default;

void Sha256::update(std::string_view bytes) {
    VESK_ENSURE(EVP_DigestUpdate(context_->handle, bytes.data(), bytes.size()) == 1);
}

Sha256Digest Sha256::finish() {
    Sha256Digest digest{};
    unsigned size = 0;
    VESK_ENSURE(EVP_DigestFinal_ex(context_->handle, digest.data(), &size) == 1);
    return digest;
}

}  // namespace vesk
