#include "VeskCore/Vault/VaultWriteError.h"

#include <fmt/format.h>

#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"

namespace vesk {

std::string VaultWriteError::description() const {
    // File names are bytes; what the user reads is text.
    const std::string whole = decodedText(path.native());
    const std::string_view last = lastComponent(whole);
    switch (kind) {
        case Kind::notMaterialised:
            return fmt::format("\"{}\" hasn't finished downloading from iCloud yet.", last);
        case Kind::outsideVault:
            return fmt::format("\"{}\" is outside the vault.", whole);
        case Kind::encodingFailed:
            return fmt::format("Couldn't encode \"{}\" as UTF-8.", last);
        case Kind::alreadyExists:
            return fmt::format("One called “{}” is already in this folder.", stem(whole));
        case Kind::notCurrent:
            return fmt::format("A newer version of \"{}\" is still downloading from iCloud.", last);
        case Kind::readOnlyDocument:
            return fmt::format("\"{}\" is a web page or stylesheet, which Vesk opens read-only.", last);
    }
    return {};
}

}  // namespace vesk
