#include "VeskCore/Vault/VaultWriteError.h"

#include "VeskCore/Support/Localised.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"

namespace vesk {

std::string VaultWriteError::description() const {
    // File names are bytes; what the user reads is text.
    const std::string whole = decodedText(path.native());
    const std::string_view last = lastComponent(whole);
    switch (kind) {
        case Kind::notMaterialised:
            return localised("\"{}\" hasn't finished downloading from iCloud yet.", last);
        case Kind::outsideVault:
            return localised("\"{}\" is outside the vault.", whole);
        case Kind::encodingFailed:
            return localised("Couldn't encode \"{}\" as UTF-8.", last);
        case Kind::alreadyExists:
            return localised("One called “{}” is already in this folder.", stem(whole));
        case Kind::notCurrent:
            return localised("A newer version of \"{}\" is still downloading from iCloud.", last);
        case Kind::readOnlyDocument:
            return localised("\"{}\" is a web page or stylesheet, which Vesk opens read-only.", last);
    }
    return {};
}

}  // namespace vesk
